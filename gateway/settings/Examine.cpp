#include "gateway/settings/Examine.h"

#include "gateway/settings/Loops.h"
#include "gateway/settings/Ports.h"

#include <boost/asio/ip/address.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace gateway {

namespace {

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
        examineLoops(s_, remarks_);
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
                remarks_.warn(kCasterSection, key, "nothing uses " + path->string(),
                              "add listen_tls = [\"[::]:2102\"], or leave it out");
        }
    }

    void examineNames(const StationSettings& station, std::size_t number) {
        const auto taken = [](auto& seen, const std::string& name) {
            return !name.empty() && !seen.insert(name).second;
        };
        const bool name = taken(names_, station.name);
        if (name)
            remarks_.error(number, "name", "another station has the name " + station.name,
                           "give each station its own");
        if (taken(mountpoints_, station.mountpoint) && !name)
            remarks_.error(number, "mountpoint",
                           "another station has the mountpoint " + station.mountpoint,
                           "give each station its own");
    }

    void examineStation(const StationSettings& station, std::size_t number) {
        const bool pushed = takesPushes(station);
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

    /// Tells where a listener's port is taken already.
    void listen(const HostPort& at, std::size_t section, const char* key) {
        for (const HostPort& other : listeners_)
            if (clash(at, other)) {
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
            remarks_.error(kWebSection, "listen",
                           "other machines would see the page at " +
                               shown(*std::find_if(web.listen.begin(), web.listen.end(), beyond)),
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

} // namespace

void examineTogether(const Settings& settings, SettingsRemarks& remarks) {
    Together(settings, remarks).examine();
}

} // namespace gateway
