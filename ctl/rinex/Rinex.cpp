#include "ctl/rinex/Rinex.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "config/Deploy.h"
#include "ctl/Counted.h"
#include "ctl/Metres.h"
#include "ctl/Times.h"
#include "ctl/check/Unit.h"
#include "ctl/rinex/Header.h"
#include "ctl/rinex/Joined.h"
#include "ctl/rinex/Signals.h"
#include "ctl/status/StatusFile.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "rinex/Rnxobs.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>
#include <unistd.h>

namespace ctl::rinex {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostShown = 100; // faults

[[noreturn]] void fail(const std::string& why) {
    throw std::runtime_error(why);
}

/// Slot and channel of "R05=1".
std::pair<int, int> channelOf(const std::string& argument) {
    if (argument.size() < 4)
        fail("--channels " + argument + ": write them as R01=1,R02=-4");
    int slot = 0;
    int channel = 0;
    const std::size_t equals = std::min(argument.find('='), argument.size() - 1);
    const char* const end = argument.data() + argument.size();
    const auto first = std::from_chars(argument.data() + 1, argument.data() + equals, slot);
    const auto second = std::from_chars(argument.data() + equals + 1, end, channel);
    if (argument[0] != 'R' || first.ec != std::errc() || first.ptr != argument.data() + equals ||
        second.ec != std::errc() || second.ptr != end || slot < 1 || slot > kGlonassSlots ||
        !validChannel(channel))
        fail("--channels " + argument + ": write them as R01=1,R02=-4");
    return {slot, channel};
}

/// What the configuration of the service says of the station; options win.
void takeDeployment(const Arguments& arguments, Header& header) {
    const std::string& file = arguments.deployment;
    Deployment deployment;
    const Findings findings = readDeployment(deployment, file);
    if (findings.anyFatal() || deployment.stations.empty())
        fail(file + ": cannot be used; kestrunectl check says why");
    const StationRecord& station = deployment.stations[0];
    header.marker = station.name;
    header.positionM = station.xyz;
    header.antenna = antennaColumns(station.antennaWithRadome);
    const GlonassChannels channels = deployment.glonassChannels();
    for (std::size_t i = 0; i < channels.size(); ++i)
        if (channels[i] != 0)
            header.channels[static_cast<int>(i) + 1] = channels[i] - 8;
}

/// What the sender says of itself, by the status of the service; columns cut what is longer.
void takeStatus(const status::StatusFile& from, Header& header) {
    constexpr std::size_t columns = 20;
    const auto set = [&](std::string& to, const char* path) {
        if (const std::string value = from.text(path); !value.empty())
            to = value.substr(0, columns);
    };
    set(header.marker, "station");
    set(header.receiver, "sender/receiver");
    set(header.receiverNumber, "sender/receiver_serial");
    set(header.receiverVersion, "sender/firmware");
    set(header.antenna, "sender/antenna");
    header.antenna = antennaColumns(header.antenna);
    set(header.antennaNumber, "sender/antenna_serial");
    for (int slot = 1; slot <= kGlonassSlots; ++slot)
        if (const auto k = from.number(text("sender/channels/R%02d_channel", slot)))
            if (*k >= kLowestChannel && *k <= kHighestChannel)
                header.channels[slot] = static_cast<int>(*k);
}

/// The signals of carriers on which a receiver has one.
Attributes signalsOf(const status::StatusFile& from) {
    Attributes out;
    std::set<std::pair<char, char>> several;
    from.forEach("systems/*/signals/*", [&](const std::vector<std::string>& names, const cJSON&) {
        if (names[0].size() != 1 || !isSignal(names[0][0], names[1]))
            return;
        const std::pair carrier{names[0][0], names[1][0]};
        if (!out.try_emplace(carrier, names[1][1]).second)
            several.insert(carrier);
    });
    for (const auto& carrier : several)
        out.erase(carrier);
    return out;
}

/// "STR2" of "data/str21930.18o"; empty for another name.
std::string markerOf(const std::string& file) {
    const std::string name = fs::path(file).filename();
    const bool named = name.size() == 12 && name[8] == '.' && name[11] == 'o';
    return named ? toUpper(name.substr(0, 4)) : "";
}

/// The marker, where none is known that of the first file's name; the other names do not
/// contradict.
void takeMarker(const std::vector<std::string>& files, std::string& marker) {
    if (marker.empty())
        marker = markerOf(files.front());
    if (marker.empty())
        fail(files.front() + ": its name does not tell the station: give it with --marker");
    for (const std::string& file : files)
        if (const std::string other = markerOf(file); !other.empty() && other != toUpper(marker))
            fail(text("%s: is of the station %s, not %s; where it is one station, give its name "
                      "with --marker",
                      file.c_str(), other.c_str(), marker.c_str()));
}

Header headerOf(const Arguments& a) {
    Header h;
    if (!a.deployment.empty())
        takeDeployment(a, h);
    if (!a.status.empty())
        takeStatus(status::StatusFile(a.status), h);
    const auto set = [](std::string& to, const std::string& from) {
        if (!from.empty())
            to = from;
    };
    if (a.marker.empty())
        takeMarker(a.files, h.marker);
    set(h.marker, a.marker);
    h.markerNumber = a.markerNumber;
    h.markerType = a.markerType;
    h.observer = a.observer;
    h.agency = a.agency;
    h.runBy = a.runBy;
    set(h.receiver, a.receiver);
    set(h.receiverNumber, a.receiverNumber);
    set(h.receiverVersion, a.receiverVersion);
    set(h.antenna, antennaColumns(a.antenna));
    set(h.antennaNumber, a.antennaNumber);
    if (!a.position.empty())
        h.positionM = threeMetres("--position", a.position);
    else if (a.deployment.empty())
        fail("where does the antenna stand? Give --position X,Y,Z, --deployment FILE or --unit "
             "NAME");
    if (!a.antennaDelta.empty())
        h.antennaDeltaM = threeMetres("--antenna-delta", a.antennaDelta);
    for (const std::string& argument : a.channels)
        h.channels.insert_or_assign(channelOf(argument).first, channelOf(argument).second);
    return h;
}

GTime gpsTime(std::int64_t ticks) {
    return {mjd2time(static_cast<int>(ticks / kTicksPerDay), 0.0) +
                ticks % kTicksPerDay / kTicksPerSecond,
            static_cast<double>(ticks % kTicksPerSecond) / kTicksPerSecond};
}

/// Completes the header by what the epochs say.
void takeEpochs(const Joined& joined, const Arguments& a, Header& h) {
    Attributes attributes = readSignals(a.signals);
    if (!a.status.empty())
        attributes.merge(signalsOf(status::StatusFile(a.status)));
    for (const auto& [system, contents] : joined.systems())
        for (std::size_t i = 0; i < contents.columns.size(); ++i)
            if (contents.columns[i])
                h.types[system].push_back(
                    observationCode(system, Rnxobs_m_initObsType(system)[i], attributes));
    h.firstTicks = joined.epochs().front().ticks;
    h.lastTicks = joined.epochs().back().ticks;
    h.intervalTicks = joined.intervalTicks();
    const GTime first = gpsTime(h.firstTicks);
    h.leapSeconds =
        a.leapSeconds.value_or(static_cast<int>(std::lround(timediff(first, gpst2utc(first)))));
    const CalendarTime now = time2epoch(utcNow());
    h.date = text("%04d%02d%02d %02d%02d%02d UTC", static_cast<int>(now[0]),
                  static_cast<int>(now[1]), static_cast<int>(now[2]), static_cast<int>(now[3]),
                  static_cast<int>(now[4]), static_cast<int>(now[5]));
}

/// A value with the other sign; records leave room for it.
std::string reversed(std::string_view value) {
    std::string out(value);
    const std::size_t first = out.find_first_not_of(' ');
    if (out[first] == '-')
        out[first] = ' ';
    else
        out[first - 1] = '-';
    return out;
}

/// The epoch in RINEX 3.05, with the columns that some satellite of the system has.
std::string epochText(const Record& record, const std::map<char, SystemContents>& systems) {
    const DateTime day = mjd2date(static_cast<int>(record.ticks / kTicksPerDay), 0.0);
    const auto second = static_cast<int>(record.ticks % kTicksPerDay / kTicksPerSecond);
    std::string out =
        text("> %04d %02d %02d %02d %02d%3d.%07d  0%3zu\n", day.year, day.month, day.day,
             second / 3600, second / 60 % 60, second % 60,
             static_cast<int>(record.ticks % kTicksPerSecond), record.satellites.size());
    for (const SatelliteLine& s : record.satellites) {
        const auto types = Rnxobs_m_initObsType(s.name[0]);
        const std::vector<bool>& used = systems.at(s.name[0]).columns;
        std::string line = s.name;
        for (std::size_t i = 0; i < types.size(); ++i)
            if (used[i])
                line += (isNothing(s.value(i)) ? std::string(kValueWidth, ' ')
                         : types[i][0] == 'D'  ? reversed(s.value(i))
                                               : std::string(s.value(i))) +
                        "  ";
        out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return out;
}

/// A file that is whole under its name or not there; standard output for "-".
class Output {
public:
    Output(const std::string& path, const Arguments& arguments) : path_(path) {
        if (path_ == "-") {
            file_ = stdout;
            return;
        }
        std::error_code none;
        for (const std::string& in : arguments.files)
            if (fs::equivalent(in, path_, none))
                fail(path_ + ": would replace what is read");
        if (fs::exists(path_, none) && !arguments.force)
            fail(path_ + ": is there already; --force replaces it");
        written_ = path_ + ".part";
        file_ = std::fopen(written_.c_str(), "wxe");
        if (!file_)
            fail(written_ + ": " + std::strerror(errno));
    }
    ~Output() {
        if (file_ && file_ != stdout) {
            static_cast<void>(std::fclose(file_));
            static_cast<void>(std::remove(written_.c_str()));
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(const std::string& piece) {
        if (std::fwrite(piece.data(), 1, piece.size(), file_) != piece.size())
            fail(name() + ": " + std::strerror(errno));
    }
    void finish() {
        if (std::fflush(file_) != 0 || (file_ != stdout && fsync(fileno(file_)) != 0))
            fail(name() + ": " + std::strerror(errno));
        if (file_ != stdout && std::rename(written_.c_str(), path_.c_str()) != 0)
            fail(name() + ": " + std::strerror(errno));
        if (file_ != stdout)
            static_cast<void>(std::fclose(file_));
        file_ = nullptr;
    }
    std::string name() const { return path_ == "-" ? "standard output" : path_; }

private:
    std::string path_, written_;
    std::FILE* file_ = nullptr;
};

/// What is told beside the file.
class Teller {
public:
    Records::Faults faults() {
        return [this](const Fault& f) {
            if (++faults_ <= kMostShown)
                std::cerr << f.file << ':' << f.line << ": warning: " << f.text << '\n';
        };
    }
    void note(const std::string& text) { std::cerr << "kestrunectl rinex: note: " << text << '\n'; }
    /// The number of faults, with those that were not shown.
    std::uint64_t end() {
        if (faults_ > kMostShown)
            note(text("%s not shown",
                      counted(faults_ - kMostShown, "further warning is", "further warnings are")
                          .c_str()));
        return faults_;
    }

private:
    std::uint64_t faults_ = 0;
};

std::string listed(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

void tellNotes(const Joined& joined, const Header& h, Teller& tell) {
    for (const std::string& file : joined.disordered())
        tell.note(file + ": its epochs are not in the order of their times; they are sorted");
    if (joined.repeated() > 0)
        tell.note(counted(joined.repeated(), "epoch is", "epochs are") +
                  " there again with the same values; left out");
    for (const auto& [system, contents] : joined.systems())
        if (contents.withoutValue > 0)
            tell.note(
                text("%c: %s of satellites without a value; left out%s", system,
                     counted(contents.withoutValue, "line").c_str(),
                     contents.columns.empty() ? " (the service saves none of this system)" : ""));
    std::vector<std::string> unknown;
    for (const auto& [system, types] : h.types)
        for (const std::string& type : types)
            if (type[0] == 'C' && type[2] == ' ')
                unknown.push_back({system, type[1]});
    if (!unknown.empty())
        tell.note("the records do not say which signal they have of " + listed(unknown) +
                  "; --signals tells it");
    std::vector<std::string> lacking;
    if (const auto r = joined.systems().find('R'); r != joined.systems().end())
        for (const std::string& name : r->second.satellites)
            if (!h.channels.contains(10 * (name[1] - '0') + name[2] - '0'))
                lacking.push_back(name);
    if (!lacking.empty())
        tell.note("the header has no channel of " + listed(lacking) + "; --channels tells it");
    std::vector<std::string> blank;
    if (h.receiver.empty())
        blank.emplace_back("--receiver");
    if (h.antenna.empty())
        blank.emplace_back("--antenna");
    if (!blank.empty())
        tell.note("not in the header, because not given: " + listed(blank));
}

void tellSummary(const Joined& joined, const Header& h, const std::string& name,
                 std::ostream& out) {
    const auto timeText = [](std::int64_t ticks) { return dateTimeText(gpsTime(ticks)); };
    out << name << ": " << counted(joined.epochs().size(), "epoch") << ", "
        << timeText(h.firstTicks) << " to " << timeText(h.lastTicks) << " GPS time";
    if (h.intervalTicks > 0)
        out << ", every " << static_cast<double>(h.intervalTicks) / kTicksPerSecond << " s";
    out << '\n';
    for (const auto& [system, types] : h.types)
        out << "    " << system << "  "
            << counted(joined.systems().at(system).satellites.size(), "satellite") << ": "
            << listed(types) << '\n';
}

/// Makes the unit's files the working folder's: what the arguments name is found from here on, too.
void resolveUnit(Arguments& a) {
    if (a.unit.empty())
        return;
    if (!a.deployment.empty())
        fail("give --deployment FILE or --unit NAME, not both");
    const std::string name = check::unitName(a.unit);
    if (name.empty())
        fail(a.unit + " is no name of a unit");
    for (std::string& file : a.files)
        file = fs::absolute(file);
    if (!a.status.empty())
        a.status = fs::absolute(a.status);
    if (a.out != "-")
        a.out = fs::absolute(a.out.empty() ? "." : a.out);
    a.deployment = check::deploymentOf(name);
    if (chdir(check::kUnitFolder) != 0)
        fail(text("%s: %s", check::kUnitFolder, std::strerror(errno)));
}

} // namespace

int runRinex(Arguments arguments) {
    resolveUnit(arguments);
    Header header = headerOf(arguments);
    headerText(header); // before the files are read: do its texts fit?
    readSignals(arguments.signals);
    Teller tell;
    const Joined joined(arguments.files, tell.faults());
    if (joined.epochs().empty()) {
        tell.end();
        std::cerr << "kestrunectl rinex: no epoch was found, nothing is written\n";
        return 1;
    }
    takeEpochs(joined, arguments, header);
    std::string out = arguments.out;
    if (out.empty() || fs::is_directory(out))
        out = fs::path(out) / longName(header);
    Output output(out, arguments);
    output.write(headerText(header));
    joined.forEach(
        [&](const Record& record) { output.write(epochText(record, joined.systems())); });
    output.finish();
    tellNotes(joined, header, tell);
    tellSummary(joined, header, output.name(), out == "-" ? std::cerr : std::cout);
    return tell.end() > 0 ? 1 : 0;
}

} // namespace ctl::rinex
