#include "check.h"
#include "configured.h"

#include "base/ComText.h"
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
    const Bytes whole = ref::frame(ref::writeMsm(m));
    return s.cut ? cut(whole, 12) : whole;
}

/// Epochs that the intake of a complete answer gives: systems in order, time from kNow on, such as
/// "GE@0".
class Epochs {
public:
    Epochs() {
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
            out_ += "GRESJCI"[(m.head.type - 1070) / 10];
        const WeekTime t = time2gpst(epoch.time);
        out_ += text("@%g", t.sow - kNow.sow);
    }
    const FixedClock clock_{kNow};
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
        {"refused, as the last one", {{'G', 0, true}, {'E', 0, false, 1, 1, true}}, "G@0"},
        {"refused of a number that is there",
         {{'G', 0, true}, {'G', 0, true, 1, 2, true}, {'E', 0, false}},
         "G@0 E@0"},
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
    epochs.c.read(ref::frame(ref::write1005({.station = 8, .xyzM = kSite})));
    EXPECT_EQ(epochs.of({{'G', 5, false, 8}, {'G', 6, false, 8}, {'G', 7, false, 8}}), "G@7");
}
