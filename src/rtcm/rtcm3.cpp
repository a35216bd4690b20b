#include "rtcm/rtcm3.h"

#include "base/Findings.h"
#include "base/Print.h"
#include "gnss/Clock.h"
#include "gnss/Leaps.h"
#include "rtcm/Messages.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

/// Bytes that the frame under construction has in all; 3 until its length is known.
std::size_t frameSize(const RtcmState& s) {
    return static_cast<std::size_t>(s.nbyte) < kHeaderBytes
               ? kHeaderBytes
               : static_cast<std::size_t>(s.len) + kCheckBytes;
}

/// Whether the options leave a message out, unread: also one that is cut off is not malformed then.
bool leftOut(const RtcmState& s, int type) {
    return (type == 1045 && hasOption(s, "-GALINAV")) || (type == 1046 && hasOption(s, "-GALFNAV"));
}

template <class Record> void traceShort(const RtcmState& s, int type, const Record& m) {
    if constexpr (requires { m.bytes; })
        if (m.bytes > 0) { // its text is cut off, not what stands before
            trace(2, "rtcm3 %d length error: len=%d nchar=%d\n", type, s.len, m.bytes);
            return;
        }
    trace(2, "rtcm3 %d length error: len=%d\n", type, s.len);
}

/// Not inlined: the records of all messages would make the stack frame of each dispatch.
template <class Row> [[gnu::noinline]] int readMessage(RtcmState& s, const Row& row) {
    if (!row.read || leftOut(s, row.type))
        return kNothing;
    typename Row::Record m = row.blank();
    BitReader in = messageOf(s);
    row.layout(in, m);
    if (!in.ok()) {
        traceShort(s, row.type, m);
        return kMalformed;
    }
    return row.read(s, m);
}

int dispatch(RtcmState& s, int type) {
    if (type == 1041)
        return decode_type1041(s);
    int status = kNothing;
    if (!visitObservations(type, [&](const auto& row) { status = row.read(s, type); }))
        visitMessage(type, [&](const auto& row) { status = readMessage(s, row); });
    return status;
}

/// A message that has these reaches to its multiple-message bit (DF005, DF393), which is the 55th,
/// or in GLONASS 1009 to 1012 the 52nd.
constexpr int kBytesToEndMark = 7;
bool endsBeforeMark(const RtcmState& s) {
    return s.len < static_cast<int>(kHeaderBytes) + kBytesToEndMark;
}

/// Whether replies carry the system. The times of others are not relied on: a receiver in use sends
/// the time of day for SBAS.
bool carried(System system) {
    return system != kSbas && system != kIrnss;
}

/// Seconds of week of a 30-bit epoch time. Nothing for a time that no week has.
std::optional<double> secondsOfWeek(std::uint32_t field) {
    constexpr std::uint32_t weekMs = 604800000; // itself: the first instant of the next week
    constexpr std::uint32_t fieldEnd = 1U << 30;
    constexpr std::uint32_t mostBelowZeroMs = 20000;
    // Some receivers subtract the 14 s of BDT from the first seconds of a GPS week and send the
    // negative number in the unsigned field.
    if (field >= fieldEnd - mostBelowZeroMs)
        return -((fieldEnd - field) * 0.001);
    if (field <= weekMs)
        return field * 0.001;
    return std::nullopt;
}

/// The time of a week (s, GPS) that is nearest to a reference.
GTime adjweek(GTime near, double tow) {
    const WeekTime reference = time2gpst(near);
    if (tow < reference.sow - kHalfWeek)
        tow += kSecondsPerWeek;
    else if (tow > reference.sow + kHalfWeek)
        tow -= kSecondsPerWeek;
    return gpst2time(reference.week, tow);
}

