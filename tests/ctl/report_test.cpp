#include "ctl/Labels.h"
#include "ctl/Report.h"

#include <gtest/gtest.h>
#include <random>
#include <regex>

namespace {

const ref::Vec3 kSiteM{-4467102, 2683039, -3666949};

ref::EpochResult crowdedEpoch(int number) {
    ref::EpochResult r;
    r.time = ref::GpsTime{2408, 43200} + number;
    r.delayS = 1e-3 * (1 + number % 7);
    for (int i = 0; i < 60; ++i) {
        auto& s = r.satellites.emplace_back();
        s.expected.sat =
            std::string(1, kSystems[static_cast<std::size_t>(i % 5)]) + std::to_string(10 + i / 5);
        s.expected.fate = static_cast<ref::Fate>((i + number) % 6);
        s.expected.direction = {4.0 + i % 9, 300.0 + i % 13};
        s.expected.changeM = 250 - 8 * i;
        s.cells.assign(3, {0.008 - 2e-4 * i, 1e-4});
    }
    return r;
}

// Every tag closed in order, every attribute quoted; else what is wrong.
std::string unbalanced(const std::string& page) {
    static const std::regex tag(R"re(<(/?)([a-zA-Z1-9]+)((?: [-a-zA-Z0-9]+="[^"<]*")*)(/?)>)re");
    std::vector<std::string> open;
    std::string rest = page.substr(page.find("<html"));
    const std::size_t style = rest.find("<style>");
    rest.erase(style, rest.find("</style>") + 8 - style);
    std::string between;
    std::sregex_iterator it(rest.begin(), rest.end(), tag);
    for (auto at = it; at != std::sregex_iterator(); ++at) {
        between += at->prefix().str();
        if ((*at)[1].length() > 0) {
            if (open.empty() || open.back() != (*at)[2])
                return "</" + (*at)[2].str() + ">";
            open.pop_back();
        } else if ((*at)[4].length() == 0) {
            open.push_back((*at)[2]);
        }
    }
    if (between.find_first_of("<>") != std::string::npos)
        return between.substr(between.find_first_of("<>"), 80);
    return open.empty() ? "" : "<" + open.back() + ">";
}

} // namespace

TEST(Labels, OfACrowdedSkyCoverNeitherEachOtherNorAMark) {
    std::mt19937 random(7);
    std::vector<Label> labels;
    for (int i = 0; i < 40; ++i) // in a quarter of the drawing, some on top of others
        labels.push_back({60.0 + static_cast<double>(random() % 140),
                          60.0 + static_cast<double>(random() % 140), 4, 26, 12.5});
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
    v.worst['J'] = {0.5, NAN, 3};
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
    broken.satellites[0].expected.direction = {NAN, NAN};
    broken.satellites[1].cells[0] = {1e9, -INFINITY};
    broken.satellites[2].cells[0] = {NAN, NAN};
    odd.epoch(broken);
    const struct {
        const char* name;
        std::string page;
    } pages[] = {
        {"empty", empty.page(nothing)}, {"single", single.page(much)}, {"odd", odd.page(much)}};
    for (const auto& p : pages) {
        EXPECT_EQ(unbalanced(p.page), "") << p.name;
        EXPECT_EQ(p.page.find("<script"), std::string::npos) << p.name;
        EXPECT_EQ(p.page.find('\x01'), std::string::npos) << p.name;
        EXPECT_FALSE(std::regex_search(p.page, std::regex("\"[^\"<>]*\\b(nan|inf)\\b"))) << p.name;
        EXPECT_FALSE(std::regex_search(p.page, std::regex("https?:|url\\(|@import| src=")))
            << p.name;
    }
    // the marks are thinned out, what they counted is not
    EXPECT_LT(pages[2].page.size(), 400000U);
    EXPECT_EQ(odd.data().satellites.at("G10").epochs.at(ref::Fate::answered), 500);
    EXPECT_EQ(pages[2].page, odd.page(much));
}
