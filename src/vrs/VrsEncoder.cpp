#include "vrs/VrsEncoder.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/ComTime.h"
#include "rtcm/Frame.h"
#include "rtcm/rtcm3e.h"
#include "vrs/MovedEpoch.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

// clang-format off
/// Signals of the reply per system, in the order of kSystems; the BDS-3 marker repeats BDS.
constexpr std::array<std::string_view, kSystemCount> MASK{
    "1C 2W 5Q", "1P 2P", "1X 5X 7X 6X", "2I 6I 7I 5P 1P", "2I 6I 7I 5P 1P", "", "1C 2X 5Q", ""};

/// Observation messages in sending order; "more follows" is set while a later group has data.
/// 'B' marks BDS-3.
struct Outgoing { char group; int type; };
constexpr std::array<Outgoing, 6> kOutgoing{{
    {'G', 1074}, {'C', 1124}, {'B', 1124}, {'E', 1094}, {'R', 1084}, {'J', 1114}}};
// clang-format on

/// Whether the reply carries a signal, by system and observation code.
constexpr auto kCarried = [] {
    std::array<std::array<bool, kMaxCode + 1>, kSystemCount> carried{};
    for (std::size_t system = 0; system < kSystemCount; ++system)
        for (std::size_t at = 0; at < MASK[system].size(); at += 3)
            carried[system][obs2code(MASK[system].substr(at, 2))] = true;
    return carried;
}();

constexpr double kLeastCarried = 1e6; // cycles, m
constexpr int kLastBds2 = 16;         // PRN

/// Bytes that a reply may have.
std::size_t roomOf(const ReplyEncoder& in) {
    return in.moved || in.session.answering.plain ? kLongestReply : kReplyBytes;
}

/// Satellites counted by group letter, in the order of kSystems.
using Counts = std::array<int, kSystemCount>;
void count(Counts& counts, int satellite) {
    int prn = 0;
    const unsigned system = satsys(satellite, &prn);
    const int place = kSystemOf[static_cast<std::size_t>(satellite)];
    if (place >= 0)
        ++counts[system == kBds && prn > kLastBds2 ? systemIndex('B')
                                                   : static_cast<std::size_t>(place)];
}

/// Copies the slots that the reply carries into the next record of an encoder state. A satellite
/// without any still takes a record, with satellite number 0.
void addRecord(RtcmState& state, const EpochObs& epoch, std::size_t index, std::size_t maskRow,
               std::size_t slots, int satellite) {
    if (static_cast<std::size_t>(state.obs.n) >= kMaxObs)
        return;
    ObsRecord& record = state.obs.data[static_cast<std::size_t>(state.obs.n++)];
    record = {};
    std::size_t k = 0;
    epoch.each(index, [&](std::size_t slot, const SlotObs& obs) {
        if (slot >= slots || k >= kObsSlots || !kCarried[maskRow][obs.phaseType] ||
            !(std::fabs(obs.phase) > kLeastCarried) || !(std::fabs(obs.range) > kLeastCarried))
            return;
        record.L[k] = obs.phase;
        record.P[k] = obs.range;
        record.D[k] = obs.doppler;
        record.SNR[k] = static_cast<std::uint16_t>(obs.cn0 / 0.001);
        record.sat = static_cast<std::uint8_t>(satellite);
        record.code[k] = obs.phaseType;
        ++k;
    });
}

/// Sorts the observed satellites into the encoder states and counts them by group.
Counts fillStates(const ReplyEncoder& in, const EpochObs& obs) {
    Counts counts{};
    const std::size_t bds = systemIndex('C');
    for (std::size_t i = 0; i < in.session.satelliteNames.size(); ++i) {
        if (!obs.has(i))
            continue;
        const int sat = in.session.satelliteNumber[i];
        const int place = kSystemOf[static_cast<std::size_t>(sat)];
        if (place < 0)
            continue;
        const auto system = static_cast<std::size_t>(place);
        int prn = 0;
        satsys(sat, &prn);
        count(counts, sat);
        // BDS-3 looks at the configured frequencies only, and under the row of BDS.
        if (system == bds && prn > kLastBds2)
            addRecord(in.states.bds3, obs, i, bds, in.session.frequencies[bds].size(), sat);
        else
            addRecord(in.states.main, obs, i, system, kMaxSlots, sat);
    }
    return counts;
}

/// The messages on their way to the reply area. Counts what does not fit, too.
struct Block {
    std::span<std::uint8_t> room;
    std::size_t length = 0;

    void add(RtcmState& state, int type, int sync) {
        gen_rtcm3(state, type, 0, sync);
        add(state, static_cast<std::size_t>(state.nbyte));
    }
    void add(RtcmState& state, const MsmMessage& message) {
        writeMessage(state, layoutMsm, message);
        add(state, closeFrame(state.buff, static_cast<std::size_t>(state.nbit)));
    }

private:
    void add(const RtcmState& state, std::size_t n) {
        if (length + n <= room.size())
            std::copy_n(state.buff.begin(), n, room.begin() + static_cast<std::ptrdiff_t>(length));
        length += n;
    }
};

void setText(Descriptor& field, std::string_view value) {
    field.fill('\0');
    value.copy(field.data(), field.size() - 1);
}

