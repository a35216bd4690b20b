#include "ctl/simulate/Judgement.h"

#include "base/Findings.h"

#include <functional>
#include <gtest/gtest.h>

namespace ctl::simulate {

namespace {

// A run of 60 epochs in which everything was right.
Totals goodRun() {
    Totals t;
    t.connections = 1;
    ref::Verdict& v = t.verdict;
    v.stream.ended = v.ended = v.taken = v.due = v.replies = 60;
    v.cells = 1200;
    v.signals["G1C"] = 1200;
    for (const char system : {'G', 'R'})
        for (int id = 1; id <= 10; ++id)
            v.satellites[text("%c%02d", system, id)].due = 60;
    return t;
}

void wrongIn(Totals& t, const std::string& sat, ref::Trouble what, int epochs, double rangeM = 0) {
    t.verdict.satellites[sat].wrong[what] = {epochs, rangeM, 0};
    t.verdict.wrong += epochs;
}

} // namespace

TEST(Summary, NamesTheSignalsThatNoReplyHas) {
    Totals t = goodRun();
    t.verdict.stream.cells = {{"C2I", 7}, {"G1C", 1260}, {"G2L", 600}, {"R1C", 480}, {"R2C", 480}};
    t.verdict.signals["C2I"] = 7;
    EXPECT_NE(
        summaryText(t).find(
            "\n  lost signals GPS 2L 600; GLONASS 1C 480, 2C 480; 60 observations of others\n"),
        std::string::npos)
        << summaryText(t);
}

TEST(Judgement, IsOneOfFiveAnswers) {
    const struct {
        const char* what;
        std::function<void(Totals&)> change;
        Answer answer;
        const char* words;
    } cases[] = {
        {"all right", [](Totals&) {}, Answer::right, "everything was right"},
        {"a recording",
         [](Totals& t) {
             t.known.values = false;
             t.verdict.cells = 0;
         },
         Answer::formRight, "the form was right; the values are not known"},
        {"a recording without observations in the replies",
         [](Totals& t) {
             t.known.values = false;
             t.verdict.cells = 0;
             t.verdict.signals.clear();
         },
         Answer::nothing, "nothing to judge: no reply carried an observation"},
        {"one of three services without observations",
         [](Totals& t) {
             t.endpoints = 3;
             t.silent = 1;
         },
         Answer::nothing, "nothing to judge: no reply of 1 of 3 services carried an observation"},
        {"nobody came", [](Totals& t) { t = Totals(); }, Answer::nothing,
         "nothing to judge: no service connected"},
        {"connected, and stopped",
         [](Totals& t) {
             t = Totals();
             t.connections = 1;
         },
         Answer::nothing, "nothing to judge: no epoch was sent"},
        {"no reply came",
         [](Totals& t) {
             t.verdict.replies = 0;
             t.verdict.wrong = 60;
         },
         Answer::wrong, "60 WRONG: no reply came"},
        {"epochs that nobody asks for",
         [](Totals& t) { t.verdict.stream.ended = t.verdict.ended = 74; }, Answer::wrong,
         "14 WRONG"},
        {"the same, made on purpose",
         [](Totals& t) {
             t.verdict.stream.ended = t.verdict.ended = 74;
             t.faults[Fault::refusedMessage] = 14;
         },
         Answer::right, "everything was right"},
        {"the same beside a fault that cannot be the reason",
         [](Totals& t) {
             t.verdict.stream.ended = t.verdict.ended = 74;
             t.faults = {{Fault::slowReader, 3}, {Fault::refusedMessage, 0}};
         },
         Answer::wrong, "14 WRONG"},
        {"epochs within damaged frames of a recording",
         [](Totals& t) {
             t.known.values = false;
             t.verdict.stream.ended = 63;
         },
         Answer::formRight, "the form was right; the values are not known"},
        {"a rover that was away twice",
         [](Totals& t) {
             t.verdict.gaps = {{{}, 2, 0}, {{}, 1, 3}};
         },
         Answer::missed, "what came was right: 3 epochs and 3 forwarded frames missed in 2 gaps"},
        {"a rover to whom nothing came",
         [](Totals& t) {
             t.verdict.replies = 0;
             t.verdict.gaps = {{{}, 60, 0}};
         },
         Answer::missed, "no epoch came: 60 epochs missed in 1 gap"},
        {"a wrong cell and a gap",
         [](Totals& t) {
             t.verdict.gaps = {{{}, 2, 0}};
             wrongIn(t, "G05", ref::Trouble::cellValues, 1, 0.02);
         },
         Answer::wrong, "1 WRONG"},
        {"one cell", [](Totals& t) { wrongIn(t, "G05", ref::Trouble::cellValues, 1, 0.02); },
         Answer::wrong, "1 WRONG"},
    };
    for (const auto& c : cases) {
        Totals t = goodRun();
        c.change(t);
        const Judgement j = judgementOf(t);
        EXPECT_EQ(j.answer, c.answer) << c.what;
        EXPECT_EQ(j.words, c.words) << c.what;
        const bool good = c.answer == Answer::right || c.answer == Answer::formRight;
        EXPECT_EQ(exitStatus(j.answer), good ? 0 : 1) << c.what;
        EXPECT_NE(summaryText(t).find(std::string("\n") + c.words + "\n"), std::string::npos);
        EXPECT_NE(summaryJson(t).find(std::string("\"answer\":\"") + name(c.answer)),
                  std::string::npos);
    }
}

TEST(Judgement, TellsCausesBeforeCells) {
    using ref::Trouble;
    const struct {
        std::function<void(Totals&)> change;
        const char* cause;
    } cases[] = {
        {[](Totals& t) {
             for (const auto& [sat, tally] : std::map(t.verdict.satellites))
                 wrongIn(t, sat, Trouble::cellValues, 60, sat == "R07" ? 0.552 : 0.3);
             t.verdict.position = {60, 10234, {1, 2, 3}, {4, 5, 6}};
         },
         "all 20 satellites, all epochs: ranges off by up to 0.55 m, 1005 is 10.2 km away: is this "
         "the station's position?"},
        {[](Totals& t) {
             for (int id = 1; id <= 10; ++id)
                 wrongIn(t, text("R%02d", id), Trouble::cellMissing, 60);
             wrongIn(t, "G05", Trouble::cellMissing, 60);
             t.verdict.troubles[Trouble::messages] = 60; // which follows from it
         },
         "G05, all 10 of GLONASS, all epochs: missing: are they in the configuration?"},
        {[](Totals& t) {
             wrongIn(t, "G05", Trouble::cellValues, 7, 0.0123);
             wrongIn(t, "G06", Trouble::cellValues, 60, 0.011);
         },
         "G05, G06, up to 60 of 60 epochs: ranges off by up to 12.3 mm"},
        {[](Totals& t) { wrongIn(t, "E31", Trouble::cellUnasked, 3); },
         "E31, 3 of 60 epochs: must not be there"},
    };
    for (const auto& c : cases) {
        Totals t = goodRun();
        c.change(t);
        const Judgement j = judgementOf(t);
        ASSERT_FALSE(j.causes.empty()) << c.cause;
        EXPECT_EQ(j.causes.front(), c.cause);
        const std::string summary = summaryText(t);
        EXPECT_LT(summary.find(c.cause), summary.find("  and ")) << summary;
    }
}

} // namespace ctl::simulate
