#include "check.h"
#include "service.h"

#include "base/Findings.h"
#include "ctl/rinex/Header.h"
#include "ctl/rinex/Records.h"

#include <chrono>
#include <cmath>
#include <map>
#include <sstream>

// Files of `kestrunectl rinex`, judged by a reader that has the formats of RINEX 3.05, tables A2
// and A3, as the standard writes them.

namespace {

using ref::Bytes;

/// One field of a format: kind, width, decimals (or least digits).
struct FormatField {
    char kind;
    std::size_t width;
    std::size_t decimals;
};

std::size_t numberAt(const std::string& s, std::size_t& at, std::size_t otherwise) {
    std::size_t n = 0;
    const std::size_t from = at;
    for (; at < s.size() && s[at] >= '0' && s[at] <= '9'; ++at)
        n = 10 * n + static_cast<std::size_t>(s[at] - '0');
    return at > from ? n : otherwise;
}

/// The fields of "A1,2X,I3,13(1X,A3)".
std::vector<FormatField> fieldsOf(const std::string& format) {
    std::vector<FormatField> out;
    for (std::size_t at = 0; at < format.size(); ++at) { // behind a comma
        const std::size_t times = numberAt(format, at, 1);
        std::vector<FormatField> group;
        if (format[at] == '(') {
            const std::size_t close = format.find(')', at);
            group = fieldsOf(format.substr(at + 1, close - at - 1));
            at = close + 1;
        } else if (format[at] == 'X') {
            group = {{'X', 1, 0}};
            ++at;
        } else {
            const char kind = format[at++];
            const std::size_t width = numberAt(format, at, 0);
            group = {{kind, width, format[at] == '.' ? numberAt(format, ++at, 0) : 0}};
        }
        for (std::size_t i = 0; i < times; ++i)
            out.insert(out.end(), group.begin(), group.end());
    }
    return out;
}

/// Whether a field has the form that its format gives it; all of them may be blank.
bool fits(const FormatField& f, const std::string& field) {
    const std::size_t first = field.find_first_not_of(' ');
    if (first == std::string::npos || f.kind == 'A')
        return true;
    std::string number = field.substr(first);
    const std::size_t sign = number[0] == '-' ? 1 : 0;
    const std::size_t digits =
        f.kind == 'F' && f.decimals > 0 ? number.size() - f.decimals - 1 : number.size();
    if (f.kind == 'F' && (digits > number.size() || number[digits] != '.'))
        return false;
    if (f.kind == 'F')
        number.erase(digits, 1);
    return f.kind != 'X' && number.size() > sign &&
           number.find_first_not_of("0123456789", sign) == std::string::npos &&
           (f.kind == 'F' || number.size() - sign >= f.decimals);
}

/// The fields of a line, without those that are skipped; a failure where one has another form.
std::vector<std::string> readBy(const std::string& format, std::string line) {
    std::vector<std::string> out;
    std::size_t at = 0;
    const std::string whole = line;
    line.resize(1024, ' ');
    for (const FormatField& f : fieldsOf(format)) {
        const std::string field = line.substr(at, f.width);
        EXPECT_TRUE(fits(f, field)) << "column " << at + 1 << " of " << format << ": " << whole;
        if (f.kind != 'X')
            out.push_back(field);
        at += f.width;
    }
    EXPECT_EQ(line.find_first_not_of(' ', at), std::string::npos) << whole;
    return out;
}

std::string trimmed(const std::string& field) {
    const std::size_t first = field.find_first_not_of(' ');
    return first == std::string::npos
               ? ""
               : field.substr(first, field.find_last_not_of(' ') + 1 - first);
}

const std::map<std::string, std::string> kHeaderFormats{
    {"RINEX VERSION / TYPE", "F9.2,11X,A20,A1,19X"},
    {"PGM / RUN BY / DATE", "A20,A20,A20"},
    {"MARKER NAME", "A60"},
    {"MARKER NUMBER", "A20,40X"},
    {"MARKER TYPE", "A20,40X"},
    {"OBSERVER / AGENCY", "A20,A40"},
    {"REC # / TYPE / VERS", "3A20"},
    {"ANT # / TYPE", "2A20,20X"},
    {"APPROX POSITION XYZ", "3F14.4,18X"},
    {"ANTENNA: DELTA H/E/N", "3F14.4,18X"},
    {"SYS / # / OBS TYPES", "A1,2X,I3,13(1X,A3),2X"},
    {"SIGNAL STRENGTH UNIT", "A20,40X"},
    {"INTERVAL", "F10.3,50X"},
    {"TIME OF FIRST OBS", "5I6,F13.7,5X,A3,9X"},
    {"TIME OF LAST OBS", "5I6,F13.7,5X,A3,9X"},
    {"SYS / PHASE SHIFT", "A1,1X,A3,1X,F8.5,2X,I2.2,10(1X,A3),2X"},
    {"GLONASS SLOT / FRQ #", "I3,1X,8(A1,I2.2,1X,I2,1X)"},
    {"GLONASS COD/PHS/BIS", "4(1X,A3,1X,F8.3),8X"},
    {"LEAP SECONDS", "4I6,A3,33X"},
    {"END OF HEADER", "60X"}};
const std::vector<std::string> kMandatory{
    "RINEX VERSION / TYPE", "PGM / RUN BY / DATE", "MARKER NAME",       "MARKER TYPE",
    "OBSERVER / AGENCY",    "REC # / TYPE / VERS", "ANT # / TYPE",      "APPROX POSITION XYZ",
    "ANTENNA: DELTA H/E/N", "SYS / # / OBS TYPES", "TIME OF FIRST OBS", "SYS / PHASE SHIFT",
    "GLONASS SLOT / FRQ #", "GLONASS COD/PHS/BIS", "END OF HEADER"};

struct ReadEpoch {
    double gpsS = 0;                                                 // since 6 January 1980
    std::map<std::string, std::map<std::string, double>> satellites; // values by type
};
struct ReadFile {
    std::map<std::string, std::vector<std::vector<std::string>>> header; // by label
    std::map<char, std::vector<std::string>> types;
    std::vector<ReadEpoch> epochs;

