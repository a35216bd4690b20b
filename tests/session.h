/// What the tests of the road share: places, satellites, a clock that stands, streams.
#pragma once

#include "base/ComText.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "reference/service/framing.h"
#include "reference/standard/geometry.h"
#include "reference/standard/orbit.h"
#include "reference/standard/sky.h"
#include "reference/standard/station.h"
#include "rtcm/rtcm3.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

inline const ref::GpsTime kNow{2009, 430650};
inline constexpr const char* kClock = "2018-07-12 23:37:11"; // kNow, as deployments write it
inline const ref::Vec3 kSite{-4467074.3577, 2683011.9038, -3667008.2845};

/// The ephemerides as the service is to take them: deliberately with BeiDou's rate for QZSS.
inline ref::Navigation asServed(ref::Navigation navigation) {
    navigation.qzssEarthRate = ref::earthRate('C');
    return navigation;
}

/// Every satellite that a stream may carry.
inline std::vector<std::string> allSatellites() {
    std::vector<std::string> names;
    for (int sat = 1; sat <= 168; ++sat)
        if (const std::string id = satno2id(sat); id[0] != 'C' || id <= "C42")
            names.push_back(id);
    return names;
}

/// A whole frame of the first bytes of the message that a frame holds.
inline ref::Bytes cut(const ref::Bytes& frame, std::ptrdiff_t bytes) {
    return ref::frame(ref::Bytes(frame.begin() + 3, frame.begin() + 3 + bytes));
}

/// The reply frame, typed by its description.
inline ref::Bytes replyFrame(const ref::Bytes& messages, unsigned flip = 0) {
    ref::Bytes out = ref::BitString()
                         .u(8, 0xDA)
                         .u(16, messages.size() + 7)
                         .u(8, 0x68)
                         .u(32, 0xFFFFFFFFU)
                         .u(16, 6)
                         .bytes();
    out.insert(out.end(), messages.begin(), messages.end());
    const ref::Bytes check = ref::BitString().u(32, ref::crc24q(out) ^ flip).bytes();
    out.insert(out.end(), check.begin(), check.end());
    return out;
}

/// Holds the clock at an instant, UTC.
class FixedClock {
public:
    explicit FixedClock(const CalendarTime& utc) { set(epoch2time(utc)); }
    /// At a GPS time.
    explicit FixedClock(ref::GpsTime t) { set(gpst2utc(gpst2time(t.week, t.sow))); }
    ~FixedClock() { utcNow = before_; }
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;

private:
    void set(GTime t) {
        instant() = t;
        utcNow = [] { return instant(); };
    }
    static GTime& instant() {
        static GTime t;
        return t;
    }
    GTime (*before_)() = utcNow;
};

/// Feeds bytes one by one; the statuses other than 0, in order.
inline std::vector<int> feed(RtcmState& state, const ref::Bytes& bytes) {
    std::vector<int> statuses;
    for (const std::uint8_t byte : bytes)
        if (const int status = input_rtcm3(state, byte))
            statuses.push_back(status);
    return statuses;
}

inline const ObsRecord* recordOf(const RtcmState& state, const std::string& name) {
    for (int i = 0; i < state.obs.n; ++i)
        if (satno2id(state.obs.data[static_cast<std::size_t>(i)].sat) == name)
            return &state.obs.data[static_cast<std::size_t>(i)];
    return nullptr;
}

inline std::unique_ptr<RtcmState> newState() {
    return std::make_unique<RtcmState>();
}

/// A recorded stream; empty where KESTRUNE_CAPTURES names no folder that holds it.
inline ref::Bytes capture(const std::string& name) {
    const char* const folder = std::getenv("KESTRUNE_CAPTURES");
    std::ifstream file(std::string(folder ? folder : "") + "/" + name, std::ios::binary);
    return ref::Bytes{std::istreambuf_iterator<char>(file), {}};
}
#define CAPTURE_OR_SKIP(variable, name)                                                            \
    const ref::Bytes variable = capture(name);                                                     \
    if ((variable).empty())                                                                        \
    GTEST_SKIP() << "KESTRUNE_CAPTURES names no folder with " << (name)