/// The time of a Moscow day (s) that is nearest to a reference.
GTime adjday_glot(GTime near, double tod) {
    const WeekTime moscow = time2gpst(timeadd(gpst2utc(near), kMoscowOffset));
    const double reference = std::fmod(moscow.sow, kSecondsPerDay);
    const double day = moscow.sow - reference;
    const GTime t = gpst2time(moscow.week, day + nearestDay(tod, reference));
    return utc2gpst(timeadd(t, -kMoscowOffset));
}

} // namespace

std::optional<GTime> epochTime(GTime near, System system, std::uint32_t field) {
    if (system == kGlonass) // the day of week of an MSM is not needed
        return adjday_glot(near, (field & 0x7FFFFFFU) * 0.001);
    const std::optional<double> tow = secondsOfWeek(field);
    if (!tow)
        return std::nullopt;
    return adjweek(near, *tow + (system == kBds ? kBdtOffset : 0.0));
}

Framed takeFrame(RtcmState& s, std::span<const std::uint8_t> block, int& framelen) {
    static_assert(kMaxFrame <= std::tuple_size_v<decltype(s.buff)>);
    std::size_t used = 0;
    if (s.nbyte == 0) {
        const auto start = std::find(block.begin(), block.end(), kPreamble);
        used = static_cast<std::size_t>(start - block.begin());
    }
    // Header, then the rest, as far as the block reaches.
    for (std::size_t size = frameSize(s); used < block.size(); size = frameSize(s)) {
        const auto held = static_cast<std::size_t>(s.nbyte);
        const std::size_t n = std::min(size - held, block.size() - used);
        std::memcpy(s.buff.data() + held, block.data() + used, n);
        used += n;
        s.nbyte += static_cast<int>(n);
        if (held + n < size)
            break;
        if (size == kHeaderBytes) {
            s.len = static_cast<int>(getbitu(s.buff, 14, 10) + kHeaderBytes);
            continue;
        }
        framelen = s.nbyte;
        s.nbyte = 0;
        const auto len = static_cast<std::size_t>(s.len);
        if (crc24q({s.buff.data(), len}) != getbitu(s.buff, len * 8, 24)) {
            trace(2, "rtcm3 parity error: len=%d\n", s.len);
            return {used, false};
        }
        return {used, true};
    }
    return {used, false};
}

Taken input_rtcm3_block(RtcmState& s, std::span<const std::uint8_t> block, int& framelen) {
    const Framed frame = takeFrame(s, block, framelen);
    return {frame.bytes, frame.whole ? decode_rtcm3(s) : kNothing};
}

int input_rtcm3_ex(RtcmState& s, std::uint8_t byte, int& framelen) {
    return input_rtcm3_block(s, {&byte, 1}, framelen).status;
}

int input_rtcm3(RtcmState& s, std::uint8_t byte) {
    int framelen = 0;
    return input_rtcm3_ex(s, byte, framelen);
}

int input_rtcm3f(RtcmState& s, std::FILE* file) {
    constexpr int most = 4096;
    for (int i = 0; i < most; ++i) {
        const int byte = std::fgetc(file);
        if (byte == EOF)
            return kEndOfFile;
        if (const int status = input_rtcm3(s, static_cast<std::uint8_t>(byte)))
            return status;
    }
    return kNothing;
}

int decode_rtcm3(RtcmState& s) {
    const int type = messageType(s.buff);
    if (s.outtype)
        s.msgtype = text("RTCM %4d (%4d):", type, s.len);
    if (!s.opt.empty() && hasOption(s, "-RT_INP")) {
        const WeekTime now = time2gpst(utc2gpst(utcNow()));
        s.time = gpst2time(now.week, std::floor(now.sow));
    }
    const int status = dispatch(s, type);
    if (status >= 0)
        s.count(type);
    return status;
}

bool test_staid(RtcmState& s, int staid) {
    s.statedId = staid;
    if (!s.opt.empty())
        if (const std::size_t at = s.opt.find("-STA="); at != std::string::npos)
            if (std::atoi(s.opt.c_str() + at + 5) != staid)
                return false;
    if (s.staid != 0 && s.obsflag == 0 && staid != s.staid) {
        trace(2, "rtcm3 %d staid invalid id=%d %d\n", messageType(s.buff), staid, s.staid);
        s.staid = 0;
        return false;
    }
    s.staid = staid;
    return true;
}

