#include "configured.h"

#include "reference/service/predict.h"
#include "reference/standard/msm.h"
#include "vrs/Generator.h"
#include "vrs/Sight.h"
#include "vrs/VirtualStation.h"
#include "vrs/VrsEncoder.h"
#include "vrs/VrsMain.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>

namespace {

using ref::Bytes;

/// Ephemerides of the generated sky in the store; epochs are set by hand.
class Virtual : public testing::Test, protected Configured {
protected:
    void SetUp() override {
        for (SatelliteRecord& satellite : record.satellites)
            if (satellite.cprn[0] == 'R')
                satellite.glonassChannel = 3;
        testing::internal::CaptureStdout();
        for (const Bytes& f : sky.ephemerisFrames(kNow))
            read(f);
        testing::internal::GetCapturedStdout();
        request = record.requests[0];
        const ref::Vec3 v = ref::virtualPoint(kSite);
        const ref::Geodetic g = ref::toGeodetic(v);
        request.xyz = {v[0], v[1], v[2]};
        request.blh = {g.lat, g.lon, g.heightM};
        request.distanceM = 299.4;
        VrsObsPack_Initial(*reference);
        reference->xyz = record.stations[0].xyz;
        setEpoch(kNow);
    }
    void setEpoch(ref::GpsTime t) {
        const MjdTime day = wksow2mjd(t.week, t.sow);
        record.currentMjd = day.mjd;
        record.currentSod = day.sod;
        reference->mjd = day.mjd;
        reference->sod = day.sod;
    }
    SlotObs& observe(const std::string& name, std::size_t slot = 0, const char* type = "1C") {
        SlotObs& obs = reference->obs.slot(indexOf(name), slot);
        obs = {1.2e8, 2.3e7, 44.0, 500.0F, obs2code(type), obs2code(type)};
        return obs;
    }
    std::string generate() {
        testing::internal::CaptureStdout();
        VrsBaseStation base;
        base.xyz = record.stations[0].xyz;
        VrsGenerator_s_genVirtualObs(service.station, sources(), base, request);
        return testing::internal::GetCapturedStdout();
    }
    const SlotObs& got(const std::string& name, std::size_t slot = 0) {
        return out->obs.at(indexOf(name), slot);
    }
    bool answered(const std::string& name) { return out->obs.has(indexOf(name)); }
    ref::RangeChange truth(const std::string& name, ref::GpsTime t = kNow) {
        return ref::rangeChange(navigation.satellite(name), kSite, ref::virtualPoint(kSite), t);
    }
    /// Range of the reference on the service's own orbit, at a transmit time that is iterated far
    /// beyond need. A nanosecond is a micrometre of it.
    double rangeOfOrbit(std::size_t satellite) {
        const auto rangeM = [](const OrbitState& s, const Vector3& p) {
            return std::hypot(s[0] - p[0], s[1] - p[1], s[2] - p[2]) +
                   ref::kEarthRate / ref::kLightSpeed * (s[0] * p[1] - s[1] * p[0]);
        };
        OrbitState state{};
        for (double lightTimeS = 0.07, pass = 0; pass < 20; ++pass) {
            int index = 0;
            VrsBaseStation_v_readOrbit(sources().orbits(), satellite, reference->mjd, state, index,
                                       reference->sod - lightTimeS);
            lightTimeS = rangeM(state, request.xyz) / ref::kLightSpeed;
        }
        return rangeM(state, reference->xyz);
    }
    /// Satellites of a system in view, by the independent geometry.
    std::vector<std::string> inView(char system) {
        std::vector<std::string> names;
        for (const std::string& name : record.satelliteNames)
            if (name[0] == system &&
                (navigation.kepler.contains(name) || navigation.glonass.contains(name)) &&
                truth(name).direction.elevationDeg > 6.0)
                names.push_back(name);
        return names;
    }

    ref::Sky sky{kSite};
    const ref::Navigation navigation = asServed(sky.navigation(kNow));
    const FixedClock clock{kNow};
    RequestRecord request;
    VrsObsPack* const reference = &service.station.reference;
    VrsObsPack* const out = &service.station.answer;
};

} // namespace