/// Place and names. A complete answer passes the sender's names on, once it has said any.
void addIntroduction(const ReplyEncoder& in, Block& block) {
    RtcmState& state = in.states.main;
    StationInfo& station = state.sta;
    const bool height = in.sender && in.sender->height && in.session.answering.plain;
    if (in.sender && in.moved && in.sender->named) {
        const Vector3 place = station.pos;
        station = in.sender->said;
        station.pos = place;
    } else {
        setText(station.antdes, "GPPNULLANTENNA");
        setText(station.recsno, "KRV VRS");
    }
    station.itrf = 0;
    if (height)
        station.hgt = in.sender->said.hgt;
    block.add(state, height ? 1006 : 1005, 0);
    block.add(state, 1033, 0);
}

/// The messages received, moved.
Counts addMoved(const ReplyEncoder& in, Block& block, int stationId) {
    Counts counts{};
    for (std::size_t satellite = 0; satellite < in.moved->changes.size(); ++satellite)
        if (in.moved->changes[satellite])
            count(counts, static_cast<int>(satellite));
    const auto& [epoch, changes] = *in.moved;
    int left = countMoved(epoch, changes);
    moveEpoch(epoch, changes, [&](MsmMessage& message) {
        message.head.staid = stationId & 0xFFF;
        message.head.more = --left > 0 ? 1 : 0;
        block.add(in.states.main, message);
    });
    return counts;
}

/// The messages of the states.
void addOwn(VrsEncoders& states, Block& block, const Counts& counts) {
    const auto present = [&](const Outgoing& o) { return counts[systemIndex(o.group)] > 0; };
    for (auto it = kOutgoing.begin(); it != kOutgoing.end(); ++it)
        if (present(*it))
            block.add(it->group == 'B' ? states.bds3 : states.main, it->type,
                      /*sync=*/std::any_of(it + 1, kOutgoing.end(), present) ? 1 : 0);
}

void prepareStates(const ReplyEncoder& in, const VrsObsPack& pack) {
    VrsEncoders& states = in.states;
    init_rtcm(states.main);
    init_rtcm(states.bds3);
    states.flag = 1;
    if (!in.epoch.stationEpochs.empty())
        states.main.nav.glo_fcn = in.epoch.stationEpochs[0].glonassChannels;
    const WeekTime t = mjd2wksow(pack.mjd, pack.sod);
    states.main.time = states.bds3.time = gpst2time(t.week, t.sow);
    states.main.staid = states.bds3.staid = pack.reply.stationId;
    states.main.sta.pos = pack.xyz;
}

/// Appends the messages of the epoch; false where they do not fit.
bool encodeMessages(const ReplyEncoder& in, VrsObsPack& pack, int& bits, Counts& counts) {
    prepareStates(in, pack);
    const auto start = static_cast<std::size_t>(bits / 8);
    Block block{std::span(pack.reply.buffer).first(roomOf(in)).subspan(start)};
    if (in.introduces)
        addIntroduction(in, block);
    if (in.moved) {
        counts = addMoved(in, block, pack.reply.stationId);
    } else {
        counts = fillStates(in, pack.obs);
        addOwn(in.states, block, counts);
    }
    if (block.length > block.room.size()) {
        print(Lasting{Cause::longReply}, "nbyte = %d,buff size is large than the allocated %lu",
              static_cast<int>(block.length), static_cast<unsigned long>(roomOf(in)));
        return false;
    }
    bits += static_cast<int>(8 * block.length);
    const auto n = [&](char group) { return counts[systemIndex(group)]; };
    print("send nsats: G=%d, R=%d, E=%d, C2=%d, C3=%d, J=%d #Total=%d\n", n('G'), n('R'), n('E'),
          n('C'), n('B'), n('J'), n('G') + n('R') + n('E') + n('C') + n('B') + n('J'));
    return true;
}

} // namespace

int index_mask(std::size_t system, std::string_view type) {
    if (type.size() < 3)
        return -1;
    return kCarried[system][obs2code(type.substr(1, 2))] ? 1 : -1;
}

int VrsEncoder_m_encodeRtcm_ex(const ReplyEncoder& in, VrsObsPack& pack, int& bits) {
    Counts counts;
    return encodeMessages(in, pack, bits, counts) ? 1 : 0;
}

std::span<const std::uint8_t> VrsEncoder_m_encodeReply(const ReplyEncoder& in, VrsObsPack& pack,
                                                       std::int32_t requestWord) {
    ReplyArea& area = pack.reply;
    const bool plain = in.session.answering.plain;
    const std::span buffer(area.buffer);
    area.totalLength = area.frameLength = 0;
    area.bits = plain ? 0 : static_cast<int>(8 * kReplyHeadBytes);
    Counts satellites;
    bool encoded = encodeMessages(in, pack, area.bits, satellites);
    if (plain || in.moved)
        encoded = encoded && std::ranges::any_of(satellites, [](int n) { return n > 0; });
    const auto n = static_cast<std::size_t>(area.bits / 8);
    // The messages alone may fill the buffer; with the check word they may not fit (deliberate).
    if (!encoded || n > roomOf(in) - kReplyCheckBytes) {
        area.bits = 0;
        return {};
    }
    area.frameLength = area.totalLength = static_cast<int>(n);
    if (plain)
        return buffer.first(n);
    const ReplyHead head{.length = n - kReplyUncounted,
                         .requestWord = static_cast<std::uint32_t>(requestWord)};
    BitWriter out(buffer.first(kReplyHeadBytes));
    layoutReplyHead(out, head);
    out.finish();
    setbitu(buffer, 8 * n, 32, crc24q(buffer.first(n)));
    area.totalLength = static_cast<int>(n + kReplyCheckBytes);
    return buffer.first(n + kReplyCheckBytes);
}
