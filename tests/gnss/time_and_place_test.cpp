#include "base/Findings.h"
#include "check.h"
#include "gnss/Clock.h"
#include "gnss/ComCoord.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "gnss/Taiutc.h"
#include "paths.h"
#include "reference/standard/utc.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <sys/stat.h>

namespace {

TEST(Calendar, AgreesWithTheGregorianCalendarDayByDay) {
    using namespace std::chrono;
    for (int mjd = 15020; mjd < 124593; ++mjd) { // 1900 to 2199
        const sys_days at = sys_days{1858y / 11 / 17} + days{mjd};
        const year_month_day date{at};
        const int y{date.year()}, m = static_cast<int>(unsigned{date.month()});
        const int d = static_cast<int>(unsigned{date.day()});
        const auto doy = static_cast<int>((at - sys_days{date.year() / 1 / 1}).count() + 1);
        ASSERT_TRUE(md_julday(y, m, d) == mjd && md_julday(y, 0, doy) == mjd) << mjd;
        const DateTime back = mjd2date(mjd, 86398.75);
        ASSERT_TRUE(back.year == y && back.month == m && back.day == d) << mjd;
        const bool known = y >= 1970 && y <= 2099; // to the seconds since 1970
        const GTime t{known ? (mjd - 40587) * 86400LL + 86398 : 0, 0.75 * known};
        const CalendarTime calendar{1.0 * y, 1.0 * m, 1.0 * d, 23, 59, 58.75};
        ASSERT_TRUE(epoch2time(calendar) == t && mjd2time(mjd, 86398.75) == t.time) << mjd;
        ASSERT_TRUE(!known || (time2epoch(t) == calendar && time2mjd(t.time).mjd == mjd)) << mjd;
    }
    EXPECT_TRUE(timinc(58000, 1, -172801).mjd == 57998 && timinc(58000, 1, -2).sod == 86399);
    check::expectFatal([] { md_julday(9, 0, 367); },
                       "iyear = 9,imonth = 0,iday = 367,incorrect argument\n");
}

// Weeks are counted from 1980-01-06 (IS-GPS-200) and 2006-01-01 (BDS-SIS-ICD), 1356 weeks later.
TEST(Week, RunsFromTheEpochOfItsScale) {
    const struct {
        int mjd;
        double sod;
        int week;
        double sow;
        std::int64_t unixS;
    } cases[] = {{44244, 0, 0, 0, 315964800},
                 {58579, 86399.5, 2047, 604799.5, 1554595199},
                 {58580, 0, 2048, 0, 1554595200},
                 {60369, 45296.5, 2303, 390896.5, 1709210096}};
    for (const auto& c : cases) {
        const WeekTime w = mjd2wksow(c.mjd, c.sod);
        const MjdTime m = wksow2mjd(c.week, c.sow);
        EXPECT_TRUE(w.week == c.week && w.sow == c.sow && m.mjd == c.mjd && m.sod == c.sod);
        const GTime t = gpst2time(c.week, c.sow);
        EXPECT_TRUE(t.time == c.unixS && bdt2time(c.week - 1356, c.sow) == t) << c.week;
        EXPECT_TRUE(time2gpst(t).week == c.week && time2gpst(t).sow == c.sow) << c.week;
    }
}

// What judges the service has a table of its own: the two must never differ by a second.
TEST(LeapSeconds, OfTheReferenceAreThoseOfThePackagedFile) {
    LeapSeconds packaged;
    packaged.path = std::string(kSourceFolder) + "/packaging/kubernetes/station/config/leapsec.tab";
    ASSERT_TRUE(Taiutc_m_load(packaged));
    const auto rows = packaged.table.rows();
    const auto taiMinusUtc = [&](int mjd) {
        int out = 0;
        for (const LeapEntry& row : rows)
            if (row.mjd <= mjd)
                out = row.taiMinusUtc;
        return out;
    };
    ASSERT_GT(rows.back().mjd, 61000);
    for (int mjd = ref::kLeapSeconds[0].mjd + 1; mjd < rows.back().mjd; ++mjd) {
        const double day = (mjd - 44244) * 86400.0;
        const int leap = taiMinusUtc(mjd) - 19, before = taiMinusUtc(mjd - 1) - 19;
        ASSERT_EQ(ref::gpsTimeOf(day) - ref::GpsTime{}, day + leap) << mjd;
        ASSERT_EQ(ref::gpsTimeOf(day - 0.5) - ref::GpsTime{}, day - 0.5 + before) << mjd;
        for (const double utcS : {day - 0.5, day, day + 0.5})
            ASSERT_EQ(ref::utcOf(ref::gpsTimeOf(utcS)), utcS) << mjd;
    }
}

// The insertions since 1980 (IERS Bulletin C), oldest first.
TEST(LeapSeconds, AreThoseOfBulletinC) {
    const double inserted[][2] = {{1981, 7}, {1982, 7}, {1983, 7}, {1985, 7}, {1988, 1}, {1990, 1},
                                  {1991, 1}, {1992, 7}, {1993, 7}, {1994, 7}, {1996, 1}, {1997, 7},
                                  {1999, 1}, {2006, 1}, {2009, 1}, {2012, 7}, {2015, 7}, {2017, 1}};
    for (int before = 0; before < 18; ++before) {
        const GTime utc = epoch2time({inserted[before][0], inserted[before][1], 1, 0, 0, 0});
        const GTime last = timeadd(utc, -0.25), gps = timeadd(utc, before + 1);
        EXPECT_TRUE(utc2gpst(last) == timeadd(last, before) && gpst2utc(utc2gpst(last)) == last);
        EXPECT_TRUE(utc2gpst(utc) == gps && gpst2utc(gps) == utc);
    }
}

std::int64_t fixedUtc;

TEST(WeekCompletion, StaysWithinReachOfTheClock) {
    const auto systemClock = std::exchange(utcNow, [] { return GTime{fixedUtc, 0.0}; });
    const struct {
        std::int64_t utc;
        int (*adjust)(int);
        int wire, full;
    } cases[] = {
        // The roll-over of 2019-04-06 23:59:42 UTC; a week ahead of the clock is believed.
        {1554595181, adjgpsweek, 0, 2048},
        {1554595181, adjgpsweek, 1, 1025},
        {1554595182, adjgpsweek, 1, 2049},
        // That of 2038-11-20 23:59:42, and a clock in 1990, which stands for GPS week 1560.
        {2173910381, adjgpsweek, 1, 2049},
        {2173910382, adjgpsweek, 1, 3073},
        {631152000, adjgpsweek, 537, 1561},
        // A clock in 2000 stands for BDT week 1; week 1024 of BDT is that of 2025-08-17.
        {946684800, adjbdtweek, 1300, 1300},
        {1755475200, adjbdtweek, 513, 513},
        {1755475200, adjbdtweek, 512, 1536}};
    for (const auto& c : cases) {
        fixedUtc = c.utc;
        EXPECT_EQ(c.adjust(c.wire), c.full) << c.utc << ' ' << c.wire;
    }
    utcNow = systemClock;
}

TEST(ReplayClock, RunsOnFromItsInstantBeyond32BitTimes) {
    const auto systemClock = utcNow;
    EXPECT_GT(systemClock().time, epoch2time({2024, 1, 1, 0, 0, 0}).time);
    startReplayClock({2147483647, 0.99}); // 2038-01-19 03:14:07.99
    GTime now = utcNow(), last = now;
    for (int i = 0; i < 20000 && now.time == 2147483647; ++i, last = std::exchange(now, utcNow()))
        sleepms(1);
    EXPECT_GE(now.time, 2147483648);
    EXPECT_GE(timediff(now, last), 0.0);
    utcNow = systemClock;
}

TEST(LeapSecondFile, GivesTheValueStrictlyBetweenTwoEntries) {
    const check::Scratch scratch;
    LeapSeconds leaps;
    const auto lookUp = [&](int mjd) {
        return [&leaps, mjd] { return Taiutc_m_getTaiutc(leaps, mjd); };
    };
    const auto another = [&](const std::string& path) {
        leaps = {};
        leaps.path = path;
    };
    std::string rows = "# 59000 9\r\n+leap sec\r\n";
    for (int row = 0; row < 40; ++row)
        rows += text(" %d %d\r\n", 59000 + 100 * row, 27 + row);
    another(scratch.write("leap", rows + "-leap sec\r\n99999 99\n"));
    EXPECT_TRUE(lookUp(59001)() == 27 && lookUp(60099)() == 37 && lookUp(62899)() == 65);
    EXPECT_EQ(lookUp(59000)() + lookUp(60000)() + lookUp(62900)(), 0); // deliberate: an entry's day
    check::expectFatal(lookUp(58999), "mjd = 58999,mjde = 59000,epoch before table start\n");
    check::expectFatal(lookUp(62901), "mjd = 62901,mjde = 62900,epoch after table start\n");
    const struct {
        char system;
        double sod;
        int mjd;
        double gps, t2;
        int aode;
    } cases[] = {{'G', 5, 60001, 5, 0, 77},
                 {'E', 5, 60001, 5, 0, 77},
                 {'J', 5, 60001, 5, 0, 77},
                 {'C', 86390, 60002, 4, 87976, 4},
                 // Quarter hours of the Moscow day, which starts at 21:00 UTC.
                 {'R', 86390, 60002, 8, 0, 12},
                 {'R', 75618, 60001, 75636, 0, 0},
                 {'R', 918, 60001, 936, 0, 13}};
    for (auto c : cases) {
        EXPECT_EQ(genAode(c.system, 60001, 77, c.sod, c.t2, leaps), c.aode) << c.system << c.sod;
        int mjd = 60001;
        brdtime(c.system, mjd, c.sod, leaps);
        EXPECT_EQ(timdif(mjd, c.mjd, c.sod, c.gps), 0.0) << c.system;
    }
    scratch.write("leap", "+leap sec\n59000 10\n59050 11\n62000 12\n-leap sec\n");
    EXPECT_EQ(lookUp(59099)(), 11) << "it is read anew for every lookup";
    another(scratch.write("none", "59000 10\n62000 12\n"));
    EXPECT_EQ(lookUp(40000)(), 0) << "no table, no range";
    another("/no");
    check::expectFatal(lookUp(1), "***ERROR(readCommFil):file_table not exist leapsc item \n");
}

TEST(LeapSecondFile, KeepsItsLastWholeTableUntilTheNextWholeOne) {
    namespace fs = std::filesystem;
    const check::Scratch scratch;
    const std::string path = scratch.path + "leap";
    const auto write = [&](const char* content) {
        fs::remove_all(path);
        scratch.write("leap", content);
    };
    LeapSeconds leaps;
    leaps.path = path;
    write("+leap sec\n59000 10\n"); // cut at the first reading: taken as it is
    int got = -1;
    EXPECT_EQ(check::printed([&] { got = Taiutc_m_getTaiutc(leaps, 59000); }), "");
    EXPECT_EQ(got, 0);
    // Each reading of a file of any length would hold up an epoch.
    const std::string tooLong =
        "+leap sec\n59000 10\n" + std::string(1100000, '\n') + "62000 12\n-leap sec\n";
    int value = 10;
    const auto whole = [&] {
        write(text("+leap sec\n59000 %d\n62000 12\n-leap sec\n", ++value).c_str());
        EXPECT_EQ(check::printed([&] { got = Taiutc_m_getTaiutc(leaps, 59001); }), "");
        EXPECT_EQ(got, value);
    };
    const struct {
        std::function<void()> damage;
        const char* fault;
    } cases[] = {{[&] { write(""); }, "has no -leap sec"},
                 {[&] { write("+leap sec\n59000 10\n620"); }, "has no -leap sec"},
                 {[&] { write(tooLong.c_str()); }, "has no -leap sec"},
                 {[&] { write("+leap sec\n-leap sec\n"); }, "has no rows"},
                 {[&] { fs::remove(path); }, "cannot be read"},
                 {[&] { fs::remove(path), fs::create_directory(path); }, "is not a regular file"},
                 {[&] { fs::remove(path), mkfifo(path.c_str(), 0600); }, "is not a regular file"}};
    for (const auto& c : cases) {
        whole();
        c.damage();
        const std::string lines = check::printed([&] {
            for (int reading = 0; reading < 3; ++reading)
                EXPECT_EQ(Taiutc_m_getTaiutc(leaps, 59001), value) << c.fault;
        });
        EXPECT_EQ(lines, "***WARN(Taiutc): file = " + path + "," + c.fault +
                             ",the table read before stays in force!\n");
        check::expectFatal([&] { Taiutc_m_getTaiutc(leaps, 62001); },
                           "mjd = 62001,mjde = 62000,epoch after table start\n");
    }
    whole();
}

TEST(LeapSecondFile, ExtendsTheBuiltInTable) {
    const check::Scratch scratch;
    const auto load = [&](const std::string& rows) {
        LeapSeconds leaps;
        leaps.path = scratch.write("leap", "+leap sec\n" + rows + "-leap sec\n");
        ASSERT_TRUE(Taiutc_m_load(leaps));
    };
    const auto expectSteps = [](GTime from, int before, int after) {
        // Where a second is taken out, the last one of the day does not exist.
        const GTime last = timeadd(from, after < before ? -1.25 : -0.25);
        for (const auto& [utc, seconds] : {std::pair{last, before}, std::pair{from, after}}) {
            EXPECT_EQ(timediff(utc2gpst(utc), utc), seconds);
            EXPECT_EQ(gpst2utc(utc2gpst(utc)), utc);
        }
    };
    const GTime y2029 = epoch2time({2029, 1, 1, 0, 0, 0}),
                y2030 = epoch2time({2030, 1, 1, 0, 0, 0});
    // 62137 is 2029-01-01, 62502 is 2030-01-01; the last row only ends the validity.
    load("57204 36\n57754 37\n62137 38\n62502 37\n63232 50\n");
    expectSteps(y2029, 18, 19);
    expectSteps(y2030, 19, 18); // a second can be taken out, too
    load("57754 37\n62137 37\n62502 38\n63232 38\n");
    expectSteps(y2029, 18, 18);
    expectSteps(y2030, 18, 19);
    // What is no leap second, or no time of its own, changes nothing.
    for (const char* const rows :
         {"57754 37\n62502 38\n", "57754 19\n62137 20\n63232 20\n",
          "57754 37\n62137 39\n62502 38\n63232 39\n",
          "62137 -2147483648\n62502 2147483647\n63232 1\n", "57754 36\n57000 38\n63232 40\n"}) {
        load(rows);
        expectSteps(y2029, 18, 18);
        expectSteps(y2030, 18, 18);
    }
}

TEST(LeapSecondFile, IsToldToEndOnEachOfItsLastSixtyDays) {
    const check::Scratch scratch;
    LeapSeconds leaps;
    LeapEnd& end = leaps.end;
    leaps.path = scratch.write("leap", "+leap sec\n57754 37\n62502 37\n-leap sec\n");
    const auto look = [&](int mjd, double sod = 0.0) {
        return check::printed([&] { Taiutc_m_lookDaily(leaps, {mjd2time(mjd, sod), 0.0}); });
    };
    const auto line = [&](int days) {
        return text("***WARN(Taiutc): file = %s,table ends on 2030-01-01,days left = %d,a GLONASS "
                    "ephemeris after that ends the service!\n",
                    leaps.path.c_str(), days);
    };
    EXPECT_EQ(look(62441, 86399.0), "");
    EXPECT_EQ(look(62442), line(60));
    EXPECT_EQ(look(62442, 86399.0), "");
    EXPECT_EQ(look(62443), line(59));
    EXPECT_EQ(look(62442, 86399.0) + look(62443), "") << "the clock was set back a second";
    EXPECT_EQ(look(62504), line(-2));
    end = LeapEnd::doesNot;
    EXPECT_EQ(look(62505), "") << "nothing reads the file for its end";
    end = LeapEnd::lastValueStays;
    EXPECT_TRUE(contains(look(62506), ",days left = -4,its last value stays in force!\n"));
    EXPECT_EQ(Taiutc_m_getTaiutc(leaps, 62506), 37);
    end = LeapEnd::endsService;
    scratch.write("leap", "+leap sec\n57754 37\n62600 37\n-leap sec\n");
    EXPECT_EQ(look(62507), "") << "the new end is read on the same day";
    scratch.write("leap", "+leap sec\n57754 37\n-2147483648 37\n-leap sec\n");
    EXPECT_EQ(look(62508), "");
}

// First row: the example of IOGP Publication 373-7-2, 4.1.1. The others: closed formula, evaluated
// apart from this code.
TEST(GeodeticConversion, GivesTheWorkedPositions) {
    const struct {
        double lat, lon, h;
        Vector3 xyz;
        double a, b;
    } cases[] = {
        {53 + 48 / 60. + 33.82 / 3600,
         2 + 7 / 60. + 46.38 / 3600,
         73,
         {3771793.968, 140253.342, 5124304.349},
         0,
         0},
        {-33.8, 151.2, 50, {-4649396.657446, 2556027.442321, -3528061.298965}, 0, 298},
        {-12,
         281.8,
         150,
         {1276016.306222, -6107945.549262, -1317433.717983},
         6378137,
         6356752.314245},
        {65, 215, 2.02e7, {-9207144.231736, -6446911.796446, 24065127.139636}, 1, 0},
        {55.7, 37.6, 200, {2854348.039231, 2198143.907136, 5245949.198654}, 6378245, 298.3}};
    for (const auto& c : cases) {
        const Vector3 blh{c.lat * kPi / 180, c.lon * kPi / 180, c.h};
        EXPECT_LT(distance(blhxyz(blh, c.a, c.b), c.xyz), c.h == 73 ? 1e-3 : 1e-5) << c.lat;
        const Vector3 km{(c.xyz[0] - 10) / 1000, (c.xyz[1] + 20) / 1000, (c.xyz[2] - 30) / 1000};
        const Vector3 back = xyzblh(km, 1000, c.a, c.b, 10, -20, 30); // scaled first, then shifted
        EXPECT_LT(std::hypot(back[0] - blh[0], back[1] - blh[1], (back[2] - c.h) * 1e-6), 1e-9);
    }
    EXPECT_EQ(xyzblh({-7e6, 0, 0}, 1, 0, 0, 0, 0, 0)[1], 0.0); // deliberate
}

TEST(LocalAxes, TurnIntoEastNorthAndTheOutwardNormal) {
    const double sB = std::sin(-0.6), cB = std::cos(-0.6), sL = std::sin(2.6), cL = std::cos(2.6);
    const Matrix3 expected{-sL, -sB * cL, cB * cL, cL, -sB * sL, cB * sL, 0, cB, sB};
    EXPECT_LT(distance(rot_enu2xyz(-0.6, 2.6), expected), 1e-14);
}

} // namespace
