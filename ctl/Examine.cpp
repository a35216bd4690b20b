#include "ctl/Examine.h"

#include "common/ComCoord.h"
#include "common/ComFreq.h"
#include "common/ComText.h"
#include "common/DeployConfig.h"
#include "common/LineReader.h"
#include "config/Deploy.h"
#include "config/RecordRemarks.h"
#include "ctl/Advice.h"
#include "rtcm/Msm.h"
#include "vrs/VrsEncoder.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace ctl::check {

namespace {

constexpr const char* kFreqUsed = "common/freqused";

void tell(Findings& findings, Severity severity, const char* key, std::string what,
          std::string advice) {
    findings.remark({severity, DLY.file, 0, key, std::move(what), std::move(advice)});
}

bool refused(const Findings& findings, std::string_view key) {
    return std::any_of(findings.list().begin(), findings.list().end(), [&](const Finding& f) {
        return f.severity == Severity::fatal && f.key == key;
    });
}

bool fatalIn(const Findings& findings, std::string_view file) {
    return std::any_of(findings.list().begin(), findings.list().end(), [&](const Finding& f) {
        return f.severity == Severity::fatal && f.file == file;
    });
}

/// Files that the readers did not reach because of a fault in front of them: those that cannot be
/// opened, with the lines that would come of them in the next run.
void examineFiles(Findings& findings) {
    if (!findings.anyFatal())
        return;
    const TablePaths& t = DLY.tables;
    const auto expect = [&](const std::string& path, std::string line) {
        const bool told =
            std::any_of(findings.list().begin(), findings.list().end(),
                        [&](const Finding& f) { return f.file == path && f.text == line; });
        if (!told && !LineReader(path).isOpen())
            findings.fatal(path, 0, std::move(line));
    };
    // Without satellites, the carriers tell whether GLONASS is meant.
    const bool unread = fatalIn(findings, t.object) && DLY.satellites.empty();
    if (unread && !DLY.satelliteFrequencies[kSystems.find('R')].empty())
        expect(t.leapsc, "***ERROR(readCommFil):file_table not exist leapsc item ");
    expect(t.stacoo, text("file = %s,can't access site file", t.stacoo.c_str()));
    if (!DLY.post)
        return;
    expect(t.vrnfln, text("file = %s,can't access vrnfln file", t.vrnfln.c_str()));
    for (const std::string& path : {t.antnam, t.antpcv})
        expect(path, text("file = %s,can't access satnav file", path.c_str()));
    if (unread)
        expect(t.satnav, text("file = %s,can't access satnav file", t.satnav.c_str()));
}

/// The address as the socket layer reads the text; empty where it is none.
std::string addressOf(const std::string& host) {
    in_addr address{};
    std::array<char, INET_ADDRSTRLEN> shown{};
    if (inet_aton(host.c_str(), &address) == 0 ||
        !inet_ntop(AF_INET, &address, shown.data(), shown.size()))
        return {};
    return shown.data();
}

void examineHost(const char* key, const Connector& in, Findings& findings) {
    // Where no port was read, it may be stuck to the host.
    const std::string host = in.port == 0 ? in.host.substr(0, in.host.find(':')) : in.host;
    const std::string address = addressOf(host);
    if (host.empty())
        return;
    if (address.empty())
        tell(findings, Severity::warning, key,
             text("%s is no IPv4 address: no connection will come about", host.c_str()),
             "names are not resolved: write an address such as 127.0.0.1");
    else if (address != host)
        tell(findings, Severity::warning, key,
             text("%s is read as %s", host.c_str(), address.c_str()),
             "write four decimal numbers without leading zeros");
}

void examineConnectors(Findings& findings) {
    const Connector& in = DLY.input;
    const Connector& out = DLY.output;
    constexpr const char* key = "vrs/input-connector";
    examineHost(key, in, findings);
    if (in.host.empty() || refused(findings, key) || refused(findings, "vrs/output-connector"))
        return;
    if (in.host != out.host || in.port != out.port)
        tell(findings, Severity::warning, "vrs/output-connector",
             text("%s %d is not connected", out.host.c_str(), out.port),
             "replies leave on the input connection: write the same as in vrs/input-connector");
}

/// Whether a message of the system can hold the signal: a reply asks for some that none can.
bool inMessages(std::size_t system, std::string_view code) {
    const unsigned flag = satsys(satid2no(std::string(1, kSystems[system]) + "01"));
    return std::any_of(kMsmSystems.begin(), kMsmSystems.end(), [&](const MsmSystem& s) {
        return s.system == flag &&
               std::find(s.codes.begin(), s.codes.end(), obs2code(code)) != s.codes.end();
    });
}

/// The signals of a reply for a system, such as "1C 2W 5Q"; with a slot only those on it.
std::string signalsOf(std::size_t system, std::string_view slot = {}) {
    std::string out;
    for (const std::string_view code : obscodes)
        if (!code.empty() && (slot.empty() || code.front() == slot[1]) &&
            index_mask(system, "L" + std::string(code)) > 0 && inMessages(system, code))
            out += (out.empty() ? "" : " ") + std::string(code);
    return out;
}

bool hasSatellites(char letter) {
    return contains(DLY.systems, std::string_view(&letter, 1));
}

/// Carriers of one system that exist; the reader refuses others where there are satellites.
void examineCarriers(std::size_t system, Findings& findings) {
    const char letter = kSystems[system];
    const std::string name(Deploy_m_systemName(letter));
    for (const std::string& slot : DLY.satelliteFrequencies[system]) {
        if (!carrier(letter, slot, 0)) {
            if (!hasSatellites(letter))
                tell(findings, Severity::warning, kFreqUsed,
                     text("%s has no carrier %s", name.c_str(), slot.c_str()), "remove it");
        } else if (slot.size() < 2 || signalsOf(system, slot).empty()) {
            tell(findings, Severity::warning, kFreqUsed,
                 text("no reply carries a signal of %s on %s", name.c_str(), slot.c_str()),
                 text("of %s it carries %s (the digit is the carrier): choose other carriers",
                      name.c_str(), signalsOf(system).c_str()));
        }
    }
}

/// Carriers of some system that could not be read: any may be the one that has none.
bool carriersUnread(const Findings& findings) {
    return std::any_of(findings.list().begin(), findings.list().end(), [](const Finding& f) {
        return f.severity == Severity::fatal && f.key == kFreqUsed &&
               !contains(f.text, "unknow frequency");
    });
}

void examineFrequencies(Findings& findings) {
    const bool allRead = !carriersUnread(findings);
    const bool allAccepted = !fatalIn(findings, DLY.tables.object);
    for (std::size_t system = 0; system < kSystemCount; ++system) {
        const char letter = kSystems[system];
        const bool carriers = !DLY.satelliteFrequencies[system].empty();
        examineCarriers(system, findings);
        if (hasSatellites(letter) && !carriers && allRead)
            tell(findings, Severity::warning, kFreqUsed,
                 text("satellites of %c are configured, and no carrier of theirs", letter),
                 "nothing of them is answered: give them carriers, or remove the satellites");
        if (carriers && !hasSatellites(letter) && !DLY.satellites.empty() && allAccepted)
            tell(findings, Severity::note, kFreqUsed,
                 text("carriers of %s are configured, and no satellite of it",
                      std::string(Deploy_m_systemName(letter)).c_str()),
                 "list its satellites in the object file, or remove the carriers");
    }
}

void examineChannels(Findings& findings) {
    std::string names;
    int count = 0;
    for (const SatelliteRecord& s : DLY.satellites)
        if (s.cprn.starts_with('R') && isSatellite(s.cprn) && s.glonassChannel == kUnknownChannel) {
            names += " " + s.cprn;
            ++count;
        }
    if (count > 0)
        findings.remark({Severity::note,
                         DLY.tables.object,
                         0,
                         {},
                         text("%d GLONASS satellite%s without a channel:%s", count,
                              count == 1 ? "" : "s", names.c_str()),
                         "the stream tells it; until then there is no phase"});
}

void examineSaving(Findings& findings) {
    constexpr const char* key = "path/output";
    if (DLY.rawSave && DLY.vrsSave)
        return tell(findings, Severity::warning, key, "-rawsav and -vrssav: nothing is saved",
                    "give -rawsav alone");
    if (!DLY.rawSave && !DLY.vrsSave)
        return;
    if (DLY.vrsSave)
        tell(findings, Severity::warning, key, "-vrssav saves the epochs that are received",
             "virtual epochs cannot be saved: give -rawsav");
    if (refused(findings, key))
        return;
    struct stat status {};
    const char* const folder = DLY.outputPath.c_str();
    std::string why;
    if (stat(folder, &status) != 0)
        why = reasonWith(DLY.outputPath, std::strerror(errno));
    else if (!S_ISDIR(status.st_mode))
        why = "is no directory";
    else if (access(folder, W_OK | X_OK) != 0)
        why = std::strerror(errno);
    if (!why.empty())
        tell(findings, Severity::fatal, key,
             text("nothing can be saved in %s: %s", folder, why.c_str()),
             "the service ends at the first epoch: create the folder, and let it write there");
}

std::string placeOf(const StationRecord& station) {
    const bool usable = std::all_of(station.xyz.begin(), station.xyz.end(),
                                    [](double x) { return std::isfinite(x) && x != 0.0; });
    if (!usable)
        return "no usable coordinates: no epoch is answered";
    const Vector3 blh = xyzblh(station.xyz, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    const double lat = blh[0] * 180.0 / kPi;
    const double lon = blh[1] * 180.0 / kPi;
    return text("%.5f %c, %.5f %c, height %.1f m", std::fabs(lat), lat < 0.0 ? 'S' : 'N',
                std::fabs(lon), lon < 0.0 ? 'W' : 'E', blh[2]);
}

/// How many satellites there are, by system.
std::string satelliteCounts() {
    std::string out;
    for (const char letter : kSystems) {
        const auto n = std::count_if(DLY.satelliteNames.begin(), DLY.satelliteNames.end(),
                                     [&](const std::string& s) { return s[0] == letter; });
        if (n > 0)
            out += text(" %c%d", letter, static_cast<int>(n));
    }
    return out;
}

} // namespace

void examineSession(Findings& findings) {
    examineFiles(findings);
    examineConnectors(findings);
    if (DLY.requests.size() > 1)
        tell(findings, Severity::warning, "reqs",
             text("%zu requests, and the first one is answered", DLY.requests.size()),
             "give every further one a deployment of its own");
    examineFrequencies(findings);
    examineChannels(findings);
    examineSaving(findings);
    examineLeapSeconds(findings);
}

std::vector<std::string> outlineOfSession() {
    std::vector<std::string> lines{
        text("connects to %s:%d", DLY.input.host.c_str(), DLY.input.port)};
    if (!DLY.stations.empty())
        lines.push_back(text("station %s at %s", DLY.stations[0].name.c_str(),
                             placeOf(DLY.stations[0]).c_str()));
    lines.push_back(text("%zu satellites:%s", DLY.satellites.size(), satelliteCounts().c_str()));
    if (const std::string leap = outlineOfLeapSeconds(); !leap.empty())
        lines.push_back(leap);
    if (DLY.rawSave != DLY.vrsSave)
        lines.push_back(text("saves epochs in %s", DLY.outputPath.c_str()));
    if (DLY.clock)
        lines.push_back(text("its clock starts on %s, for a recording of that day",
                             dateText(dayOfStart()).c_str()));
    return lines;
}

} // namespace ctl::check
