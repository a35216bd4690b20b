#include "ctl/check/Examine.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "config/Deploy.h"
#include "ctl/check/Access.h"
#include "ctl/check/Advice.h"
#include "ctl/check/Place.h"
#include "ctl/check/Unit.h"
#include "gnss/ComFreq.h"
#include "rtcm/layouts/Msm.h"
#include "vrs/VrsEncoder.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace ctl::check {

namespace {

constexpr const char* kFreqUsed = "common/freqused";
constexpr std::uint32_t kFirstOfMany = 0xE0000000U; // 224.0.0.0: multicast, reserved, broadcast

void tell(Reading& reading, Severity severity, const char* key, std::string what,
          std::string advice) {
    reading.remarks.add(
        {severity, reading.deployment.file, 0, key, std::move(what), std::move(advice)});
}

bool refused(const Reading& reading, std::string_view key) {
    return std::any_of(
        reading.findings.list().begin(), reading.findings.list().end(),
        [&](const Finding& f) { return severityOf(f.id) == Severity::fatal && f.key == key; });
}

bool fatalIn(const Reading& reading, std::string_view file) {
    return std::any_of(
        reading.findings.list().begin(), reading.findings.list().end(),
        [&](const Finding& f) { return severityOf(f.id) == Severity::fatal && f.file == file; });
}

/// Files that the readers did not reach because of a fault in front of them: those that cannot be
/// opened, with the findings that would come of them in the next run.
void examineFiles(Reading& reading) {
    if (!reading.findings.anyFatal())
        return;
    const TablePaths& t = reading.deployment.tables;
    const auto expect = [&](const std::string& path, FindingId id) {
        const bool told =
            std::any_of(reading.findings.list().begin(), reading.findings.list().end(),
                        [&](const Finding& f) { return f.file == path && f.id == id; });
        if (!told && !LineReader(path).isOpen())
            reading.findings.add(id, path, 0);
    };
    // Without satellites, the carriers tell whether GLONASS is meant.
    const bool unread = fatalIn(reading, t.object) && reading.deployment.satellites.empty();
    if (unread && !reading.deployment.frequencies[systemIndex('R')].empty())
        expect(t.leapsc, FindingId::leapSecondsUnreadable);
    expect(t.stacoo, FindingId::siteUnreadable);
    if (!reading.deployment.post)
        return;
    expect(t.vrnfln, FindingId::patternsUnreadable);
    for (const std::string& path : {t.antnam, t.antpcv})
        expect(path, FindingId::modelFileUnreadable);
    if (unread)
        expect(t.satnav, FindingId::modelFileUnreadable);
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

void examineHost(const char* key, const Connector& in, Reading& reading) {
    // Where no port was read, it may be stuck to the host.
    const std::string host = in.port == 0 ? in.host.substr(0, in.host.find(':')) : in.host;
    const std::string address = addressOf(host);
    if (host.empty())
        return;
    if (address.empty())
        tell(reading, Severity::fatal, key,
             text("%s is no IPv4 address: no connection will come about", host.c_str()),
             "names are not resolved: write an address such as 127.0.0.1");
    else if (ntohl(inet_addr(host.c_str())) >= kFirstOfMany)
        tell(reading, Severity::fatal, key,
             text("%s is no address of one host: no connection will come about", host.c_str()),
             "write the address of the station, such as 192.0.2.10");
    else if (address != host)
        tell(reading, Severity::warning, key,
             text("%s is read as %s", host.c_str(), address.c_str()),
             "write four decimal numbers without leading zeros");
}

void examineConnectors(Reading& reading) {
    const Connector& in = reading.deployment.input;
    const Connector& out = reading.deployment.output;
    constexpr const char* key = "vrs/input-connector";
    examineHost(key, in, reading);
    if (in.host.empty() || refused(reading, key) || refused(reading, "vrs/output-connector"))
        return;
    if (in.host != out.host || in.port != out.port)
        tell(reading, Severity::warning, "vrs/output-connector",
             text("%s %d is not connected", out.host.c_str(), out.port),
             "replies leave on the input connection: write the same as in vrs/input-connector");
}

/// A clock replays a recording, which is played on this machine.
void examineClock(Reading& reading) {
    const std::string address = addressOf(reading.deployment.input.host);
    if (reading.deployment.clock && !address.empty() && !address.starts_with("127.") &&
        address != "0.0.0.0")
        tell(reading, Severity::warning, "common/clock",
             text("the clock starts on %s, and the stream comes from %s",
                  dateText(dayOfStart(reading.deployment)).c_str(), address.c_str()),
             "a clock is for a recording that is played on this machine: remove it for a live "
             "stream");
}

/// Letters and digits, in capitals.
std::string bare(const std::string& name) {
    std::string out;
    for (const char c : toUpper(name))
        if (isUpperLetter(c) || (c >= '0' && c <= '9'))
            out += c;
    return out;
}

void examineProtocol(Reading& reading) {
    if (!reading.deployment.inputProtocol.empty() &&
        !bare(reading.deployment.inputProtocol).starts_with("RTCM3"))
        tell(reading, Severity::warning, "vrs/input-protocol",
             text("%s is not known: the stream is read as RTCM 3",
                  reading.deployment.inputProtocol.c_str()),
             "write RTCM3; what else the station sends is passed over");
}

/// Whether a message of the system can hold the signal: a reply asks for some that none can.
bool inMessages(std::size_t system, std::string_view code) {
    const unsigned flag = satsys(satid2no(std::string(1, kSystems[system]) + "01"));
    return std::any_of(kMsmSystems.begin(), kMsmSystems.end(), [&](const MsmSystem& s) {
        return s.system == flag &&
               std::find(s.codes.begin(), s.codes.end(), obs2code(code)) != s.codes.end();
    });
}

/// Whether a reply holds the signal.
bool carries(std::size_t system, std::string_view code) {
    return index_mask(system, "L" + std::string(code)) > 0 && inMessages(system, code);
}

/// The signals of a reply for a system, such as "1C 2W 5Q"; with a slot only those on it.
std::string signalsOf(std::size_t system, std::string_view slot = {}) {
    std::string out;
    for (const std::string_view code : obscodes)
        if (!code.empty() && (slot.empty() || code.front() == slot[1]) && carries(system, code))
            out += (out.empty() ? "" : " ") + std::string(code);
    return out;
}

/// The other signals of a carrier that a stream can bring.
std::string signalsLost(std::size_t system, std::string_view slot) {
    std::string out;
    for (const std::string_view code : obscodes)
        if (!code.empty() && code.front() == slot[1] && inMessages(system, code) &&
            !carries(system, code))
            out += " " + std::string(code);
    return out;
}

bool hasSatellites(const Session& session, char letter) {
    return contains(session.systems, std::string_view(&letter, 1));
}

/// Carriers of one system that exist; the reader refuses others where there are satellites.
void examineCarriers(std::size_t system, Reading& reading) {
    const char letter = kSystems[system];
    const std::string name(Deploy_m_systemName(letter));
    for (const std::string& slot : reading.deployment.frequencies[system]) {
        if (!carrier(letter, slot, 0)) {
            if (!hasSatellites(reading.deployment, letter))
                tell(reading, Severity::warning, kFreqUsed,
                     text("%s has no carrier %s", name.c_str(), slot.c_str()), "remove it");
        } else if (!reading.deployment.answering.complete &&
                   (slot.size() < 2 || signalsOf(system, slot).empty())) {
            tell(reading, Severity::warning, kFreqUsed,
                 text("no reply carries a signal of %s on %s", name.c_str(), slot.c_str()),
                 text("of %s it carries %s (the digit is the carrier): choose other carriers",
                      name.c_str(), signalsOf(system).c_str()));
        }
    }
}

/// A configuration whose replies are empty, whatever the stream brings.
void examineAnswer(Reading& reading) {
    bool any = false;
    for (std::size_t system = 0; system < kSystemCount; ++system)
        for (const std::string& slot : reading.deployment.frequencies[system])
            any = any || (hasSatellites(reading.deployment, kSystems[system]) && slot.size() > 1 &&
                          !signalsOf(system, slot).empty());
    if (reading.findings.anyFatal())
        return;
    if (reading.deployment.satellites.empty())
        reading.remarks.add({Severity::fatal,
                             reading.deployment.tables.object,
                             0,
                             {},
                             "no satellite is configured: no epoch is answered with an observation",
                             "list satellites in front of the line -Satellite used"});
    else if (!any && !reading.deployment.answering.complete)
        tell(reading, Severity::fatal, kFreqUsed,
             "no reply can carry a signal of the configured satellites: no epoch is answered",
             "configure satellites and carriers of the same system, such as GPS:L1_L2");
}

/// Carriers of some system that could not be read: any may be the one that has none.
bool carriersUnread(const Reading& reading) {
    return std::any_of(
        reading.findings.list().begin(), reading.findings.list().end(), [](const Finding& f) {
            return severityOf(f.id) == Severity::fatal && f.key == kFreqUsed &&
                   f.id != FindingId::carrierUnknown && f.id != FindingId::carrierOfNoSystem;
        });
}

void examineFrequencies(Reading& reading) {
    const bool allRead = !carriersUnread(reading);
    const bool allAccepted = !fatalIn(reading, reading.deployment.tables.object);
    for (std::size_t system = 0; system < kSystemCount; ++system) {
        const char letter = kSystems[system];
        const bool carriers = !reading.deployment.frequencies[system].empty();
        examineCarriers(system, reading);
        if (hasSatellites(reading.deployment, letter) && !carriers && allRead)
            tell(reading, Severity::warning, kFreqUsed,
                 text("satellites of %c are configured, and no carrier of theirs", letter),
                 "nothing of them is answered: give them carriers, or remove the satellites");
        if (carriers && !hasSatellites(reading.deployment, letter) &&
            !reading.deployment.satellites.empty() && allAccepted)
            tell(reading, Severity::note, kFreqUsed,
                 text("carriers of %s are configured, and no satellite of it",
                      std::string(Deploy_m_systemName(letter)).c_str()),
                 "list its satellites in the object file, or remove the carriers");
    }
}

void examineChannels(Reading& reading) {
    std::string names;
    int count = 0;
    for (const SatelliteRecord& s : reading.deployment.satellites)
        if (s.cprn.starts_with('R') && isSatellite(s.cprn) && s.glonassChannel == kUnknownChannel) {
            names += " " + s.cprn;
            ++count;
        }
    if (count > 0)
        reading.remarks.add({Severity::note,
                             reading.deployment.tables.object,
                             0,
                             {},
                             text("%d GLONASS satellite%s without a channel:%s", count,
                                  count == 1 ? "" : "s", names.c_str()),
                             "the stream tells it; until then there is no phase"});
}

/// Why nothing can be written in a folder; empty where it can.
std::string whyNotWritable(const std::string& folder) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0)
        return reasonWith(folder, std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        return "is no directory";
    return access(folder.c_str(), W_OK | X_OK) == 0 ? "" : std::strerror(errno);
}

/// Folders that the service writes in and can do without.
void examineKept(const std::string& unit, Reading& reading) {
    const auto examine = [&](const char* key, const std::string& folder) {
        if (refused(reading, key))
            return;
        const std::string own = unit.empty() ? "" : stateFolder(unit);
        const std::string why = unit.empty()          ? whyNotWritable(folder)
                                : isOrIn(folder, own) ? ""
                                                      : "the unit may not";
        if (!why.empty())
            tell(reading, Severity::warning, key,
                 text("nothing can be written in %s: %s", folder.c_str(), why.c_str()),
                 unit.empty() ? "the service goes on without it: create the folder, and let it "
                                "write there"
                              : text("write a path in %s, which it makes", own.c_str()));
    };
    const Deployment& d = reading.deployment;
    if (!d.statePath.empty())
        examine("path/state", d.statePath);
    if (!d.statusPath.empty()) {
        const std::string folder = std::filesystem::path(d.statusPath).parent_path();
        examine("common/status", folder.empty() ? "." : folder);
    }
}

void examineSaving(const std::string& unit, Reading& reading) {
    constexpr const char* key = "path/output";
    if (reading.deployment.rawSave && reading.deployment.vrsSave)
        return tell(reading, Severity::warning, key, "-rawsav and -vrssav: nothing is saved",
                    "give -rawsav alone");
    if (!reading.deployment.rawSave && !reading.deployment.vrsSave)
        return;
    if (reading.deployment.vrsSave)
        tell(reading, Severity::warning, key, "-vrssav saves the epochs that are received",
             "virtual epochs cannot be saved: give -rawsav");
    if (refused(reading, key) || reading.deployment.outputPath.empty())
        return;
    if (!unit.empty()) {
        if (const std::string own = stateFolder(unit); !isOrIn(reading.deployment.outputPath, own))
            tell(reading, Severity::fatal, key,
                 text("the unit cannot write in %s", reading.deployment.outputPath.c_str()),
                 text("write %s, which it makes", own.c_str()));
        return;
    }
    if (const std::string why = whyNotWritable(reading.deployment.outputPath); !why.empty())
        tell(reading, Severity::fatal, key,
             text("nothing can be saved in %s: %s", reading.deployment.outputPath.c_str(),
                  why.c_str()),
             "the service ends at the first epoch: create the folder, and let it write there");
}

/// Geostationary satellites of these numbers are turned like the others, which they are not.
void examineLateGeostationary(Reading& reading) {
    constexpr std::array names{"C59", "C60", "C61", "C62", "C63"};
    if (reading.deployment.answering.complete)
        return; // turned as they are
    std::string found;
    for (const char* const name : names)
        if (pointer_string(reading.deployment.satelliteNames, name) >= 0)
            found += (found.empty() ? "" : " ") + std::string(name);
    if (!found.empty())
        reading.remarks.add({Severity::warning,
                             reading.deployment.tables.object,
                             0,
                             {},
                             text("%s: geostationary satellites of these numbers are computed as "
                                  "others, metres off",
                                  found.c_str()),
                             "remove them: the service knows C01 to C05 as geostationary"});
}

/// "GPS: replies carry 1C 2W, not 2S 2L", for each system that has satellites.
std::vector<std::string> signalLines(const Session& session) {
    std::vector<std::string> lines;
    for (std::size_t system = 0; system < kSystemCount; ++system) {
        std::string carried;
        std::string lost;
        for (const std::string& slot : session.frequencies[system]) {
            if (slot.size() < 2 || !hasSatellites(session, kSystems[system]))
                continue;
            if (const std::string some = signalsOf(system, slot); !some.empty())
                carried += " " + some;
            lost += signalsLost(system, slot);
        }
        if (!carried.empty())
            lines.push_back(text("%s: replies carry%s%s%s",
                                 std::string(Deploy_m_systemName(kSystems[system])).c_str(),
                                 carried.c_str(), lost.empty() ? "" : ", not", lost.c_str()));
    }
    return lines;
}

/// How many satellites there are, by system.
std::string satelliteCounts(const Session& session) {
    std::string out;
    for (const char letter : kSystems) {
        const auto n = std::count_if(session.satelliteNames.begin(), session.satelliteNames.end(),
                                     [&](const std::string& s) { return s[0] == letter; });
        if (n > 0)
            out += text(" %c%d", letter, static_cast<int>(n));
    }
    return out;
}

} // namespace

