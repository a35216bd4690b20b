#include "check.h"
#include "configured.h"

#include "base/ComText.h"
#include "reference/standard/legacy.h"
#include "reference/standard/msm.h"
#include "reference/standard/station.h"

namespace {

using ref::Bytes;

/// A message of one satellite with the signal 1C or its like.
struct Sent {
    char system;
    double atS; // epoch, from kNow on
    bool more;  // messages of the epoch follow
    int station = 1;
    int satellite = 1;
    bool cut = false;  // its body ends too early
    double offS = 0.0; // of its clock field
    bool legacy = false;
};

Bytes frameOf(const Sent& s) {
    ref::Msm m;
    m.system = s.system;
    m.msm = 4;
    m.station = s.station;
    m.more = s.more;
    m.epochField = ref::epochField(s.system, kNow + s.atS + s.offS);
    ref::Cell cell;
    cell.system = s.system;
    cell.id = s.satellite;
    cell.signal = ref::signalOf(s.system, 2);
    cell.pseudorangeM = 2.2e7;
    cell.phaseRangeM = 2.2e7;
    m.cells = {cell};
    const Bytes whole =
        ref::frame(s.legacy ? ref::writeLegacy(s.system, s.station, m.epochField, s.more, m.cells)
                            : ref::writeMsm(m));
    return s.cut ? cut(whole, 12) : whole;
}

/// Epochs that the intake of a complete answer gives: systems in order, time from kNow on, such as
/// "GE@0".
class Epochs {
public:
    /// With a clock that is off by so many hours.
    explicit Epochs(double clockOffH = 0.0) : clock_(kNow + 3600.0 * clockOffH) {
        c.record.answering.complete = true;
        c.service.intake.onrtcm = [this](std::uint32_t status, const std::uint8_t*, std::int32_t) {
            if (status == kEpoch)
                add(c.service.intake.run.epoch());
        };
    }
    /// What the messages bring, behind one another.
    std::string of(const std::vector<Sent>& messages) {
        out_.clear();
        const std::string printed = check::printed([&] {
            for (const Sent& s : messages)
                c.read(frameOf(s));
        });
        lines.clear();
        for (const std::string& line : split_string(EmptyFields::drop, printed, ' ', ' ', '\n'))
            if (contains(line, "WARN"))
                lines += line + "\n";
        return out_;
    }
    Configured c;
    std::string lines;

private:
    void add(const ReceivedEpoch& epoch) {
        if (!out_.empty())
            out_ += ' ';
        for (const ReceivedMessage& m : epoch.messages())
            out_ += isLegacy(m.head.type) ? 'L' : "GRESJCI"[(m.head.type - 1070) / 10];
        const WeekTime t = time2gpst(epoch.time);
        out_ += text("@%g", t.sow - kNow.sow);
    }
    const FixedClock clock_;
    std::string out_;
};

} // namespace

