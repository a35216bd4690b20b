#pragma once

#include "gateway/app/Notifier.h"
#include "gateway/caster/Caster.h"
#include "gateway/station/Station.h"
#include "gateway/watch/Alarms.h"
#include "gateway/watch/EventLog.h"
#include "gateway/web/Reports.h"
#include "gateway/web/WebServer.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Overview: all stations as the page, programs and alarms see them.

namespace gateway {

class Overview final : public WebView {
public:
    Overview(const EventLog& log, const Stations& stations, Notifier& notifier);

    void apply(const Settings& settings);
    /// Once a second: looks for what is wrong.
    void tick(Instant now);
    void setListeners(std::size_t count) { listeners_ = count; }

    std::string fleetHead() const override;
    std::string alarms() const override { return alarmsJson(alarms_.now()); }
    std::map<std::string, std::string> summaries() const override;
    std::optional<std::string> station(const std::string& name) const override;
    std::optional<std::string> events(const std::optional<std::string>& station) const override;
    std::string metrics() const override;
    std::vector<std::string> untried() const override;

private:
    struct Watched {
        Instant startedAt; // of the station, whose counts begin with it
        Repeated engineFailures, roversCut;
        std::string few, gone; // what was wrong when it was last looked at
    };

    /// By its name; null where there is none.
    Station* find(const std::string& name) const;
    void lookAt(Station& station, Instant now);
    static std::optional<std::string> wrongEpochs(const Station& station, Instant now);
    void lookAtSatellites(Watched& watched, Station& station, Instant now) const;
    void lookAtGateway(Instant now);
    std::string wrongCertificate();
    std::string wrongDisk() const;
    std::string wrongLeapSeconds() const;
    Totals totals() const;
    StationRow rowOf(const Station& station) const;

    const EventLog& log_;
    const Stations& stations_;
    Settings settings_;
    Alarms alarms_;
    std::map<std::string, Watched> watched_;
    unsigned ticks_ = 0;
    std::string certificate_, disk_, leapSeconds_;            // what is wrong
    std::optional<std::chrono::nanoseconds> certificateTime_; // of the file that is in use
    std::size_t listeners_ = 0;
};

} // namespace gateway
