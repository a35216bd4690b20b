#include "gateway/settings/Ports.h"

#include "gateway/net/Channel.h"

#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <utility>

namespace gateway {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;

/// Why nobody can listen there. It does not listen itself, so no peer can come by mistake.
error_code whyNot(const HostPort& at) {
    error_code why;
    const tcp::endpoint endpoint = endpointOf(at);
    asio::io_context context;
    tcp::acceptor acceptor(context);
    acceptor.open(endpoint.protocol(), why);
    if (!why)
        acceptor.set_option(asio::socket_base::reuse_address(true), why);
    if (!why)
        acceptor.bind(endpoint, why);
    return why;
}

const char* adviceFor(const error_code& why) {
    if (why == asio::error::access_denied)
        return "write a port from 1024 on";
    if (why == asio::error::address_family_not_supported)
        return "write an address of the other kind, such as 0.0.0.0 or [::]";
    return "write an address that this machine has; 0.0.0.0 and [::] are all of them";
}

} // namespace

std::vector<Port> portsOf(const Settings& settings) {
    std::vector<Port> out;
    const auto listeners = [&](const std::vector<HostPort>& list, std::size_t section,
                               const char* key) {
        for (const HostPort& at : list)
            out.push_back({at, section, key});
    };
    const auto streams = [&](const std::vector<Address>& list, std::size_t section,
                             const char* key) {
        for (const Address& a : list)
            if (a.scheme == Scheme::tcpListen)
                out.push_back({a.peer, section, key});
    };
    listeners(settings.web.listen, kWebSection, "listen");
    listeners(settings.caster.listen, kCasterSection, "listen");
    listeners(settings.caster.listenTls, kCasterSection, "listen_tls");
    for (std::size_t i = 0; i < settings.stations.size(); ++i) {
        const StationSettings& station = settings.stations[i];
        streams(station.sources, kFirstStation + i, "source");
        if (station.ephemerides)
            streams({*station.ephemerides}, kFirstStation + i, "ephemerides");
        streams(station.push, kFirstStation + i, "push");
    }
    if (const auto& engines = settings.externalEngine)
        for (std::size_t i = 0; i < settings.stations.size() && engines->port + i < 65536; ++i)
            out.push_back({{engines->host, static_cast<std::uint16_t>(engines->port + i)},
                           kGatewaySection,
                           "address"});
    return out;
}

bool clash(const HostPort& a, const HostPort& b) {
    const auto any = [](const HostPort& at) { return at.host == "::" || at.host == "0.0.0.0"; };
    return a.port != 0 && a.port == b.port && (a.host == b.host || any(a) || any(b));
}

void examinePorts(const Settings& settings, SettingsRemarks& remarks) {
    std::vector<Port> taken, tried;
    for (const Port& port : portsOf(settings)) {
        const auto clashes = [&](const Port& other) { return clash(port.at, other.at); };
        if (std::any_of(tried.begin(), tried.end(), clashes)) // is told as such
            continue;
        const error_code why = whyNot(port.at);
        if (port.at.port != 0)
            tried.push_back(port);
        if (why == asio::error::address_in_use)
            taken.push_back(port);
        else if (why)
            remarks.warn(port.section, port.key,
                         "nobody can listen on " + shown(port.at) + ": " + why.message(),
                         adviceFor(why));
    }
    constexpr const char* advice =
        "is it this gateway, which runs already? Else stop that program, "
        "or write another port";
    if (taken.size() > 1 && taken.size() == tried.size()) {
        std::string all;
        for (const Port& port : taken)
            all += (all.empty() ? "" : ", ") + shown(port.at);
        remarks.warn(kFileSection, "", "programs listen already on " + all, advice);
        return;
    }
    for (const Port& port : taken)
        remarks.warn(port.section, port.key, "a program listens already on " + shown(port.at),
                     advice);
}

} // namespace gateway
