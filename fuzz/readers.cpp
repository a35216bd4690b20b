#include "fuzz/support.h"

#include "common/Configuration.h"
#include "common/SiteFile.h"
#include "common/Taiutc.h"
#include "config/Deploy.h"
#include "config/PostMode.h"
#include "ctl/Remarks.h"
#include "fuzz/fatal.h"
#include "models/Antatx.h"
#include "models/Tropo_vmf1.h"

#include <algorithm>
#include <array>

// Each reader of a file, beneath what ends the process: the first line of the input names it, the
// rest is the file. Whatever the file holds, a second reading of it finds the same.

namespace {

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

struct Reader {
    std::string_view name;
    void (*read)(Deployment& d, const std::string& path, Findings& findings);
};
constexpr std::array<Reader, 9> kReaders{{
    {"object",
     [](Deployment& d, const std::string& path, Findings& findings) {
         d.tables.object = path;
         readObjectFile(d, findings);
     }},
    {"site",
     [](Deployment&, const std::string& path, Findings& findings) {
         StationRecord station;
         station.name = "STR2";
         read_siteinfo(station, path, findings);
     }},
    {"leapseconds",
     [](Deployment&, const std::string& path, Findings&) {
         LeapSeconds leaps;
         leaps.path = path;
         Taiutc_m_load(leaps);
     }},
    {"antennas", [](Deployment& d, const std::string& path,
                    Findings& findings) { readAntennas(d, path, findings); }},
    {"antennanames",
     [](Deployment&, const std::string& path, Findings& findings) {
         std::string type;
         Antatx_s_antnam("STR2", "LEICA AR25 R4 WITH RADOME", type, path, findings);
     }},
    {"satellites", [](Deployment&, const std::string& path,
                      Findings& findings) { readSatellite(path, findings); }},
    {"baselines",
     [](Deployment& d, const std::string& path, Findings& findings) {
         Deploy_m_readBaselines(path, d.baselineNames, findings);
     }},
    {"tables", [](Deployment& d, const std::string& path,
                  Findings& findings) { m_parseTablesConfigures(d.tables, path, findings); }},
    {"grid",
     [](Deployment&, const std::string& path, Findings& findings) {
         Gpt2Grid grid;
         if (const std::string line = fatalLineOf([&] { Tropo_vmf1(grid, path); }); !line.empty())
             findings.fatal("", 0, line);
     }},
}};

/// What the reader has to say, a finding a line.
std::string told(const Reader& reader, const std::string& path) {
    ctl::check::Reading reading;
    reading.deployment = configured();
    reader.read(reading.deployment, path, reading.findings);
    std::string out;
    for (const auto* const list : {&reading.findings.list(), &reading.remarks.list()})
        for (const Finding& f : *list)
            out += f.file + ":" + std::to_string(f.line) + ":" + f.key + ":" + f.text + "\n";
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
