#include "gateway/station/KeptMessages.h"

#include "gateway/station/Heard.h"

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kCurrent = 2h; // of a message that has not come again

} // namespace

void KeptMessages::keep(const Block& block, Instant at) {
    forEachFrame(block.bytes, [&](std::span<const std::uint8_t> frame) {
        const FrameHead head = headOf(frame);
        if (head.kind == FrameHead::Kind::station)
            station_[head.type] = {Bytes(frame.begin(), frame.end()), at};
        else if (head.kind == FrameHead::Kind::ephemeris)
            ephemerides_[{head.type, satelliteOf(frame)}] = {Bytes(frame.begin(), frame.end()), at};
    });
}

Bytes KeptMessages::current(Instant at) const {
    Bytes out;
    const auto add = [&](const auto& kept) {
        for (const auto& [key, one] : kept)
            if (at - one.at < kCurrent)
                out.insert(out.end(), one.frame.begin(), one.frame.end());
    };
    add(station_);
    add(ephemerides_);
    return out;
}

const KeptMessages::Kept* KeptMessages::lastOf(std::span<const std::uint8_t> ephemeris) const {
    const auto found = ephemerides_.find({messageType(ephemeris), satelliteOf(ephemeris)});
    return found == ephemerides_.end() ? nullptr : &found->second;
}

std::optional<Instant>
KeptMessages::lastOfSatellite(std::span<const std::uint8_t> ephemeris) const {
    const auto lastOfKind = [&](int type) {
        const auto found = ephemerides_.find({type, satelliteOf(ephemeris)});
        return found == ephemerides_.end() ? std::nullopt : std::optional(found->second.at);
    };
    const int type = messageType(ephemeris);
    if (type == 1045 || type == 1046) // Galileo's F/NAV and I/NAV
        return std::max(lastOfKind(1045), lastOfKind(1046));
    return lastOfKind(type);
}

void KeptMessages::clear() {
    station_.clear();
    ephemerides_.clear();
}

} // namespace gateway
