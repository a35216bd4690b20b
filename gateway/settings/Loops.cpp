#include "gateway/settings/Loops.h"

#include <boost/asio/ip/address.hpp>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace gateway {

namespace {

/// Whether who connects to the peer comes to the listener. Of names, this machine's alone is known.
bool reaches(const HostPort& peer, const HostPort& listener) {
    using boost::asio::ip::make_address;
    if (peer.port != listener.port)
        return false;
    boost::system::error_code named;
    const auto to = make_address(peer.host, named), at = make_address(listener.host);
    if (named)
        return peer.host == "localhost" && (at == make_address("127.0.0.1") ||
                                            at == make_address("::1") || at.is_unspecified());
    return to == at || (to.is_loopback() && at.is_unspecified() && (at.is_v6() || to.is_v4()));
}

/// The way back to a number over others that are not lower, by what each one comes from, with the
/// number at its end; empty where there is none.
std::vector<std::size_t> shortestLoop(const std::vector<std::set<std::size_t>>& from,
                                      std::size_t number) {
    std::map<std::size_t, std::vector<std::size_t>> ways{{number, {}}};
    for (std::deque<std::size_t> next{number}; !next.empty(); next.pop_front())
        for (const std::size_t one : from[next.front()]) {
            std::vector<std::size_t> way = ways.at(next.front());
            way.push_back(one);
            if (one == number)
                return way;
            if (one > number && ways.emplace(one, std::move(way)).second)
                next.push_back(one);
        }
    return {};
}

/// The station whose mountpoint of our own caster the address names.
std::optional<std::size_t> ownStation(const Settings& settings, const Address& a) {
    const CasterSettings& caster = settings.caster;
    const auto& listeners = a.scheme == Scheme::ntrips ? caster.listenTls : caster.listen;
    const auto here = [&](const HostPort& listener) { return reaches(a.peer, listener); };
    if (a.mount.empty() || a.proxy || std::none_of(listeners.begin(), listeners.end(), here))
        return std::nullopt;
    const auto& stations = settings.stations;
    const auto at = std::find_if(stations.begin(), stations.end(), [&](const StationSettings& one) {
        return one.mountpoint == a.mount;
    });
    return at == stations.end() ? std::nullopt
                                : std::optional(static_cast<std::size_t>(at - stations.begin()));
}

/// By station, those from which it gets its stream.
std::vector<std::set<std::size_t>> originsOf(const Settings& settings) {
    std::vector<std::set<std::size_t>> from(settings.stations.size());
    for (std::size_t i = 0; i < from.size(); ++i) {
        for (const Address& source : settings.stations[i].sources)
            if (const auto other = ownStation(settings, source))
                from[i].insert(*other);
        for (const Address& output : settings.stations[i].push)
            if (const auto other = ownStation(settings, output);
                other && takesPushes(settings.stations[*other]))
                from[*other].insert(i);
    }
    return from;
}

/// Whether a stream can come to it that no station of ours has sent.
bool hasOther(const Settings& settings, std::size_t station) {
    const auto& sources = settings.stations[station].sources;
    return std::any_of(sources.begin(), sources.end(), [&](const Address& source) {
        return source.scheme != Scheme::caster && !ownStation(settings, source);
    });
}

} // namespace

void examineLoops(const Settings& settings, SettingsRemarks& remarks) {
    const auto from = originsOf(settings);
    for (std::size_t i = 0; i < from.size(); ++i) {
        const auto loop = shortestLoop(from, i);
        if (loop.empty())
            continue;
        std::string way = settings.stations[i].name;
        for (const std::size_t station : loop)
            way += " from " + settings.stations[station].name;
        const bool other = std::any_of(loop.begin(), loop.end(), [&](std::size_t station) {
            return hasOther(settings, station);
        });
        const std::string wrong = "the station gets its own stream through our caster: " + way;
        constexpr const char* advice = "write the address of its receiver, or of another caster";
        if (other)
            remarks.warn(kFirstStation + i, "source", "where no other source delivers, " + wrong,
                         advice);
        else
            remarks.error(kFirstStation + i, "source", wrong, advice);
    }
}

} // namespace gateway