    std::string field(const std::string& label, std::size_t i) const {
        return header.contains(label) ? trimmed(header.at(label)[0].at(i)) : "none";
    }
};

/// Seconds of GPS time of year, month, day, hour, minute, second.
double gpsSeconds(const std::vector<std::string>& f, std::size_t at) {
    const auto n = [&](std::size_t i) { return std::stoi(f.at(at + i)); };
    const std::chrono::sys_days day{std::chrono::year(n(0)) / n(1) / n(2)};
    return 86400.0 * (static_cast<double>(day.time_since_epoch().count()) - 3657) + 3600 * n(3) +
           60 * n(4) + std::stod(f.at(at + 5));
}

void readTypes(ReadFile& file) {
    char system = 0;
    std::size_t expected = 0;
    for (const auto& f : file.header["SYS / # / OBS TYPES"]) {
        if (f[0] != " ") {
            system = f[0][0];
            expected = std::stoul(f[1]);
        }
        for (std::size_t i = 2; i < f.size() && file.types[system].size() < expected; ++i)
            file.types[system].push_back(f[i]);
        EXPECT_LE(file.types[system].size(), expected);
    }
}

/// Reads a file; what is not as the standard has it is a failure.
ReadFile readRinex(const std::string& content) {
    ReadFile file;
    std::istringstream in(content);
    std::string line;
    while (!file.header.contains("END OF HEADER") && std::getline(in, line)) {
        EXPECT_TRUE(line.size() > 60 && line.size() <= 80) << line;
        const std::string label = line.size() > 60 ? line.substr(60) : "";
        const auto format = kHeaderFormats.find(label);
        EXPECT_TRUE(format != kHeaderFormats.end()) << line;
        if (format != kHeaderFormats.end())
            file.header[label].push_back(readBy(format->second, line.substr(0, 60)));
    }
    readTypes(file);
    for (const std::string& label : kMandatory)
        EXPECT_EQ(file.header.contains(label),
                  label.substr(0, 7) != "GLONASS" || file.types.contains('R'))
            << label;
    while (std::getline(in, line)) {
        const auto head = readBy("A1,1X,I4,4(1X,I2.2),F11.7,2X,I1,I3", line);
        EXPECT_EQ(head[0] + head[7], ">0") << line;
        ReadEpoch epoch{gpsSeconds(head, 1), {}};
        for (int left = std::stoi(head[8]); left > 0 && std::getline(in, line); --left) {
            const auto& types = file.types[line[0]];
            const auto f =
                readBy("A1,I2.2," + std::to_string(types.size()) + "(F14.3,I1,I1)", line);
            auto& values = epoch.satellites[f[0] + f[1]];
            for (std::size_t i = 0; i < types.size(); ++i)
                if (!trimmed(f[2 + 3 * i]).empty())
                    values[types[i]] = std::stod(f[2 + 3 * i]);
        }
        EXPECT_EQ(epoch.satellites.size(), std::stoul(head[8])) << line;
        file.epochs.push_back(epoch);
    }
    return file;
}

/// Values of an epoch as RINEX has them, by the band of their type ("C1"), of the columns that are
/// saved.
std::map<std::string, std::map<std::string, double>> expectedValues(const ref::Expected& epoch,
                                                                    const ref::Expectation& e) {
    std::map<std::string, std::map<std::string, double>> out;
    for (const auto& [sat, columns] : epoch.observed) {
        if (sat[0] == 'J' || std::none_of(columns.begin(), columns.end(), [](const auto& c) {
                return c.second.phaseRangeM.has_value();
            }))
            continue;
        auto& values = out[sat];
        for (const auto& column : columns) {
            const char band = column.first;
            const ref::Cell& c = column.second;
            if (c.system == 'E' && band == '7')
                continue;
            const double perM =
                ref::frequencyHz(c.system, c.signal, c.system == 'R' ? e.channels.at(c.id) : 0) /
                ref::kLightSpeed;
            const auto put = [&](char type, double value) {
                if (std::lround(value * 1000) != 0)
                    values[{type, band}] = value;
            };
            put('C', c.pseudorangeM.value_or(0));
            put('L', c.phaseRangeM.value_or(0) * perM);
            put('D', -c.rateMps.value_or(0) * perM); // positive for a satellite that comes near
            put('S', c.cnr);
        }
        if (values.empty())
            out.erase(sat);
    }
    return out;
}

/// `kestrunectl rinex`, from the folder of the sources, with both of its streams.
Ran rinex(const std::string& arguments) {
    const fs::path before = fs::current_path();
    fs::current_path(kSourceFolder);
    Ran ran = runInShell(kCtlProgram, "rinex " + arguments + " 2>&1");
    fs::current_path(before);
    return ran;
}

/// A satellite's line as it is saved.
std::string saved(const std::string& name, std::initializer_list<const char*> values, int blanks) {
    std::string out = name;
    for (const char* const value : values)
        out += text("%14s  ", value);
    for (; blanks > 0; --blanks)
        out += "         0.000  ";
    return out + " \n";
}

const std::string kG05 = saved("G05", {"21000000.568", "110000000.123", "-1234.567", "45.250"}, 8);
const std::string kR07 = saved("R07", {"19000000.500", "101000000.250", "2500.750", "41.000"}, 4);
const std::string kOptions = " --position=-4467074.3577,2683011.9038,-3667008.2845 ";

/// An epoch of day 5 of 2024.
std::string epochAt(const char* time, std::initializer_list<std::string> lines) {
    std::string out = text("> 2024  1  5 %s  0%3zu\n", time, lines.size());
    for (const std::string& line : lines)
        out += line;
    return out;
}

} // namespace