TEST_F(Virtual, ObservationsDifferByTheChangeOfRangeAtTheVirtualTransmitTime) {
    int compared = 0;
    for (const char system : std::string("GRECJ")) {
        for (const std::string& name : inView(system)) {
            observe(name, 0, "1C");
            observe(name, 1, "2C");
        }
    }
    generate();
    for (const std::size_t i : reference->obs.written()) {
        const std::string& name = record.satelliteNames[i];
        const ref::RangeChange change = truth(name);
        const auto system = static_cast<std::size_t>(index_string(kSystems, name[0]));
        for (std::size_t k = 0; k < 2; ++k) {
            const double hz = freqbytp(record.satellites[i], record.frequencies[system][k],
                                       record.streamedChannels());
            EXPECT_NEAR(got(name, k).range - 2.3e7, change.deltaM, 2e-5) << name;
            EXPECT_NEAR((got(name, k).phase - 1.2e8) * ref::kLightSpeed / hz, change.deltaM, 2e-5)
                << name;
            EXPECT_EQ(got(name, k).cn0, 44.0);
            ++compared;
        }
        EXPECT_NEAR(reference->referenceRange[i], change.rangeRefM, name[0] == 'R' ? 0.02 : 0.6);
        EXPECT_NEAR(reference->referenceRange[i], rangeOfOrbit(i), 3e-6) << name;
        EXPECT_EQ(got(name, 1).rangeType, obs2code("2C"));
    }
    EXPECT_GT(compared, 60);
    EXPECT_EQ(out->name, "VRS0");
    EXPECT_EQ(out->xyz, request.xyz);
    EXPECT_EQ(out->reply.stationId, -1);
}

TEST_F(Virtual, DopplerFollowsTheRateOfTheChangeOfRange) {
    const std::string name = inView('G').at(0);
    const auto dopplerAt = [&](double ahead) {
        reference->obs.clear();
        observe(name);
        setEpoch(kNow + ahead);
        generate();
        return got(name).doppler;
    };
    const auto change = [&](double from, double to) {
        return (truth(name, kNow + to).deltaM - truth(name, kNow + from).deltaM) / (to - from) *
               1575420000.0 / ref::kLightSpeed;
    };
    EXPECT_NEAR(dopplerAt(0), 500.0, 1e-4); // no history: divided by a very large age
    EXPECT_NEAR(dopplerAt(1), 500.0 + change(0, 1), 2e-4);
    EXPECT_NEAR(dopplerAt(6), 500.0 + change(1, 6), 2e-4);
    EXPECT_EQ(dopplerAt(6), 500.0F); // the same time again: no correction, no division by zero
    // Unobserved for more than 30 s: the history restarts from a difference of 0.
    reference->obs.clear();
    setEpoch(kNow + 40.0);
    generate();
    EXPECT_EQ(service.station.history[indexOf(name)].drleng, 0.0);
    EXPECT_NEAR(dopplerAt(41),
                500.0 + truth(name, kNow + 41.0).deltaM / 35.0 * 1575420000.0 / ref::kLightSpeed,
                2e-4);
}

