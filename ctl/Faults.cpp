#include "ctl/Faults.h"

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
