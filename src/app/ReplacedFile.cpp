#include "app/ReplacedFile.h"

#include "base/Print.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

void ReplacedFile::open(const std::string& path) {
    path_ = path;
    fresh_ = path + ".new";
}

int ReplacedFile::write(std::span<const std::uint8_t> content, Disk disk) const {
    unlink(fresh_.c_str()); // of a write that was cut off, or a pipe that would be waited for
    const int fd = ::open(fresh_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    errno = ENOSPC; // of a write that takes a part
    const bool whole =
        ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
        (disk == Disk::mayWait || fsync(fd) == 0);
    int error = whole ? 0 : errno;
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && std::rename(fresh_.c_str(), path_.c_str()) != 0)
        error = errno;
    if (error != 0)
        unlink(fresh_.c_str());
    return error;
}

void ReplacedFile::tell(int error) {
    const bool failed = std::exchange(failing_, error != 0);
    if (failing_ && !failed)
        print(Level::warning, "***WARN: file = %s,cannot be written,%s\n", path_.c_str(),
              std::strerror(error));
    else if (failed && !failing_)
        print(Level::notice, "***INFO: file = %s,is written again\n", path_.c_str());
}
