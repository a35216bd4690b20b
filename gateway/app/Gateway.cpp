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

void Gateway::apply(const Settings& settings) {
    std::filesystem::create_directories(settings.state);
    const auto failures = caster_.apply(settings.caster, readUsers(settings));
    if (!failures.empty() && !began_)
        throw std::runtime_error(failures.front());
    began_ = true;
    for (const std::string& failure : failures)
        say(Level::error, "caster", failure + "; tried again every second");
    const bool sameHost = settings.state == settings_.state &&
                          settings.engine == settings_.engine &&
                          settings.externalEngine == settings_.externalEngine &&
                          settings.caster.country == settings_.caster.country;
    settings_ = settings;
    std::map<std::string, std::unique_ptr<Served>> before = std::exchange(stations_, {});
    for (std::size_t i = 0; i < settings_.stations.size(); ++i) {
        const StationSettings& wanted = settings_.stations[i];
        const auto old = before.find(wanted.name);
        if (old == before.end() || !sameHost || old->second->station->settings() != wanted ||
            !old->second->station->moved().empty() ||
            (settings_.externalEngine && old->second->number != i))
            continue;
        stations_[wanted.name] = std::move(old->second);
        before.erase(old);
    }
    for (auto& [name, served] : before) {
        say(Level::notice, name, "is stopped");
        served->stop();
        stopping_.push_back(std::move(served));
    }
    for (std::size_t i = 0; i < settings_.stations.size(); ++i)
        if (!stations_.contains(settings_.stations[i].name))
            stations_[settings_.stations[i].name] = serve(settings_.stations[i], i);
    notifier_.apply(settings_.alarms);
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

bool Gateway::idle() const {
    return tasks_.idle() && caster_.idle() && web_.idle() && notifier_.idle() &&
           stations_.empty() &&
           std::ranges::all_of(stopping_, [](const auto& served) { return served->idle(); });
}

void Gateway::Served::stop() {
    for (const auto& push : pushes)
        push->stop();
    station->stop();
}

bool Gateway::Served::idle() const {
    return station->idle() &&
           std::ranges::all_of(pushes, [](const auto& push) { return push->idle(); });
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
        if (auto entry = served->station->tableEntry(now))
            out.push_back(std::move(*entry));
    return out;
}

std::unique_ptr<Gateway::Served> Gateway::serve(const StationSettings& settings,
                                                std::size_t number) const {
    StationHost host{executor_,
                     settings_.state,
                     settings_.engine,
                     settings_.caster.country,
                     settings_.externalEngine,
                     audits(settings_, settings)};
    if (host.externalEngine)
        host.externalEngine->port = static_cast<std::uint16_t>(host.externalEngine->port + number);
    auto served = std::make_unique<Served>();
    served->number = number;
    served->station = std::make_shared<Station>(host, settings);
    Station& station = *served->station;
    const auto sayOf = [name = settings.name](Level level, const std::string& text) {
        say(level, name, text);
    };
    const auto strLine = [&station] {
        const auto entry = station.tableEntry(std::chrono::steady_clock::now());
        return entry ? ntrip::streamLine(*entry) : std::string();
    };
    for (const Address& address : settings.push)
        served->pushes.push_back(
            std::make_unique<Push>(executor_, address, station.mountpoint(), sayOf, strLine));
    station.start();
    for (const auto& push : served->pushes)
        push->start();
    return served;
}

std::shared_ptr<Users> Gateway::readUsers(const Settings& settings) const {
    if (settings.caster.users.empty())
        return nullptr;
    auto users = std::make_shared<Users>();
    std::vector<ctl::check::Remark> remarks;
    users->read(settings.caster.users, remarks);
    for (const ctl::check::Remark& remark : remarks)
        say(Level::warning, settings.caster.users.string(), remark.text);
    return users;
}

awaitable<void> Gateway::ticks() {
    for (;;) {
        co_await pause(1s);
        const Instant now = std::chrono::steady_clock::now();
        for (const auto& [name, served] : stations_)
            served->station->tick(now);
        caster_.tick(now);
        overview_.tick(now);
        overview_.setListeners(web_.hearers());
        web_.tick();
        std::erase_if(stopping_, [](const auto& served) {
            return served->idle() && served->station.use_count() == 1;
        });
        const auto delivering = std::ranges::count_if(stations_, [&](const auto& one) {
            return one.second->station->mountpoint().delivers(now);
        });
        notifyStatus("%td of %zu stations deliver, %zu clients", delivering, stations_.size(),
                     caster_.clients());
        notifyDue();
    }
}

} // namespace gateway