bool repliesCarry(char system, std::string_view code) {
    const std::size_t row = systemIndex(system);
    return row != std::string_view::npos && carries(row, code);
}

void examineSession(const std::string& unit, Reading& reading) {
    examineFiles(reading);
    examineConnectors(reading);
    examineClock(reading);
    examineProtocol(reading);
    if (reading.deployment.requests.size() > 1)
        tell(
            reading, Severity::warning, "reqs",
            text("%zu requests, and the first one is answered", reading.deployment.requests.size()),
            "give every further one a deployment of its own");
    examineFrequencies(reading);
    examineAnswer(reading);
    examineChannels(reading);
    examineLateGeostationary(reading);
    examineSaving(unit, reading);
    examineKept(unit, reading);
    examineLeapSeconds(reading);
    if (geteuid() == 0)
        examineAccess(unit.empty() ? Severity::warning : Severity::fatal, reading);
    if (!unit.empty())
        examineHidden(reading);
}

std::vector<std::string> outlineOfSession(const Deployment& d) {
    std::vector<std::string> lines{text("connects to %s:%d", d.input.host.c_str(), d.input.port)};
    if (!d.stations.empty())
        lines.push_back(text("station %s lands at %s", d.stations[0].name.c_str(),
                             longText(placeOf(d.stations[0].xyz)).c_str()));
    lines.push_back(text("%zu satellites:%s", d.satellites.size(), satelliteCounts(d).c_str()));
    if (d.answering.complete)
        lines.push_back("answers each observation message with all its signals");
    else
        for (std::string& line : signalLines(d))
            lines.push_back(std::move(line));
    if (d.answering.plain)
        lines.push_back("sends a plain RTCM 3 stream");
    if (const std::string leap = outlineOfLeapSeconds(d); !leap.empty())
        lines.push_back(leap);
    if (d.rawSave != d.vrsSave)
        lines.push_back(text("saves epochs in %s", d.outputPath.c_str()));
    if (d.clock)
        lines.push_back(text("its clock starts on %s, for a recording of that day",
                             dateText(dayOfStart(d)).c_str()));
    return lines;
}

} // namespace ctl::check
