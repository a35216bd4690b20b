#include "ctl/simulate/Faults.h"

#include "reference/service/framing.h"
#include "reference/standard/kinds.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace ctl::simulate {

namespace {

constexpr std::size_t kOnceIn = 60; // epochs, for faults that come now and then
constexpr std::size_t kMostGarbage = 900;

bool parseNumber(std::string_view text, long& out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc{} && end == text.data() + text.size() && out >= 0;
}

void append(ref::Bytes& out, const ref::Bytes& more) {
    out.insert(out.end(), more.begin(), more.end());
}

/// Random bytes; every third has a preamble in it that swallows what follows.
ref::Bytes garbage(FaultPlan& plan) {
    ref::Bytes bytes(1 + plan.pick(kMostGarbage));
    for (std::uint8_t& b : bytes)
        b = static_cast<std::uint8_t>(plan.pick(256));
    if (plan.pick(3) == 0)
        bytes.insert(bytes.end(), {0xD3, 0x00, static_cast<std::uint8_t>(plan.pick(256))});
    return bytes;
}

void setBits(ref::Bytes& body, std::size_t at, std::size_t width, std::uint64_t value) {
    for (std::size_t i = at + width; i-- > at; value >>= 1) {
        const auto bit = static_cast<std::uint8_t>(0x80U >> i % 8);
        body.at(i / 8) = static_cast<std::uint8_t>((body.at(i / 8) & ~bit) | (value & 1 ? bit : 0));
    }
}

/// An observation message as a service has to refuse it; its check word is right.
ref::Bytes refusable(const ref::Frame& message, std::size_t kind) {
    constexpr std::uint64_t never = 700000000; // ms, beyond a week
    constexpr std::uint64_t otherStation = 4000;
    ref::Bytes body = message.body;
    const bool legacy = ref::isLegacy(message.type);
    const bool glonass = message.type / 10 == 108 || (legacy && message.type >= 1009);
    if (kind == 0)
        setBits(body, 12, 12, otherStation);
    else if (kind == 1 && !glonass) // whose every time of day can be placed
        setBits(body, 24, 30, never);
    else if (legacy)
        setBits(body, glonass ? 52 : 55, 5, 31); // more satellites than there are
    else
        setBits(body, 105, 64, ~std::uint64_t{}); // 32 satellites, 32 signals
    return ref::frame(body);
}

void refuseOne(std::vector<ref::Bytes>& frames, FaultPlan& plan) {
    std::vector<std::pair<ref::Bytes*, ref::Frame>> messages;
    for (ref::Bytes& bytes : frames)
        for (const ref::Frame& f : ref::goodFrames(bytes))
            if (f.bytes == bytes && (ref::isMsm(f.type) || ref::isLegacy(f.type)))
                messages.emplace_back(&bytes, f);
    if (messages.empty())
        return;
    const auto& [bytes, message] = messages[plan.pick(messages.size())];
    *bytes = refusable(message, plan.pick(3));
}

} // namespace

std::string faultNames() {
    std::string all;
    for (const std::string_view n : kFaultNames)
        all += (all.empty() ? "" : ", ") + std::string(n);
    return all;
}

FaultPlan::FaultPlan(const std::vector<std::string>& requests, std::uint64_t seed) : random_(seed) {
    for (const std::string& request : requests) {
        const std::size_t at = request.find('@');
        const auto it = std::find(kFaultNames.begin(), kFaultNames.end(), request.substr(0, at));
        long epoch = 0;
        if (it == kFaultNames.end() ||
            (at != std::string::npos && !parseNumber(request.substr(at + 1), epoch)))
            throw std::invalid_argument("\"" + request + "\": NAME or NAME@EPOCH with one of " +
                                        faultNames());
        Wanted& wanted = wanted_[static_cast<Fault>(it - kFaultNames.begin())];
        if (at == std::string::npos)
            wanted.nowAndThen = true;
        else
            wanted.epochs.push_back(epoch);
    }
}

bool FaultPlan::due(Fault f, long epoch) {
    const auto wanted = wanted_.find(f);
    if (wanted == wanted_.end())
        return false;
    const std::vector<long>& at = wanted->second.epochs;
    const bool now = std::find(at.begin(), at.end(), epoch) != at.end() ||
                     (wanted->second.nowAndThen && pick(kOnceIn) == 0);
    done[f] += now ? 1 : 0;
    return now;
}

ref::Bytes spoiled(std::vector<ref::Bytes> frames, FaultPlan& plan, long epoch) {
    const auto any = [&]() -> ref::Bytes& { return frames[plan.pick(frames.size())]; };
    if (frames.empty())
        return {};
    if (plan.due(Fault::refusedMessage, epoch))
        refuseOne(frames, plan);
    if (plan.due(Fault::reorder, epoch) && frames.size() > 1) {
        const std::size_t i = plan.pick(frames.size() - 1);
        std::swap(frames[i], frames[i + 1]);
    }
    if (plan.due(Fault::duplicate, epoch)) {
        const std::size_t i = plan.pick(frames.size());
        frames.insert(frames.begin() + static_cast<std::ptrdiff_t>(i), ref::Bytes(frames[i]));
    }
    if (plan.due(Fault::bitflip, epoch)) {
        ref::Bytes& f = any();
        const std::size_t bit = plan.pick(8 * f.size());
        f[bit / 8] = static_cast<std::uint8_t>(f[bit / 8] ^ (1U << bit % 8));
    }
    if (plan.due(Fault::truncate, epoch)) {
        ref::Bytes& f = any();
        f.resize(plan.pick(f.size()));
    }
    const std::size_t broken =
        plan.due(Fault::garbage, epoch) ? plan.pick(frames.size() + 1) : frames.size() + 1;
    ref::Bytes out;
    for (std::size_t i = 0; i <= frames.size(); ++i) {
        if (i == broken)
            append(out, garbage(plan));
        if (i < frames.size())
            append(out, frames[i]);
    }
    return out;
}

} // namespace ctl::simulate
