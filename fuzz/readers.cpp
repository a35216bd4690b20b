#include "fuzz/support.h"

#include "common/DeployConfig.h"
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

void configure() {
    DLY = {};
    Findings findings;
    m_parseFrequency(DLY.stationFrequencies,
                     "GPS:L1_L2_L5 GLS:L1_L2 GAL:E1_E5a BDS:B1_B2b_B3 QZS:L1_L2", "", "", findings);
    DLY.satelliteFrequencies = DLY.stationFrequencies;
}

/// The antenna of a receiver, and that of a satellite with its serial number.
void readAntennas(Findings& findings) {
    SatellitePco satellitePco{};
    SitePco sitePco{};
    AntennaRecord record;
    Antatx_m_getAnt(record, "SITE", DLY.stationFrequencies, "LEIAR25.R4      LEIT", "",
                    satellitePco, sitePco, kFrom, kTo, findings);
    Antatx_m_getAnt(record, "G10", DLY.stationFrequencies, "BLOCK IIF", "G10", satellitePco,
                    sitePco, kFrom, kTo, findings);
}

void readSatellite(Findings& findings) {
    SatelliteInfo info;
    for (const char* const name : {"G10", "R05", "E11"})
        Antatx_s_rdSvnav(name, kFrom, info, findings);
}

struct Reader {
    std::string_view name;
    std::string TablePaths::*path;
    void (*read)(Findings& findings);
};
constexpr std::array<Reader, 9> kReaders{{
    {"object", &TablePaths::object, readObjectFile},
    {"site", &TablePaths::stacoo,
     [](Findings& findings) {
         StationRecord station;
         station.name = "STR2";
         read_siteinfo(station, findings);
     }},
    {"leapseconds", &TablePaths::leapsc, [](Findings&) { Taiutc_m_load(); }},
    {"antennas", &TablePaths::antpcv, readAntennas},
    {"antennanames", &TablePaths::antnam,
     [](Findings& findings) {
         std::string type;
         Antatx_s_antnam("STR2", "LEICA AR25 R4 WITH RADOME", type, findings);
     }},
    {"satellites", &TablePaths::satnav, readSatellite},
    {"baselines", &TablePaths::baselines, Deploy_m_readBaselines},
    {"tables", &TablePaths::database,
     [](Findings& findings) { m_parseTablesConfigures(DLY.tables.database, findings); }},
    {"grid", &TablePaths::gptgrd_w,
     [](Findings& findings) {
         Gpt2Grid grid;
         if (const std::string line = fatalLineOf([&] { Tropo_vmf1(grid); }); !line.empty())
             findings.fatal("", 0, line);
     }},
}};

/// What the reader has to say, a finding a line.
std::string told(const Reader& reader, const std::string& path) {
    configure();
    DLY.tables.*reader.path = path;
    ctl::check::Reading reading;
    reader.read(reading.findings);
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