TEST(EpochRun, EndsByItsEndByTheNextNumberOrByTheNextTime) {
    const struct {
        const char* what;
        std::vector<Sent> messages;
        const char* epochs;
    } cases[] = {
        {"whole", {{'G', 0, true}, {'R', 0, true}, {'C', 0, false}}, "GRC@0"},
        {"no end, next number", {{'G', 0, true}, {'G', 1, true}, {'E', 1, false}}, "G@0 GE@1"},
        {"no end, next time", {{'G', 0, true}, {'E', 1, false}}, "G@0 E@1"},
        {"a number in two messages", {{'C', 0, true}, {'C', 0, false, 1, 2}}, "CC@0"},
        {"a cell in two messages", {{'C', 0, true}, {'C', 0, false}}, "C@0 C@0"},
        {"legacy, other satellites",
         {{'G', 0, true, 1, 1, false, 0, true}, {'G', 0, false, 1, 2, false, 0, true}},
         "LL@0"},
        {"legacy, the same satellite",
         {{'G', 0, true, 1, 1, false, 0, true}, {'G', 0, false, 1, 1, false, 0, true}},
         "L@0 L@0"},
        {"refused, as the last one", {{'G', 0, true}, {'E', 0, false, 1, 1, true}}, "G@0"},
        {"refused of a number that is there",
         {{'G', 0, true}, {'G', 0, true, 1, 2, true}, {'E', 0, false}},
         "G@0 E@0"},
        {"refused, its number's second part is not",
         {{'G', 0, true}, {'C', 0, true, 1, 1, true}, {'C', 0, true, 1, 2}, {'E', 0, false}},
         "GCE@0"},
        {"dated by GPS wherever it stands", {{'R', 0, true}, {'G', 0, false}}, "RG@0"},
        {"SBAS with time of day", {{'S', -259200, true}, {'G', 0, false}}, "SG@0"},
        {"nothing that dates it", {{'S', 0, false}}, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Epochs().of(row.messages), row.epochs);
    }
    Epochs refused;
    refused.of({{'G', 0, true}, {'E', 0, false, 1, 1, true}});
    EXPECT_TRUE(contains(refused.lines, "***WARN(StreamObs): message 1094 refused, epoch time "));
    Epochs again;
    EXPECT_EQ(again.of({{'G', 0, true}}), "");
    StreamObs_m_restart(again.c.service.intake);
    EXPECT_EQ(again.of({{'E', 0, false}}), "E@0") << "a new connection";
}

TEST(EpochRun, LearnsAClockThatIsOffByAConstant) {
    Epochs epochs;
    const auto epoch = [](double at, double off) {
        return std::vector<Sent>{{'G', at, true}, {'C', at, false, 1, 1, false, off}};
    };
    EXPECT_EQ(epochs.of(epoch(0, -14)), "G@0 C@-14");
    EXPECT_EQ(epochs.of(epoch(1, -14)), "G@1 C@-13");
    EXPECT_EQ(epochs.lines, "");
    EXPECT_EQ(epochs.of(epoch(2, -14)), "G@2 C@-12");
    EXPECT_EQ(epochs.lines, "***WARN(StreamObs): times of BDS are -14.000 s beside those of GPS, "
                            "taken as the same!\n");
    EXPECT_EQ(epochs.of(epoch(3, -14)), "GC@3");
    EXPECT_EQ(epochs.of({{'C', 4, false, 1, 1, false, -14}}), "C@4") << "alone, at its true time";
    EXPECT_EQ(epochs.of(epoch(5, 0)), "G@5 C@19") << "the receiver was mended";
    EXPECT_EQ(epochs.of(epoch(6, 0)) + epochs.of(epoch(7, 0)), "G@6 C@20G@7 C@21");
    EXPECT_EQ(epochs.of(epoch(8, 0)), "GC@8");

    Epochs twice; // a message that comes again ends its run, and nothing else is wrong
    for (double at = 0; at < 3; ++at) {
        std::vector<Sent> sent = epoch(at, -14);
        sent.insert(sent.begin(), sent.front());
        EXPECT_EQ(twice.of(sent), text("G@%g G@%g C@%g", at, at, at - 14));
    }
    EXPECT_NE(twice.lines, "") << "learned in the third one";

    Epochs lost; // ends: what follows is of the next epoch
    for (double at = 0; at < 6; at += 2)
        lost.of({{'G', at, true}, {'R', at + 1, true}, {'G', at + 1, false}});
    EXPECT_EQ(lost.lines, "");
    EXPECT_EQ(lost.of({{'G', 8, true}, {'R', 9, false}}), "G@8 R@9");
}

