#include "ctl/Describe.h"

#include "common/ComCoord.h"
#include "common/Findings.h"
#include "ctl/FieldTables.h"
#include "rtcm/Frame.h"

#include <array>
#include <string>
#include <utility>

namespace ctl::dump {

namespace {

using Frame = std::span<const std::uint8_t>;

struct NamedType {
    int first, last;
    const char* name;
};
// clang-format off
constexpr std::array kNamedTypes{
    NamedType{63, 63, "BDS ephemeris, preliminary"},
    NamedType{1001, 1001, "GPS L1"}, NamedType{1002, 1002, "GPS L1 extended"},
    NamedType{1003, 1003, "GPS L1/L2"}, NamedType{1004, 1004, "GPS L1/L2 extended"},
    NamedType{1005, 1005, "reference point"}, NamedType{1006, 1006, "reference point, height"},
    NamedType{1007, 1007, "antenna"}, NamedType{1008, 1008, "antenna, serial number"},
    NamedType{1009, 1009, "GLONASS L1"}, NamedType{1010, 1010, "GLONASS L1 extended"},
    NamedType{1011, 1011, "GLONASS L1/L2"}, NamedType{1012, 1012, "GLONASS L1/L2 extended"},
    NamedType{1013, 1013, "system parameters"},
    NamedType{1014, 1017, "network corrections"}, NamedType{1019, 1019, "GPS ephemeris"},
    NamedType{1020, 1020, "GLONASS ephemeris"}, NamedType{1021, 1027, "transformation"},
    NamedType{1029, 1029, "text"}, NamedType{1030, 1031, "network residuals"},
    NamedType{1032, 1032, "physical reference point"},
    NamedType{1033, 1033, "antenna and receiver"}, NamedType{1034, 1035, "FKP gradients"},
    NamedType{1037, 1039, "network corrections"}, NamedType{1041, 1041, "NavIC ephemeris"},
    NamedType{1042, 1042, "BDS ephemeris"}, NamedType{1044, 1044, "QZSS ephemeris"},
    NamedType{1045, 1045, "Galileo F/NAV ephemeris"},
    NamedType{1046, 1046, "Galileo I/NAV ephemeris"},
    NamedType{1057, 1068, "orbit and clock corrections"},
    NamedType{1230, 1230, "GLONASS biases"}};

struct SystemName {
    char letter;
    const char* name;
    const char* timeScale; // of its epoch times
};
/// By the tens of the message number from 107 on.
constexpr std::array<SystemName, kMsmSystems.size()> kSystemNames{{
    {'G', "GPS", "GPS"}, {'R', "GLONASS", "Moscow"}, {'E', "Galileo", "GST"}, {'S', "SBAS", "GPS"},
    {'J', "QZSS", "QZSS"}, {'C', "BDS", "BDT"}, {'I', "NavIC", "NavIC"}}};
// clang-format on

std::size_t systemRow(int msmType) {
    return static_cast<std::size_t>((msmType - 1070) / 10);
}

/// "G05"; SBAS by the RINEX rule, PRN minus 100.
std::string satelliteName(char system, int number) {
    return text("%c%02d", system, number);
}

std::string clockText(std::uint32_t ms) {
    return text("%02u:%02u:%02u.%03u", ms / 3600000U, ms / 60000U % 60U, ms / 1000U % 60U,
                ms % 1000U);
}

/// The last 20 s of the field stand for times below zero, as the service reads them.
std::string towText(const char* scale, std::uint32_t ms) {
    constexpr std::uint32_t fieldEnd = 1U << 30;
    if (ms >= fieldEnd - 20000)
        return text("%s tow -%u.%03u", scale, (fieldEnd - ms) / 1000U, (fieldEnd - ms) % 1000U);
    return text("%s tow %u.%03u%s", scale, ms / 1000U, ms % 1000U,
                ms <= 604800000U ? "" : " (no time)");
}

/// Day of week as DF416: 0 = Sunday, 7 = unknown.
std::string moscowText(std::uint32_t ms, std::uint32_t day) {
    constexpr std::array days{"Sun ", "Mon ", "Tue ", "Wed ", "Thu ", "Fri ", "Sat ", ""};
    return text("Moscow %s%s", days[day & 7U], clockText(ms).c_str());
}

std::string utcText(int mjd, int secondsOfDay) {
    constexpr int unixMjd = 40587;
    if (mjd < unixMjd)
        return text("UTC MJD %d, %d s", mjd, secondsOfDay);
    const CalendarTime c = time2epoch({std::int64_t{86400} * (mjd - unixMjd) + secondsOfDay, 0.0});
    return text("UTC %04.0f-%02.0f-%02.0f %02.0f:%02.0f:%02.0f", c[0], c[1], c[2], c[3], c[4],
                c[5]);
}

/// Reads the frame into the record and the description's fields; false, with no fields, where the
/// message ends before its layout does.
template <class Layout, class Record>
bool read(Description& d, Frame frame, const Layout& layout, const FieldNames& names,
          Record& record) {
    FieldReader in(messageOf(frame), names);
    layout(in, record);
    d.tooShort = !in.ok();
    d.decoded = in.ok();
    if (!in.ok())
        return false;
    d.bytesBeyond = in.left() / 8;
    d.fields = std::move(in.fields());
    return true;
}

/// The same, with the fields of the head alone.
template <class Layout, class Record, class HeadLayout, class Head>
bool readWithHead(Description& d, Frame frame, const Layout& layout, Record& record,
                  const HeadLayout& headLayout, Head& head, const FieldNames& names) {
    BitReader in = messageOf(frame);
    layout(in, record);
    d.tooShort = !in.ok();
    if (!in.ok())
        return false;
    read(d, frame, headLayout, names, head);
    d.bytesBeyond = in.left() / 8;
    return true;
}

Value orNone(double value) {
    return isNone(value) ? Value{} : Value{value};
}

/// Name of an MSM signal, "1C"; by its id where it has none, "#13".
std::string signalName(const MsmSystem& system, int id) {
    const std::uint8_t code = system.codes[static_cast<std::size_t>(id)];
    return code ? std::string(obscodes[code]) : text("#%d", id);
}

void addCell(Description& d, const MsmMessage& m, const MsmForm& form, std::size_t satellite,
             std::size_t signal, const MsmCell& cell) {
    const MsmSatellite& s = m.satellites[satellite];
    const double roughMs = s.hasRange() ? s.roughMs() : kNone;
    std::vector<Value> row{(*d.satellites)[satellite], d.signals[signal],
                           orNone((roughMs + cell.rangeMs) * kRangeMs),
                           orNone((roughMs + cell.phaseMs) * kRangeMs)};
    if (form.rates)
        row.push_back(orNone(s.rateMps + cell.rateMps));
    row.emplace_back(std::int64_t{cell.lock});
    row.emplace_back(static_cast<double>(lockMs(form, cell.lock)) * 1e-3);
    row.emplace_back(std::int64_t{cell.halfCycle});
    row.push_back(cell.cnrDb > 0.0 ? Value{cell.cnrDb} : Value{});
    d.rows.push_back(std::move(row));
}

void describeMsm(Description& d, Frame frame) {
    const std::size_t row = systemRow(d.type);
    const auto names = fields::msmHead(fields::kEpochDf[row]);
    MsmMessage m;
    if (!readWithHead(d, frame, layoutMsm, m, layoutMsmHead, m.head, {names}))
        return;
    const SystemName& system = kSystemNames[row];
    const MsmSystem& table = msmSystem(d.type);
    const MsmForm& form = msmForm(d.type);
    d.station = m.head.staid;
    d.more = m.head.more != 0;
    d.time = table.system == kGlonass ? moscowText(m.head.epoch & 0x7FFFFFFU, m.head.epoch >> 27)
                                      : towText(system.timeScale, m.head.epoch);
    std::array<int, kMsmSatellites> ids{};
    std::array<int, kMsmSignals> signalIds{};
    d.satellites.emplace();
    const std::size_t satellites = listBits(m.head.satellites, ids);
    const std::size_t signals = listBits(m.head.signals, signalIds);
    for (std::size_t i = 0; i < satellites; ++i)
        d.satellites->push_back(
            satelliteName(system.letter, ids[i] + (system.letter == 'S' ? 19 : 0)));
    for (std::size_t j = 0; j < signals; ++j)
        d.signals.push_back(signalName(table, signalIds[j]));
    d.columns = {{"sat", "satellite"},
                 {"signal", "signal"},
                 {"pseudorange m", "pseudorange_m", 4},
                 {"phase range m", "phase_range_m", 4}};
    if (form.rates)
        d.columns.push_back({"rate m/s", "rate_mps", 4});
    for (const Column& c : {Column{"lock", "lock"}, Column{"lock s", "lock_s", 3},
                            Column{"half cycle", "half_cycle"}, Column{"CNR dB-Hz", "cnr_dbhz", 2}})
        d.columns.push_back(c);
    std::size_t cell = 0;
    for (std::size_t i = 0; i < satellites; ++i)
        for (std::size_t j = 0; j < signals; ++j)
            if (m.hasCell(i, j))
                addCell(d, m, form, i, j, m.cells[cell++]);
}

/// L1 and L2 of a satellite. Without its ambiguity a range is known modulo one or two ms of light.
void addLegacyRows(Description& d, const LegacySatellite& s, const LegacyForm& form,
                   const std::string& name) {
    const double rangeM = l1RangeM(s, form.glonass);
    const auto add = [&](std::string signal, double range, double phase, int lock, double cnr) {
        std::vector<Value> row{name, std::move(signal), orNone(range), orNone(phase),
                               std::int64_t{lock}};
        if (form.extended)
            row.push_back(cnr > 0.0 ? Value{cnr} : Value{});
        d.rows.push_back(std::move(row));
    };
    // by its value where it has none, "#2"
    const auto signalOf = [](const IndicatedSignals& signals, int indicator) {
        const std::string_view signal = signals[static_cast<std::size_t>(indicator)];
        return signal.empty() ? text("#%d", indicator) : std::string(signal);
    };
    add(signalOf(kL1Signals, s.code1), rangeM, rangeM + s.phase1M, s.lock1, s.cnr1Db);
    if (form.l2)
        add(signalOf(l2Signals(form.glonass), s.code2), rangeM + s.range2M, rangeM + s.phase2M,
            s.lock2, s.cnr2Db);
}

void describeLegacy(Description& d, Frame frame) {
    const LegacyForm form = legacyForm(d.type);
    const auto names = fields::legacyHead(form.glonass);
    LegacyMessage m;
    if (!readWithHead(d, frame, layoutLegacy, m, layoutLegacyHead, m.head, {names}))
        return;
    d.station = m.head.staid;
    d.more = m.head.more != 0;
    d.time = form.glonass ? moscowText(m.head.epochMs, 7) : towText("GPS", m.head.epochMs);
    d.columns = {{"sat", "satellite"},
                 {"signal", "signal"},
                 {form.extended ? "pseudorange m" : "range modulo m", "pseudorange_m", 4},
                 {form.extended ? "phase range m" : "phase modulo m", "phase_range_m", 4},
                 {"lock", "lock"}};
    if (form.extended)
        d.columns.push_back({"CNR dB-Hz", "cnr_dbhz", 2});
    d.satellites.emplace();
    for (const LegacySatellite& s :
         std::span(m.satellites.data(), static_cast<std::size_t>(m.head.satellites))) {
        const bool sbas = !form.glonass && s.id >= 40; // PRN 120 on
        const std::string name = satelliteName(form.glonass ? 'R'
                                               : sbas       ? 'S'
                                                            : 'G',
                                               sbas ? s.id - 20 : s.id);
        d.satellites->push_back(name);
        addLegacyRows(d, s, form, name);
    }
}

template <class Layout>
void describeKepler(Description& d, Frame frame, const Layout& layout,
                    std::span<const FieldName> names, char system, const char* week) {
    WireEph w;
    if (!read(d, frame, layout, {names}, w))
        return;
    d.satellites = {satelliteName(system, w.id)};
    d.time = text("toe %s week %d tow %.0f", week, w.week, w.toe);
    d.note = text("health %d, issue %d", w.svh, w.iode);
}

void describeGlonass(Description& d, Frame frame) {
    WireGlonass w;
    if (!read(d, frame, layout1020, {fields::k1020}, w))
        return;
    d.satellites = {satelliteName('R', w.slot)};
    d.time = text("tb Moscow %02d:%02d", w.tb / 4, w.tb % 4 * 15);
    d.note = text("health %d, channel %+d", w.health, w.channel - 7);
}

template <class Layout>
void describePosition(Description& d, Frame frame, const Layout& layout,
                      std::span<const FieldName> names) {
    WirePosition w;
    if (!read(d, frame, layout, {names}, w))
        return;
    d.station = w.staid;
    d.note = text("X %.4f Y %.4f Z %.4f m", w.pos[0], w.pos[1], w.pos[2]);
    if (std::hypot(w.pos[0], w.pos[1], w.pos[2]) > 6.0e6) { // else no place on the ground
        const Vector3 blh = xyzblh(w.pos, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
        constexpr double degrees = 180.0 / kPi;
        d.note += text(" (%.7f, %.7f deg, %.2f m)", blh[0] * degrees,
                       std::remainder(blh[1] * degrees, 360.0), blh[2]);
    } else {
        d.note += " (not on the ground)";
    }
    if (d.type == 1006)
        d.note += text(", antenna height %.4f m", w.hgt);
}

/// "TRM59800.00 NONE", with quotes; empty texts are told.
std::string quoted(const Descriptor& d) {
    return '"' + clean(view(d)) + '"';
}

template <class Layout>
void describeAntenna(Description& d, Frame frame, const Layout& layout,
                     std::span<const FieldName> names) {
    WireStation w;
    if (!read(d, frame, layout, {names}, w))
        return;
    d.station = w.staid;
    d.note = "antenna " + quoted(w.sta.antdes);
    if (d.type != 1007)
        d.note += " no. " + quoted(w.sta.antsno);
    if (d.type == 1033)
        d.note += ", receiver " + quoted(w.sta.rectype) + " version " + quoted(w.sta.recver) +
                  " no. " + quoted(w.sta.recsno);
}

void describeParameters(Description& d, Frame frame) {
    SystemParameters m;
    if (!read(d, frame, layout1013, {fields::k1013, fields::k1013Announced}, m))
        return;
    d.station = m.staid;
    d.time = utcText(m.mjd, m.secondsOfDay);
    d.note = text("GPS - UTC %d s; announces", m.leapSeconds);
    for (const auto& a : std::span(m.messages.data(), static_cast<std::size_t>(m.count)))
        d.note += text(" %d/%.6gs", a.type, a.intervalS);
    if (m.count == 0)
        d.note += " nothing";
}

void describeText(Description& d, Frame frame) {
    UnicodeText m;
    if (!readWithHead(d, frame, layout1029, m, layout1029Head, m, {fields::k1029}))
        return;
    d.station = m.staid;
    d.time = utcText(m.mjd, m.secondsOfDay);
    const std::string said = clean({m.text.data(), static_cast<std::size_t>(m.bytes)});
    d.note = '"' + said + '"';
    d.fields.push_back({{"text", 140}, said});
}

void describeBiases(Description& d, Frame frame) {
    Biases1230 m;
    BitReader in = messageOf(frame);
    layout1230(in, m); // which biases there are
    std::vector<FieldName> sent;
    for (std::size_t i = 0; i < fields::k1230Biases.size(); ++i)
        if (m.mask & 8 >> i)
            sent.push_back(fields::k1230Biases[i]);
    if (!read(d, frame, layout1230, {fields::k1230, sent}, m))
        return;
    d.station = m.staid;
    d.note = m.align ? "aligned" : "not aligned";
    for (const Field& f : std::span(d.fields).subspan(fields::k1230.size()))
        d.note += text(", %s %s m", f.name.name, textOf(f.value).c_str());
}

void describeContents(Description& d, Frame f) {
    using namespace fields;
    switch (d.type) {
    case 1005:
        return describePosition(d, f, layout1005, k1005);
    case 1006:
        return describePosition(d, f, layout1006, k1006);
    case 1007:
        return describeAntenna(d, f, layout1007, k1007);
    case 1008:
        return describeAntenna(d, f, layout1008, k1008);
    case 1013:
        return describeParameters(d, f);
    case 1019:
        return describeKepler(d, f, layout1019, k1019, 'G', "GPS");
    case 1020:
        return describeGlonass(d, f);
    case 1029:
        return describeText(d, f);
    case 1033:
        return describeAntenna(d, f, layout1033, k1033);
    case 63:
    case 1042:
        return describeKepler(d, f, layout1042, k1042, 'C', "BDT");
    case 1044:
        return describeKepler(d, f, layout1044, k1044, 'J', "QZSS");
    case 1045:
        return describeKepler(d, f, layout1045, k1045, 'E', "GST");
    case 1046:
        return describeKepler(d, f, layout1046, k1046, 'E', "GST");
    case 1230:
        return describeBiases(d, f);
    default:
        break;
    }
    if (isLegacy(d.type))
        describeLegacy(d, f);
    else if (isMsm4To7(d.type))
        describeMsm(d, f);
}

} // namespace

std::string messageName(int type) {
    if (type < 0)
        return "empty";
    if (type >= 1071 && type <= 1137 && type % 10 >= 1 && type % 10 <= 7)
        return text("%s MSM%d", kSystemNames[systemRow(type)].name, type % 10);
    for (const NamedType& n : kNamedTypes)
        if (type >= n.first && type <= n.last)
            return n.name;
    return text("type %d, unknown", type);
}

int messageType(std::span<const std::uint8_t> frame) {
    int type = 0;
    BitReader in = messageOf(frame);
    in.u(12, type); // DF002
    return in.ok() ? type : -1;
}

Description describe(std::span<const std::uint8_t> frame) {
    Description d;
    d.type = messageType(frame);
    d.name = messageName(d.type);
    describeContents(d, frame);
    return d;
}

bool isObservation(int type) {
    return isLegacy(type) || isMsm4To7(type);
}

bool isEphemeris(int type) {
    return type == 1019 || type == 1020 || type == 63 || (type >= 1041 && type <= 1046);
}

} // namespace ctl::dump
