#include "vrs/Generator.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/ComFreq.h"
#include "gnss/ComTime.h"
#include "vrs/MovedEpoch.h"
#include "vrs/Sight.h"

#include <cmath>
#include <optional>

namespace {

constexpr double kElevationCutoffDeg = 5.0;
constexpr double kHistoryAgeS = 30.0;
constexpr double kPresent = 1e-6;

/// The satellite at the transmit time of the virtual point, and what that point and the reference
/// see of it.
struct Geometry {
    OrbitState satellite{};
    std::array<SightPoint, 2> points; // virtual, reference
};
/// False where there is no orbit (its reader has said so) or no convergence.
bool solveGeometry(const OrbitSource& in, RangeHistory& history, std::size_t satellite,
                   VrsObsPack& reference, Geometry& g) {
    const LightTime result =
        solveLightTime(in, satellite, reference, g.points, g.satellite, history.lightTimes);
    if (result == LightTime::notConverged)
        print(Lasting{Cause::noConvergence, satellite},
              "***WARN(Generator): %s position not convergence! ddelay=%14.13lf\n",
              in.session.satelliteNames[satellite].c_str(), g.points[0].deltaS);
    return result == LightTime::found;
}

/// Whether an elevation is so far above the cutoff that its angle need not be known.
bool surelyAboveCutoff(const Vector3& local) {
    constexpr double slope = 0.0876; // of 5.006 degrees
    const double horizontal2 = local[0] * local[0] + local[1] * local[1];
    return local[2] > 0.0 && local[2] * local[2] > slope * slope * horizontal2;
}

/// Shifts one satellite's slots by the range difference (m). Slots 4 to 7 have the carriers of
/// slots 0 to 3, for a second set of codes.
void shiftSlots(EpochObs& to, const EpochObs& from, std::size_t satellite, const Session& session,
                StreamedChannels streamed, const RangeHistory& history, double rangeDifference,
                double ageS) {
    const double lastDifference = history.drleng;
    const auto carrierHz = [&](std::size_t slot) {
        const double hz = session.carrierHz[satellite][slot];
        return hz > 0.0 ? hz : carrierOf(session.satellites[satellite], slot, streamed);
    };
    from.each(satellite, [&](std::size_t k, const SlotObs& in) {
        const std::size_t carrier = k % kMaxFrequencies;
        if (session.carrierHz[satellite][carrier] == 0.0 &&
            carrier >= session.satellites[satellite].slots.size())
            return;
        SlotObs& out = to.slot(satellite, k);
        if (std::fabs(in.range) > kPresent) {
            out.range = in.range + rangeDifference;
            out.rangeType = in.rangeType;
        }
        if (!(std::fabs(in.phase) > kPresent))
            return;
        const double hz = carrierHz(carrier);
        if (hz <= 0.0)
            return; // no wavelength, no phase
        const double wavelengthM = kSpeedOfLight / hz;
        out.phase = in.phase + rangeDifference / wavelengthM;
        out.phaseType = in.phaseType;
        out.cn0 = in.cn0;
        double doppler = static_cast<double>(in.doppler);
        if (ageS > 0.0)
            doppler += (rangeDifference - lastDifference) / wavelengthM / ageS;
        out.doppler = static_cast<float>(doppler);
    });
}

/// The reference's own observations under the virtual request.
void copyRaw(VrsObsPack& out, const VrsBaseStation& base, const VrsObsPack& reference,
             const RequestRecord& virtualStation) {
    VrsObsPack_Initial(out);
    out.mjd = reference.mjd;
    out.sod = reference.sod;
    out.xyz = base.xyz;
    out.reply.stationId = virtualStation.stationId;
    out.obs.copyFrom(reference.obs);
}

} // namespace

VrsObsPack& VrsGenerator_s_genVirtualObs(VirtualStation& station, const VrsSources& in,
                                         const VrsBaseStation& base,
                                         const RequestRecord& virtualStation) {
    std::array<std::uint8_t, kMaxSatellites> flags;
    flags.fill(2);
    // An offset that is configured was examined there.
    if (virtualStation.distanceM > kMaxOffsetM && !in.session.answering.offsetM &&
        !in.switches.post) {
        print(Lasting{Cause::farOffset},
              "***WARN: VRS offset distance(%14.3lf) too long, using raw obs!\n",
              virtualStation.distanceM);
        copyRaw(station.answer, base, station.reference, virtualStation);
    } else {
        VrsGenerator_s_genObservation_raw(station, in, virtualStation, flags);
    }
    return station.answer;
}

