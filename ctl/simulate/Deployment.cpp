#include "ctl/simulate/Deployment.h"

#include "base/Findings.h"
#include "ctl/init/Files.h"
#include "ctl/simulate/Calendar.h"
#include "reference/standard/constellation.h"
#include "reference/standard/msm.h"
#include "reference/standard/utc.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ctl::simulate {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMark = "written by kestrunectl simulate";
constexpr const char* kStation = "SIMU";

// A '#' or '!' ends a value of the configuration, blanks do not survive.
void checkPath(const fs::path& directory) {
    for (const char c : directory.string())
        if (c == '#' || c == '!' || c == '"' || c == '\\' || c <= ' ' || c == 127)
            throw std::runtime_error("the path " + directory.string() +
                                     " cannot stand in a configuration: it holds a blank or one of "
                                     "# ! \" \\");
}

void write(const fs::path& path, const std::string& contents) {
    if (fs::exists(path)) {
        std::ifstream old(path);
        const std::string before{std::istreambuf_iterator<char>(old), {}};
        if (before.find(kMark) == std::string::npos)
            throw std::runtime_error(path.string() +
                                     " is there and not from this program: not overwritten");
    }
    std::ofstream file(path);
    file << contents;
    file.flush();
    if (!file)
        throw std::runtime_error(path.string() + " cannot be written");
}

std::string answerKeys(const Deployment& d, ref::Answer answer) {
    std::string out;
    if (answer == ref::Answer::complete)
        out += ",\n    \"answer\": \"complete#every signal, as received\"";
    if (d.output == ref::Output::rtcm3)
        out += ",\n    \"output\": \"rtcm3#a plain stream\"";
    if (d.offsetM)
        out += text(",\n    \"offset\": \"%.4f %.4f %.4f#east, north, up in metres\"",
                    (*d.offsetM)[0], (*d.offsetM)[1], (*d.offsetM)[2]);
    return out;
}

std::string deploymentFile(const fs::path& directory, const Deployment& d, int port,
                           ref::Answer answer) {
    const std::string dir = directory.string();
    std::string day = utcText(d.start, Fraction::none); // YYYY-MM-DD hh:mm:ss
    for (char& c : day)
        if (c == '-' || c == ':')
            c = ' ';
    const std::string clock =
        d.clock ? ",\n    \"clock\": \"" + utcText(*d.clock, Fraction::none) +
                      "#UTC; the service's clock starts there, as the simulated day does\""
                : "";
    return text(R"({
  "path": {
    "broad": "%s#broadcast ephemeris files; recorded",
    "obs": "%s#observation files; recorded",
    "output": "%s#%s: a value ends at the # and no blank stands before it"
  },
  "files": "%s/tables.json",
  "common": {
    "time": "%s 86400.0#start and length in seconds",
    "interval": "1.0#recorded: every epoch received is answered",
    "freqused": "GPS:L1_L2_L5 GLS:L1_L2 GAL:E1_E5a_E5b_E6 BDS:B1_B2b_B3 QZS:L1_L2_L5",
    "threads": "1",
    "tracelevel": "0"%s
  },
  "reqs": ["VRS0"],
  "vrs": {
    "input-connector": "%s %d#where the simulator listens",
    "output-connector": "%s %d#must be there; replies leave on the input connection",
    "input-protocol": "RTCM3"%s
  }
}
)",
                dir.c_str(), dir.c_str(), dir.c_str(), std::string(kMark).c_str(), dir.c_str(),
                day.c_str(), clock.c_str(), d.host.c_str(), port, d.host.c_str(), port,
                answerKeys(d, answer).c_str());
}

