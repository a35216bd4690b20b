#include "gateway/settings/ReadSettings.h"

#include "base/ComText.h"
#include "config/Deploy.h"
#include "ctl/check/Advice.h"
#include "ctl/check/Place.h"
#include "gateway/net/Characters.h"
#include "gateway/net/Nearest.h"
#include "gateway/settings/Examine.h"
#include "gateway/settings/Ports.h"
#include "gateway/settings/Section.h"

#include <boost/url/parse.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <unistd.h>

namespace gateway {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = std::size_t{4} << 20;
constexpr int kMostSyntaxFaults = 20;
constexpr std::size_t kLongestStationName = 100;
constexpr std::size_t kMostClients = 10'000;
constexpr double kFarthestOffsetM = 5000.0;
constexpr std::uint16_t kPagePort = 8080, kEnginePort = 2200; // in advice

constexpr std::string_view kSections[] = {"gateway", "caster", "web", "alarms", "station"};
constexpr std::string_view kGatewayKeys[] = {"name", "state", "engine", "address"};
constexpr std::string_view kCasterKeys[] = {
    "listen",   "listen_tls", "certificate", "key",          "users",
    "operator", "country",    "max_clients", "max_per_user", "max_per_address"};
constexpr std::string_view kWebKeys[] = {"listen", "access"};
constexpr std::string_view kAlarmKeys[] = {"webhook", "command", "delay", "clock"};
constexpr std::string_view kStationKeys[] = {
    "name",       "source", "ephemerides", "position", "offset", "answer",   "clock", "mountpoint",
    "identifier", "access", "push",        "guard",    "rate",   "password", "audit"};

constexpr const char* kNameForm =
    "write 1 to 100 letters, digits, - _ and ., not . or - at the beginning";

/// Whether the value of a line KEY = VALUE is a text without quotation marks.
bool unquoted(std::string_view line) {
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::size_t begin = line.find_first_not_of("= \t", equals);
    const char c = begin < line.size() ? line[begin] : '0';
    return (c >= 'a' && c <= 'z') || isUpperLetter(c) || c == '/' || c == '$';
}

/// What stands behind the '=' of a line, where its key is known and holds no password.
std::optional<std::string> valueToShow(std::string_view line) {
    const auto trimmed = [](std::string_view part) {
        const std::size_t begin = std::min(part.find_first_not_of(kWhiteSpace), part.size());
        return part.substr(begin, part.find_last_not_of(kWhiteSpace) + 1 - begin);
    };
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::string_view key = trimmed(line.substr(0, equals));
    const auto has = [&](std::span<const std::string_view> keys) {
        return std::find(keys.begin(), keys.end(), key) != keys.end();
    };
    if (equals == line.size() || mayBeSecret(key) ||
        !(has(kGatewayKeys) || has(kCasterKeys) || has(kWebKeys) || has(kAlarmKeys) ||
          has(kStationKeys)))
        return std::nullopt;
    return std::string(trimmed(line.substr(equals + 1)));
}

/// The text of the library without what it has read, which may be a part of a password.
std::string withoutValues(std::string reason) {
    reason.erase(std::min(reason.find(", saw "), reason.size()));
    if (contains(reason, "interpret") || contains(reason, "representable"))
        return "a value cannot be read";
    if (contains(reason, "cannot redefine") || contains(reason, "cannot insert"))
        return "a key or section stands a second time";
    constexpr std::string_view opening = "Error while parsing ";
    return reason.starts_with(opening) ? reason.substr(opening.size()) : reason;
}

/// Reads TOML; a line with a fault is told and left out.
class Lines {
public:
    Lines(std::string_view toml, SettingsRemarks& remarks) : toml_(toml), remarks_(remarks) {}

