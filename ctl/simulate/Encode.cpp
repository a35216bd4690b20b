#include "ctl/simulate/Encode.h"

#include "reference/standard/frame.h"
#include "reference/standard/station.h"

#include <stdexcept>

namespace ctl::simulate {

namespace {

ref::Bytes stationMessage(int type, int station, const ref::Vec3& siteM, ref::GpsTime t) {
    const ref::Text1033 equipment{
        station, "ADVNULLANTENNA", 0, "1", "KESTRUNE SIMULATOR", KESTRUNE_VERSION, "1"};
    switch (type) {
    case 1005:
    case 1006:
        return ref::write1005({.type = type, .station = station, .galileo = true, .xyzM = siteM});
    case 1007:
        return ref::write1007(equipment);
    case 1008:
        return ref::write1008(equipment);
    case 1013:
        return ref::write1013(station, t, {{1006, false, 10.0}, {1033, false, 10.0}});
    case 1033:
        return ref::write1033(equipment);
    case 1230:
        return ref::write1230(station, /*aligned=*/true, {0.02, -0.04, 0.06, -0.08});
    default:
        throw std::out_of_range("no station message " + std::to_string(type));
    }
}

} // namespace

ref::Bytes stationFrame(int type, int station, const ref::Vec3& siteM, ref::GpsTime t) {
    return ref::frame(stationMessage(type, station, siteM, t));
}

} // namespace ctl::simulate
