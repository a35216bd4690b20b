#include "app/EphemerisFile.h"

#include "base/Print.h"
#include "base/Signals.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "rtcm/Frame.h"
#include "rtcm/layouts/StationMessages.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::chrono::minutes kSpacing{1};
/// Ephemerides are broadcast about two hours ahead and used for two hours more. So old, their days
/// and weeks are still sure.
constexpr std::int64_t kMostAgeS = 14400;
constexpr std::int64_t kMostAheadS = 60; // a clock that was set back

EphemerisFile* toWriteAtEnd = nullptr;

/// Length of the whole frame in front, its check word right; 0 where there is none.
std::size_t wholeFrame(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < kHeaderBytes + kCheckBytes || bytes[0] != kPreamble)
        return 0;
    const std::size_t size = getbitu(bytes, 14, 10) + kHeaderBytes + kCheckBytes;
    if (size > bytes.size())
        return 0;
    const std::size_t checked = size - kCheckBytes;
    return crc24q(bytes.first(checked)) == getbitu(bytes, 8 * checked, 24) ? size : 0;
}

int typeOf(std::span<const std::uint8_t> frame) {
    return static_cast<int>(getbitu(frame, kMessageBit, 12));
}

bool isEphemeris(int type) {
    constexpr std::array<int, 7> types{63, 1019, 1020, 1042, 1044, 1045, 1046};
    return std::ranges::find(types, type) != types.end();
}

struct Saved {
    std::int64_t at; // UTC, s
    std::span<const std::uint8_t> frame;
};

/// When a 1013 was sent, UTC, s.
std::int64_t timeOf(std::span<const std::uint8_t> stamp) {
    SystemParameters m;
    BitReader in = messageOf(stamp);
    layout1013(in, m);
    return mjd2time(m.mjd, m.secondsOfDay);
}

/// The frames of a file; empty where it holds anything else.
std::vector<Saved> framesOf(std::span<const std::uint8_t> file) {
    std::vector<Saved> frames;
    while (!file.empty()) {
        const std::span stamp = file.first(wholeFrame(file));
        file = file.subspan(stamp.size());
        const std::span frame = file.first(wholeFrame(file));
        file = file.subspan(frame.size());
        if (stamp.empty() || typeOf(stamp) != 1013 || frame.empty() || !isEphemeris(typeOf(frame)))
            return {};
        frames.push_back({timeOf(stamp), frame});
    }
    return frames;
}

} // namespace

void EphemerisFile::open(const std::string& folder, const std::string& deployment) {
    if (folder.empty())
        return;
    path_ = folder + "/" + std::filesystem::path(deployment).stem().string() + ".rtcm3";
    newPath_ = path_ + ".new";
    store_ = std::make_unique<Store>();
    writtenAt_ = monotonicNow();
    toWriteAtEnd = this;
    callBeforeEnd(writeAtEnd);
}

void EphemerisFile::read(const std::function<int(std::span<const std::uint8_t>)>& take) {
    if (path_.empty())
        return;
    // Neither a link is followed nor a pipe waited for.
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT)
        return; // the first start
    const ssize_t n = fd < 0 ? -1 : ::read(fd, store_->file.data(), store_->file.size());
    const int error = errno;
    if (fd >= 0)
        close(fd);
    if (n < 0) {
        print(Level::warning, "***WARN: file = %s,cannot be read,%s\n", path_.c_str(),
              std::strerror(error));
        return;
    }
    const auto frames = framesOf(std::span(store_->file).first(static_cast<std::size_t>(n)));
    if (frames.empty()) {
        print(Level::warning, "***WARN: file = %s,holds no saved ephemerides,passed over!\n",
              path_.c_str());
        return;
    }
    std::size_t fresh = 0;
    for (const Saved& saved : frames) {
        const std::int64_t ageS = utcNow().time - saved.at;
        if (ageS < -kMostAheadS || ageS > kMostAgeS)
            continue;
        ++fresh;
        if (const int satellite = take(saved.frame))
            keep(satellite, saved.frame, saved.at);
    }
    print(Level::notice, "***INFO: file = %s,%zu of %zu ephemerides are taken up\n", path_.c_str(),
          fresh, frames.size());
}

void EphemerisFile::keep(int satellite, std::span<const std::uint8_t> frame) {
    keep(satellite, frame, utcNow().time);
}

void EphemerisFile::keep(int satellite, std::span<const std::uint8_t> frame, std::int64_t at) {
    if (path_.empty() || frame.size() > kMostFrame)
        return;
    const SignalsDeferred untilWhole;
    Kept& kept = store_->kept[static_cast<std::size_t>(satellite)];
    kept.at = at;
    kept.size = frame.size();
    std::copy(frame.begin(), frame.end(), kept.bytes.begin());
    dirty_ = true;
}

void EphemerisFile::writeIfDue() {
    if (!dirty_ || monotonicNow() - writtenAt_ < kSpacing)
        return;
    printFlush(); // the disk may take long
    const int error = write();
    if (error != 0 && !failing_)
        print(Level::warning, "***WARN: file = %s,cannot be written,%s\n", path_.c_str(),
              std::strerror(error));
    else if (error == 0 && failing_)
        print(Level::notice, "***INFO: file = %s,is written again\n", path_.c_str());
    failing_ = error != 0;
    writtenAt_ = monotonicNow();
}

/// Puts the frames behind one another; the bytes of the file.
std::size_t EphemerisFile::compose() {
    const std::int64_t now = utcNow().time;
    std::size_t size = 0;
    for (const Kept& kept : store_->kept) {
        if (kept.size == 0 || now - kept.at > kMostAgeS)
            continue;
        const std::span room = std::span(store_->file).subspan(size);
        const MjdTime t = time2mjd(kept.at);
        const SystemParameters stamp{.mjd = t.mjd, .secondsOfDay = static_cast<int>(t.sod)};
        BitWriter out(room.subspan(kHeaderBytes));
        layout1013(out, stamp);
        const std::size_t before = closeFrame(room, kMessageBit + out.finish());
        std::copy_n(kept.bytes.begin(), kept.size,
                    room.begin() + static_cast<std::ptrdiff_t>(before));
        size += before + kept.size;
    }
    return size;
}

/// 0 or the error number; then the file is as it was. Nothing but async-signal-safe calls.
int EphemerisFile::write() {
    int fd = -1;
    bool whole = false;
    {
        const SignalsDeferred untilWritten;
        const std::size_t size = compose();
        unlink(newPath_.c_str()); // of a write that was cut off, or a pipe that would be waited for
        fd = ::open(newPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0)
            return errno;
        errno = ENOSPC; // of a write that takes a part
        whole = ::write(fd, store_->file.data(), size) == static_cast<ssize_t>(size);
    }
    int error = whole && fsync(fd) == 0 ? 0 : errno;
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && std::rename(newPath_.c_str(), path_.c_str()) != 0)
        error = errno;
    if (error != 0)
        unlink(newPath_.c_str());
    dirty_ = error != 0; // a signal before this writes it anew
    return error;
}

void EphemerisFile::writeAtEnd() {
    if (toWriteAtEnd && toWriteAtEnd->dirty_)
        static_cast<void>(toWriteAtEnd->write());
}
