#include "gateway/app/StateFolder.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace gateway {

namespace {

[[noreturn]] void unusable(const std::filesystem::path& path, const std::string& why) {
    throw std::runtime_error("the state folder " + path.string() + " " + why);
}

/// Who has the lock; 0 where this process cannot see it.
pid_t holderOf(int file, struct flock lock) {
    return fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

/// An open file with a lock of this process (fcntl(2)), which no child has.
int lockIn(const std::filesystem::path& folder) {
    // no station has a name that begins with a point
    const int file = open((folder / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0)
        unusable(folder, std::string("cannot be written: ") + std::strerror(errno));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    if (fcntl(file, F_SETLK, &lock) == 0)
        return file;
    const int error = errno;
    const pid_t holder = error == EAGAIN || error == EACCES ? holderOf(file, lock) : 0;
    close(file);
    if (error != EAGAIN && error != EACCES)
        unusable(folder, std::string("cannot be locked: ") + std::strerror(error));
    unusable(folder, "is in use by another gateway" +
                         (holder > 0 ? " (process " + std::to_string(holder) + ")" : "") +
                         ": stop that one, or write another folder as state of [gateway]");
}

} // namespace

StateFolder::StateFolder(const std::filesystem::path& path) : path_(path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        unusable(path, "cannot be made: " + error.message());
    lock_ = lockIn(path);
}

StateFolder::~StateFolder() {
    close(lock_);
}

bool StateFolder::is(const std::filesystem::path& path) const {
    std::error_code missing;
    return std::filesystem::equivalent(path, path_, missing);
}

} // namespace gateway
