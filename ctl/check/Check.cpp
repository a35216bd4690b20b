#include "ctl/check/Check.h"

#include "base/ComText.h"
#include "config/Deploy.h"
#include "config/Switches.h"
#include "ctl/Counted.h"
#include "ctl/check/Advice.h"
#include "ctl/check/EditDistance.h"
#include "ctl/check/Examine.h"
#include "ctl/check/TrialReport.h"
#include "ctl/check/Unit.h"
#include "ctl/dump/ByteSource.h"
#include "ctl/dump/Fields.h"
#include "gnss/Clock.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace ctl::check {

namespace {

constexpr std::size_t kMostShown = 100; // findings

/// Findings whose first value is a satellite, of which many may lack the same.
constexpr FindingId kOfSatellites[] = {
    FindingId::carriersMissing, FindingId::satelliteRepeated, FindingId::satelliteInfoMalformed,
    FindingId::satelliteInfoMissing, FindingId::antennaOfNoSystem};

/// What is said at a place.
std::string gist(const Remark& r) {
    return text("%s:%d:%s:%d:", r.file.c_str(), r.line, r.key.c_str(),
                static_cast<int>(r.severity)) +
           r.text;
}

/// The same without the satellite that it is said of.
std::string gist(Finding f) {
    const bool ofSatellite = std::find(std::begin(kOfSatellites), std::end(kOfSatellites), f.id) !=
                             std::end(kOfSatellites);
    if (ofSatellite)
        f.values.front().clear();
    return text("%s:%d:%s:", f.file.c_str(), f.line, f.key.c_str()) + printedLine(f);
}

class Collection {
public:
    explicit Collection(const TablePaths& tables) : tables_(tables) {}

    /// A remark that explains itself.
    void take(const Remark& remark) { place(gist(remark), {remark, {}}); }
    /// What the service says: a note stands in front of the fault that it explains. Left out is
    /// what only follows from a fault that is reported itself.
    void take(const Findings& findings, const Remarks& seen) {
        std::vector<Finding> notes;
        const auto remarksOn = [&](const std::vector<Finding>& list) {
            std::vector<Remark> out;
            out.reserve(list.size());
            for (const Finding& f : list)
                out.push_back(remarkOn(f, seen));
            return out;
        };
        for (const Finding& f : findings.list()) {
            stationRefused_ = stationRefused_ || f.id == FindingId::coordinatesUnread ||
                              f.id == FindingId::stationNameTooLong;
            const bool alone = notes.empty();
            if (f.id == FindingId::jsonErrorBefore)
                continue; // in the advice of the fault behind it
            if (severityOf(f.id) == Severity::note) {
                notes.push_back(f);
                continue;
            }
            const bool pathless = f.file.empty() && anyFatal();
            const bool told = alone && f.id == FindingId::coordinatesUnread;
            const bool noStationLeft = f.id == FindingId::noStation && stationRefused_;
            if (!pathless && !told && !noStationLeft && !ofReportedSection(f))
                place(gist(f), {remarkOn(f, seen), remarksOn(notes)});
            notes.clear();
        }
        for (const Finding& f : notes)
            place(gist(f), {remarkOn(f, seen), {}});
    }
    /// Files in the order in which they are read, places in the order of their lines.
    std::vector<Fault> sorted(const std::string& first) && {
        const TablePaths& t = tables_;
        const std::array named{t.object, t.satnav, t.antpcv, t.vrnfln,
                               t.stacoo, t.antnam, t.leapsc};
        std::vector<std::string> files{first};
        for (const Fault& f : faults_) // the tables file comes second
            if (pointer_string(named, f.remark.file) < 0)
                files.push_back(f.remark.file);
        files.insert(files.end(), named.begin(), named.end());
        const auto rank = [&](const Fault& f) {
            return std::pair(pointer_string(files, f.remark.file), f.remark.line);
        };
        std::stable_sort(faults_.begin(), faults_.end(),
                         [&](const Fault& a, const Fault& b) { return rank(a) < rank(b); });
        return std::move(faults_);
    }

private:
    void place(const std::string& gist, Fault fault) {
        const auto [at, added] = byGist_.try_emplace(gist, faults_.size());
        if (added)
            faults_.push_back(std::move(fault));
        else
            ++faults_[at->second].times;
    }
    bool anyFatal() const {
        return std::any_of(faults_.begin(), faults_.end(),
                           [](const Fault& f) { return f.remark.severity == Severity::fatal; });
    }
    /// A missing key of a section that is missing as a whole, or is none.
    bool ofReportedSection(const Finding& f) const {
        const std::string section = f.key.substr(0, f.key.find('/'));
        return f.id == FindingId::keyMissing && section != f.key &&
               std::any_of(faults_.begin(), faults_.end(), [&](const Fault& other) {
                   return other.remark.severity == Severity::fatal && other.remark.file == f.file &&
                          other.remark.key == section;
               });
    }

