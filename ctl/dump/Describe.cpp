#include "ctl/dump/Describe.h"

#include "base/Findings.h"
#include "ctl/Times.h"
#include "gnss/ComCoord.h"
#include "gnss/ComTime.h"
#include "rtcm/Messages.h"

#include <algorithm>
#include <array>
#include <cmath>
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
/// Messages that dump names and does not read.
constexpr std::array kOtherTypes{
    NamedType{1014, 1017, "network corrections"}, NamedType{1021, 1027, "transformation"},
    NamedType{1030, 1031, "network residuals"}, NamedType{1032, 1032, "physical reference point"},
    NamedType{1034, 1035, "FKP gradients"}, NamedType{1037, 1039, "network corrections"},
    NamedType{1041, 1041, "NavIC ephemeris"},
    NamedType{1057, 1068, "orbit and clock corrections"}};

struct SystemName {
    char letter;
    const char* timeScale; // of its epoch times
};
/// In the order of kMsmSystems.
constexpr std::array<SystemName, kMsmSystems.size()> kSystemNames{{
    {'G', "GPS"}, {'R', "Moscow"}, {'E', "GST"}, {'S', "GPS"}, {'J', "QZSS"}, {'C', "BDT"},
    {'I', "NavIC"}}};
// clang-format on

const SystemName& nameOf(System system) {
    const auto row = std::find_if(kMsmSystems.begin(), kMsmSystems.end(),
                                  [&](const MsmSystem& s) { return s.system == system; });
    return kSystemNames[static_cast<std::size_t>(row - kMsmSystems.begin())];
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
    constexpr int unixMjd = 40587; // calendars of ours begin there
    if (mjd < unixMjd)
        return text("UTC MJD %d, %d s", mjd, secondsOfDay);
    return "UTC " + dateTimeText(gtimeOf({mjd, 1.0 * secondsOfDay}));
}

/// Reads the frame into the record and the description's fields; false, with no fields, where the
/// message ends before its layout does.
template <class Layout, class Record>
bool read(Description& d, Frame frame, const Layout& layout, Record& record) {
    FieldReader in(messageOf(frame));
    layout(in, record);
    d.tooShort = !in.ok();
    d.decoded = in.ok();
    if (!in.ok())
        return false;
    d.bytesBeyond = in.left() / 8;
    d.fields = std::move(in.fields());
    return true;
}

/// The same for a message of observations, with the fields of its head alone.
template <class Layout, class Record, class HeadLayout>
bool readWithHead(Description& d, Frame frame, const Layout& layout, Record& record,
                  const HeadLayout& headLayout) {
    BitReader in = messageOf(frame);
    layout(in, record);
    d.tooShort = !in.ok();
    if (!in.ok())
        return false;
    read(d, frame, headLayout, record.head);
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
    MsmMessage m;
    if (!readWithHead(d, frame, layoutMsm, m, layoutMsmHead))
        return;
    const MsmSystem& table = msmSystem(d.type);
    const SystemName& system = nameOf(table.system);
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
    LegacyMessage m;
    if (!readWithHead(d, frame, layoutLegacy, m, layoutLegacyHead))
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

// What a message says in a line, by its record.

void tell(Description& d, const KeplerMessage& m) {
    const SystemName& system = nameOf(m.system);
    d.satellites = {satelliteName(system.letter, m.id)};
    d.time = text("toe %s week %d tow %.0f", system.timeScale, m.week, m.toes);
    d.note = text("health %d, issue %d", m.svh, m.iode);
}

void tell(Description& d, const GlonassMessage& m) {
    d.satellites = {satelliteName('R', m.slot)};
    d.time = text("tb Moscow %02d:%02d", m.tb / 4, m.tb % 4 * 15);
    d.note = text("health %d, channel %+d", m.svh, m.channel - 7);
}

void tell(Description& d, const PositionMessage& m) {
    d.note = text("X %.4f Y %.4f Z %.4f m", m.pos[0], m.pos[1], m.pos[2]);
    if (std::hypot(m.pos[0], m.pos[1], m.pos[2]) > 6.0e6) { // else no place on the ground
        const Vector3 blh = xyzblh(m.pos, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
        constexpr double degrees = 180.0 / kPi;
        d.note += text(" (%.7f, %.7f deg, %.2f m)", blh[0] * degrees,
                       std::remainder(blh[1] * degrees, 360.0), blh[2]);
    } else {
        d.note += " (not on the ground)";
    }
    if (d.type == 1006)
        d.note += text(", antenna height %.4f m", m.hgt);
}

/// "TRM59800.00 NONE", with quotes; empty texts are told.
std::string quoted(const Descriptor& d) {
    return '"' + clean(view(d)) + '"';
}

void tell(Description& d, const EquipmentMessage& m) {
    d.note = "antenna " + quoted(m.antdes);
    if (d.type != 1007)
        d.note += " no. " + quoted(m.antsno);
    if (d.type == 1033)
        d.note += ", receiver " + quoted(m.rectype) + " version " + quoted(m.recver) + " no. " +
                  quoted(m.recsno);
}

void tell(Description& d, const SystemParameters& m) {
    d.time = utcText(m.mjd, m.secondsOfDay);
    d.note = text("GPS - UTC %d s; announces", m.leapSeconds);
    for (const auto& a : std::span(m.messages.data(), static_cast<std::size_t>(m.count)))
        d.note += text(" %d/%.6gs", a.type, a.intervalS);
    if (m.count == 0)
        d.note += " nothing";
}

void tell(Description& d, const TextMessage& m) {
    d.time = utcText(m.mjd, m.secondsOfDay);
    d.note = '"' + clean({m.text.data(), static_cast<std::size_t>(m.bytes)}) + '"';
}

void tell(Description& d, const BiasMessage& m) {
    constexpr int first = 423, last = 426; // DF numbers of the biases
    d.note = m.align ? "aligned" : "not aligned";
    for (const Field& f : d.fields)
        if (f.name.df >= first && f.name.df <= last)
            d.note += text(", %s %s m", f.name.name, textOf(f.value).c_str());
}

void describeContents(Description& d, Frame frame) {
    visitMessage(d.type, [&](const auto& row) {
        auto m = row.blank();
        if (!read(d, frame, row.layout, m))
            return;
        if constexpr (requires { m.staid; })
            d.station = m.staid;
        if constexpr (requires { tell(d, m); }) // else its fields say all
            tell(d, m);
    });
    if (isLegacy(d.type))
        describeLegacy(d, frame);
    else if (isMsm4To7(d.type))
        describeMsm(d, frame);
}

} // namespace

std::string messageName(int type) {
    if (type < 0)
        return "empty";
    std::string name;
    visitMessage(type, [&](const auto& row) { name = row.name; });
    visitObservations(type, [&](const auto& row) {
        name = row.first == row.last ? row.name : text("%s%d", row.name, type % 10);
    });
    for (const NamedType& n : kOtherTypes)
        if (type >= n.first && type <= n.last)
            name = n.name;
    return name.empty() ? text("type %d, unknown", type) : name;
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
    constexpr int navic = 1041, sbas = 1043;
    bool ephemeris = type == navic || type == sbas;
    visitMessage(type, [&](const auto& row) { ephemeris = row.system != kNoSystem; });
    return ephemeris;
}

} // namespace ctl::dump
