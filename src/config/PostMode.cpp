#include "config/PostMode.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "config/Antatx.h"
#include "config/AntennaNames.h"
#include "config/ModelFile.h"
#include "config/Patterns.h"
#include "config/SvNav.h"
#include "gnss/ComFreq.h"
#include "gnss/ComTime.h"

#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

double startMjd(const Configuration& c) {
    return c.startMjd + c.startSod / kSecondsPerDay;
}
double endMjd(const Configuration& c) {
    return c.endMjd + c.endSod / kSecondsPerDay;
}

/// A template expanded for the start of the session.
bool expand(const Configuration& config, const PatternTable& table, PatternMode mode,
            std::string_view keyword, const std::string& variables, std::string& out,
            Findings& findings) {
    const DateTime t = mjd2date(config.startMjd, config.startSod);
    return Patterns_m_getPatternName(table, mode, keyword, variables, t.year, t.month, t.day,
                                     t.hour, out, findings);
}

/// The station's own template; what is wrong with it stands in the object file.
bool expandOwn(const Configuration& config, StationRecord& station, int line, Findings& findings) {
    Findings own;
    const bool good = expand(config, {}, PatternMode::inPlace, "", "", station.text, own);
    for (const Finding& finding : own.list())
        findings.add(finding.id, config.tables.object, line, finding.values);
    return good;
}

/// The station's own template, and the paths of its observation and log files.
bool nameFiles(const Configuration& config, StationRecord& station, int line, Findings& findings) {
    PatternTable table{config.tables.vrnfln, {}};
    const std::string variables = "STANAM=" + toLower(station.name);
    std::string observations;
    std::string log;
    if (!Patterns_readFile(table, findings) || !expandOwn(config, station, line, findings) ||
        !expand(config, table, PatternMode::named, "rnxo", variables, observations, findings) ||
        !expand(config, table, PatternMode::named, "log", variables, log, findings))
        return false;
    station.name = toUpper(station.name);
    station.obsFile = config.obsPath + "/" + observations;
    station.logFile = config.logPath + "/" + log;
    std::error_code ignored;
    if (!std::filesystem::exists(station.obsFile, ignored))
        findings.add(FindingId::observationsMissing, config.tables.object, line, {station.obsFile});
    return true;
}

bool resolveStationAntenna(const Deployment& config, StationRecord& station, int line,
                           Findings& findings) {
    std::string type;
    if (!Antatx_s_antnam(station.name, station.antennaWithRadome, type, config.tables.antnam,
                         findings))
        return false;
    SatellitePco none{};
    if (Antatx_m_getAnt(station.calibration, "SITE", config.frequencies, type, "", none,
                        station.pco, startMjd(config), endMjd(config), config.tables.antpcv,
                        findings))
        return true;
    findings.add(FindingId::stationAntennaMissing, config.tables.object, line,
                 {type, station.name});
    return false;
}

} // namespace

bool resolveSatellite(const Deployment& config, SatelliteRecord& satellite, int line,
                      Findings& findings) {
    satellite.vehicle = std::make_unique<SatelliteVehicle>();
    auto& [info, calibration, pco] = *satellite.vehicle;
    if (!Antatx_s_rdSvnav(satellite.cprn, startMjd(config), info, config.tables.satnav, findings))
        return false;
    satellite.texts[0] = info.block; // the antenna type
    // The object file's channel comes first.
    if (satellite.cprn.front() == 'R' && satellite.glonassChannel == kUnknownChannel &&
        validChannel(info.channel))
        satellite.glonassChannel = info.channel;
    if (!get_freq(satellite, "RAW", config.frequencies[systemIndex(satellite.cprn.front())],
                  config.file, findings))
        return false;
    SitePco none{};
    if (Antatx_m_getAnt(calibration, satellite.cprn, config.frequencies, satellite.texts[0],
                        satellite.cprn, pco, none, startMjd(config), endMjd(config),
                        config.tables.antpcv, findings))
        return true;
    findings.add(FindingId::satelliteAntennaMissing, config.tables.object, line,
                 {satellite.texts[0], satellite.cprn});
    return false;
}

Resolved resolveStation(const Deployment& config, StationRecord& station, int line,
                        Findings& findings) {
    if (!nameFiles(config, station, line, findings))
        return Resolved::failed;
    const Vector3& xyz = station.xyz;
    const double product = xyz[0] * xyz[1] * xyz[2];
    if (product != 0.0 && std::isfinite(product)) {
        station.blh = xyzblh(xyz, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
        station.fromLocal = rot_enu2xyz(station.blh[0], station.blh[1]);
    } else if (station.coordinateMode.starts_with('F')) {
        findings.add(FindingId::stationDropped, config.tables.object, line, {station.name});
        return Resolved::dropped;
    }
    return resolveStationAntenna(config, station, line, findings) ? Resolved::kept
                                                                  : Resolved::failed;
}

void Deploy_m_readBaselines(const std::string& path, std::vector<std::string>& names,
                            Findings& findings) {
    LineReader file(path);
    if (!opened(file, path, findings))
        return;
    names.clear();
    std::string_view line;
    while (file.next(line)) {
        if (line.size() <= 7 || line.front() != ' ')
            continue;
        std::array<std::string, 3> words;
        TextScanner scan(line);
        for (std::string& word : words)
            scan.word(word);
        names.push_back(words[0] + "-" + words[1] + "-" + words[2]);
    }
}