/// Whether a history forecasts well, or without sense: what comes out is what the iteration gives,
/// to the last bit, also of satellites that hardly move against the ground.
TEST_F(Virtual, LightTimesThatWereForecastAreThoseOfTheIteration) {
    for (const std::string name : {"G07", "R07", "E07", "J02", "C08", "C01", "C03", "J07"}) {
        const std::size_t i = indexOf(name);
        using Points = std::array<SightPoint, 2>;
        const auto solve = [&](LightTimes& history) {
            Points points{{{request.xyz, request.xyz}, {reference->xyz, reference->xyz}}};
            OrbitState state{};
            EXPECT_EQ(solveLightTime(sources().orbits(), i, *reference, points, state, history),
                      LightTime::found);
            return std::pair(state, points);
        };
        const auto comesOutOf = [&](LightTimes history) {
            LightTimes none;
            const auto [state, points] = solve(none);
            const auto [forecastState, forecast] = solve(history);
            EXPECT_EQ(forecastState, state) << name;
            EXPECT_EQ(forecast[0].rangeM, points[0].rangeM) << name;
            EXPECT_EQ(forecast[1].rangeM, points[1].rangeM) << name;
            return std::pair(history, points[0].lightTimeS + points[0].deltaS);
        };
        const bool still = name[0] == 'C' ? name < "C06" : name == "J07";
        LightTimes history;
        double sinceS = 0.0;
        for (int epoch = 0; epoch < 50; ++epoch, sinceS += epoch < 30 ? 1.0 : 5.0) {
            setEpoch(kNow + sinceS);
            const double forecastS = history.at({reference->mjd, reference->sod});
            const auto [next, lightTimeS] = comesOutOf(history);
            if (epoch > 1) {
                EXPECT_NEAR(forecastS, still ? 0.0 : lightTimeS, 1e-12) // orbits tell 6e-11 s apart
                    << name << ' ' << epoch;
            }
            history = next;
        }
        // Times that repeat, go back and jump; an orbit that changes within a millisecond.
        for (const double laterS :
             {1.0, 1.0, 0.5, 20.0, 21.0, 99.0, 100.0, 100.001, 101.0, 102.0}) {
            if (laterS == 100.001) {
                const auto slot = static_cast<std::size_t>(store.slotOf[i]);
                (name[0] == 'R' ? store.glonass[slot].posKm[0] : store.kepler[slot].sqrtA) += 50.0;
            }
            setEpoch(kNow + sinceS + laterS);
            history = comesOutOf(history).first;
        }
        const MjdTime now{reference->mjd, reference->sod};
        for (const double wrongS : {1e-10, -1e-7, 1e-3, -0.05, 1e9, std::nan("")}) {
            LightTimes wrong;
            wrong.add({now.mjd, now.sod - 1.0}, 0.08 + wrongS, 1e-6);
            comesOutOf(wrong);
            wrong.add({now.mjd, now.sod - 0.999}, 0.08, 1e-6);
            EXPECT_LT(wrong.at(now), 1.0) << wrongS; // no orbit is computed for years ago
            comesOutOf(wrong);
        }
    }
}

TEST_F(Virtual, SatellitesBelowFiveDegreesOrWithoutOrbitAreLeftOut) {
    std::string expected;
    for (const std::string& name : record.satelliteNames) {
        if (!navigation.kepler.contains(name) || name[0] != 'G')
            continue;
        observe(name);
        if (const double elevation = truth(name).direction.elevationDeg;
            elevation < 5.0 && name != "G03" && name != "G02")
            expected +=
                text("***WARN(Generator): %s elevation is lower than cutoff(5)! elev=%.2lf\n",
                     name.c_str(), elevation);
    }
    store.kepler[2].tocMjd = 0;  // G03
    store.kepler[1].sqrtA = 0.0; // G02: no orbit at all
    const std::string printed = generate();
    EXPECT_TRUE(contains(printed, "G03 doesn't have ephemeris!"));
    EXPECT_TRUE(contains(printed, "***WARN(Generator): G02 position not convergence! ddelay="));
    EXPECT_FALSE(answered("G03") || answered("G02"));
    std::string cutoffs;
    std::istringstream lines(printed);
    for (std::string line; std::getline(lines, line);)
        if (contains(line, "elevation"))
            cutoffs += line + "\n";
    EXPECT_EQ(cutoffs, expected);
    EXPECT_FALSE(expected.empty());
    for (const std::string& name : inView('G'))
        EXPECT_TRUE(answered(name) || name == "G03" || name == "G02") << name;
}

