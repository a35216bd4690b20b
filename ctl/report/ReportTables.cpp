#include "ctl/report/ReportTables.h"

#include "base/Findings.h"
#include "ctl/report/ReportCharts.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <set>

namespace ctl::report {

namespace {

using Heads = std::initializer_list<const char*>;
using Cells = std::initializer_list<std::string>;

constexpr std::size_t kDelayRows = 10;

std::string row(Cells cells) {
    std::string out = "<tr>";
    const char* tag = "th"; // the first names the row
    for (const std::string& cell : cells) {
        out += std::string("<") + tag + ">" + escaped(cell) + "</" + tag + ">";
        tag = "td";
    }
    return out + "</tr>\n";
}

std::string table(Heads heads, const std::string& rows) {
    std::string out = "<div class=\"scroll\"><table class=\"numbers\">\n<thead><tr>";
    for (const char* const head : heads)
        out += "<th>" + escaped(head) + "</th>";
    return out + "</tr></thead>\n<tbody>" + rows + "</tbody></table></div>\n";
}

std::string behindChart(Heads heads, const std::string& rows) {
    return "<details><summary>The chart as a table</summary>\n" + table(heads, rows) +
           "</details>\n";
}

std::string degrees(double deg) {
    return std::isfinite(deg) ? text("%.1f\u00B0", deg) : "";
}

std::string placeRow(const char* who, const ref::Vec3& xyzM) {
    const ref::Geodetic g = ref::toGeodetic(xyzM);
    constexpr double toDegrees = 180 / std::numbers::pi;
    return row(
        {who,
         text("%.6f\u00B0 %c, %.6f\u00B0 %c, %.2f m", std::abs(g.lat) * toDegrees,
              g.lat < 0 ? 'S' : 'N', std::abs(g.lon) * toDegrees, g.lon < 0 ? 'W' : 'E', g.heightM),
         text("X %.4f, Y %.4f, Z %.4f m", xyzM[0], xyzM[1], xyzM[2])});
}

// Another signal of the system and the carrier in the stream.
std::string rivalOf(const std::string& signal, const ref::Verdict& v) {
    for (const auto& [other, n] : v.stream.cells)
        if (other.size() > 1 && other != signal && other.starts_with(signal.substr(0, 2)))
            return other.substr(1);
    return {};
}

// Why a signal of the stream is not in the replies, as far as counts tell.
std::string whyLost(const ReportData& d, const ref::Verdict& v, const std::string& signal,
                    long lost) {
    const ref::Expectation usual;
    const auto carried = usual.carried.find(signal[0]);
    if (carried == usual.carried.end())
        return "no reply carries this system";
    if (!carried->second.contains(signal.substr(1)))
        return "no reply carries this signal";
    if (lost <= 0)
        return "";
    if (std::none_of(v.signals.begin(), v.signals.end(), [&](const auto& came) {
            return came.first[0] == signal[0] && came.second > 0;
        }))
        return "no reply has a satellite of this system";
    const std::string rival = rivalOf(signal, v);
    if (!rival.empty() && !v.signals.contains(signal))
        return rival + " takes its carrier";
    const bool unanswered =
        d.satellites.empty() || // of a recording nobody knows
        std::any_of(d.satellites.begin(), d.satellites.end(), [&](const auto& s) {
            return s.first[0] == signal[0] &&
                   std::any_of(s.second.epochs.begin(), s.second.epochs.end(),
                               [](const auto& e) { return e.first != ref::Fate::answered; });
        });
    return std::string(rival.empty() ? "" : rival + " takes its carrier where both come, or ") +
           (unanswered ? "satellites without an answer, or " : "") + "no range or no phase";
}

// The error that a part (0..1) of them does not exceed, to the width of a bin, m.
double errorOfPart(const ErrorBins& bins, double part) {
    constexpr int half = ErrorBins::kBins / 2;
    long all = 0;
    for (int bin = 0; bin < ErrorBins::kBins; ++bin)
        all += bins.count(bin);
    long within = 0;
    for (int out = 1; out <= half; ++out) {
        within += bins.count(half - out) + bins.count(half + out - 1);
        if (static_cast<double>(within) >= part * static_cast<double>(all))
            return out * bins.halfStepM() / ErrorBins::kBinsOfHalfStep;
    }
    return 0;
}

} // namespace

std::string placesTable(const ReportData& d, const simulate::Totals& t) {
    if (!t.known.site)
        return "<p class=\"note\">The recording does not say where its station stands.</p>\n";
    std::string rows =
        placeRow("reference station", d.siteM) + placeRow("virtual station", d.virtualM);
    if (norm(t.verdict.position.cameM) > 0)
        rows += placeRow("1005 of the replies", t.verdict.position.cameM);
    return "<table>\n" + rows + "</table>\n<p class=\"note\">" +
           escaped(
               text("The virtual station stands %.2f m %s the reference station.",
                    norm(d.virtualM - d.siteM),
                    norm(d.virtualM - ref::virtualPoint(d.siteM)) < 0.01 ? "north of" : "from")) +
           "</p>\n";
}

std::string signalsTable(const ReportData& d, const ref::Verdict& v) {
    std::set<std::string> names;
    for (const auto& [signal, n] : v.stream.cells)
        names.insert(signal);
    for (const auto& [signal, n] : v.signals)
        names.insert(signal);
    const auto of = [](const auto& counts, const std::string& name) {
        const auto it = counts.find(name);
        return it == counts.end() ? 0L : static_cast<long>(it->second);
    };
    std::string rows;
    for (const char system : simulate::kStreamSystems)
        for (const std::string& signal : names) {
            if (signal[0] != system)
                continue;
            const long in = of(v.stream.cells, signal);
            const long out = of(v.signals, signal);
            rows += row({std::string(simulate::systemName(system)) + " " + simulate::codeOf(signal),
                         count(in), count(out), count(in - out), whyLost(d, v, signal, in - out)});
        }
    return table({"signal", "in the stream", "in the replies", "lost", "why"}, rows);
}

std::string keptTable(const simulate::Totals& t) {
    const auto specified = t.kept.find(ref::Answer::specified);
    const auto complete = t.kept.find(ref::Answer::complete);
    if (specified == t.kept.end() || complete == t.kept.end())
        return "";
    const auto cameBack = [](const simulate::Kept& kept, const std::string& signal) {
        const auto it = kept.signals.find(signal);
        return count(it == kept.signals.end() ? 0 : it->second);
    };
    std::string rows;
    for (const char system : simulate::kStreamSystems)
        for (const auto& [signal, sent] : complete->second.sent)
            if (signal[0] == system)
                rows +=
                    row({std::string(simulate::systemName(system)) + " " + simulate::codeOf(signal),
                         count(sent), cameBack(specified->second, signal),
                         cameBack(complete->second, signal)});
    return table({"signal", "in the stream", "specified answer", "complete answer"}, rows);
}

std::string skyTable(const ReportData& d) {
    std::string rows;
    for (const char system : simulate::kSimulatedSystems)
        for (const auto& [sat, record] : d.satellites) {
            const SkySample& last = record.last;
            if (sat[0] != system || !last.placed)
                continue;
            const bool changed = std::isfinite(last.changeM) && last.changeM != 0;
            rows +=
                row({sat, degrees(last.direction.azimuthDeg), degrees(last.direction.elevationDeg),
                     changed ? text("%+.2f m", last.changeM) : "", ref::name(last.fate)});
        }
    return behindChart({"satellite", "azimuth", "elevation", "change of range", "at last"}, rows);
}

std::string errorTable(const ReportData& d, const ref::Verdict& v) {
    std::string rows;
    for (const char system : simulate::kSimulatedSystems) {
        const auto range = d.range.find(system);
        const auto phase = d.phase.find(system);
        const auto worst = v.worst.find(system);
        if (range == d.range.end() || phase == d.phase.end() || worst == v.worst.end())
            continue;
        const auto mm = [](const char* form, double m) { return text(form, m * 1e3); };
        rows +=
            row({simulate::systemName(system), count(worst->second.cells),
                 mm("%.1f", errorOfPart(range->second, 0.5)), mm("%.2f", worst->second.rangeM),
                 mm("%.2f", range->second.boundM()), mm("%.2f", errorOfPart(phase->second, 0.5)),
                 mm("%.3f", worst->second.phaseM), mm("%.3f", phase->second.boundM())});
    }
    return behindChart({"system", "observations", "range, mm: half within", "worst", "allowed",
                        "phase, mm: half within", "worst", "allowed"},
                       rows);
}

std::string delayTable(const ReportData& d) {
    std::string rows;
    const std::size_t step = (d.delays.size() + kDelayRows - 1) / kDelayRows;
    for (std::size_t from = 0; from < d.delays.size(); from += step) {
        const std::size_t to = std::min(from + step, d.delays.size());
        DelaySample all = d.delays[from];
        for (std::size_t i = from; i < to; ++i)
            all = {std::min(all.least, d.delays[i].least), std::max(all.most, d.delays[i].most)};
        const long first = static_cast<long>(from) * d.delayStride + 1;
        const long last = std::min(static_cast<long>(to) * d.delayStride, d.epochs);
        rows += row({count(first) + " to " + count(last), text("%.2f", all.least * 1e3),
                     text("%.2f", all.most * 1e3)});
    }
    return behindChart({"epochs", "least, ms", "most, ms"}, rows);
}

} // namespace ctl::report
