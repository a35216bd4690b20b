#include "gateway/settings/Examine.h"

#include "base/Findings.h"
#include "ctl/check/Advice.h"
#include "gateway/net/Program.h"
#include "gateway/settings/Certificate.h"
#include "gateway/settings/Ports.h"
#include "gateway/settings/Users.h"
#include "gnss/Clock.h"

#include <boost/asio/ip/address.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace gateway {

namespace {

namespace fs = std::filesystem;

/// Looks at settings that belong together.
class Together {
public:
    Together(const Settings& settings, SettingsRemarks& remarks)
        : s_(settings), remarks_(remarks) {}

    void examine() {
        examineCaster();
        examineWeb();
        for (std::size_t i = 0; i < s_.stations.size(); ++i) {
            examineNames(s_.stations[i], kFirstStation + i);
            examineStation(s_.stations[i], kFirstStation + i);
        }
        examineListeners();
    }

private:
    bool anyListener() const { return !s_.caster.listen.empty() || !s_.caster.listenTls.empty(); }

    void examineCaster() {
        const CasterSettings& c = s_.caster;
        for (const auto& [key, path] :
             {std::pair("certificate", &c.certificate), std::pair("key", &c.key)}) {
            if (!c.listenTls.empty() && !remarks_.present(kCasterSection, key))
                remarks_.error(kCasterSection, "listen_tls", text("TLS needs a %s", key),
                               text("add %s = \"FILE\" (PEM)", key));
            if (!path->empty() && !remarks_.present(kCasterSection, "listen_tls"))
                remarks_.warn(kCasterSection, key, "nothing uses it",
                              "add listen_tls = [\"[::]:2102\"], or leave it out");
        }
    }

    void examineNames(const StationSettings& station, std::size_t number) {
        const auto taken = [](auto& seen, const std::string& name) {
            return !name.empty() && !seen.insert(name).second;
        };
        const bool name = taken(names_, station.name);
        if (name)
            remarks_.error(number, "name", "another station has this name",
                           "give each station its own");
        if (taken(mountpoints_, station.mountpoint) && !name)
            remarks_.error(number, "mountpoint",
                           "another station has the mountpoint " + station.mountpoint,
                           "give each station its own");
    }

    void examineStation(const StationSettings& station, std::size_t number) {
        const bool pushed =
            std::any_of(station.sources.begin(), station.sources.end(),
                        [](const Address& a) { return a.scheme == Scheme::caster; });
        if (pushed && !anyListener())
            remarks_.error(number, "source", "a receiver cannot push: there is no caster",
                           "add [caster] with listen = [\"[::]:2101\"]");
        if (pushed && !remarks_.present(number, "password"))
            remarks_.error(number, "source", "the password of the receiver that pushes is missing",
                           "add password = \"...\"");
        if (!pushed && !station.password.empty())
            remarks_.warn(number, "password", "nothing uses it",
                          "add \"caster:\" to source, or leave it out");
        if (station.access.who != Access::Who::anyone && !remarks_.present(kCasterSection, "users"))
            remarks_.error(number, "access", "there are no users",
                           "add users = \"FILE\" to [caster], or write access = \"anyone\"");
        if (station.push.empty() && !remarks_.present(number, "push") && !anyListener() &&
            !remarks_.present(kCasterSection, "listen"))
            remarks_.warn(number, "", "nobody gets what it delivers",
                          "add [caster] with listen = [\"[::]:2101\"], or push");
        for (const Address& output : station.push)
            if (output.scheme == Scheme::file && output.path.find('%') == std::string::npos)
                remarks_.warn(number, "push", text("%s grows without end", output.path.c_str()),
                              "write such as %Y%m%d into its name: a file a day");
    }

    /// Tells where a listener's port is taken already; any address takes the port of all.
    void listen(const HostPort& at, std::size_t section, const char* key) {
        if (at.port == 0)
            return;
        const auto any = [](const HostPort& a) { return a.host == "::" || a.host == "0.0.0.0"; };
        for (const HostPort& other : listeners_)
            if (other.port == at.port && (other.host == at.host || any(other) || any(at))) {
                remarks_.error(
                    section, key,
                    text("%s is taken already by %s", shown(at).c_str(), shown(other).c_str()),
                    "write another port; [::] takes IPv4, too");
                return;
            }
        listeners_.push_back(at);
    }