TEST(Rinex, HasWhatTheStreamCarriedOverMidnight) {
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, "2018-07-12 23:59:30", {.switches = {"-rawsav"}});
    ref::Sky sky(kSite);
    Bytes stream;
    const auto send = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames)
            stream.insert(stream.end(), f.begin(), f.end());
    };
    const ref::GpsTime start{2009, 432000 - 3};
    send(sky.ephemerisFrames(start));
    for (int i = 0; i < 6; ++i)
        send(sky.epochFrames(start + 1.0 * i, 7));
    std::vector<ref::Expected> owed = ref::SpecifiedPredictor(expectation()).take(stream);
    ASSERT_TRUE(peer.accept());
    peer.exchange(stream, 4096, static_cast<int>(owed.size()));
    std::erase_if(owed, [](const ref::Expected& x) { return x.type != 0; });
    const std::string out = service.out().string();
    const Ran ran = rinex("--deployment " + (service.folder / "vrs.json").string() + " -o " + out +
                          " --signals 'G=1C,2W,5Q R=1P,2P E=1X,5X,6X C=2I,6I,7I' --receiver RX " +
                          out + "/str21940.18o " + out + "/str21930.18o");
    EXPECT_EQ(ran.status, 0) << ran.output;
    const std::string name = "/STR200XXX_S_20181932359_01M_01S_MO.rnx";
    EXPECT_TRUE(contains(ran.output, out + name +
                                         ": 6 epochs, 2018-07-12 23:59:57 to 2018-07-13 "
                                         "00:00:02 GPS time, every 1 s\n"))
        << ran.output;
    const ReadFile file = readRinex(readFile(out + name));
    ASSERT_EQ(owed.size(), 6U);
    ASSERT_EQ(file.epochs.size(), owed.size());
    std::map<std::string, int> rates;
    for (std::size_t i = 0; i < owed.size(); ++i) {
        const ReadEpoch& got = file.epochs[i];
        EXPECT_NEAR(got.gpsS, owed[i].time.week * ref::kWeekS + owed[i].time.sow, 1e-6);
        const auto expected = expectedValues(owed[i], expectation());
        EXPECT_EQ(got.satellites.size(), expected.size());
        for (const auto& [sat, values] : expected) {
            ASSERT_TRUE(got.satellites.contains(sat)) << sat;
            EXPECT_EQ(got.satellites.at(sat).size(), values.size()) << sat;
            for (const auto& [type, value] : got.satellites.at(sat)) {
                const auto wanted = values.find(type.substr(0, 2));
                ASSERT_TRUE(wanted != values.end()) << sat << type;
                const double single = type[0] == 'D' ? std::abs(value) * 1e-7 : 0; // precision
                EXPECT_NEAR(value, wanted->second, 0.00051 + single) << sat << type;
                rates[value > 0 ? "approaching" : "leaving"] += type[0] == 'D' ? 1 : 0;
            }
        }
    }
    EXPECT_GT(rates["approaching"], 100); // else no sign was compared
    EXPECT_GT(rates["leaving"], 100);
    EXPECT_EQ(file.types.at('G')[5], "L2W");
    EXPECT_EQ(file.field("APPROX POSITION XYZ", 2), "-3667008.2845");
    EXPECT_EQ(file.field("ANT # / TYPE", 1), "TRM59800.00     NONE");
    EXPECT_EQ(file.field("GLONASS SLOT / FRQ #", 0), "24");
    EXPECT_EQ(file.header.at("GLONASS SLOT / FRQ #")[1][6], "-7"); // R10
    EXPECT_EQ(file.field("LEAP SECONDS", 0), "18");
    EXPECT_EQ(gpsSeconds(file.header.at("TIME OF FIRST OBS")[0], 0), file.epochs[0].gpsS);
}