TEST(EpochRun, HasTheDaysOfGlonassFromTheOtherSystems) {
    const std::vector<Bytes> sent = ref::Sky(kSite).ephemerisFrames(kNow);
    const auto glonass =
        std::ranges::find_if(sent, [](const Bytes& frame) { return messageType(frame) == 1020; });
    ASSERT_NE(glonass, sent.end());
    for (const double off : {-30.0, -13.0, 13.0, 30.0}) {
        Epochs epochs(off);
        EXPECT_EQ(epochs.of({{'G', 0, true}, {'R', 0, false}}), "GR@0") << off;
        EXPECT_EQ(epochs.of({{'R', 1, true}, {'S', -86400, true}, {'E', 1, false}}), "RSE@1");
        epochs.c.read(*glonass);
        const auto held = std::ranges::find_if(epochs.c.store.glonass,
                                               [](const GLSEPH& e) { return e.mjd != 0; });
        ASSERT_NE(held, epochs.c.store.glonass.end());
        const MjdTime now = wksow2mjd(kNow.week, kNow.sow);
        EXPECT_LE(std::fabs(timdif(held->mjd, now.mjd, held->sod, now.sod)), 1800.0) << off;
    }
}

TEST(EpochRun, IsOfOneStation) {
    Epochs epochs;
    EXPECT_EQ(
        epochs.of({{'G', 0, true, 7}, {'G', 0, true, 8}, {'R', 0, false, 8}, {'R', 0, false, 7}}),
        "GR@0");
    EXPECT_EQ(epochs.lines, "***WARN(StreamObs): messages of station 8 are refused, the stream is "
                            "station 7's!\n");
    EXPECT_EQ(epochs.of({{'G', 1, false, 8}, {'G', 2, false, 8}, {'G', 2, false, 7}}), "G@2");
    EXPECT_EQ(epochs.of({{'G', 3, false, 8}, {'G', 4, false, 8}, {'G', 5, true, 8}}), "");
    EXPECT_EQ(epochs.of({{'G', 6, true, 8}}), "") << "the third one ended without its end";
    EXPECT_EQ(epochs.lines, "***WARN(StreamObs): station 7 is gone, the stream is station 8's!\n");
    EXPECT_EQ(epochs.of({{'R', 6, false, 8}, {'G', 7, false, 8}, {'G', 7, false, 7}}), "R@6 G@7");
    // Of station 7 an end, an epoch that lost its end and one that lost its begin.
    EXPECT_EQ(epochs.of({{'G', 9, true, 7}, {'R', 12, false, 7}}), "");
    EXPECT_EQ(epochs.lines, "***WARN(StreamObs): station 8 is gone, the stream is station 7's!\n");
}

TEST(EpochRun, HearsWhatItsOwnStationSaysOfItself) {
    const ref::Vec3 elsewhere{kSite[0] + 200.0, kSite[1], kSite[2]};
    const auto state = [&](Epochs& epochs, int station, const ref::Vec3& xyz) {
        epochs.c.read(ref::frame(ref::write1005({.station = station, .xyzM = xyz})));
        epochs.c.read(
            ref::frame(ref::write1008({station, text("ANTENNA%d", station), 0, "1", "", "", ""})));
    };
    const auto named = [](const Epochs& epochs) {
        return std::string(view(epochs.c.service.intake.sender.said.antdes));
    };
    // Another station speaks before the stream has one, and within its first epoch.
    for (const bool within : {false, true}) {
        Epochs epochs;
        epochs.c.record.guard = PlaceGuard{100.0, false};
        if (within)
            epochs.of({{'G', 0, true, 7}});
        state(epochs, 8, elsewhere);
        EXPECT_EQ(epochs.of({{'R', 0, false, 7}}), within ? "GR@0" : "R@0");
        EXPECT_FALSE(epochs.c.service.intake.displaced);
        EXPECT_EQ(named(epochs), "");
        state(epochs, 7, elsewhere);
        EXPECT_TRUE(epochs.c.service.intake.displaced);
        EXPECT_EQ(named(epochs), "ANTENNA7");
        EXPECT_EQ(epochs.of({{'G', 1, false, 9}, {'G', 2, false, 9}, {'G', 3, false, 9}}), "");
        EXPECT_FALSE(epochs.c.service.intake.displaced)
            << "the place was that of the other station";
        EXPECT_EQ(named(epochs), "");
    }
}

