/// A service in memory: what the tests of the road need instead of configuration files.
#pragma once

#include "app/Service.h"
#include "config/Deploy.h"
#include "gnss/ComFreq.h"
#include "session.h"

#include <unistd.h>
#include <utility>

inline constexpr const char* kAllFrequencies =
    "GPS:L1_L2_L5 GLS:L1_L2 GAL:E1_E5a_E5b_E6 BDS:B1_B2b_B3 QZS:L1_L2_L5";

/// A leap-second file that reaches from 2017 to 2030; one for each test process.
inline const std::string& leapSecondFile() {
    static const std::string path = [] {
        std::string name = testing::TempDir() + "kestrune_leapsec_" + std::to_string(getpid());
        std::ofstream(name) << "+leap sec\n 57754 37\n 62502 37\n-leap sec\n";
        return name;
    }();
    return path;
}

/// Configures satellites, frequencies, one station and leap seconds; everything else is empty.
inline void configure(Service& service,
                      const std::vector<std::string>& satellites = allSatellites(),
                      const std::string& frequencies = kAllFrequencies,
                      const ref::Vec3& site = kSite) {
    DeployConfig& record = service.record;
    record = {};
    record.tables.leapsc = leapSecondFile();
    Findings findings;
    m_parseFrequency(record.frequencies, frequencies, "", "", findings);
    for (const std::string& name : satellites) {
        SatelliteRecord satellite;
        satellite.cprn = name;
        updateSatfreq(satellite, record.carriersOf(satellite));
        record.satelliteNames.push_back(name);
        record.satellites.push_back(std::move(satellite));
    }
    StationRecord station;
    station.name = "STR2";
    station.xyz = {site[0], site[1], site[2]};
    record.stations.push_back(station);
    record.stationNames.push_back("STR2");
    RequestRecord request;
    request.name = "VRS0";
    request.requestWord = -1;
    record.requests.push_back(request);
    record.indexSatellites();
    service.prepareSession();
}

/// A service of these satellites; for fixtures of tests that need one.
struct Configured {
    explicit Configured(const std::vector<std::string>& satellites = allSatellites(),
                        const std::string& frequencies = kAllFrequencies,
                        const ref::Vec3& site = kSite) {
        configure(service, satellites, frequencies, site);
    }
    void read(const ref::Bytes& bytes) {
        StreamReader(service.intake, 0, bytes.data(), static_cast<int>(bytes.size()));
    }
    std::size_t indexOf(const std::string& name) const {
        return static_cast<std::size_t>(record.satelliteNamed(name));
    }
    VrsSources sources() { return service.sources(); }

    const std::unique_ptr<Service> owned = std::make_unique<Service>();
    Service& service = *owned;
    DeployConfig& record = service.record;
    EphemerisStore& store = service.intake.ephemerides;
};
