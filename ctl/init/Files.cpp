#include "ctl/init/Files.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "config/Deploy.h"
#include "ctl/init/Templates.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace ctl::init {

namespace fs = std::filesystem;

namespace {

constexpr const char* kWatchdogS = "60";
/// Geostationary (BDS-SIS-ICD-B1I 3.0); the specified answer has them metres off.
constexpr std::array<const char*, 4> kOfCompleteAnswer{"C59", "C60", "C61", "C62"};
constexpr const char* kBeforeThem = "C46";
constexpr const char* kRemark = "* Without C59 to C62";

/// The text with every `from` replaced; there must be one.
std::string filled(std::string content, const std::string& from, const std::string& to) {
    std::size_t at = content.find(from);
    if (at == std::string::npos)
        throw std::logic_error("the template lacks " + from);
    for (; at != std::string::npos; at = content.find(from, at + to.size()))
        content.replace(at, from.size(), to);
    return content;
}

bool uses(const Station& station, char system) {
    return station.systems.empty() || contains(station.systems, {&system, 1});
}

/// The name of the satellite that a line of the object file is of; empty where it is of none.
std::string satelliteOf(const std::string& line) {
    const bool satellite = line.size() > 4 && line[0] == ' ' && line[4] == ' ' &&
                           configuredSystem(line[1]) && isdigit(line[2]) != 0;
    return satellite ? line.substr(1, 3) : std::string();
}

/// A path as a value of the configuration, where a '#' or '!' ends it and blanks do not survive.
std::string value(const fs::path& path) {
    for (const char c : path.string())
        if (c == '#' || c == '!' || c == '"' || c == '\\' || c <= ' ' || c == 127)
            throw std::runtime_error("the path " + path.string() +
                                     " cannot stand in a configuration: it holds a blank or one of "
                                     "# ! \" \\");
    return path.string();
}

/// The words of "freqused" whose systems are used.
std::string withUsedSystems(std::string content, const Station& station) {
    const std::string before = "\"freqused\": \"";
    const std::size_t from = content.find(before) + before.size();
    const std::size_t end = content.find('"', from);
    std::istringstream words(content.substr(from, end - from));
    std::string used;
    for (std::string word; words >> word;)
        for (const ConfiguredSystem& s : kConfiguredSystems)
            if (word.starts_with(std::string(s.names[0]) + ":") && uses(station, s.letter))
                used += (used.empty() ? "" : " ") + word;
    return content.replace(from, end - from, used);
}

/// A key behind the one that has this value now.
std::string withKey(const std::string& content, const std::string& before, const std::string& key,
                    const std::string& value) {
    return filled(content, before, before + ",\n    \"" + key + "\": \"" + value + "\"");
}

std::string deploymentFile(const Station& station, const Layout& layout) {
    std::string out(kDeploymentTemplate);
    out = filled(out, "@HOST@", station.host);
    out = filled(out, "@PORT@", std::to_string(station.port));
    out = filled(out, "/etc/kestrune/tables.json", value(layout.folder / "tables.json"));
    out = withUsedSystems(out, station);
    const std::string output = "\"output\": \"" + value(layout.kept) + "\"";
    out = filled(out, "\"output\": \"none\"", output);
    out = withKey(out, output, "state", value(layout.kept));
    out = withKey(out, "\"tracelevel\": \"0\"", "watchdog", kWatchdogS);
    out = filled(out, "/var/lib/kestrune/status.json", value(layout.kept / "status.json"));
    if (!station.clock.empty())
        out = withKey(out, "\"tracelevel\": \"0\"", "clock", station.clock);
    if (const auto& enu = station.offset)
        out = withKey(out, "\"input-protocol\": \"RTCM3\"", "offset",
                      text("%.4f %.4f %.4f", (*enu)[0], (*enu)[1], (*enu)[2]));
    out = withKey(out, "\"input-protocol\": \"RTCM3\"", "output", "rtcm3");
    return withKey(out, "\"input-protocol\": \"RTCM3\"", "answer", station.answer);
}

/// The satellites of the systems in use; the line of one that the packaged example has, too, is
/// the example's.
std::string objectFile(const Station& station) {
    std::istringstream lines{std::string(kObjectTemplate)};
    const bool complete = station.answer == "complete";
    std::string out;
    for (std::string line; std::getline(lines, line);) {
        if (complete && line.starts_with(kRemark))
            continue;
        const std::string satellite = satelliteOf(line);
        if (!satellite.empty() && !uses(station, satellite[0]))
            continue;
        const std::size_t at = !satellite.empty()
                                   ? kExampleObjectFile.find("\n" + line.substr(0, 5))
                                   : std::string_view::npos;
        if (at != std::string_view::npos)
            line =
                kExampleObjectFile.substr(at + 1, kExampleObjectFile.find('\n', at + 1) - at - 1);
        out += line + "\n";
        if (complete && satellite == kBeforeThem)
            for (const char* const name : kOfCompleteAnswer)
                out += line.replace(1, 3, name) + "\n";
    }
    return filled(out, "@NAME@", station.name);
}

std::string siteFile(const Station& station) {
    std::string out = filled(std::string(kSiteTemplate), "@NAME@", station.name);
    const std::array<const char*, 3> axes{"@X@", "@Y@", "@Z@"};
    for (std::size_t i = 0; i < axes.size(); ++i)
        out = filled(out, axes[i], text("%.4f", station.xyz[i]));
    return out;
}

[[noreturn]] void fail(const fs::path& path, const std::string& why) {
    throw std::runtime_error(path.string() + ": " + why);
}

void writeOne(const NewFile& file) {
    std::FILE* const out = std::fopen(file.path.c_str(), "wxe");
    if (!out)
        fail(file.path, std::strerror(errno));
    errno = 0;
    const bool written =
        std::fwrite(file.content.data(), 1, file.content.size(), out) == file.content.size();
    if (std::fclose(out) != 0 || !written)
        fail(file.path, errno != 0 ? std::strerror(errno) : "cannot be written");
}

} // namespace