TEST(Rinex, StandsInTheColumnsOfTheStandard) {
    const check::Scratch s;
    s.write("abcd0050.24o", epochAt("23 59 59.9500000", {kG05, kR07}));
    s.write("abcd0060.24o", replaced(epochAt(" 0  0  0.0000000", {kG05}), "1  5", "1  6"));
    const Ran ran = rinex(kOptions +
                          "--marker 'ABCD 7' --marker-number 50119M002 --observer me "
                          "--agency us --receiver-number 5 --receiver 'RX 1' "
                          "--receiver-version 2.1 --antenna-number 77 --antenna "
                          "'TRM59800.00 SCIS' --antenna-delta 0.5,0.25,-1 --signals "
                          "G=1C --channels R07=5,R08=-7 --run-by op " +
                          s.path + "abcd0050.24o " + s.path + "abcd0060.24o -o " + s.path + "out");
    EXPECT_EQ(ran.status, 0) << ran.output;
    std::string content = readFile(s.path + "out");
    EXPECT_EQ(readRinex(content).epochs.size(), 2U);
    content.replace(content.find("op  ") + 20, 19, "19800106 000000 UTC");
    EXPECT_EQ(content.substr(0, 20), "     3.05           ");
    // clang-format off
    EXPECT_EQ(content.substr(content.find('\n') + 1 + 20),
        "op                  19800106 000000 UTC PGM / RUN BY / DATE\n"
        "ABCD 7                                                      MARKER NAME\n"
        "50119M002                                                   MARKER NUMBER\n"
        "GEODETIC                                                    MARKER TYPE\n"
        "me                  us                                      OBSERVER / AGENCY\n"
        "5                   RX 1                2.1                 REC # / TYPE / VERS\n"
        "77                  TRM59800.00     SCIS                    ANT # / TYPE\n"
        " -4467074.3577  2683011.9038 -3667008.2845                  APPROX POSITION XYZ\n"
        "        0.5000        0.2500       -1.0000                  ANTENNA: DELTA H/E/N\n"
        "G    4 C1C L1C D1C S1C                                      SYS / # / OBS TYPES\n"
        "R    4 C1  L1  D1  S1                                       SYS / # / OBS TYPES\n"
        "DBHZ                                                        SIGNAL STRENGTH UNIT\n"
        "     0.050                                                  INTERVAL\n"
        "  2024     1     5    23    59   59.9500000     GPS         TIME OF FIRST OBS\n"
        "  2024     1     6     0     0    0.0000000     GPS         TIME OF LAST OBS\n"
        "G                                                           SYS / PHASE SHIFT\n"
        "R                                                           SYS / PHASE SHIFT\n"
        "  2 R07  5 R08 -7                                           GLONASS SLOT / FRQ #\n"
        "                                                            GLONASS COD/PHS/BIS\n"
        "    18                                                      LEAP SECONDS\n"
        "                                                            END OF HEADER\n"
        "> 2024 01 05 23 59 59.9500000  0  2\n"
        "G05  21000000.568   110000000.123        1234.567          45.250\n"
        "R07  19000000.500   101000000.250       -2500.750          41.000\n"
        "> 2024 01 06 00 00  0.0000000  0  1\n"
        "G05  21000000.568   110000000.123        1234.567          45.250\n");
    // clang-format on
}