    const TablePaths& tables_;
    bool stationRefused_ = false;
    std::vector<Fault> faults_;
    std::map<std::string, std::size_t> byGist_; // into faults_
};

/// Arguments that the service takes for a switch and that are none as they stand.
void remarkOnSwitches(const std::string& file, std::span<const std::string> arguments,
                      Remarks& remarks) {
    for (const std::string& argument : arguments)
        for (const std::string_view known : kSwitches)
            if (contains(argument, known) && argument != known)
                remarks.add({Severity::warning, file, 0, argument,
                             text("is read as %s", std::string(known).c_str()),
                             "the service looks for its switches inside of every argument"});
}

/// The switch that is likely meant; empty where none is like it.
std::string_view nearestSwitch(const std::string& argument) {
    std::size_t best = 4; // changes, or more
    std::string_view found;
    for (const std::string_view known : kSwitches)
        if (const std::size_t d = editDistance(toLower(argument), known); d < best) {
            best = d;
            found = known;
        }
    return found;
}

/// Text without control characters, which a file may hold and a terminal would obey.
std::string printable(const std::string& line) {
    std::string out;
    for (const char c : line)
        if (const auto byte = static_cast<unsigned char>(c); byte < 0x20 || byte == 0x7F)
            out += text("\\x%02X", static_cast<unsigned>(byte));
        else
            out += c;
    return out;
}

const char* nameOf(Severity severity) {
    switch (severity) {
    case Severity::fatal:
        return "error";
    case Severity::warning:
        return "warning";
    default:
        return "note";
    }
}

void printRemark(const Remark& r, int times, std::ostream& out) {
    std::string line = r.file.empty() ? "\"\"" : r.file;
    if (r.line > 0)
        line += ":" + std::to_string(r.line);
    if (r.column > 0)
        line += ":" + std::to_string(r.column);
    if (!r.key.empty())
        line += ": " + r.key;
    line += text(": %s: ", nameOf(r.severity)) + r.text;
    if (times > 1)
        line += text(" (and %d more like it)", times - 1);
    out << printable(line) << '\n';
    if (!r.advice.empty())
        out << "    " << printable(r.advice) << '\n';
}

std::string verdict(const CheckResult& result) {
    std::string line;
    for (const Severity s : {Severity::fatal, Severity::warning, Severity::note})
        if (const int n = result.count(s); n > 0)
            line += (line.empty() ? "" : ", ") + counted(n, nameOf(s));
    if (line.empty())
        return "no findings";
    return line + (result.count(Severity::fatal) > 0 ? ": it cannot work" : "");
}

/// As printed, and '?' for bytes that are no UTF-8, which a reader of JSON would refuse.
std::string wellFormed(const std::string& line) {
    return dump::clean(printable(line));
}

cJSON* jsonOf(const Remark& r, int times) {
    cJSON* const o = cJSON_CreateObject();
    const auto string = [&](const char* name, const std::string& value) {
        cJSON_AddStringToObject(o, name, wellFormed(value).c_str());
    };
    string("severity", nameOf(r.severity));
    string("file", r.file);
    cJSON_AddNumberToObject(o, "line", r.line);
    string("key", r.key);
    string("text", r.text);
    string("advice", r.advice);
    cJSON_AddNumberToObject(o, "times", times);
    return o;
}

/// Runs the road of the service on the stream; how its reading ended.
std::string feed(Trial& trial, dump::ByteSource& source, int seconds) {
    const auto until = monotonicNow() + std::chrono::seconds(seconds);
    std::array<std::uint8_t, 4096> block{};
    bool any = false;
    while (!trial.enough()) {
        const std::size_t n = source.read(block, until);
        if (n == 0)
            break;
        any = true;
        trial.take(std::span(block).first(n));
    }
    trial.finish(source.end() == dump::ByteSource::End::end ? Trial::Rest::none
                                                            : Trial::Rest::unread);
    if (source.end() == dump::ByteSource::End::interrupt)
        return "interrupted";
    if (source.end() == dump::ByteSource::End::end && source.live())
        return "its peer ended it";
    return any || !source.live() ? "" : text("nothing came for %d s", seconds);
}

/// What the service would do with the stream; the exit status.
int tryStream(const Arguments& arguments, Deployment deployment, cJSON* json) {
    dump::ByteSource source(arguments.stream);
    if (!json)
        std::cout << "    reads " << printable(arguments.stream) << ", up to " << arguments.seconds
                  << " s" << std::endl;
    if (deployment.clock)
        startReplayClock(*deployment.clock);
    Trial trial(std::move(deployment), arguments.seconds);
    const TrialSource origin{arguments.stream, feed(trial, source, arguments.seconds)};
    if (json)
        cJSON_AddItemToObject(json, "stream", jsonOfTrial(origin, trial.result()));
    else
        printTrial(origin, trial.result(), std::cout);
    return trial.result().answered > 0 ? 0 : 1;
}

/// What the arguments name; throws where that is nothing.
void resolveUnit(Arguments& arguments) {
    if (arguments.unit.empty() == arguments.file.empty())
        throw std::runtime_error("give a deployment file, or --unit NAME");
    if (arguments.unit.empty())
        return;
    const std::string name = unitName(arguments.unit);
    if (name.empty())
        throw std::runtime_error(arguments.unit + " is no name of a unit");
    arguments.unit = name;
    arguments.file = deploymentOf(name);
    if (chdir(kUnitFolder) != 0)
        throw std::runtime_error(text("%s: %s", kUnitFolder, std::strerror(errno)));
    const std::vector<std::string> own = optionsOfUnit(name);
    arguments.switches.insert(arguments.switches.end(), own.begin(), own.end());
}

} // namespace

