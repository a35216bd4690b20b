#include "app/Tally.h"

#include "rtcm/Frame.h"

#include <bit>
#include <utility>

void addMessage(Tally& tally, std::span<const std::uint8_t> frame) {
    const int type = messageType(frame);
    if (!isMsm4To7(type))
        return;
    BitReader in = messageOf(frame);
    MsmHead head;
    layoutMsmHead(in, head);
    const auto satellites = static_cast<std::size_t>(std::popcount(head.satellites));
    const auto signals = static_cast<std::size_t>(std::popcount(head.signals));
    if (!in.ok() || satellites * signals == 0 || satellites * signals > kMsmCells)
        return;
    std::uint64_t mask = 0;
    in.u(static_cast<int>(satellites * signals), mask);
    if (!in.ok())
        return;
    SystemTally& system = tally[static_cast<std::size_t>((type - 1070) / 10)];
    system.satellites |= head.satellites;
    std::uint64_t column = 0; // the last signal of every satellite
    for (std::size_t i = 0; i < satellites; ++i)
        column |= std::uint64_t{1} << i * signals;
    std::uint32_t left = head.signals;
    for (std::size_t rank = signals; rank-- > 0; left &= left - 1, column <<= 1) {
        const auto id = kMsmSignals - static_cast<std::size_t>(std::countr_zero(left));
        system.cells[id] += static_cast<std::uint64_t>(std::popcount(mask & column));
    }
}

Satellites endEpoch(Tally& tally) {
    Satellites out{};
    for (std::size_t i = 0; i < tally.size(); ++i)
        out[i] = std::exchange(tally[i].satellites, 0);
    return out;
}

int satelliteOf(std::size_t system, int id) {
    const MsmSystem& s = kMsmSystems[system];
    return satno(s.system, s.firstPrn + id - 1);
}
