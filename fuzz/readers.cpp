#include "beside/Tropo_vmf1.h"
#include "config/Antatx.h"
#include "config/AntennaNames.h"
#include "config/Configuration.h"
#include "config/Deploy.h"
#include "config/ObjectFile.h"
#include "config/PostMode.h"
#include "config/SiteFile.h"
#include "config/SvNav.h"
#include "ctl/check/Remarks.h"
#include "ctl/rinex/Records.h"
#include "ctl/status/Metrics.h"
#include "ctl/status/Screen.h"
#include "fuzz/fatal.h"
#include "fuzz/support.h"
#include "gnss/Taiutc.h"

#include <algorithm>
#include <array>
#include <stdexcept>

// Each reader of a file, beneath what ends the process: the first line of the input names it, the
// rest is the file. Whatever the file holds, a second reading of it finds the same.

namespace {

using ctl::check::Reading;

const Folder folder;
Printed printed;
std::string lines;
constexpr double kFrom = 58311.0; // MJD
constexpr double kTo = 58312.0;

Deployment configured() {
    Deployment d;
    Findings findings;
    m_parseFrequency(d.frequencies, "GPS:L1_L2_L5 GLS:L1_L2 GAL:E1_E5a BDS:B1_B2b_B3 QZS:L1_L2", "",
                     "", findings);
    return d;
}

/// The antenna of a receiver, and that of a satellite with its serial number.
void readAntennas(const Deployment& d, const std::string& path, Findings& findings) {
    SatellitePco satellitePco{};
    SitePco sitePco{};
    AntennaRecord record;
    Antatx_m_getAnt(record, "SITE", d.frequencies, "LEIAR25.R4      LEIT", "", satellitePco,
                    sitePco, kFrom, kTo, path, findings);
    Antatx_m_getAnt(record, "G10", d.frequencies, "BLOCK IIF", "G10", satellitePco, sitePco, kFrom,
                    kTo, path, findings);
}

void readSatellite(const std::string& path, Findings& findings) {
    SatelliteInfo info;
    for (const char* const name : {"G10", "R05", "E11"})
        Antatx_s_rdSvnav(name, kFrom, info, path, findings);
}

void say(Reading& r, int line, const std::string& what) {
    r.remarks.add({Severity::fatal, "", line, "", what, ""});
}

/// All that people and programs are told of it; no byte that a terminal obeys.
void readStatus(Reading& r, const std::string& path) {
    try {
        const ctl::status::StatusFile file(path);
        constexpr double nowUnixS = 1795365661.3;
        const std::string shown = screenOf(file, nowUnixS) + lineOf(file, nowUnixS);
        require(std::ranges::none_of(
                    shown, [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7F; }),
                "nothing that a terminal obeys");
        say(r, 0, shown + ctl::status::metricsOf({&file, 1}));
    } catch (const std::runtime_error& e) {
        say(r, 0, e.what());
    }
}

/// Every epoch; its satellites have whole fields.
void readRecords(Reading& r, const std::string& path) {
    try {
        ctl::rinex::Records records(path,
                                    [&](const ctl::rinex::Fault& f) { say(r, f.line, f.text); });
        for (ctl::rinex::Record record; records.next(record);)
            for (const ctl::rinex::SatelliteLine& s : record.satellites) {
                require(s.fields.size() % ctl::rinex::kFieldWidth == 0, "whole fields");
                say(r, record.place.line, s.name + s.fields);
            }
    } catch (const std::runtime_error& e) {
        say(r, 0, e.what());
    }
}

struct Reader {
    std::string_view name;
    void (*read)(Reading& r, const std::string& path);
};
constexpr std::array<Reader, 11> kReaders{{
    {"status", readStatus},
    {"records", readRecords},
    {"object",
     [](Reading& r, const std::string& path) {
         r.deployment.tables.object = path;
         readObjectFile(r.deployment, r.findings);
     }},
    {"site",
     [](Reading& r, const std::string& path) {
         StationRecord station;
         station.name = "STR2";
         read_siteinfo(station, path, r.findings);
     }},
    {"leapseconds",
     [](Reading&, const std::string& path) {
         LeapSeconds leaps;
         leaps.path = path;
         Taiutc_m_load(leaps);
     }},
    {"antennas",
     [](Reading& r, const std::string& path) { readAntennas(r.deployment, path, r.findings); }},
    {"antennanames",
     [](Reading& r, const std::string& path) {
         std::string type;
         Antatx_s_antnam("STR2", "LEICA AR25 R4 WITH RADOME", type, path, r.findings);
     }},
    {"satellites", [](Reading& r, const std::string& path) { readSatellite(path, r.findings); }},
    {"baselines",
     [](Reading& r, const std::string& path) {
         Deploy_m_readBaselines(path, r.deployment.baselineNames, r.findings);
     }},
    {"tables",
     [](Reading& r, const std::string& path) {
         m_parseTablesConfigures(r.deployment.tables, path, r.findings);
     }},
    {"grid",
     [](Reading& r, const std::string& path) {
         Gpt2Grid grid;
         if (const std::string line = fatalLineOf([&] { Tropo_vmf1(grid, path); }); !line.empty())
             r.remarks.add({Severity::fatal, "", 0, "", line, ""});
     }},
}};

/// What the reader has to say, a finding a line.
std::string told(const Reader& reader, const std::string& path) {
    Reading reading;
    reading.deployment = configured();
    reader.read(reading, path);
    std::string out;
    for (const Finding& f : reading.findings.list())
        out += f.file + ":" + std::to_string(f.line) + ":" + f.key + ":" + printedLine(f) + "\n";
    for (const ctl::check::Remark& r : reading.remarks.list())
        out += r.file + ":" + std::to_string(r.line) + ":" + r.key + ":" + r.text + "\n";
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = textOf({data, size});
    const std::string_view name = input.substr(0, input.find('\n'));
    const auto* const reader = std::find_if(kReaders.begin(), kReaders.end(),
                                            [&](const Reader& r) { return r.name == name; });
    if (reader == kReaders.end())
        return -1; // nothing for the corpus
    const std::string path =
        folder.write("file", input.substr(std::min(name.size() + 1, input.size())));
    require(told(*reader, path) == told(*reader, path), "the same findings of the same file");
    printed.take(lines);
    return 0;
}