int CheckResult::count(Severity severity) const {
    return static_cast<int>(std::count_if(faults.begin(), faults.end(), [&](const Fault& f) {
        return f.remark.severity == severity;
    }));
}

CheckResult checkDeployment(Deployment& out, const std::string& file,
                            std::span<const std::string> switches, const std::string& unit) {
    Reading reading;
    for (const std::string& argument : switches)
        Deploy_m_readSwitch(reading.deployment, argument);
    reading.findings = readDeployment(reading.deployment, file, &reading.remarks);
    examineSession(unit, reading);
    remarkOnSwitches(reading.deployment.file, switches, reading.remarks);
    Collection collection(reading.deployment.tables);
    for (const Remark& r : reading.remarks.list())
        collection.take(r);
    collection.take(reading.findings, reading.remarks);
    CheckResult result{file, std::move(collection).sorted(file), {}};
    if (result.count(Severity::fatal) == 0)
        result.outline = outlineOfSession(reading.deployment);
    out = std::move(reading.deployment);
    return result;
}

void printCheck(const CheckResult& result, std::ostream& out) {
    const std::size_t shown = std::min(result.faults.size(), kMostShown);
    for (const Fault& fault : std::span(result.faults).first(shown)) {
        printRemark(fault.remark, fault.times, out);
        for (const Remark& note : fault.notes)
            printRemark(note, 1, out);
    }
    if (shown < result.faults.size())
        out << printable(result.file) << ": note: " << result.faults.size() - shown
            << " further findings are not shown\n";
    for (const std::string& line : result.outline)
        out << "    " << printable(line) << '\n';
    out << printable(result.file) << ": " << verdict(result) << '\n';
}

cJSON* jsonOfCheck(const CheckResult& result) {
    cJSON* const root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "file", wellFormed(result.file).c_str());
    cJSON_AddNumberToObject(root, "errors", result.count(Severity::fatal));
    cJSON_AddNumberToObject(root, "warnings", result.count(Severity::warning));
    cJSON* const list = cJSON_AddArrayToObject(root, "findings");
    for (const Fault& fault : result.faults) {
        cJSON_AddItemToArray(list, jsonOf(fault.remark, fault.times));
        for (const Remark& note : fault.notes) // behind what it explains
            cJSON_AddItemToArray(list, jsonOf(note, 1));
    }
    cJSON* const outline = cJSON_AddArrayToObject(root, "outline");
    for (const std::string& line : result.outline)
        cJSON_AddItemToArray(outline, cJSON_CreateString(wellFormed(line).c_str()));
    return root;
}

int runCheck(Arguments arguments) {
    resolveUnit(arguments);
    Deployment deployment;
    for (const std::string& argument : arguments.switches)
        if (!Deploy_m_readSwitch(deployment, argument)) {
            const std::string_view near = nearestSwitch(argument);
            std::cerr << "kestrunectl check: " << argument
                      << " is no switch of the service (-post -rawsav -vrssav -pthread -debug)"
                      << (near.empty() ? "" : ": is " + std::string(near) + " meant?") << '\n';
            return 2;
        }
    const CheckResult result =
        checkDeployment(deployment, arguments.file, arguments.switches, arguments.unit);
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(
        arguments.json ? jsonOfCheck(result) : nullptr, cJSON_Delete);
    if (!json)
        printCheck(result, std::cout);
    int status = result.count(Severity::fatal) > 0 ? 1 : 0;
    if (status == 0 && !arguments.stream.empty())
        status = tryStream(arguments, std::move(deployment), json.get());
    if (json) {
        const std::unique_ptr<char, decltype(&cJSON_free)> printed(
            cJSON_PrintUnformatted(json.get()), cJSON_free);
        std::cout << printed.get() << '\n';
    }
    if (!std::cout.flush())
        throw std::runtime_error("standard output could not be written to its end");
    return status;
}

} // namespace ctl::check
