#include "gateway/app/Gateway.h"

#include "gateway/net/Say.h"
#include "net/Notify.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

Gateway::Gateway(asio::io_context& context, const EventLog& log)
    : executor_(context.get_executor()), caster_(executor_, *this), notifier_(executor_),
      overview_(log, *this, notifier_),
      web_(executor_, overview_,
           [this](std::string address, std::string user, Secret password) {
               return caster_.admits(std::move(address), std::move(user), std::move(password));
           }),
      tasks_(executor_, [](const std::string& why) { say(Level::error, "gateway", why); }) {
    tasks_.start(ticks());
}

void Gateway::apply(const Settings& settings, std::shared_ptr<Users> users) {
    auto state = folderAt(settings.state);
    const auto failures = caster_.apply(settings.caster, std::move(users));
    if (!failures.empty() && !began_)
        throw std::runtime_error(failures.front());
    began_ = true;
    state_ = std::move(state);
    for (const std::string& failure : failures)
        say(Level::error, "caster", failure + "; tried again every second");
    const bool sameHost = settings.state == settings_.state &&
                          settings.engine == settings_.engine &&
                          settings.externalEngine == settings_.externalEngine;
    settings_ = settings;
    std::map<std::string, std::unique_ptr<Served>> before = std::exchange(stations_, {});
    for (std::size_t i = 0; i < settings_.stations.size(); ++i) {
        const StationSettings& wanted = settings_.stations[i];
        const auto old = before.find(wanted.name);
        if (old == before.end() || !sameHost || !goesOn(*old->second, wanted, i))
            continue;
        stations_[wanted.name] = std::move(old->second);
        before.erase(old);
    }
    for (auto& [name, served] : before) {
        say(Level::notice, name, "is stopped");
        served->stop();
        stopping_.push_back(std::move(served));
    }
    for (std::size_t i = 0; i < settings_.stations.size(); ++i) {
        const StationSettings& wanted = settings_.stations[i];
        const auto at = stations_.find(wanted.name);
        if (at == stations_.end())
            stations_[wanted.name] = serve(wanted, i);
        else if (at->second->station->settings() != wanted)
            at->second->station->take(wanted);
    }
    for (const auto& [name, served] : stations_)
        setPushes(*served);
    caster_.sendAwayWhoMayNotStay();
    notifier_.apply(settings_);
    overview_.apply(settings_);
    web_.apply(settings_.web);
}

void Gateway::stop() {
    tasks_.cancel();
    caster_.stop();
    web_.stop();
    notifier_.stop();
    for (auto& [name, served] : std::exchange(stations_, {})) {
        served->stop();
        stopping_.push_back(std::move(served));
    }
}

/// A folder that is locked already is not opened again: closing it would end the lock (fcntl(2)).
std::shared_ptr<const StateFolder> Gateway::folderAt(const std::filesystem::path& path) const {
    if (state_ && state_->is(path))
        return state_;
    const auto used = std::ranges::find_if(
        stopping_, [&](const auto& served) { return served->state->is(path); });
    return used != stopping_.end() ? (*used)->state : std::make_shared<const StateFolder>(path);
}

bool Gateway::idle() const {
    return tasks_.idle() && caster_.idle() && web_.idle() && notifier_.idle() &&
           stations_.empty() &&
           std::ranges::all_of(stopping_, [](const auto& served) { return served->idle(); });
}

/// Only a station whose antenna has not moved: one that has begins anew at each reading.
bool Gateway::goesOn(const Served& served, const StationSettings& wanted,
                     std::size_t number) const {
    return served.station->moved().empty() && served.station->canTake(wanted) &&
           !(settings_.externalEngine && served.number != number);
}

void Gateway::Served::stop() {
    for (const auto& push : pushes)
        push->stop();
    station->stop();
}

bool Gateway::Served::idle() const {
    const auto ended = [](const auto& push) { return push->idle(); };
    return station->idle() && std::ranges::all_of(pushes, ended) &&
           std::ranges::all_of(ending, ended);
}

std::shared_ptr<Station> Gateway::find(const std::string& mountpoint) const {
    for (const auto& [name, served] : stations_)
        if (served->station->settings().mountpoint == mountpoint)
            return served->station;
    return nullptr;
}

void Gateway::forEach(const std::function<void(Station&)>& take) const {
    for (const auto& [name, served] : stations_)
        take(*served->station);
}

std::vector<ntrip::StreamEntry> Gateway::table(Instant now) const {
    std::vector<ntrip::StreamEntry> out;
    for (const auto& [name, served] : stations_)
        if (auto entry = tableEntry(*served->station, now))
            out.push_back(std::move(*entry));
    return out;
}

std::optional<ntrip::StreamEntry> Gateway::tableEntry(const Station& station, Instant now) const {
    auto entry = station.tableEntry(now);
    if (entry)
        entry->country = settings_.caster.country;
    return entry;
}

std::unique_ptr<Gateway::Served> Gateway::serve(const StationSettings& settings,
                                                std::size_t number) const {
    StationHost host{executor_, settings_.state, settings_.engine, settings_.externalEngine,
                     audits(settings_, settings)};
    if (host.externalEngine)
        host.externalEngine->port = static_cast<std::uint16_t>(host.externalEngine->port + number);
    auto served = std::make_unique<Served>();
    served->number = number;
    served->state = state_;
    served->station = std::make_shared<Station>(host, settings);
    served->station->start();
    return served;
}

/// Ends those that are not in the settings, and begins those that are not there.
void Gateway::setPushes(Served& served) const {
    Station& station = *served.station;
    const std::vector<Address>& wanted = station.settings().push;
    std::erase_if(served.pushes, [&](std::unique_ptr<Push>& push) {
        if (std::ranges::count(wanted, push->address()) > 0)
            return false;
        push->stop();
        served.ending.push_back(std::move(push));
        return true;
    });
    const auto sayOf = [name = station.settings().name](Level level, const std::string& text) {
        say(level, name, text);
    };
    const auto strLine = [this, &station] {
        const auto entry = tableEntry(station, std::chrono::steady_clock::now());
        return entry ? ntrip::streamLine(*entry) : std::string();
    };
    for (const Address& address : wanted) {
        if (std::ranges::count(served.pushes, address,
                               [](const auto& p) -> const Address& { return p->address(); }))
            continue;
        served.pushes.push_back(
            std::make_unique<Push>(executor_, address, station.mountpoint(), sayOf, strLine));
        served.pushes.back()->start();
    }
}

awaitable<void> Gateway::ticks() {
    for (;;) {
        co_await pause(1s);
        const Instant now = std::chrono::steady_clock::now();
        for (const auto& [name, served] : stations_) {
            served->station->tick(now);
            std::erase_if(served->ending, [](const auto& push) { return push->idle(); });
        }
        caster_.tick(now);
        overview_.tick(now);
        overview_.setListeners(web_.hearers());
        web_.tick();
        std::erase_if(stopping_, [](const auto& served) {
            return served->idle() && served->station.use_count() == 1;
        });
        const auto delivering = std::ranges::count_if(stations_, [&](const auto& one) {
            return one.second->station->glance().delivery == Delivery::delivering;
        });
        notifyStatus("%td of %zu stations deliver, %zu clients", delivering, stations_.size(),
                     caster_.clients());
        notifyDue();
    }
}

} // namespace gateway
