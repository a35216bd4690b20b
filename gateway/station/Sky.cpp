#include "gateway/station/Sky.h"

#include "gateway/station/Audit.h"
#include "gateway/station/Heard.h"
#include "reference/service/answerable.h"
#include "reference/service/received.h"
#include "reference/standard/legacy.h"
#include "rtcm/Messages.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace gateway {

namespace {

/// The cells of an epoch, with its time where that is known.
struct Cells {
    std::vector<ref::Cell> cells;
    std::optional<ref::GpsTime> time;
};
Cells cellsOf(std::span<const std::uint8_t> epoch, ref::GpsTime near) {
    Cells out;
    forEachFrame(epoch, [&](std::span<const std::uint8_t> bytes) {
        try {
            const ref::Frame frame = frameOf(bytes);
            const auto head = ref::headOf(frame);
            if (!head)
                return;
            if (!out.time)
                out.time = ref::timeNear(*head, near);
            const ref::Msm message =
                isLegacy(frame.type) ? ref::readLegacy(frame.body) : ref::readMsm(frame.body);
            out.cells.insert(out.cells.end(), message.cells.begin(), message.cells.end());
        } catch (const std::exception&) { // a message whose contents do not fit: nothing of it
        }
    });
    return out;
}

const char* nameOf(ref::Fate fate) {
    switch (fate) {
    case ref::Fate::answered:
        return "left_out"; // it could have been answered
    case ref::Fate::low:
        return "low";
    case ref::Fate::noEphemeris:
        return "no_ephemeris";
    case ref::Fate::oldEphemeris:
        return "old_ephemeris";
    case ref::Fate::noPhase:
    case ref::Fate::noSignal:
        return "no_signal";
    case ref::Fate::missing:
        break;
    }
    return "left_out";
}

struct Ephemerides {
    ref::Answerable answerable;
    ref::Navigation navigation;
    void take(const ref::Frame& frame) {
        try {
            answerable.take(frame);
            navigation.take(frame);
        } catch (const std::exception&) { // one that the engine refuses, too
        }
    }
};

/// From the reference time of its ephemeris, before or behind it.
void tellAge(SatelliteLook& look, const ref::Navigation& navigation, ref::GpsTime t) {
    constexpr double kDayS = 86400.0, kTickS = 900.0;
    if (const auto k = navigation.kepler.find(look.name); k != navigation.kepler.end()) {
        const double lag = k->second.system == 'C' ? ref::kBdtLagS : 0.0;
        look.ephemerisAgeS = std::abs(std::remainder(t.sow - k->second.toe - lag, ref::kWeekS));
        look.ephemerisIssue = k->second.iode;
    } else if (const auto g = navigation.glonass.find(look.name); g != navigation.glonass.end()) {
        const double moscowS = t.sow - ref::leapS(t) + ref::kMoscowS;
        look.ephemerisAgeS = std::abs(std::remainder(moscowS - kTickS * g->second.tb, kDayS));
        look.ephemerisIssue = g->second.tb;
    }
}

} // namespace

std::vector<SatelliteLook> skyOf(std::span<const std::uint8_t> received,
                                 std::span<const std::uint8_t> kept,
                                 std::span<const std::uint8_t> ephemerides, const SkyTerms& terms) {
    Ephemerides known{ref::Answerable(terms.siteM, terms.virtualM), {}};
    forEachFrame(ephemerides,
                 [&](std::span<const std::uint8_t> bytes) { known.take(frameOf(bytes)); });
    const Cells came = cellsOf(received, terms.near);
    std::map<std::string, SatelliteLook> bySatellite;
    for (const ref::Cell& cell : came.cells) {
        SatelliteLook& look = bySatellite[cell.sat];
        look.name = cell.sat;
        if (!cell.signal.empty() && cell.cnr > 0.0)
            look.cn0DbHz[cell.signal] = cell.cnr;
    }
    for (const ref::Cell& cell : cellsOf(kept, terms.near).cells)
        if (const auto found = bySatellite.find(cell.sat); found != bySatellite.end())
            found->second.kept.push_back(cell.signal);
    std::vector<SatelliteLook> out;
    for (auto& [name, look] : bySatellite) {
        if (came.time) {
            const ref::Answerable::Look at = known.answerable.look(name, *came.time);
            look.fate = nameOf(at.fate);
            if (at.fate != ref::Fate::noEphemeris) {
                look.azimuthDeg = at.direction.azimuthDeg;
                look.elevationDeg = at.direction.elevationDeg;
                look.changeM = at.changeM;
            }
            tellAge(look, known.navigation, *came.time + terms.agoS);
        }
        if (!look.kept.empty())
            look.fate = "answered";
        out.push_back(std::move(look));
    }
    return out;
}

} // namespace gateway