TEST_F(Virtual, SatellitesComeAndGoAtFiveDegrees) {
    const auto above = [&](const std::string& name, double ahead) {
        return truth(name, kNow + ahead).direction.elevationDeg > 5.0;
    };
    int crossings = 0;
    for (const std::string& name : record.satelliteNames) {
        if (!navigation.kepler.contains(name) || above(name, -600.0) == above(name, 600.0))
            continue;
        double before = -600.0;
        for (double step = 600.0; step > 0.01; step /= 2.0) // s; degrees go by at 0.008 a second
            if (above(name, before + step) == above(name, -600.0))
                before += step;
        for (const double ahead : {before - 0.2, before + 0.2}) {
            reference->obs.clear();
            observe(name);
            setEpoch(kNow + ahead);
            generate();
            EXPECT_EQ(answered(name), above(name, ahead)) << name << ' ' << ahead;
        }
        ++crossings;
    }
    EXPECT_GE(crossings, 3);
}

TEST_F(Virtual, AbsentValuesStayAbsent) {
    const std::string name = inView('E').at(0);
    observe(name, 0).range = 0.0;
    observe(name, 2).phase = 0.0;
    const std::string rangesOnly = inView('E').at(1);
    observe(rangesOnly, 0).phase = 0.0; // ranges alone do not make a satellite observed
    generate();
    EXPECT_TRUE(got(name).phase != 0.0 && got(name).range == 0.0);
    EXPECT_TRUE(got(name, 2).phase == 0.0 && got(name, 2).range != 0.0);
    EXPECT_TRUE(got(rangesOnly).range == 0.0);
}

TEST_F(Virtual, BeyondFiveKilometresTheReferenceSpeaksForItself) {
    const std::string name = inView('G').at(0);
    struct Case {
        double distanceM;
        bool post;
        bool raw;
    };
    for (const Case& c :
         {Case{5000.0, false, false}, Case{5000.001, false, true}, Case{5000.001, true, false}}) {
        reference->obs.clear();
        observe(name);
        request.distanceM = c.distanceM;
        record.post = c.post;
        const std::string printed = generate();
        EXPECT_EQ(
            contains(printed,
                     "***WARN: VRS offset distance(      5000.001) too long, using raw obs!\n"),
            c.raw);
        EXPECT_EQ(got(name).range == 2.3e7, c.raw);
        EXPECT_EQ(out->xyz, c.raw ? record.stations[0].xyz : request.xyz);
        EXPECT_EQ(out->mjd, reference->mjd);
        EXPECT_EQ(out->reply.stationId, -1);
    }
}

TEST_F(Virtual, StationStandsItsFixedOffsetNorth) {
    record.requests.push_back({.name = "VRS1", .requestWord = -2}); // the first one is answered
    std::array<std::uint8_t, kReplyBytes> reply{};
    testing::internal::CaptureStdout();
    const int length = service.answer(0, reply);
    testing::internal::GetCapturedStdout();
    const ref::Reply opened =
        ref::openReply(std::span(reply).first(static_cast<std::size_t>(length)));
    EXPECT_EQ(opened.word, 0xFFFFFFFFU);
    EXPECT_EQ(opened.kind, 6);
    ASSERT_EQ(opened.messages.size(), 2U); // no observations: 1005 and 1033 alone
    const ref::Station1005 s = ref::read1005(opened.messages[0].body);
    EXPECT_EQ(s.station, 4095);
    EXPECT_LT(norm(s.xyzM - ref::virtualPoint(kSite)), 1.5e-4);
    const ref::Text1033 t = ref::read1033(opened.messages[1].body);
    EXPECT_EQ(t.antenna, "GPPNULLANTENNA");
    EXPECT_EQ(t.receiverSerial, "KRV VRS");
    EXPECT_EQ(t.station, 4095);
    EXPECT_EQ(t.antennaSerial + t.receiver + t.firmware, "");
    EXPECT_EQ(t.setup, 0);
}

