#include "app/EphemerisFile.h"

#include "base/Print.h"
#include "base/Signals.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "rtcm/Frame.h"
#include "rtcm/layouts/StationMessages.h"

#include <algorithm>
#include <cerrno>
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
        if (stamp.empty() || messageType(stamp) != 1013 || frame.empty() ||
            !isEphemeris(messageType(frame)))
            return {};
        frames.push_back({timeOf(stamp), frame});
    }
    return frames;
}

} // namespace

void EphemerisFile::open(const std::string& folder, const std::string& deployment) {
    if (folder.empty())
        return;
    file_.open(folder + "/" + std::filesystem::path(deployment).stem().string() + ".rtcm3");
    store_ = std::make_unique<Store>();
    writtenAt_ = monotonicNow();
    toWriteAtEnd = this;
    callBeforeEnd(writeAtEnd);
}

void EphemerisFile::read(const std::function<int(std::span<const std::uint8_t>)>& take) {
    if (!store_)
        return;
    const char* const path = file_.path().c_str();
    // Neither a link is followed nor a pipe waited for.
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT)
        return; // the first start
    const ssize_t n = fd < 0 ? -1 : ::read(fd, store_->file.data(), store_->file.size());
    const int error = errno;
    if (fd >= 0)
        close(fd);
    if (n < 0) {
        print(Level::warning, "***WARN: file = %s,cannot be read,%s\n", path, std::strerror(error));
        return;
    }
    const auto frames = framesOf(std::span(store_->file).first(static_cast<std::size_t>(n)));
    if (frames.empty()) {
        print(Level::warning, "***WARN: file = %s,holds no saved ephemerides,passed over!\n", path);
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
    print(Level::notice, "***INFO: file = %s,%zu of %zu ephemerides are taken up\n", path, fresh,
          frames.size());
}

void EphemerisFile::keep(int satellite, std::span<const std::uint8_t> frame) {
    keep(satellite, frame, utcNow().time);
}

void EphemerisFile::keep(int satellite, std::span<const std::uint8_t> frame, std::int64_t at) {
    if (!store_ || frame.size() > kMostFrame)
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
    file_.tell(write());
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

/// What ReplacedFile::write gives.
int EphemerisFile::write() {
    const std::size_t size = [this] {
        const SignalsDeferred untilWhole;
        return compose();
    }();
    const int error =
        file_.write(std::span(store_->file).first(size), ReplacedFile::Disk::isWaitedFor);
    dirty_ = error != 0; // a signal before this writes it anew
    return error;
}

void EphemerisFile::writeAtEnd() {
    if (toWriteAtEnd && toWriteAtEnd->dirty_)
        static_cast<void>(toWriteAtEnd->write());
}
