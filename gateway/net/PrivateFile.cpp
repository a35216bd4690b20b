#include "gateway/net/PrivateFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace gateway {

namespace {

/// A new file beside the one that it will replace; gone unless it was kept.
class Fresh {
public:
    explicit Fresh(const std::filesystem::path& final) : path_(final.string() + ".XXXXXX") {
        fd_ = mkostemp(path_.data(), O_CLOEXEC); // mode 0600
        check(fd_ >= 0);
    }
    ~Fresh() {
        if (fd_ >= 0)
            close(fd_);
        if (!path_.empty())
            unlink(path_.c_str());
    }
    Fresh(const Fresh&) = delete;
    Fresh& operator=(const Fresh&) = delete;

    void rightsOf(const struct stat& before) {
        struct stat own {};
        check(fstat(fd_, &own) == 0);
        if (own.st_uid != before.st_uid || own.st_gid != before.st_gid)
            check(fchown(fd_, before.st_uid, before.st_gid) == 0);
        check(fchmod(fd_, S_IRUSR | S_IWUSR | (before.st_mode & S_IRGRP)) == 0);
    }
    void write(std::string_view content) {
        while (!content.empty()) {
            const ssize_t n = ::write(fd_, content.data(), content.size());
            check(n > 0 || errno == EINTR);
            content.remove_prefix(static_cast<std::size_t>(n > 0 ? n : 0));
        }
    }
    void becomes(const std::filesystem::path& final) {
        check(fsync(fd_) == 0);
        check(std::rename(path_.c_str(), final.c_str()) == 0);
        path_.clear();
    }

private:
    void check(bool good) const {
        if (!good)
            throw std::system_error(errno, std::generic_category());
    }

    std::string path_;
    int fd_ = -1;
};

} // namespace

void writePrivateFile(const std::filesystem::path& path, std::string_view content) {
    std::error_code none;
    const std::filesystem::path final =
        std::filesystem::is_symlink(path, none) ? std::filesystem::canonical(path) : path;
    Fresh fresh(final);
    if (struct stat before{}; stat(final.c_str(), &before) == 0)
        fresh.rightsOf(before);
    fresh.write(content);
    fresh.becomes(final);
}

} // namespace gateway