TEST_F(Virtual, StationWithoutUsableReferenceCoordinatesIsNotAnsweredButSaved) {
    record.rawSave = true;
    service.folder.path = testing::TempDir();
    setEpoch(kNow);
    const std::string file = service.folder.path + "/str21930.18o";
    std::filesystem::remove(file);
    std::uintmax_t size = 0;
    for (const double bad : {0.0, std::nan(""), HUGE_VAL}) {
        record.stations[0].xyz[1] = bad;
        record.stationEpochs[0].obs.slot(0, 0).phase = 1e8;
        record.stationEpochs[0].name = "STR2";
        std::array<std::uint8_t, kReplyBytes> reply{};
        testing::internal::CaptureStdout();
        EXPECT_EQ(service.answer(0, reply), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "***WARN: STR2 has no usable coordinates, epoch is not answered!\n"
                  "outfile: " +
                      file + "\n");
        EXPECT_GT(std::filesystem::file_size(file), size);
        size = std::filesystem::file_size(file);
        EXPECT_TRUE(record.stationEpochs[0].obs.written().empty());
    }
    std::filesystem::remove(file);
}

namespace {

/// The reply's encoder on a pack made by hand.
class ReplyFrame : public testing::Test, protected Configured {
protected:
    void SetUp() override {
        VrsObsPack_Initial(*pack);
        pack->mjd = 58311;
        pack->sod = 85032.0;
        pack->reply.stationId = -1;
    }
    void add(const std::string& name, std::size_t slot, const char* type, double phase = 1.2e8,
             double range = 2.3e7) {
        pack->obs.slot(indexOf(name), slot) = {phase, range, 44.6, 0.0F, obs2code(type), 0};
    }
    /// Types and multiple-message bits, such as "1074+ 1124-".
    std::string encode() {
        testing::internal::CaptureStdout();
        const auto bytes = VrsEncoder_m_encodeReply(encoder, *pack, 7);
        printed = testing::internal::GetCapturedStdout();
        reply = ref::openReply(bytes);
        std::string out;
        messages.clear();
        for (std::size_t i = 2; i < reply.messages.size(); ++i) {
            messages.push_back(ref::readMsm(reply.messages[i].body));
            out += std::to_string(messages.back().type) + (messages.back().more ? "+ " : "- ");
        }
        return out;
    }
    const ReplyEncoder encoder{service.station.encoders, record, record};
    VrsObsPack* const pack = &service.station.answer;
    std::string printed;
    ref::Reply reply;
    std::vector<ref::Msm> messages;
};

} // namespace

TEST_F(ReplyFrame, SendsEachSystemOnceAndMarksAllButTheLast) {
    add("G05", 0, "1C");
    pack->obs.slot(indexOf("G05"), 0).cn0 = 44.4996;
    EXPECT_EQ(encode(), "1074- ");
    add("J02", 0, "1C");
    EXPECT_EQ(encode(), "1074+ 1114- ");
    add("C17", 0, "2I");
    EXPECT_EQ(encode(), "1074+ 1124+ 1114- ");
    add("C16", 0, "2I");
    add("E07", 0, "1X");
    add("R03", 0, "1P");
    EXPECT_EQ(encode(), "1074+ 1124+ 1124+ 1094+ 1084+ 1114- ");
    EXPECT_EQ(messages[1].cells.at(0).sat, "C16");
    EXPECT_EQ(messages[2].cells.at(0).sat, "C17");
    EXPECT_EQ(printed, "send nsats: G=1, R=1, E=1, C2=1, C3=1, J=1 #Total=6\n");
    EXPECT_EQ(reply.word, 7U);
    for (const ref::Msm& m : messages)
        EXPECT_EQ(m.station, 4095);
    EXPECT_EQ(messages[1].cells.at(0).cnr, 45.0); // 44.6, rounded half up
    EXPECT_EQ(messages[0].cells.at(0).cnr, 44.0); // 44.4996, cut to 44.499 before
}

TEST_F(ReplyFrame, CarriesOnlyTheSignalsOfItsTable) {
    add("G05", 0, "1C");
    add("G05", 1, "2X");
    add("G05", 2, "5Q");
    add("R03", 0, "1C"); // not carried: the satellite counts, its message stays empty
    add("E07", 0, "1X");
    add("E07", 1, "5X");
    add("E07", 2, "7X");
    add("E07", 3, "6X");
    add("C06", 0, "2I");
    add("C06", 1, "5P"); // accepted, but without a signal number
    EXPECT_EQ(encode(), "1074+ 1124+ 1094+ 1084- ");
    const auto signals = [&](std::size_t i) {
        std::string out;
        for (const ref::Cell& c : messages.at(i).cells)
            out += c.signal + " ";
        return out;
    };
    EXPECT_EQ(signals(0), "1C 5Q ");
    EXPECT_EQ(signals(1), "2I ");
    EXPECT_EQ(signals(2), "1X 6X 7X 5X ");
    EXPECT_EQ(signals(3), "");
    EXPECT_EQ(printed, "send nsats: G=1, R=1, E=1, C2=1, C3=0, J=0 #Total=4\n");
}