std::vector<Satellite> satellitesOf(const Station& station) {
    std::vector<Satellite> out;
    std::istringstream lines(objectFile(station));
    for (std::string line; std::getline(lines, line);) {
        Satellite s{satelliteOf(line), std::nullopt};
        if (s.name.empty())
            continue;
        std::istringstream words(line.substr(4));
        std::string block, cospar, vehicle;
        if (int channel = 0; words >> block >> cospar >> vehicle >> channel && s.name[0] == 'R')
            s.channel = channel;
        out.push_back(std::move(s));
    }
    return out;
}

std::string stationName(const std::string& unit) {
    std::string out;
    for (const char c : toUpper(unit))
        if (out.size() < 4 && ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')))
            out += c;
    if (!out.empty())
        out.resize(4, '0');
    return out;
}

std::vector<NewFile> filesOf(const Station& station, const Layout& layout) {
    return {{layout.deployment, deploymentFile(station, layout)},
            {layout.folder / "tables.json",
             filled(std::string(kTablesTemplate), "/etc/kestrune/", value(layout.folder) + "/")},
            {layout.folder / "session.obj", objectFile(station)},
            {layout.folder / "site.crd", siteFile(station)},
            {layout.folder / "leapsec.tab", std::string(kLeapSecondFile)}};
}

void writeNew(const std::vector<NewFile>& files) {
    for (const NewFile& file : files)
        if (fs::exists(fs::symlink_status(file.path)))
            fail(file.path, "is there already; nothing is written");
    std::vector<NewFile> written;
    try {
        for (const NewFile& file : files) {
            fs::create_directories(file.path.parent_path());
            writeOne(file);
            written.push_back({file.path, {}});
        }
    } catch (...) {
        removeNew(written);
        throw;
    }
}

void removeNew(const std::vector<NewFile>& files) {
    std::error_code none;
    for (const NewFile& file : files)
        fs::remove(file.path, none);
    if (!files.empty()) // only when nothing else is in it
        fs::remove(files.back().path.parent_path(), none);
}

} // namespace ctl::init
