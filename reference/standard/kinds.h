/// Kinds of RTCM 10403.x messages.
#pragma once

namespace ref {

constexpr bool isMsm(int type) { ///< MSM4 to MSM7 of the seven systems
    return type >= 1071 && type <= 1137 && type % 10 >= 4 && type % 10 <= 7;
}
constexpr bool isLegacy(int type) { ///< observations of GPS and GLONASS
    return (type >= 1001 && type <= 1004) || (type >= 1009 && type <= 1012);
}
constexpr bool isEphemeris(int type) { ///< 63 is the forerunner of 1042
    return type == 63 || type == 1019 || type == 1020 || type == 1042 ||
           (type >= 1044 && type <= 1046);
}

} // namespace ref