std::string tablesFile(const fs::path& directory) {
    const std::string dir = directory.string();
    std::string out = "{\n  \"files\": {\n";
    out += text("    \"object\": \"%s/session.obj#satellites and stations\",\n", dir.c_str());
    out += text("    \"stacoo\": \"%s/site.crd#station coordinates\",\n", dir.c_str());
    out += text("    \"leapsc\": \"%s/leapsec.tab#leap seconds; %s\"", dir.c_str(),
                std::string(kMark).c_str());
    for (const char* const key :
         {"satnav", "antnam", "antpcv", "gptgrd", "ocload", "jpleph", "ut1t96", "ut1t03", "ut1t10",
          "vrnfln", "polut1", "corrp1c1", "database", "corrDCB", "gptgrd_w", "subnet", "baselines",
          "rtconfigs", "corrStaDCB"})
        out += text(",\n    \"%s\": \"none\"", key);
    return out + "\n  }\n}\n";
}

std::string objectFile(const std::vector<std::string>& satellites) {
    std::string out = text("* %s\n", std::string(kMark).c_str()) +
                      "* Satellites and stations of the session. A record starts with a blank.\n"
                      "* NAM  BLOCK  COSPAR  SVN   CHANNEL (GLONASS)\n"
                      "+Satellite used\n";
    for (const std::string& sat : satellites)
        out += sat[0] == 'R' ? text(" %s  SIM    -       -     %d\n", sat.c_str(),
                                    ref::Constellation::channel(sat))
                             : text(" %s  SIM    -       -\n", sat.c_str());
    return out + "-Satellite used\n* NAM  MODE  TEXT  TEXT\n+Station used\n " + kStation +
           "  F     -     -\n-Station used\n";
}

std::string siteFile(const ref::Vec3& x) {
    const char* const s = kStation;
    return text(
        "* %s\n"
        "* Station coordinates (m, Earth-centred), sigmas, antenna reference point offsets\n"
        " %s_POS%15.4f%15.4f%15.4f\n"
        " %s_SIG         0.0010         0.0010         0.0010\n"
        " %s_ENU         0.0000         0.0000         0.0000    "
        "ADVNULLANTENNA             ADVNULLANTENNA  NONE\n",
        std::string(kMark).c_str(), s, x[0], x[1], x[2], s, s);
}

std::string leapSecondFile(const Deployment& d) {
    constexpr int kFirst = 57754; // 2017-01-01, before which no simulation starts
    std::string rows;
    for (const ref::LeapSecond& l : ref::kLeapSeconds)
        if (l.mjd >= kFirst)
            rows += text(" %d %d\n", l.mjd, l.taiMinusUtcS);
    const ref::LeapSecond& last = *std::rbegin(ref::kLeapSeconds);
    return text("* %s\n* MJD from which TAI - UTC (s) holds; the last line ends the validity\n"
                "+leap sec\n%s %d %d\n-leap sec\n",
                std::string(kMark).c_str(), rows.c_str(),
                std::max(utcMjd(d.start), last.mjd) + 3653, last.taiMinusUtcS);
}

} // namespace

std::vector<std::string> satellitesOfEveryStation(ref::Answer answer) {
    init::Station any;
    any.answer = answer == ref::Answer::complete ? "complete" : "specified";
    std::vector<std::string> names;
    for (const init::Satellite& s : init::satellitesOf(any))
        names.push_back(s.name);
    return names;
}

std::vector<fs::path> writeDeployment(const fs::path& directory, const Deployment& d) {
    const fs::path folder = fs::absolute(directory).lexically_normal();
    checkPath(folder);
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder))
        throw std::runtime_error(folder.string() + " is no directory and cannot be made one");
    std::vector<fs::path> paths;
    for (int i = 0; i < d.endpoints; ++i) {
        paths.push_back(folder / (i == 0 ? "vrs.json" : text("vrs-%d.json", i + 1)));
        const auto n = static_cast<std::size_t>(i) % d.answers.size();
        write(paths.back(), deploymentFile(folder, d, d.port + i, d.answers[n]));
    }
    write(folder / "tables.json", tablesFile(folder));
    write(folder / "session.obj", objectFile(d.satellites));
    write(folder / "site.crd", siteFile(d.siteM));
    write(folder / "leapsec.tab", leapSecondFile(d));
    return paths;
}

} // namespace ctl::simulate
