#include "census.h"

#include "kinds.h"
#include "legacy.h"
#include "msm.h"

namespace ref {

namespace {

bool isAnyMsm(int type) {
    return type >= 1071 && type <= 1137 && type % 10 >= 1 && type % 10 <= 7;
}

// Of an MSM, from its masks; what follows them is not read.
void addMsmCells(const Frame& f, std::map<std::string, long>& cells) {
    const char system = msmSystem(f.type);
    BitSource in(f.body);
    in.u(54);
    in.u(19);
    int satellites = 0;
    for (int id = 1; id <= 64; ++id)
        satellites += static_cast<int>(in.u(1));
    std::vector<std::string> signals;
    for (int id = 1; id <= 32; ++id)
        if (in.u(1) == 1)
            signals.push_back(system + signalOf(system, id));
    std::size_t pairs = 0;
    for (int i = 0; i < satellites; ++i)
        for (const std::string& signal : signals)
            if (pairs++ < kMostPairs && in.u(1) == 1)
                ++cells[signal];
}

} // namespace

std::optional<ObservationHead> observationHead(const Frame& f) {
    const bool glonass = f.type >= 1009 && f.type <= 1012;
    if (!isAnyMsm(f.type) && !isLegacy(f.type))
        return std::nullopt;
    ObservationHead head;
    if (isAnyMsm(f.type)) {
        const char system = msmSystem(f.type);
        head.scale = system == 'E' || system == 'J' ? 'G' : system;
    } else if (glonass) {
        head.scale = 'r'; // without the day of week
    }
    try {
        BitSource in(f.body);
        in.u(24);
        in.u(glonass ? 27 : 30, head.epochField);
        in.flag(head.more);
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
    return head;
}

void Census::take(std::span<const std::uint8_t> piece) {
    held_.insert(held_.end(), piece.begin(), piece.end());
    scan(Rest::comes);
}

void Census::breakOff() {
    scan(Rest::never);
    held_.clear();
    if (!epoch_.empty())
        ++counts_.unended;
    epoch_.clear();
}

void Census::scan(Rest rest) {
    std::size_t at = 0;
    while (at < held_.size()) {
        const std::size_t left = held_.size() - at;
        const std::size_t length = left < 3 ? 3 : (held_[at + 1] & 3u) * 256u + held_[at + 2] + 6u;
        if (held_[at] != 0xD3 || (left < length && rest == Rest::never)) {
            ++at;
            continue;
        }
        if (left < length)
            break;
        const std::span whole(held_.data() + at, length);
        if (crc24q(whole) != 0) {
            ++at;
            continue;
        }
        Frame f{0, {}, 0, Bytes(whole.begin() + 3, whole.end() - 3)};
        f.type = f.body.size() < 2 ? 0 : static_cast<int>(BitSource(f.body).u(12));
        message(f);
        at += length;
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(at));
}

void Census::message(const Frame& f) {
    counts_.ephemerides += isEphemeris(f.type) ? 1 : 0;
    const std::optional<ObservationHead> head = observationHead(f);
    if (!head)
        return;
    const auto before = epoch_.find(head->scale);
    if (before != epoch_.end() && before->second != head->epochField) {
        ++counts_.unended;
        epoch_.clear();
    }
    epoch_[head->scale] = head->epochField;
    if (!head->more) {
        ++counts_.ended;
        counts_.timely = counts_.ephemerides;
        epoch_.clear();
    }
    try {
        if (isAnyMsm(f.type))
            addMsmCells(f, counts_.cells);
        else
            for (const Cell& c : readLegacy(f.body).cells)
                ++counts_.cells[c.system + c.signal];
    } catch (const std::exception&) { // contents that end early: what came before counts
    }
}

} // namespace ref