    /// Nothing where the rest would be taken for what it is not.
    std::optional<toml::table> parse() {
        while (faults_ < kMostSyntaxFaults) {
            try {
                return toml::parse(toml_, std::string_view(remarks_.file()));
            } catch (const toml::parse_error& fault) {
                const FilePlace at{static_cast<int>(fault.source().begin.line),
                                   static_cast<int>(fault.source().begin.column)};
                tell(fault, at);
                if (!leaveOut(at.line))
                    return std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    void tell(const toml::parse_error& fault, FilePlace at) {
        ++faults_;
        remarks_.leftOut();
        const std::string_view line = lineOf(at.line).value_or("");
        if (unquoted(line))
            remarks_.error(at, kFileSection, "",
                           valueToShow(line).value_or("a text") + " is not in quotation marks",
                           "write it as KEY = \"TEXT\"");
        else
            remarks_.error(at, kFileSection, "", withoutValues(std::string(fault.description())),
                           "");
    }
    /// A line without its end; nothing where there is none.
    std::optional<std::string_view> lineOf(int number) const {
        std::size_t begin = 0;
        for (int line = 1; line < number; ++line) {
            begin = toml_.find('\n', begin);
            if (begin == std::string::npos)
                return std::nullopt;
            ++begin;
        }
        return std::string_view(toml_).substr(begin, toml_.find('\n', begin) - begin);
    }
    /// False where the line begins a section, or is empty: then a fault is not in it alone.
    bool leaveOut(int number) {
        const auto line = lineOf(number);
        const std::size_t first = line ? line->find_first_not_of(" \t\r") : std::string::npos;
        if (first == std::string::npos || (*line)[first] == '[')
            return false;
        toml_.erase(static_cast<std::size_t>(line->data() - toml_.data()), line->size());
        return true;
    }

    std::string toml_;
    SettingsRemarks& remarks_;
    int faults_ = 0;
};

void take(std::optional<std::string> from, std::string& into) {
    if (from)
        into = std::move(*from);
}
template <class T> void take(std::optional<T> from, T& into) {
    if (from)
        into = *from;
}

/// What `parse` makes of a text; nothing where it was told why that is no address.
template <class Parse>
auto addressOf(const Section& section, std::string_view key, const PlacedText& item, Parse parse)
    -> std::optional<decltype(parse(item.text))> {
    try {
        return parse(item.text);
    } catch (const AddressError& fault) {
        section.errorAt(item.at, key, fault.wrong, fault.advice);
        return std::nullopt;
    }
}

auto parseFor(Use use) {
    return [use](const std::string& text) { return parseAddress(text, use); };
}

auto listenerAt(std::uint16_t usualPort) {
    return [usualPort](const std::string& text) { return parseListener(text, usualPort); };
}

std::vector<HostPort> listenersOf(const Section& section, std::string_view key,
                                  std::uint16_t usualPort) {
    std::vector<HostPort> out;
    for (const PlacedText& item : section.texts(key))
        if (auto listener = addressOf(section, key, item, listenerAt(usualPort)))
            out.push_back(std::move(*listener));
    return out;
}

std::vector<Address> addressesOf(const Section& section, std::string_view key, Use use) {
    std::vector<Address> out;
    for (const PlacedText& item : section.texts(key)) {
        auto address = addressOf(section, key, item, parseFor(use));
        if (address && std::find(out.begin(), out.end(), *address) != out.end())
            section.errorAt(item.at, key, shown(*address) + " stands here already",
                            "write it once");
        else if (address)
            out.push_back(std::move(*address));
    }
    return out;
}

class Reader {
public:
    Reader(const toml::table& root, SettingsRemarks& remarks) : root_(root), remarks_(remarks) {}

    Settings read() {
        for (const auto& [key, value] : root_)
            if (std::find(std::begin(kSections), std::end(kSections), key.str()) ==
                std::end(kSections))
                remarks_.error(gateway::placeOf(value), kFileSection, std::string(key.str()),
                               value.is_table() ? "section is not known"
                                                : "key stands in no section",
                               meantOrKnown(key.str(), kSections));
        if (const toml::table* const table = sectionOf("gateway"))
            readGateway(Section(*table, kGatewaySection, remarks_));
        if (const toml::table* const table = sectionOf("caster"))
            readCaster(Section(*table, kCasterSection, remarks_));
        if (const toml::table* const table = sectionOf("web"))
            readWeb(Section(*table, kWebSection, remarks_));
        if (const toml::table* const table = sectionOf("alarms"))
            readAlarms(Section(*table, kAlarmsSection, remarks_));
        readStations();
        return std::move(out_);
    }

private:
    const toml::table* sectionOf(const char* name) {
        const toml::node* const node = root_.get(name);
        if (node && !node->is_table())
            remarks_.error(gateway::placeOf(*node), kFileSection, name, "is no section",
                           text("write [%s] once, its keys below it", name));
        return node ? node->as_table() : nullptr;
    }

    void readGateway(const Section& section) {
        section.tellUnknown(kGatewayKeys);
        take(section.text("name"), out_.name);
        if (auto path = section.text("state"))
            out_.state = *path;
        const auto engine = section.text("engine");
        if (engine && *engine != "external")
            out_.engine = *engine;
        const bool external = engine == "external";
        const bool addressed = section.has("address");
        if (external && !addressed)
            section.error("engine", "the address is missing where engines connect",
                          "add such as address = \"127.0.0.1:2200\"");
        if (addressed && !external)
            section.error("address", "engines that the gateway starts have no address",
                          "write engine = \"external\", or leave it out");
        if (const auto address = section.placedText("address"))
            out_.externalEngine = addressOf(section, "address", *address, listenerAt(kEnginePort));
        if (out_.externalEngine && out_.externalEngine->port == 0)
            section.wrongValue("address", "has the port 0", "write the port of the first station");
    }

    void readCaster(const Section& section) {
        CasterSettings& c = out_.caster;
        section.tellUnknown(kCasterKeys);
        c.listen = listenersOf(section, "listen", kNtripPort);
        c.listenTls = listenersOf(section, "listen_tls", kNtripPort + 1);
        for (const auto& [key, path] : {std::pair("certificate", &c.certificate),
                                        std::pair("key", &c.key), std::pair("users", &c.users)})
            if (auto value = section.text(key))
                *path = *value;
        take(section.text("operator"), c.operatorName);
        if (const auto country = section.text("country")) {
            if (country->size() == 3 &&
                std::all_of(country->begin(), country->end(), isUpperLetter))
                c.country = *country;
            else
                section.wrongValue("country", "is no code of three capital letters",
                                   "write such as AUS (ISO 3166)");
        }
        take(section.whole("max_clients", 1, kMostClients), c.mostClients);
        take(section.whole("max_per_user", 1, kMostClients), c.mostPerUser);
        take(section.whole("max_per_address", 1, kMostClients), c.mostPerAddress);
    }

    void readWeb(const Section& section) {
        section.tellUnknown(kWebKeys);
        if (section.isEmptyList("listen"))
            out_.web.listen.clear();
        else if (section.has("listen"))
            out_.web.listen = listenersOf(section, "listen", kPagePort);
        constexpr std::string_view words[] = {"machine", "users", "anyone"};
        if (const auto who = section.word("access", words))
            out_.web.access = static_cast<WebSettings::Access>(*who);
    }

    void readAlarms(const Section& section) {
        section.tellUnknown(kAlarmKeys);
        for (auto& [url, at] : section.texts("webhook")) {
            const auto parsed = boost::urls::parse_uri(url);
            if (parsed && !parsed->host().empty() &&
                (!parsed->has_port() || portOf(parsed->port())) &&
                (url.starts_with("http://") || url.starts_with("https://")))
                out_.alarms.webhooks.push_back(std::move(url));
            else
                section.errorAt(at, "webhook", "is no address of a web server",
                                "write such as \"https://example.org/alarms\"");
        }
        if (auto path = section.text("command"))
            out_.alarms.command = *path;
        take(section.number("delay", 0.001, 3600.0), out_.alarms.delayS);
        take(section.number("clock", 0.1, 86'400.0), out_.alarms.clockS);
    }

    void readStations() {
        const toml::node* const node = root_.get("station");
        const toml::array* const list = node ? node->as_array() : nullptr;
        if (node && (!list || !list->is_homogeneous<toml::table>())) {
            remarks_.error(gateway::placeOf(*node), kFileSection, "station",
                           "is no list of sections", "write [[station]] above each station");
            return;
        }
        if (!node && !remarks_.present(kFileSection, "station"))
            remarks_.error(kFileSection, "", "no station",
                           "add [[station]] with name and source below it");
        for (std::size_t i = 0; list && i < list->size(); ++i)
            readStation(*(*list)[i].as_table(), kFirstStation + i);
    }

    void readStation(const toml::table& table, std::size_t number) {
        const Section section(table, number, remarks_);
        StationSettings s;
        s.name = stationName(section, "name");
        if (!s.name.empty())
            remarks_.name(number, s.name);
        section.tellUnknown(kStationKeys);
        s.mountpoint = section.has("mountpoint") ? stationName(section, "mountpoint") : s.name;
        for (const char* const key : {"name", "source"})
            if (!remarks_.present(number, key))
                section.error("", text("%s is missing", key), "add it");
        readStreams(section, s);
        readPlace(section, s);
        readAccess(section, s);
        constexpr std::string_view answers[] = {"complete", "specified"};
        if (const auto answer = section.word("answer", answers))
            s.answer = *answer == 0 ? StationSettings::Answer::complete
                                    : StationSettings::Answer::specified;
        if (const auto clock = section.text("clock")) {
            if (Deploy_m_parseClock(*clock))
                s.clock = *clock;
            else
                section.wrongValue("clock", "is no time of the calendar",
                                   "write UTC such as \"2026-03-01 00:00:00\"");
        }
        s.identifier = section.text("identifier").value_or(s.name);
        take(section.number("guard", 0.01, 100'000.0), s.guardM);
        s.mostEpochs = section.number("rate", 0.001, 100.0);
        s.audit = section.flag("audit");
        if (s.audit.value_or(false) && out_.externalEngine && !s.positionM)
            section.error("audit", "needs the position that the external engine has",
                          "add position = [X, Y, Z], or write audit = false");
        out_.stations.push_back(std::move(s));
    }

    static std::string stationName(const Section& section, std::string_view key) {
        auto name = section.text(key);
        if (!name || isStationName(*name))
            return name.value_or("");
        section.wrongValue(key, "is no name that a mountpoint and a file can have", kNameForm);
        return {};
    }

    static void readStreams(const Section& section, StationSettings& s) {
        s.sources = addressesOf(section, "source", Use::source);
        s.push = addressesOf(section, "push", Use::output);
        if (const auto ephemerides = section.placedText("ephemerides"))
            s.ephemerides = addressOf(section, "ephemerides", *ephemerides, parseFor(Use::source));
        if (s.ephemerides && s.ephemerides->scheme == Scheme::caster)
            section.error("ephemerides", "a station takes one pushed stream, its source",
                          "write where the ephemerides are");
        if (auto password = section.text("password")) {
            if (password->find(' ') != std::string::npos)
                section.error("password", "holds a blank, at which its request would end");
            s.password = Secret(std::move(*password));
        }
    }

    static void readPlace(const Section& section, StationSettings& s) {
        if (section.isText("position")) {
            constexpr std::string_view words[] = {"follow"};
            s.followPosition = section.word("position", words).has_value();
        } else if (const auto xyz =
                       section.triple("position", "write [X, Y, Z] (Earth-centred, m), or "
                                                  "\"follow\"")) {
            s.positionM = xyz;
            if (!ctl::check::onSurface(ctl::check::placeOf(*xyz)))
                section.wrongValue("position", "lies not near the Earth's surface",
                                   ctl::check::mendedToSurface(*xyz));
        }
        s.offsetM = section.triple("offset", "write [east, north, up] (m)");
        if (s.offsetM &&
            !(std::hypot((*s.offsetM)[0], (*s.offsetM)[1], (*s.offsetM)[2]) <= kFarthestOffsetM))
            section.wrongValue("offset", text("is longer than %g m", kFarthestOffsetM),
                               "write [east, north, up] (m)");
    }

    void readAccess(const Section& section, StationSettings& s) const {
        s.access.who = out_.caster.users.empty() ? Access::Who::anyone : Access::Who::users;
        if (section.isText("access")) {
            constexpr std::string_view words[] = {"anyone", "users"};
            if (const auto who = section.word("access", words))
                s.access.who = *who == 0 ? Access::Who::anyone : Access::Who::users;
        } else if (section.has("access")) {
            s.access.who = Access::Who::listed;
            for (PlacedText& item : section.texts("access"))
                s.access.names.push_back(std::move(item.text));
        }
    }

    const toml::table& root_;
    SettingsRemarks& remarks_;
    Settings out_;
};

Settings settingsOf(std::string_view toml, SettingsRemarks& remarks) {
    Lines lines(toml, remarks);
    const auto root = lines.parse();
    if (!root)
        return {};
    Settings out = Reader(*root, remarks).read();
    examineTogether(out, remarks);
    return out;
}

ReadSettings whole(Settings settings, std::shared_ptr<Users> users, SettingsRemarks remarks) {
    return {std::move(settings), std::move(users), std::move(remarks).sorted()};
}

/// The bytes of a file; throws with what is wrong.
std::string contentOf(const fs::path& path) {
    errno = 0;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error)
        throw std::runtime_error(ctl::check::reasonWith(path, error.message()));
    if (status.type() != fs::file_type::regular)
        throw std::runtime_error("is no file");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(std::strerror(errno));
    std::string content(kLargestFile + 1, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (content.size() > kLargestFile)
        throw std::runtime_error("is larger than 4 MiB");
    return content;
}

/// Where somebody who is not root keeps the state.
fs::path ownState() {
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name);
        return fs::path(value ? value : "");
    };
    if (fs::path given = variable("STATE_DIRECTORY"); given.is_absolute())
        return given;
    if (geteuid() == 0)
        return Settings{}.state;
    if (fs::path home = variable("XDG_STATE_HOME"); home.is_absolute())
        return home / "kestrune-gateway";
    if (fs::path home = variable("HOME"); home.is_absolute())
        return home / ".local/state/kestrune-gateway";
    return Settings{}.state;
}

} // namespace

bool ReadSettings::usable() const {
    return std::none_of(remarks.begin(), remarks.end(),
                        [](const ctl::check::Remark& r) { return r.severity == Severity::fatal; });
}

bool isStationName(std::string_view name) {
    constexpr std::string_view others = "-_.";
    const auto fits = [&](char c) {
        return isLetterOrDigit(c) || others.find(c) != std::string_view::npos;
    };
    return !name.empty() && name.size() <= kLongestStationName && name.front() != '.' &&
           name.front() != '-' && std::all_of(name.begin(), name.end(), fits);
}

ReadSettings parseSettings(std::string_view toml, const std::string& file) {
    SettingsRemarks remarks(file);
    Settings settings = settingsOf(toml, remarks);
    return whole(std::move(settings), nullptr, std::move(remarks));
}

ReadSettings readSettings(const fs::path& path, Look look) {
    SettingsRemarks remarks(path.string());
    Settings settings;
    std::shared_ptr<Users> users;
    try {
        settings = settingsOf(contentOf(path), remarks);
        users = examineFiles(settings, remarks);
        if (look == Look::filesAndPorts)
            examinePorts(settings, remarks);
    } catch (const std::runtime_error& fault) {
        remarks.error(kFileSection, "", "cannot be read", fault.what());
    }
    return whole(std::move(settings), std::move(users), std::move(remarks));
}

ReadSettings settingsOfCommandLine(std::span<const std::string> stations,
                                   std::span<const std::string> listeners) {
    SettingsRemarks remarks("command line");
    Settings out;
    out.state = ownState();
    const auto tell = [&](const std::string& option, const AddressError& fault) {
        remarks.error(kFileSection, option, fault.wrong, fault.advice);
    };
    constexpr const char* form = "write NAME=ADDRESS, such as CANB=tcp://192.0.2.10:5017";
    for (const std::string& listener : listeners) {
        try {
            out.caster.listen.push_back(parseListener(listener));
        } catch (const AddressError& fault) {
            tell("--listen", fault);
        }
    }
    if (listeners.empty())
        out.caster.listen.push_back({"::", kNtripPort});
    for (const std::string& station : stations) {
        const std::size_t equals = std::min(station.find('='), station.size());
        StationSettings s;
        s.name = station.substr(0, equals);
        const std::string address = station.substr(std::min(equals + 1, station.size()));
        try {
            if (!isStationName(s.name) || equals == station.size())
                throw AddressError("begins with no name and '='", form);
            if (address.empty())
                throw AddressError("the address of station " + s.name + " is missing", form);
            s.mountpoint = s.identifier = s.name;
            remarks.name(kFirstStation + out.stations.size(), s.name);
            s.sources.push_back(parseAddress(address, Use::source));
            out.stations.push_back(std::move(s));
        } catch (const AddressError& fault) {
            // without '=' all of it may be an address with its password
            const bool named = isStationName(s.name) && equals < station.size();
            tell("--station" + (named ? " " + s.name : ""), fault);
        }
    }
    examineTogether(out, remarks);
    examineFiles(out, remarks);
    return whole(std::move(out), nullptr, std::move(remarks));
}

} // namespace gateway
