#include "rtcm/Messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <memory>
#include <vector>

// The numbers of the fields, against the tables of RTCM 10403.x.

namespace {

/// Lists the numbers of the fields of a layout.
class NumberLister {
public:
    static constexpr bool kReads = false;
    void fixed(int, std::uint32_t, const DataField& f) { add(f); }
    template <class T> void u(int, const T&, const DataField& f) { add(f); }
    template <class T> void u(int, const T&, double, const DataField& f) { add(f); }
    template <class T> void s(int, const T&, double, const DataField& f) { add(f); }
    template <class T> void sm(int, const T&, double, const DataField& f) { add(f); }
    template <class T> void sOrNone(int, const T&, double, const DataField& f) { add(f); }
    template <class T> void text(const T&, const DataField& f) { add(f); }
    template <class T> void chars(const T&, const DataField& f) { add(f); }
    std::vector<int> numbers;

private:
    void add(const DataField& f) {
        EXPECT_NE(std::string_view(f.name), "");
        numbers.push_back(f.df);
    }
};

struct Range {
    int first, last;
    Range(int one) : first(one), last(one) {}
    Range(int from, int to) : first(from), last(to) {}
};
std::vector<int> numbers(std::initializer_list<Range> ranges) {
    std::vector<int> all;
    for (const Range& r : ranges)
        for (int df = r.first; df <= r.last; ++df)
            all.push_back(df);
    return all;
}

template <class Layout, class Record>
std::vector<int> numbersOf(const Layout& layout, const Record& record) {
    NumberLister lister;
    layout(lister, record);
    return lister.numbers;
}

} // namespace

TEST(FieldNumbers, AreThoseOfTheStandard) {
    const std::map<int, std::vector<int>> expected{
        {1005, numbers({{2, 3}, {21, 24}, 141, 25, 142, 1, 26, 364, 27})},
        {1006, numbers({{2, 3}, {21, 24}, 141, 25, 142, 1, 26, 364, 27, 28})},
        {1007, numbers({{2, 3}, {30, 31}})},
        {1008, numbers({{2, 3}, {30, 31}, 33})},
        {1013, numbers({{2, 3}, {51, 57}})},
        {1019, numbers({2, 9, {76, 79}, 71, {81, 103}, 137})},
        {1020, numbers({2, 38, 40, {104, 107}, 107, 107, {108, 136}, 1})},
        {1029, numbers({{2, 3}, {51, 52}, {138, 140}})},
        {1033, numbers({{2, 3}, {30, 31}, 33, 228, 230, 232})},
        {1042, numbers({2, {488, 515}})},
        {63, numbers({2, {488, 515}})},
        {1044, numbers({2, {429, 457}})},
        {1045, numbers({2, 252, {289, 312}, {314, 315}, 1})},
        {1046, numbers({2, 252, {289, 313}, {316, 317}, {287, 288}, 1})},
        {1230, numbers({{2, 3}, 421, 1, {422, 426}})}};
    const auto compare = [&](const auto& row) {
        auto m = row.blank();
        if constexpr (requires { m.mask; })
            m.mask = 0xF;
        if constexpr (requires { m.count; })
            m.count = 1;
        const auto want = expected.find(row.type);
        ASSERT_NE(want, expected.end()) << row.type;
        EXPECT_EQ(numbersOf(row.layout, m), want->second) << row.type;
    };
    std::apply([&](const auto&... row) { (compare(row), ...); }, kMessages);
}

TEST(FieldNumbers, OfObservationsAreThoseOfTheStandard) {
    const std::map<int, std::vector<int>> legacy{
        {1001, numbers({{2, 3}, 4, {5, 8}, {9, 13}})},
        {1002, numbers({{2, 3}, 4, {5, 8}, {9, 15}})},
        {1003, numbers({{2, 3}, 4, {5, 8}, {9, 13}, {16, 19}})},
        {1004, numbers({{2, 3}, 4, {5, 8}, {9, 20}})},
        {1009, numbers({{2, 3}, 34, 5, {35, 37}, {38, 43}})},
        {1010, numbers({{2, 3}, 34, 5, {35, 37}, {38, 45}})},
        {1011, numbers({{2, 3}, 34, 5, {35, 37}, {38, 43}, {46, 49}})},
        {1012, numbers({{2, 3}, 34, 5, {35, 37}, {38, 50}})}};
    for (const auto& [type, list] : legacy) {
        LegacyMessage m;
        m.head = {.type = type, .satellites = 1};
        EXPECT_EQ(numbersOf(layoutLegacy, m), list) << type;
    }
    const std::vector<int> epochs{4, 34, 248, 4, 428, 427, 546}; // G R E S J C I
    for (std::size_t system = 0; system < epochs.size(); ++system)
        for (const int form : {4, 5, 6, 7}) {
            const auto m = std::make_unique<MsmMessage>();
            m->head.type = 1070 + 10 * static_cast<int>(system) + form;
            m->head.satellites = m->head.signals = 1;
            m->countHead();
            m->cellMask = 1;
            m->countCells();
            const int fine = form < 6 ? 400 : 405;
            auto list = numbers(
                {{2, 3}, epochs[system], 393, 409, 1, {411, 412}, {417, 418}, {394, 396}, 397});
            const auto add = [&](std::initializer_list<int> more) {
                list.insert(list.end(), more);
            };
            if (form % 2 == 1)
                add({419, 398, 399});
            else
                add({398});
            add({fine, fine + 1, fine + 2, 420, fine + 3});
            if (form % 2 == 1)
                add({404});
            EXPECT_EQ(numbersOf(layoutMsm, *m), list) << m->head.type;
        }
}