void learnChannel(RtcmState& s, int slot, int channel) {
    if (validChannel(channel))
        s.nav.glo_fcn[static_cast<std::size_t>(slot - 1)] = channel + 8;
}

double nearestDay(double tod, double reference) {
    while (tod < reference - kSecondsPerDay / 2)
        tod += kSecondsPerDay;
    while (tod > reference + kSecondsPerDay / 2)
        tod -= kSecondsPerDay;
    return tod;
}

void needTime(RtcmState& s) {
    if (s.time.unknown())
        s.time = utc2gpst(utcNow());
}

std::optional<EpochMessage> observationHead(const RtcmState& s) {
    const int type = messageType(s.buff);
    BitReader in = messageOf(s);
    const auto headBy = [&](const auto& layout, auto head) {
        layout(in, head);
        EpochMessage m = epochMessage(type, head);
        m.tooShort = endsBeforeMark(s);
        return m;
    };
    if (isMsm4To7(type))
        return headBy(layoutMsmHead, MsmHead{});
    if (isLegacy(type))
        return headBy(layoutLegacyHead, LegacyHead{});
    return std::nullopt;
}

bool admit(RtcmState& s, EpochMessage& m) {
    m.tooShort = endsBeforeMark(s);
    if (m.tooShort) {
        trace(2, "rtcm3 %d length error: len=%d\n", m.type, s.len);
        return false;
    }
    needTime(s);
    m.time = epochTime(s.time, m.system, m.field);
    if (!m.time) {
        trace(2, "rtcm3 %d epoch time error: %u\n", m.type, m.field);
        return false;
    }
    m.otherStation = !test_staid(s, m.staid);
    return !m.otherStation;
}

void join(RtcmState& s, const EpochMessage& m) {
    if (carried(m.system)) {
        s.time = s.epoch = *m.time;
        s.dated = true;
    } else if (!s.dated) {
        s.epoch = *m.time; // `time` stays the reference for the messages to come
    }
}

Status refuse(RtcmState& s, const EpochMessage& m) {
    if (m.otherStation && hasOption(s, "-STA="))
        return kMalformed; // a station that the options leave out
    s.refused = {m.type, m.tooShort ? std::nullopt : std::optional(m.field), false};
    if (m.tooShort)
        return kMalformed;
    // What another station sends ends that station's epoch, not the one being collected.
    if (m.otherStation || s.epoch.unknown())
        return kMalformed;
    if (m.time && carried(m.system) && !sameTime(*m.time, s.epoch)) {
        // The station is at another epoch: the one being collected has no end.
        s.refused.lostEpoch = true;
        s.obs.n = 0;
        s.epoch = {};
        s.dated = false;
        return kMalformed;
    }
    return m.more ? kMalformed : endOfMessage(s, /*more=*/false);
}

ObsRecord* epochRecord(RtcmState& s, const EpochMessage& m, int sat) {
    if (!sameTime(*m.time, s.epoch))
        return nullptr;
    if (s.obsflag || (s.obs.n > 0 && !sameTime(s.obs.data[0].time, s.epoch))) {
        s.obs.n = 0;
        s.obsflag = 0;
    }
    const int index = obsindex(s.obs, s.epoch, sat);
    return index < 0 ? nullptr : &s.obs.data[static_cast<std::size_t>(index)];
}

Status endOfMessage(RtcmState& s, bool more) {
    s.obsflag = more ? 0 : 1;
    if (more)
        return kNothing;
    s.time = std::exchange(s.epoch, {});
    s.dated = false;
    // A last message without satellites must not pass off an older, unfinished epoch as its own.
    if (s.obs.n > 0 && !sameTime(s.obs.data[0].time, s.time))
        s.obs.n = 0;
    return kEpoch;
}
