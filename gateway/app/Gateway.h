#pragma once

#include "gateway/app/Notifier.h"
#include "gateway/app/Overview.h"
#include "gateway/app/StateFolder.h"
#include "gateway/caster/Caster.h"
#include "gateway/caster/Push.h"
#include "gateway/settings/Settings.h"
#include "gateway/station/Station.h"
#include "gateway/web/WebServer.h"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Gateway: all stations and the caster, by settings that can change.

namespace gateway {

class Gateway final : private Stations {
public:
    /// `log` is where the lines go.
    Gateway(asio::io_context& context, const EventLog& log);

    /// Begins, or goes on with other settings: stations and listeners that did not change are not
    /// disturbed, nor are the stream and the rovers of a station where what changed does not
    /// concern them. std::runtime_error where the state folder, the certificate or, at first, a
    /// listener cannot be used: then nothing has changed. Later a listener is told and tried again.
    void apply(const Settings& settings, std::shared_ptr<Users> users);
    /// Returns at once; then it is to be kept until it is idle.
    void stop();
    bool idle() const;

private:
    /// A station with its outputs.
    struct Served {
        std::size_t number = 0;                   // in the order of the settings
        std::shared_ptr<const StateFolder> state; // as long as an engine writes there
        std::shared_ptr<Station> station;
        std::vector<std::unique_ptr<Push>> pushes, ending;
        void stop();
        bool idle() const;
    };
    std::shared_ptr<Station> find(const std::string& mountpoint) const override;
    std::vector<ntrip::StreamEntry> table(Instant now) const override;
    void forEach(const std::function<void(Station&)>& take) const override;
    bool goesOn(const Served& served, const StationSettings& wanted, std::size_t number) const;
    std::unique_ptr<Served> serve(const StationSettings& settings, std::size_t number) const;
    std::shared_ptr<const StateFolder> folderAt(const std::filesystem::path& path) const;
    void setPushes(Served& served) const;
    std::optional<ntrip::StreamEntry> tableEntry(const Station& station, Instant now) const;
    awaitable<void> ticks();

    asio::any_io_executor executor_;
    Settings settings_;
    std::shared_ptr<const StateFolder> state_;
    bool began_ = false;
    std::map<std::string, std::unique_ptr<Served>> stations_; // by name
    std::list<std::unique_ptr<Served>> stopping_;
    Caster caster_;
    Notifier notifier_;
    Overview overview_;
    WebServer web_;
    Tasks tasks_;
};

} // namespace gateway