TEST(Rinex, NamesWhatItCannotRead) {
    const std::string good = epochAt("08 20 30.0000000", {kG05, kR07});
    const struct {
        std::string content;
        int line;
        std::string told;
        std::string satellites; // that are left, by epoch
    } cases[] = {
        {replaced(good, "45.250", "4x.250"), 2, "G05 S1 is no number: \"        4x.250\"", "R07"},
        {replaced(good, " 110000000.123", "110000000.1234"), 2, "G05 L1 is no number", "R07"},
        {replaced(good, "      -1234.567  ", "      -1234.567 7"), 2,
         "G05 D1 has something behind it", "R07"},
        {replaced(good, "     -1234.567", "1234567890.123"), 2, "G05 D1 is too large", "R07"},
        {replaced(good, "      2500.750  ", ""), 3, "the line of R07 has", "G05"},
        {good.substr(0, good.size() - 30), 3, "the line of R07 has", "G05"}, // cut off
        {replaced(good, "R07", "Q07"), 3, "no satellite's line begins like this: \"Q07", "G05"},
        {epochAt("08 20 30.0000000", {kG05, kG05}), 3, "G05 is in this epoch already", "G05"},
        {replaced(good, "0  2\n", "0  3\n"), 1, "the epoch says 3 lines and has 2", "G05 R07"},
        {replaced(good, "30.0", "61.0"), 1,
         "no epoch of 1980 to 2099 begins like this: \"> 2024  1  5 08 20 61.0", ""},
        {replaced(good, "2024", "2100"), 1, "no epoch of 1980 to 2099 begins like this: \"> 2100",
         ""},
        {replaced(good, " 1  5", " 2 30"), 1, "left out, with 2 lines behind it", ""},
        {"\x1B[2J\n" + good, 1, "this belongs to no epoch: \"?[2J\"", "G05 R07"},
        {good + replaced(good, "45.250", "46.000"), 4,
         "the epoch is there already with other values, in FILE:1", "G05 R07"},
    };
    const std::string after = epochAt(" 8 20 31.0000000", {kG05});
    for (const auto& c : cases) {
        const check::Scratch s;
        const std::string in =
            s.write("abcd0050.24o", c.content.ends_with('\n') ? c.content + after : c.content);
        const Ran ran = rinex(kOptions + in + " -o " + s.path + "out");
        EXPECT_EQ(ran.status, 1) << ran.output;
        const std::string line = in + ":" + std::to_string(c.line) + ": warning: ";
        const std::size_t at = ran.output.find(line);
        ASSERT_NE(at, std::string::npos) << c.told << "\n" << ran.output;
        EXPECT_NE(ran.output.find(replaced(c.told, "FILE", in), at), std::string::npos)
            << c.told << "\n"
            << ran.output;
        std::string left;
        const std::string out = readFile(s.path + "out");
        const ReadFile file = out.empty() ? ReadFile{} : readRinex(out);
        for (const auto& [sat, values] : file.epochs.at(0).satellites)
            left += (left.empty() ? "" : " ") + sat;
        EXPECT_EQ(left, c.satellites.empty() ? "G05" : c.satellites) << c.told;
        const bool second = !c.satellites.empty() && c.content.ends_with('\n');
        EXPECT_EQ(file.epochs.size(), second ? 2U : 1U) << c.told;
    }
}