void VrsGenerator_m_begin(VirtualStation& station, const RequestRecord& virtualStation) {
    VrsObsPack& out = station.answer;
    VrsObsPack_Initial(out);
    station.reference.ranged = true;
    station.reference.referenceRange.fill(0.0);
    out.mjd = station.reference.mjd;
    out.sod = station.reference.sod;
    out.name = virtualStation.name;
    out.xyz = virtualStation.xyz;
    out.reply.stationId = virtualStation.stationId;
}

std::optional<RangeChange> VrsGenerator_m_rangeChange(VirtualStation& station,
                                                      const OrbitSource& orbits,
                                                      const Viewpoint& from,
                                                      std::size_t satellite) {
    Geometry g{{},
               {{{from.xyz, from.xyz}, {orbits.session.stations[0].xyz, station.reference.xyz}}}};
    if (!solveGeometry(orbits, station.history[satellite], satellite, station.reference, g))
        return std::nullopt;
    const auto& [virtualPoint, referencePoint] = g.points;
    station.reference.referenceRange[satellite] = referencePoint.rangeM;
    const Vector3 local = localSight(g.satellite, from.xyz, from.fromLocal);
    if (!surelyAboveCutoff(local)) {
        const double elevation = elevationOf(local) * 180.0 / kPi;
        if (!(elevation >= kElevationCutoffDeg)) {
            print("***WARN(Generator): %s elevation is lower than cutoff(5)! elev=%.2lf\n",
                  orbits.session.satelliteNames[satellite].c_str(), elevation);
            return std::nullopt;
        }
    }
    RangeChange change{virtualPoint.rangeM - referencePoint.rangeM, 0.0};
    if (orbits.session.answering.complete) // the only one that has rates
        change.mps = kSpeedOfLight * (lightTimeRate(g.satellite, virtualPoint) -
                                      lightTimeRate(g.satellite, referencePoint));
    return change;
}

void VrsGenerator_s_genObservation_raw(VirtualStation& station, const VrsSources& in,
                                       const RequestRecord& virtualStation,
                                       std::span<const std::uint8_t> flags) {
    VrsObsPack& out = station.answer;
    const VrsObsPack& reference = station.reference;
    const OrbitSource orbits = in.orbits();
    const auto [currentMjd, currentSod] = orbits.epoch;
    const StreamedChannels streamed = in.epoch.streamedChannels();
    const Viewpoint from(virtualStation);
    VrsGenerator_m_begin(station, virtualStation);

    for (std::size_t i = 0; i < in.session.satelliteNames.size(); ++i) {
        const bool observed = reference.obs.has(i) && flags[i] != 0;
        if (!observed && !station.moved[i])
            continue;
        RangeHistory& history = station.history[i];
        const double ageS = std::fabs(timdif(history.mjd, currentMjd, history.sod, currentSod));
        if (!observed) {
            if (ageS > kHistoryAgeS) {
                history.drleng = 0.0;
                station.moved[i] = false;
            }
            continue;
        }
        const std::optional<RangeChange> change =
            VrsGenerator_m_rangeChange(station, orbits, from, i);
        if (!change)
            continue;
        shiftSlots(out.obs, reference.obs, i, in.session, streamed, history, change->metres, ageS);
        history.mjd = currentMjd;
        history.sod = currentSod;
        history.drleng = change->metres;
        station.moved[i] = true;
    }
}

void VrsGenerator_m_changes(VirtualStation& station, const VrsSources& in,
                            const RequestRecord& virtualStation) {
    const OrbitSource orbits = in.orbits();
    const Viewpoint from(virtualStation);
    VrsGenerator_m_begin(station, virtualStation);
    station.changes.fill(std::nullopt);
    const auto satellites = satellitesOf(in.received, in.session);
    for (std::size_t i = 0; i < in.session.satelliteNames.size(); ++i)
        if (satellites.test(i))
            station.changes[in.session.satelliteNumber[i]] =
                VrsGenerator_m_rangeChange(station, orbits, from, i);
}