    void examineWeb() {
        const auto beyond = [](const HostPort& at) {
            boost::system::error_code named;
            const auto address = boost::asio::ip::make_address(at.host, named);
            return !named && !address.is_loopback();
        };
        const WebSettings& web = s_.web;
        if (web.access == WebSettings::Access::machine &&
            std::any_of(web.listen.begin(), web.listen.end(), beyond))
            remarks_.error(kWebSection, "listen", "other machines would see the page",
                           "write access = \"users\" (those of the caster) or \"anyone\"");
        if (web.access == WebSettings::Access::users && !remarks_.present(kCasterSection, "users"))
            remarks_.error(kWebSection, "access", "there are no users",
                           "add users = \"FILE\" to [caster], or write access = \"anyone\"");
    }

    void examineListeners() {
        for (const Port& port : portsOf(s_))
            if (port.section != kWebSection || remarks_.present(kWebSection, "listen"))
                listen(port.at, port.section, port.key);
        if (!s_.externalEngine)
            return;
        const std::size_t room = 65536U - s_.externalEngine->port;
        if (s_.stations.size() > room)
            remarks_.error(kGatewaySection, "address",
                           text("%zu stations have no ports from %d on", s_.stations.size(),
                                s_.externalEngine->port),
                           "each station takes one port: write a lower one");
    }