TEST(Rinex, JoinsFilesInTheOrderOfTimeAndTellsWhatIsNoFault) {
    const check::Scratch s;
    const std::string j02 = "J02 \n";
    // A second of 60 rounds a time up: it is the midnight of the next day.
    s.write("abcd0050.24o", epochAt("12  0  0.0000000", {kG05, j02}) +
                                epochAt("11 59 30.0000000", {kG05, saved("R09", {}, 8)}) +
                                epochAt("23 59 60.0000000", {kG05}));
    s.write("abcd0060.24o",
            replaced(epochAt(" 0  0  0.0000000", {kG05}) + epochAt(" 0  0 30.0000000", {j02}) +
                         epochAt(" 0  1  0.0000000", {kG05}),
                     "1  5", "1  6"));
    const std::string files = s.path + "abcd0060.24o " + s.path + "abcd0050.24o ";
    const Ran ran = rinex(kOptions + files + "-o -");
    EXPECT_EQ(ran.status, 0) << ran.output;
    for (const char* part :
         {"abcd0050.24o: its epochs are not in the order", "1 epoch is there again",
          "J: 2 lines of satellites", "R: 1 line of satellites without a value",
          "which signal they have of G1;", "not given: --receiver --antenna"})
        EXPECT_TRUE(contains(ran.output, part)) << part << "\n" << ran.output;
    EXPECT_FALSE(contains(ran.output, "channel")) << ran.output; // R09 has no line
    rinex(kOptions + files + "-o " + s.path + "out");
    std::vector<double> times;
    for (const ReadEpoch& e : readRinex(readFile(s.path + "out")).epochs)
        times.push_back(e.gpsS - 1388448000); // 5 January 2024
    EXPECT_EQ(times, (std::vector<double>{43170, 43200, 86400, 86460}));
}

TEST(Rinex, RefusesWhatCannotBeMeant) {
    const check::Scratch s;
    const std::string in = s.write("abcd0050.24o", epochAt("08 20 30.0000000", {kG05}));
    const std::string other = s.write("efgh0050.24o", epochAt("08 20 31.0000000", {kG05}));
    s.write("out", "precious\n");
    s.write("whole.rnx", text("%-60sRINEX VERSION / TYPE\n", "     3.05"));
    s.write("empty.24o", "");
    const struct {
        std::string arguments;
        int status;
        std::string told;
    } cases[] = {
        {in, 2, "where does the antenna stand?"},
        {kOptions + in + " -o " + s.path + "out", 2, "is there already"},
        {kOptions + in + " --force -o " + in, 2, "would replace what is read"},
        {kOptions + in + " " + other, 2, "is of the station EFGH, not ABCD"},
        {kOptions + s.path + "whole.rnx --marker A", 2, "whole.rnx:1: has a header"},
        {kOptions + s.path + "empty.24o", 2, "does not tell the station"},
        {kOptions + s.path + "empty.24o --marker A", 1, "no epoch was found"},
        {kOptions + in + " --signals G=1C,2W,2L", 2, "not 2W and 2L"},
        {kOptions + in + " --signals G=7I", 2, "\"7I\" is no signal"},
        {kOptions + in + " --channels R07=8", 2, "write them as R01=1"},
        {in + " --position 1,2", 2, "three numbers of metres"},
        {kOptions + in + " --antenna 'a very long name of an antenna'", 2, "at most 20 characters"},
        {kOptions + in + " -o " + s.path + "none/out", 2, "No such file or directory"}};
    for (const auto& c : cases) {
        const Ran ran = rinex(c.arguments);
        EXPECT_EQ(ran.status, c.status) << c.arguments << "\n" << ran.output;
        EXPECT_TRUE(contains(ran.output, c.told)) << ran.output;
    }
    EXPECT_EQ(readFile(s.path + "out"), "precious\n");
    EXPECT_EQ(rinex(kOptions + in + " --force -o " + s.path + "out").status, 0);
    EXPECT_NE(readFile(s.path + "out"), "precious\n");
}

