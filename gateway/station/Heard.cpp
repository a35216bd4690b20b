#include "gateway/station/Heard.h"

#include "app/Tally.h"
#include "ctl/dump/Describe.h"
#include "rtcm/Messages.h"

#include <algorithm>
#include <cmath>

namespace gateway {

namespace {

double seconds(Duration d) {
    return std::chrono::duration<double>(d).count();
}

/// Tenths below 1 s, else whole seconds: the interval that a station means.
double rounded(double s) {
    return s < 0.95 ? std::max(0.1, std::round(s * 10) / 10) : std::round(s);
}

/// Signals on the first carrier of a system: ids 1 to 7 and 30 to 32 of its mask (DF395).
constexpr std::uint32_t kFirstCarrier = 0xFE000007;

/// The interval after one more gap: a mean of about the last twenty. A gap that is much longer is
/// none of the interval: the stream was interrupted, or the satellite had set.
double intervalAfter(double intervalS, double gapS, std::uint64_t gaps) {
    constexpr double most = 20.0, muchLonger = 5.0;
    if (gaps == 1)
        return gapS;
    if (gapS > muchLonger * intervalS && gapS > seconds(kSilent))
        return intervalS;
    return intervalS + (gapS - intervalS) / std::min(static_cast<double>(gaps), most);
}

} // namespace

void Heard::take(const Block& block, Instant at) {
    if (last_ && at - *last_ < kSilent)
        activeS_ += seconds(at - *last_);
    last_ = at;
    bytes_ += block.bytes.size();
    int before = 0; // a number may come twice in an epoch, where one message cannot hold it
    forEachFrame(block.bytes, [&](std::span<const std::uint8_t> frame) {
        const int type = messageType(frame);
        if (block.kind == Block::Kind::between || type != before)
            takeFrame(frame, at);
        before = type;
    });
    if (block.kind == Block::Kind::epoch) {
        ++epochs_;
        lastEpoch_ = at;
    }
}

void Heard::takeFrame(std::span<const std::uint8_t> frame, Instant at) {
    const int type = messageType(frame);
    const bool ephemeris = ctl::dump::isEphemeris(type);
    Kind& kind = kinds_[{type, ephemeris ? satelliteOf(frame) : 0}];
    kind.bytes += frame.size();
    if (kind.count > 0)
        kind.intervalS = intervalAfter(kind.intervalS, seconds(at - kind.last), kind.count);
    ++kind.count;
    kind.last = at;
    if (type == 1005 || type == 1006) {
        PositionMessage m;
        BitReader in = messageOf(frame);
        layoutPosition<1005>(in, m);  // the height of 1006 stands behind
        if (in.ok() && usable(m.pos)) // not while a receiver looks for its place
            place_ = m.pos;
    } else if (type == 1007 || type == 1008 || type == 1033) {
        EquipmentMessage m;
        BitReader in = messageOf(frame);
        if (type == 1033)
            layout1033(in, m);
        else
            layoutAntenna<1007>(in, m); // the serial number of 1008 stands behind
        if (in.ok())
            antenna_ = m.antdes.data();
        if (in.ok() && type == 1033)
            receiver_ = m.rectype.data();
    } else if (isLegacy(type)) {
        const LegacyForm form = legacyForm(type);
        signals_[form.glonass ? 'R' : 'G'] |= form.l2 ? ~0U : kFirstCarrier;
    } else if (isMsm4To7(type)) {
        MsmHead head;
        BitReader in = messageOf(frame);
        layoutMsmHead(in, head);
        if (in.ok())
            signals_[kMsmLetters[static_cast<std::size_t>((type - 1070) / 10)]] |= head.signals;
    }
}

std::string Heard::equipment() const {
    return receiver_ + (receiver_.empty() || antenna_.empty() ? "" : ", ") + antenna_;
}

std::vector<MessageLook> Heard::messages() const {
    std::vector<MessageLook> out;
    for (const auto& [key, kind] : kinds_) {
        if (out.empty() || out.back().number != key.first)
            out.push_back({key.first});
        MessageLook& of = out.back();
        // Of ephemerides, those of one satellite of many: that which tells most.
        if (kind.count >= 2)
            of.intervalS = std::max(of.intervalS, rounded(kind.intervalS));
        of.messages += kind.count;
        of.bytes += kind.bytes;
    }
    return out;
}

void Heard::describe(ntrip::StreamEntry& entry) const {
    entry.messages.clear();
    entry.systems.clear();
    for (const MessageLook& m : messages())
        entry.messages.emplace_back(m.number, m.intervalS);
    entry.carrier = 0;
    for (const char letter : kMsmLetters) {
        const auto found = signals_.find(letter);
        if (found == signals_.end() || found->second == 0)
            continue;
        entry.systems += letter;
        entry.carrier = std::max(entry.carrier, (found->second & ~kFirstCarrier) != 0 ? 2 : 1);
    }
    entry.bitRate =
        activeS_ >= 1.0 ? static_cast<int>(8.0 * static_cast<double>(bytes_) / activeS_) : 0;
    if (place_) {
        const Vector3 blh = xyzblh(*place_, 1.0, 0, 0, 0, 0, 0);
        entry.latitudeDeg = blh[0] * 180 / kPi;
        entry.longitudeDeg = blh[1] * 180 / kPi;
    }
}

} // namespace gateway