TEST_F(ReplyFrame, TakesGlonassChannelsThatTheStreamBrought) {
    record.stationEpochs[0].glonassChannels[2] = 5 + 8;
    add("R03", 0, "1P", 2.3e7 * (1602e6 + 5 * 562500.0) / ref::kLightSpeed);
    add("R04", 0, "1P");
    encode();
    EXPECT_NEAR(messages.at(0).cells.at(0).phaseRangeM.value_or(0), 2.3e7, 0.001);
    EXPECT_FALSE(messages.at(0).cells.at(1).phaseRangeM);
}

TEST_F(ReplyFrame, DropsValuesUpToAMillion) {
    add("G05", 0, "1C", 1e6, 2.3e7);
    add("G05", 1, "2W", 1.2e8, 1e6);
    add("G05", 2, "5Q", -1000001.0, 2.3e7);
    encode();
    ASSERT_EQ(messages.at(0).cells.size(), 1U);
    EXPECT_EQ(messages[0].cells[0].signal, "5Q");
}

TEST_F(ReplyFrame, LooksAtTheConfiguredFrequenciesOfBds3Alone) {
    configure(service, allSatellites(), "BDS:B1_B2b");
    for (const char* const name : {"C10", "C30"}) {
        add(name, 0, "2I");
        add(name, 1, "7I");
        add(name, 2, "6I");
    }
    encode();
    EXPECT_EQ(messages.at(0).cells.size(), 3U);
    EXPECT_EQ(messages.at(1).cells.size(), 2U);
}

TEST_F(ReplyFrame, RefusesWhatDoesNotFitItsFrame) {
    // Every satellite with every signal: a message has 64 cells at most, so all of them together
    // stay below the limits. The area is moved instead.
    const std::map<char, std::vector<const char*>> signals{{'G', {"1C", "2W", "5Q"}},
                                                           {'R', {"1P", "2P"}},
                                                           {'E', {"1X", "5X", "7X", "6X"}},
                                                           {'C', {"2I", "6I", "7I", "1P"}},
                                                           {'J', {"1C", "2X", "5Q"}}};
    for (const std::string& name : record.satelliteNames)
        if (const auto it = signals.find(name[0]); it != signals.end())
            for (std::size_t slot = 0; slot < it->second.size(); ++slot)
                add(name, slot, it->second[slot]);
    testing::internal::CaptureStdout();
    const auto largest = VrsEncoder_m_encodeReply(encoder, *pack, 7);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(ref::openReply(largest).messages.size(), 8U);
    EXPECT_TRUE(largest.size() > 2000 && largest.size() <= 4096) << largest.size();
    pack->obs.clear();
    add("G05", 0, "1C");
    testing::internal::CaptureStdout();
    const auto whole = VrsEncoder_m_encodeReply(encoder, *pack, 7);
    const int block = static_cast<int>(whole.size()) - 14;
    for (const int start : {4096 - block, 4096 - block + 1}) {
        int bits = 8 * start;
        testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        const int done = VrsEncoder_m_encodeRtcm_ex(encoder, *pack, bits);
        const bool fits = start + block <= 4096;
        EXPECT_EQ(done, fits ? 1 : 0);
        EXPECT_EQ(bits, 8 * (fits ? 4096 : start));
        if (!fits) {
            EXPECT_EQ(testing::internal::GetCapturedStdout(),
                      text("nbyte = %d,buff size is large than the allocated 4096", block));
            testing::internal::CaptureStdout();
        }
    }
    testing::internal::GetCapturedStdout();
}