TEST(Rinex, TakesFromTheStatusWhatTheSenderSays) {
    const check::Scratch s;
    const std::string in = s.write("abcd0050.24o", epochAt("08 20 30.0000000", {kG05, kR07}));
    const std::string status = s.write("status", R"({"format": "kestrune-status-1",
        "station": "ABCD", "sender": {"receiver": "RX 1", "receiver_serial": "5",
        "firmware": "2.1 of a name that is too long", "antenna": "TRM59800.00     SCIS",
        "antenna_serial": "77", "channels": {"R07_channel": 5, "R08_channel": 99}},
        "systems": {"G": {"signals": {"1C": {}, "2W": {}}},
                    "R": {"signals": {"1C": {}, "1P": {}, "id 9": {}}}, "xx": {"signals": {"1C": {}}}}})");
    EXPECT_EQ(rinex(kOptions + in + " --receiver RX2 --status " + status + " -o " + s.path + "out")
                  .status,
              0);
    const ReadFile file = readRinex(readFile(s.path + "out"));
    EXPECT_EQ(file.header.at("REC # / TYPE / VERS")[0],
              (std::vector<std::string>{"5                   ", "RX2                 ",
                                        "2.1 of a name that i"}));
    EXPECT_EQ(file.header.at("ANT # / TYPE")[0],
              (std::vector<std::string>{"77                  ", "TRM59800.00     SCIS"}));
    EXPECT_EQ(file.header.at("GLONASS SLOT / FRQ #")[0][3], " 5");
    EXPECT_EQ(file.types.at('G')[0], "C1C");
    EXPECT_EQ(file.types.at('R')[0], "C1 "); // two signals: unknown
}

TEST(Rinex, NamesItsFileByStationTimePeriodAndInterval) {
    constexpr std::int64_t second = ctl::rinex::kTicksPerSecond;
    constexpr std::int64_t day = ctl::rinex::kTicksPerDay;
    ctl::rinex::Header h;
    h.firstTicks = 60314 * day + 30030 * second; // 5 January 2024, 08:20:30
    const struct {
        const char* marker;
        std::map<char, std::vector<std::string>> types;
        double periodS, intervalS; // the first to the last epoch
        const char* name;
    } cases[] = {
        {"ABCD00AUS", {{'G', {}}, {'R', {}}}, 86370, 30, "ABCD00AUS_S_20240050820_01D_30S_MO.rnx"},
        {"abcd", {{'E', {}}}, 86371, 1, "ABCD00XXX_S_20240050820_01D_01S_EO.rnx"},
        {"a.b", {{'C', {}}}, 899.9, 0.1, "ABXX00XXX_S_20240050820_15M_10Z_CO.rnx"},
        {"ABCD 12345", {{'G', {}}}, 3 * 86400, 300, "ABCD00XXX_S_20240050820_04D_05M_GO.rnx"},
        {"ABCD", {{'G', {}}}, 0, 0, "ABCD00XXX_S_20240050820_01M_00U_GO.rnx"},
        {"ABCD", {{'G', {}}}, 3600, 0.002, "ABCD00XXX_S_20240050820_02H_00U_GO.rnx"}};
    for (const auto& c : cases) {
        h.marker = c.marker;
        h.types = c.types;
        h.lastTicks = h.firstTicks + std::llround(c.periodS * second);
        h.intervalTicks = std::llround(c.intervalS * second);
        EXPECT_EQ(ctl::rinex::longName(h), c.name);
    }
}
