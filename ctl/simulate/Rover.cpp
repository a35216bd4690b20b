#include "ctl/simulate/Rover.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>

namespace ctl::simulate {

namespace {

void check(int error) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "the command of --rover");
}

} // namespace

void Rover::start() {
    end();
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno);
    output_ = FileDescriptor(ends[0]);
    const FileDescriptor input(ends[1]);
    fcntl(output_.get(), F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, input.get(), STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::array<char*, 4> words{const_cast<char*>("sh"), const_cast<char*>("-c"), command_.data(),
                               nullptr};
    const int error = posix_spawn(&process_, "/bin/sh", &files, &attributes, words.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    check(error);
}

void Rover::end() {
    output_.reset();
    if (process_ <= 0)
        return;
    kill(-process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = 0;
}

ssize_t Rover::read(std::span<std::uint8_t> buffer) const {
    const ssize_t n = ::read(output_.get(), buffer.data(), buffer.size());
    return n >= 0 ? n : errno == EAGAIN || errno == EINTR ? -1 : 0;
}

} // namespace ctl::simulate