    const Settings& s_;
    SettingsRemarks& remarks_;
    std::set<std::string> names_, mountpoints_;
    std::vector<HostPort> listeners_;
};

/// Why a file cannot be read by this user; nothing where it can.
std::optional<std::string> unreadable(const fs::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return ctl::check::reasonWith(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return "is no file";
    if (access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    return std::nullopt;
}

/// The folder that a path is in; "." where it names none.
fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

/// Whether this user can make files in the folder, or it can be made so.
bool writable(fs::path folder) {
    std::error_code error;
    while (!fs::exists(folder, error) && folder.has_relative_path())
        folder = folderOf(folder);
    return fs::is_directory(folder, error) && access(folder.c_str(), W_OK | X_OK) == 0;
}

bool anyPassword(const Settings& s) {
    const auto has = [](const Address& a) { return !a.password.empty(); };
    return std::any_of(s.stations.begin(), s.stations.end(), [&](const StationSettings& t) {
        return !t.password.empty() || std::any_of(t.sources.begin(), t.sources.end(), has) ||
               std::any_of(t.push.begin(), t.push.end(), has) ||
               (t.ephemerides && has(*t.ephemerides));
    });
}

/// Looks at files and folders.
class Files {
public:
    Files(const Settings& settings, SettingsRemarks& remarks) : s_(settings), remarks_(remarks) {}

    void examine() {
        if (anyPassword(s_))
            hidden(remarks_.file(), kFileSection, "", "holds passwords");
        examineGateway();
        const CasterSettings& c = s_.caster;
        const bool certificate = readable(c.certificate, kCasterSection, "certificate");
        const bool key = readable(c.key, kCasterSection, "key");
        const bool users = readable(c.users, kCasterSection, "users");
        hidden(c.key, kCasterSection, "key", "is secret");
        hidden(c.users, kCasterSection, "users", "holds hashes of passwords");
        if (certificate && key)
            examineTls();
        if (users)
            examineUsers();
        for (std::size_t i = 0; i < s_.stations.size(); ++i)
            examineStation(s_.stations[i], kFirstStation + i);
    }

private:
    /// Whether there is one, and it can be read.
    bool readable(const fs::path& path, std::size_t section, const char* key) {
        if (path.empty())
            return false;
        const auto why = unreadable(path);
        if (why)
            remarks_.error(section, key, path.string() + " cannot be read", *why);
        return !why;
    }
    void hidden(const fs::path& path, std::size_t section, const char* key, const char* why) {
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0)
            remarks_.warn(section, key,
                          text("%s %s, and everybody can read it (mode %04o)", path.c_str(), why,
                               static_cast<unsigned>(status.st_mode) & 07777U),
                          "chmod o-r " + path.string());
    }

    void examineGateway() {
        if (!writable(s_.state)) {
            const bool written = remarks_.present(kGatewaySection, "state");
            const std::string wrong = s_.state.string() + " cannot be written by this user";
            if (written)
                remarks_.error(kGatewaySection, "state", wrong,
                               "write a folder of your own, or start it as the user who can");
            else // as the unit finds it
                remarks_.warn(kGatewaySection, "state", wrong,
                              "the unit can; else add state = \"FOLDER\" to [gateway]");
        }
        if (!s_.externalEngine && findProgram(s_.engine).empty())
            remarks_.error(kGatewaySection, "engine",
                           s_.engine.string() + " is no program that is found",
                           "install kestrune, or write engine = \"PATH\"");
        const auto& command = s_.alarms.command;
        if (!command.empty() && findProgram(command).empty())
            remarks_.error(kAlarmsSection, "command",
                           command.string() + " is no program that is found",
                           "write the path of one that this user may run, without arguments");
    }

    void examineTls() {
        const CasterSettings& c = s_.caster;
        for (const CertificateRemark& r : examineCertificate(c.certificate, c.key, utcNow().time)) {
            const bool ofKey = r.of == CertificateRemark::Of::key;
            const char* const key = ofKey ? "key" : "certificate";
            const std::string wrong = (ofKey ? c.key : c.certificate).string() + " " + r.wrong;
            if (r.fatal)
                remarks_.error(kCasterSection, key, wrong, r.advice);
            else
                remarks_.warn(kCasterSection, key, wrong, r.advice);
        }
    }

    void examineUsers() {
        Users users;
        std::vector<ctl::check::Remark> ofLines;
        users.read(s_.caster.users, ofLines);
        for (ctl::check::Remark& remark : ofLines)
            remarks_.add(std::move(remark));
        if (users.empty())
            remarks_.warn(kCasterSection, "users", s_.caster.users.string() + " has no users",
                          "add one: kestrune-gateway passwd FILE NAME");
        for (std::size_t i = 0; i < s_.stations.size(); ++i)
            for (const std::string& name : s_.stations[i].access.names)
                if (!users.contains(name))
                    remarks_.warn(kFirstStation + i, "access", name + " is no user",
                                  "add them: kestrune-gateway passwd " + s_.caster.users.string() +
                                      " " + name);
    }

    void examineStation(const StationSettings& station, std::size_t number) {
        for (const Address& a : station.sources)
            stream(a, number, "source");
        if (station.ephemerides)
            stream(*station.ephemerides, number, "ephemerides");
        for (const Address& a : station.push) {
            device(a, number, "push");
            const fs::path folder = folderOf(a.path);
            if (a.scheme == Scheme::file && folder.string().find('%') == std::string::npos &&
                !writable(folder))
                remarks_.error(number, "push", folder.string() + " cannot be written by this user",
                               "make the folder, or give it to the user of the gateway");
        }
    }
    void stream(const Address& a, std::size_t number, const char* key) {
        device(a, number, key);
        if (a.scheme == Scheme::file)
            readable(a.path, number, key);
    }
    void device(const Address& a, std::size_t number, const char* key) {
        if (a.scheme != Scheme::serial)
            return;
        if (access(a.path.c_str(), F_OK) != 0)
            remarks_.warn(number, key, a.path + " is not there",
                          "connect it; `ls /dev/serial/by-id` shows what is connected");
        else if (access(a.path.c_str(), R_OK | W_OK) != 0)
            remarks_.warn(number, key, a.path + " cannot be used by this user",
                          "add the user to the group dialout");
    }

    const Settings& s_;
    SettingsRemarks& remarks_;
};

} // namespace

void examineTogether(const Settings& settings, SettingsRemarks& remarks) {
    Together(settings, remarks).examine();
}

void examineFiles(const Settings& settings, SettingsRemarks& remarks) {
    Files(settings, remarks).examine();
}

} // namespace gateway
