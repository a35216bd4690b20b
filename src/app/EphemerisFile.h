#pragma once

#include "app/ReplacedFile.h"
#include "gnss/gnsscmn.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

/// EphemerisFile: the last ephemeris frame of each satellite in a file of RTCM 3 frames, so that a
/// service that starts again answers its first epoch in full. In front of each frame stands a 1013
/// that says when it was received. A new file takes the place of the old one whole.
class EphemerisFile {
public:
    /// The file of a deployment in a folder; with an empty one nothing is kept. Also when a signal
    /// ends the process, what is new is written. One object does this at a time.
    void open(const std::string& folder, const std::string& deployment);
    /// Calls take(frame) for those of the file that are not too old; the satellite that it returns
    /// keeps the frame, 0 = none. A file that is no such one is told and passed over.
    void read(const std::function<int(std::span<const std::uint8_t>)>& take);
    /// Keeps a frame, received just now, as the satellite's last one.
    void keep(int satellite, std::span<const std::uint8_t> frame);
    /// Writes what is new, at most once a minute. A failure is told when it begins.
    void writeIfDue();

private:
    static constexpr std::size_t kMostFrame = 96;  // bytes of an ephemeris
    static constexpr std::size_t kStampBytes = 15; // of a 1013
    struct Kept {
        std::int64_t at = 0;  // UTC, s
        std::size_t size = 0; // 0 = none
        std::array<std::uint8_t, kMostFrame> bytes{};
    };
    struct Store {
        std::array<Kept, kMaxSatNumber + 1> kept; // by satellite number
        std::array<std::uint8_t, kMaxSatNumber*(kStampBytes + kMostFrame)> file;
    };

    void keep(int satellite, std::span<const std::uint8_t> frame, std::int64_t at);
    std::size_t compose();
    int write();
    static void writeAtEnd();

    ReplacedFile file_;
    std::unique_ptr<Store> store_; // null: nothing is kept
    bool dirty_ = false;
    std::chrono::nanoseconds writtenAt_{};
};
