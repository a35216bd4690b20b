#include "ctl/report/Labels.h"
#include "ctl/report/Report.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace ctl::report {

using namespace simulate;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
const ref::Vec3 kSiteM{-4467102, 2683039, -3666949};
const ref::CellBounds kBounds{ref::kRangeHalfStepM, ref::kPhaseHalfStepM, ref::rangeBoundM('J'),
                              ref::phaseBoundM('J')};

ref::EpochResult crowdedEpoch(int number) {
    ref::EpochResult r;
    r.time = ref::GpsTime{2408, 43200} + number;
    r.delayS = 1e-3 * (1 + number % 7);
    for (int i = 0; i < 60; ++i) {
        auto& s = r.satellites.emplace_back();
        s.expected.sat = std::string(1, kSimulatedSystems[static_cast<std::size_t>(i % 5)]) +
                         std::to_string(10 + i / 5);
        s.expected.fate = static_cast<ref::Fate>((i + number) % 7);
        s.expected.direction = {4.0 + i, 6.0 * i};
        s.expected.changeM = 250 - 8 * i;
        s.cells.assign(3, {0.008 - 2e-4 * i, 1e-4});
        s.bounds = kBounds;
    }
    return r;
}

// What is wrong with the tags: not closed in order, a value without quotes, with a stray sign, or
// of no number. By hand: std::regex runs out of stack on a long value.
std::string wrongTag(const std::string& page) {
    std::vector<std::string> open;
    std::size_t at = page.find("<html");
    while (at < page.size()) {
        const std::size_t end = page.find('>', at);
        std::string tag = page.substr(at + 1, end - at - 1);
        if (end == std::string::npos || tag.empty() || tag.find('<') != std::string::npos)
            return tag.substr(0, 80);
        std::ptrdiff_t values = 0;
        for (std::size_t v = tag.find("=\""); v != std::string::npos; v = tag.find("=\"", v + 1))
            ++values;
        if (std::count(tag.begin(), tag.end(), '"') != 2 * values)
            return tag.substr(0, 80);
        for (const char* word : {"nan", "inf", "http", "src="})
            if (tag.find(word) != std::string::npos)
                return tag.substr(0, 80);
        const std::string name = tag.substr(0, tag.find(' '));
        if (name[0] == '/') {
            if (open.empty() || "/" + open.back() != name)
                return tag;
            open.pop_back();
        } else if (tag.back() != '/') {
            open.push_back(name);
        }
        at = page.find(name == "style" ? "</style" : "<", end);
        const std::size_t stray = page.find('>', end + 1);
        if (name != "style" && stray < at)
            return page.substr(end, 80);
    }
    return open.empty() ? "" : open.back();
}

} // namespace

TEST(Labels, OfACrowdedSkyCoverNeitherEachOtherNorAMark) {
    std::mt19937 random(7);
    std::vector<Label> labels(40);
    for (Label& l : labels) // in a quarter of the drawing, some on top of others
        l = {60.0 + static_cast<double>(random() % 140), 60.0 + static_cast<double>(random() % 140),
             4, 26, 12.5};
    labels[1].x = labels[0].x;
    labels[1].y = labels[0].y;
    const Box bounds{0, 0, 328, 328};
    const std::vector<Box> words{{150, 150, 30, 14}};
    const auto places = placeLabels(labels, words, bounds, 400);
    for (std::size_t i = 0; i < places.size(); ++i) {
        ASSERT_TRUE(places[i]) << i;
        const Box& box = places[i]->box;
        EXPECT_TRUE(box.inside(bounds)) << i;
        EXPECT_FALSE(box.overlaps(words[0])) << i;
        for (std::size_t k = 0; k < places.size(); ++k) {
            EXPECT_FALSE(box.overlaps(markBox(labels[k]))) << i << " on mark " << k;
            EXPECT_FALSE(k < i && box.overlaps(places[k]->box)) << i << " on " << k;
        }
    }
}

TEST(Report, IsOneWellFormedPageWhateverHappened) {
    Totals nothing;
    Totals much;
    much.given = much.epochs = 3000;
    much.faults[Fault::bitflip] = 1;
    ref::Verdict& v = much.verdict;
    v.replies = 3000;
    v.wrong = 1;
    v.faults = {"<script>alert('\"&\x01</script>"};
    v.worst['J'] = {0.5, 0.01, 0, 3, kBounds};
    v.bytes = {{0, 1}, {1074, 100}, {4095, 1 << 30}};
    v.delaysS.assign(3000, 0.004F);
    Report empty(kSiteM);
    Report single(kSiteM);
    single.epoch(crowdedEpoch(0));
    Report odd(kSiteM);
    for (int i = 0; i < 3000; ++i)
        odd.epoch(crowdedEpoch(i));
    ref::EpochResult broken = crowdedEpoch(1);
    broken.delayS = -1;
    broken.satellites[0].expected.direction = {kNan, kNan};
    broken.satellites[1].cells[0] = {1e9, -kInf};
    broken.satellites[2].cells[0] = {kNan, kNan};
    odd.epoch(broken);
    const struct {
        const char* name;
        std::string page;
    } pages[] = {
        {"empty", empty.page(nothing)}, {"single", single.page(much)}, {"odd", odd.page(much)}};
    for (const auto& p : pages) {
        EXPECT_EQ(wrongTag(p.page), "") << p.name;
        for (const char* unwanted : {"<script", "\x01", "url(", "@import", "nan", "inf mm"})
            EXPECT_EQ(p.page.find(unwanted), std::string::npos) << p.name << " has " << unwanted;
    }
    // the marks are thinned out, what they counted is not
    EXPECT_LT(pages[2].page.size(), 400000U);
    EXPECT_EQ(odd.data().satellites.at("G10").epochs.at(ref::Fate::answered), 429);
    EXPECT_EQ(pages[2].page, odd.page(much));
}

// Half a step of DF400 and of DF401, 0.1 mm, and 0.4 mm more for QZSS.
TEST(Report, HasOneBoundInFigureChartAndTable) {
    Report report(kSiteM);
    report.epoch(crowdedEpoch(0));
    Totals t;
    t.verdict.worst['J'] = {0.009, 0.0005, 0, 3, kBounds};
    const std::string page = report.page(t);
    for (const char* bound : {"9.43 mm allowed", "worst 9.00 of 9.43 mm", "<td>9.43</td>",
                              "0.779 mm allowed", "worst 0.500 of 0.779 mm", "<td>0.779</td>"})
        EXPECT_NE(page.find(bound), std::string::npos) << bound;
    EXPECT_NE(summaryText(t).find("9.03 mm of range, 0.379 mm of phase"), std::string::npos);
}

} // namespace ctl::report
