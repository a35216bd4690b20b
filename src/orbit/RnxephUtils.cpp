#include "orbit/RnxephUtils.h"

#include "base/Print.h"
#include "gnss/ComTime.h"
#include "orbit/Glonass.h"

#include <cmath>

namespace {

/// Finds a satellite's record and judges its age, with a line where it cannot be used.
template <class Record>
const Record* select(const OrbitSource& in, std::span<const Record> records, std::size_t satellite,
                     int Record::*mjd, double Record::*sod, int& ephemerisIndex) {
    const char* const name = in.session.satelliteNames[satellite].c_str();
    ephemerisIndex = in.store.slotOf[satellite];
    if (ephemerisIndex < 0) {
        print(Lasting{Cause::noRecord, satellite},
              "***WARN(RnxephUtils): %s is not used in session.obj!\n", name);
        return nullptr;
    }
    const Record& record = records[static_cast<std::size_t>(ephemerisIndex)];
    if (record.*mjd == 0) {
        print(Lasting{Cause::noEphemeris, satellite},
              "***WARN(RnxephUtils): %s doesn't have ephemeris!\n", name);
        return nullptr;
    }
    const double age = std::fabs(timdif(record.*mjd, in.epoch.mjd, record.*sod, in.epoch.sod));
    if (age > kMaxEphemerisAgeS) {
        print(Lasting{Cause::oldEphemeris, satellite}, "***WARN(RnxephUtils): %s eph too old!\n",
              record.cprn.c_str());
        return nullptr;
    }
    return &record;
}

int report(int result, std::size_t satellite, const std::string& cprn) {
    if (result == -1)
        print(Lasting{Cause::noOrbit, satellite},
              "***WARN(RnxephUtils): Something was wrong with %s!\n", cprn.c_str());
    return result == -1 ? 0 : 1;
}

} // namespace

int VrsBaseStation_v_readOrbit(const OrbitSource& in, std::size_t satellite, int mjd,
                               OrbitState& position, int& ephemerisIndex, double sod) {
    const char system = in.session.satelliteNames[satellite].front();
    const WeekTime gps = mjd2wksow(mjd, sod);
    if (system == 'R') {
        const GLSEPH* const record = select<GLSEPH>(in, in.store.glonass, satellite, &GLSEPH::mjd,
                                                    &GLSEPH::sod, ephemerisIndex);
        if (record)
            position = glonassState(*record, wksow2mjd(gps.week, gps.sow));
        return record ? 1 : 0;
    }
    const GPSEPH* const record = select<GPSEPH>(in, in.store.kepler, satellite, &GPSEPH::tocMjd,
                                                &GPSEPH::tocSod, ephemerisIndex);
    if (record)
        position = keplerState(*record, {gps.week, system == 'C' ? gps.sow - kBdtOffset : gps.sow},
                               in.rules);
    return record ? 1 : 0;
}

int BrdUtils_m_brd2xyz(const OrbitSource& in, std::string_view mode, std::size_t satellite,
                       int week, OrbitState& position, double& clock, int& ephemerisIndex,
                       double secondOfWeek) {
    const GPSEPH* const record = select<GPSEPH>(in, in.store.kepler, satellite, &GPSEPH::tocMjd,
                                                &GPSEPH::tocSod, ephemerisIndex);
    return record ? report(BrdUtils_m_geph2xyz(in.session, *record, mode, week, position, clock,
                                               secondOfWeek),
                           satellite, record->cprn)
                  : 0;
}

int BrdUtils_m_gls2xyz(const OrbitSource& in, std::string_view mode, std::size_t satellite,
                       int week, OrbitState& position, double& clock, int& ephemerisIndex,
                       double secondOfWeek) {
    const GLSEPH* const record =
        select<GLSEPH>(in, in.store.glonass, satellite, &GLSEPH::mjd, &GLSEPH::sod, ephemerisIndex);
    if (!record)
        return 0;
    const MjdTime t = wksow2mjd(week, secondOfWeek);
    return report(BrdUtils_m_reph2xyz(*record, mode, t.mjd, position, clock, t.sod), satellite,
                  record->cprn);
}