TEST(EpochRun, BringsNothingOfAnOlderEpoch) {
    Epochs epochs;
    epochs.c.service.intake.savesEpochs = true;
    const auto stored = [&] {
        const EpochObs& obs = epochs.c.record.stationEpochs[0].obs;
        std::string names;
        for (const std::size_t satellite : obs.written())
            names += epochs.c.record.satelliteNames[satellite] + " ";
        epochs.c.record.stationEpochs[0].obs.clear(); // taken, as by a request
        return names;
    };
    epochs.of({{'G', 0, true}, {'R', 0, true}, {'C', 0, false}});
    EXPECT_EQ(stored(), "G01 R01 C01 ");
    epochs.of({{'G', 1, false, 1, 2}});
    EXPECT_EQ(stored(), "G02 ");
    // 1003 has no ambiguity: what a 1004 in its place had is not its own.
    const auto legacy = [&](int type) {
        ref::BitString b;
        b.u(12, static_cast<std::uint64_t>(type));
        b.u(12, 1).u(30, ref::epochField('G', kNow + 2.0)).u(1, 0).u(5, 1).u(1, 0).u(3, 0);
        b.u(6, 3).u(1, 0).u(24, 100000).u(20, 0).u(7, 9);
        if (type == 1004)
            b.u(8, 70).u(8, 160);
        b.u(2, 3).u(14, 0).u(20, 0).u(7, 9);
        if (type == 1004)
            b.u(8, 160);
        epochs.c.read(ref::frame(b.bytes()));
        const double rangeM =
            epochs.c.record.stationEpochs[0].obs.at(epochs.c.indexOf("G03"), 0).range;
        epochs.c.record.stationEpochs[0].obs.clear();
        return rangeM;
    };
    check::printed([&] {
        EXPECT_NEAR(legacy(1004), 2000.0 + 70 * 299792.458, 0.01);
        EXPECT_NEAR(legacy(1003), 2000.0, 0.01);
    });
    // Nothing is answered of a run whose messages were all refused, and no satellites are no fault.
    EXPECT_EQ(epochs.of({{'G', 4, false, 1, 1, true}}), "");
    ref::Msm none;
    none.system = 'G';
    none.msm = 7;
    none.station = 1;
    none.epochField = ref::epochField('G', kNow + 5.0);
    check::printed([&] { epochs.c.read(ref::frame(ref::writeMsm(none))); });
    EXPECT_EQ(epochs.c.service.intake.decoder.refused.type, 0);
}

TEST(EpochRun, TakesNoStationThatStandsElsewhere) {
    Epochs epochs;
    epochs.c.record.guard = PlaceGuard{100.0, false};
    EXPECT_EQ(epochs.of({{'G', 0, false, 7}}), "G@0");
    const ref::Vec3 elsewhere{kSite[0] + 200.0, kSite[1], kSite[2]};
    epochs.c.read(ref::frame(ref::write1005({.station = 8, .xyzM = elsewhere})));
    EXPECT_EQ(
        epochs.of({{'G', 1, false, 8}, {'G', 2, false, 8}, {'G', 3, false, 8}, {'G', 4, false, 8}}),
        "");
    EXPECT_TRUE(
        contains(epochs.lines, "station 8 states another place, the stream is not its own!"));
    // A third station that is right does not vouch for it.
    epochs.c.read(ref::frame(ref::write1005({.station = 9, .xyzM = kSite})));
    EXPECT_EQ(epochs.of({{'G', 4, false, 8}, {'G', 4, false, 8}, {'G', 4, false, 8}}), "");
    epochs.c.read(ref::frame(ref::write1005({.station = 8, .xyzM = kSite})));
    EXPECT_EQ(epochs.of({{'G', 5, false, 8}, {'G', 6, false, 8}, {'G', 7, false, 8}}), "G@7");
}
