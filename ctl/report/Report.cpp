#include "ctl/report/Report.h"

#include "base/Findings.h"
#include "ctl/dump/Describe.h"
#include "ctl/report/ReportCharts.h"
#include "ctl/report/ReportStyle.h"
#include "ctl/report/ReportTables.h"
#include "ctl/simulate/Calendar.h"
#include "ctl/simulate/Judgement.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ctl::report {

namespace {

constexpr std::size_t kMostSkySamples = 6000;
constexpr std::size_t kMostDelaySamples = 1200;
constexpr std::size_t kMostFaultsShown = 20;
constexpr std::array kFates{ref::Fate::answered,    ref::Fate::missing,      ref::Fate::low,
                            ref::Fate::noEphemeris, ref::Fate::oldEphemeris, ref::Fate::noPhase,
                            ref::Fate::noSignal};

std::string milliseconds(double s) {
    if (s < 95e-6)
        return text("%.0f \u00B5s", s * 1e6);
    return text(s < 0.01 ? "%.2f ms" : s < 0.1 ? "%.1f ms" : "%.0f ms", s * 1e3);
}

std::string sizeText(std::uint64_t bytes) {
    if (bytes < 10000)
        return grouped(bytes) + " bytes";
    const double kilo = static_cast<double>(bytes) / 1e3;
    return kilo < 1000 ? text("%.1f kB", kilo) : text("%.1f MB", kilo / 1e3);
}

std::string barName(int type) {
    return type == 0 ? "reply frame around them"
                     : text("%d %s", type, dump::messageName(type).c_str());
}

std::string figure(const std::string& name, const std::string& value, const std::string& small) {
    return "<div><dt>" + escaped(name) + "</dt><dd>" + escaped(value) +
           (small.empty() ? "" : "<small>" + escaped(small) + "</small>") + "</dd></div>\n";
}

// Of the system that comes nearest to its bound.
std::string worstFigure(const ref::Verdict& v, ErrorOf what) {
    const bool range = what == ErrorOf::range;
    double worstM = 0;
    double boundM = 0;
    for (const auto& [system, w] : v.worst) {
        const double errorM = range ? w.rangeM : w.phaseM;
        const double ownM = range ? w.bounds.rangeM : w.bounds.phaseM;
        if (boundM == 0 || errorM / ownM > worstM / boundM) {
            worstM = errorM;
            boundM = ownM;
        }
    }
    const char* const form = range ? "%.2f mm" : "%.3f mm";
    return figure(range ? "worst range difference" : "worst phase difference",
                  text(form, worstM * 1e3),
                  text(range ? "%.2f mm allowed" : "%.3f mm allowed", boundM * 1e3));
}

std::string verdictText(const simulate::Judgement& j) {
    const bool wrong = j.answer == simulate::Answer::wrong;
    std::string words = !wrong         ? j.words
                        : j.wrong == 1 ? "one thing was wrong"
                                       : count(j.wrong) + " things were wrong";
    if (words[0] >= 'a' && words[0] <= 'z')
        words[0] = static_cast<char>(words[0] - 'a' + 'A');
    const char* const look = exitStatus(j.answer) == 0 ? "good" : wrong ? "bad" : "open";
    return std::string("<h1 class=\"") + look + "\">" + escaped(words) + "</h1>\n";
}

std::string headline(const ReportData& d, const simulate::Totals& t, const simulate::Judgement& j) {
    const ref::Verdict& v = t.verdict;
    const bool values = t.known.values;
    std::string out = "<header>\n<p class=\"over\">Kestrune at work</p>\n" + verdictText(j);
    out += "<p>A " + std::string(values ? "simulated" : "recorded") + " reference station sent " +
           count(t.given) + (t.given == 1 ? " epoch" : " epochs") +
           (t.connections > 1 ? " on " + count(t.connections) + " connections" : "") +
           (d.epochs > 0 && t.known.day
                ? ", the first of " +
                      escaped(simulate::utcText(d.first, simulate::Fraction::none)) + " UTC"
                : "") +
           ". " +
           (t.rovers ? "Kestrune answered behind a gateway, and rovers got it from the gateway's "
                       "caster. "
                     : "") +
           (values ? "Everything that came back was compared with what an independent "
                     "computation says about it."
                   : "The true values of a recording are not known: form, order and completeness "
                     "of the replies were checked.") +
           "</p>\n";
    for (const std::string& remark : j.remarks)
        out += "<p class=\"note\">" + escaped(remark) + "</p>\n";
    out += placesTable(d, t) + "<dl class=\"figures\">\n";
    std::uint64_t received = 0;
    for (const auto& [type, n] : v.bytes)
        received += n;
    out += figure("replies", count(v.replies), count(v.observations()) + " observations in them");
    out += figure("forwarded frames", count(v.forwarded),
                  v.missing == 0 ? "nothing is missing" : count(v.missing) + " frames missing");
    out += figure("sent, received", sizeText(t.bytesSent), sizeText(received) + " came back");
    if (!v.worst.empty())
        out += worstFigure(v, ErrorOf::range) + worstFigure(v, ErrorOf::phase);
    if (!v.delaysS.empty()) {
        out +=
            figure("median delay", milliseconds(simulate::delayAt(v.delaysS, 0.5)), "of a reply");
        out += figure("99 of 100 within", milliseconds(simulate::delayAt(v.delaysS, 0.99)), "");
        out += figure("slowest reply", milliseconds(simulate::delayAt(v.delaysS, 1.0)), "");
    }
    return out + "</dl>\n</header>\n";
}

std::string trouble(const simulate::Totals& t, const simulate::Judgement& j) {
    const ref::Verdict& v = t.verdict;
    std::string out;
    if (j.answer == simulate::Answer::wrong) {
        out += "<section class=\"wide\">\n<h2>What was wrong</h2>\n<ul class=\"wrong\">\n";
        for (const std::string& cause : j.causes)
            out += "<li><b>" + escaped(cause) + "</b></li>\n";
        const std::size_t shown = std::min(v.faults.size(), kMostFaultsShown);
        for (std::size_t i = 0; i < shown; ++i)
            out += "<li>" + escaped(v.faults[i]) + "</li>\n";
        out += "</ul>\n";
        if (v.wrong > static_cast<int>(shown))
            out +=
                "<p class=\"note\">and " + count(v.wrong - static_cast<int>(shown)) + " more</p>\n";
        out += "</section>\n";
    }
    if (!t.faults.empty()) {
        out += "<section class=\"wide\">\n<h2>Made wrong on purpose</h2>\n<p>";
        std::string list;
        for (const auto& [fault, n] : t.faults)
            list += (list.empty() ? "" : ", ") + std::string(name(fault)) + " " + count(n) +
                    (n == 1 ? " time" : " times");
        out += escaped(list) + "</p>\n</section>\n";
    }
    return out;
}

std::string systemKey(const ReportData& d) {
    std::string out = "<ul class=\"key\">";
    for (const char system : simulate::kSimulatedSystems)
        if (std::any_of(d.satellites.begin(), d.satellites.end(),
                        [&](const auto& s) { return s.first[0] == system; }))
            out += "<li>" + systemIcon(system) + simulate::systemName(system) + "</li>";
    return out + "</ul>\n";
}

std::string fateKey(const ReportData& d) {
    std::string out = "<ul class=\"key\">";
    for (const ref::Fate fate : kFates)
        if (std::any_of(d.satellites.begin(), d.satellites.end(),
                        [&](const auto& s) { return s.second.epochs.contains(fate); }))
            out += "<li>" + fateIcon(fate) + escaped(ref::name(fate)) + "</li>";
    return out + "</ul>\n";
}

// Satellites of a fate, a line a system; how often, where that was not always.
std::string fateRow(const ReportData& d, ref::Fate fate) {
    std::map<char, std::string> lines;
    int satellites = 0;
    for (const auto& [sat, record] : d.satellites) {
        const auto it = record.epochs.find(fate);
        if (it == record.epochs.end())
            continue;
        ++satellites;
        std::string& line = lines[sat[0]];
        line += (line.empty() ? "" : " ") + sat;
        if (it->second != d.epochs)
            line += "\u00A0(" + count(it->second) + ")";
    }
    if (satellites == 0)
        return "";
    std::string out = "<tr><th>" + fateIcon(fate) + escaped(ref::name(fate)) +
                      " <span class=\"soft\">" + count(satellites) + "</span></th><td>";
    for (const char system : simulate::kSimulatedSystems)
        if (lines.contains(system))
            out += "<div>" + escaped(lines[system]) + "</div>";
    return out + "</td></tr>\n";
}

std::string skySection(const ReportData& d) {
    const bool gone = std::any_of(d.satellites.begin(), d.satellites.end(), [&](const auto& s) {
        return s.second.last.placed && s.second.last.epoch + 1 < d.epochs;
    });
    std::string out = "<section>\n<h2>The sky</h2>\n<p class=\"note\">Seen from the virtual "
                      "station: the zenith in the middle, the horizon outside, the limit of "
                      "5\u00B0 dashed. A mark stands where a satellite was last";
    out += gone ? "; those out of sight since are small.</p>\n" : ".</p>\n";
    out += skyPlot(d) + systemKey(d) + fateKey(d);
    std::string unplaced;
    bool several = false;
    for (const auto& [sat, record] : d.satellites) {
        several = several || record.epochs.size() > 1;
        if (!record.last.placed)
            unplaced += (unplaced.empty() ? "" : ", ") + sat;
    }
    if (!unplaced.empty())
        out +=
            "<p class=\"note\">" + fateIcon(ref::Fate::noEphemeris) +
            "Not drawn, since nobody knows their place without an ephemeris: " + escaped(unplaced) +
            "</p>\n";
    if (several)
        out += "<p class=\"note\">A second outline: what became of the satellite changed during "
               "the run; the mark inside is the last.</p>\n";
    out += skyTable(d);
    out += "</section>\n<section>\n<h2>What became of the satellites</h2>\n<p class=\"note\">In "
           "brackets the number of epochs, where it was not all of them.</p>\n<table>\n";
    for (const ref::Fate fate : kFates)
        out += fateRow(d, fate);
    return out + "</table>\n</section>\n";
}

std::string errorSection(const ReportData& d, const simulate::Totals& t) {
    const bool complete = t.answers.front() == ref::Answer::complete;
    std::string out =
        std::string("<section class=\"wide\">\n<h2>Difference from the truth</h2>\n<p "
                    "class=\"note\">How often each difference came, by system. ") +
        (complete ? ""
                  : "The messages have steps of 17.87 mm of range and 0.559 mm of "
                    "phase; ") +
        (complete ? "Rounding" : "rounding") +
        " alone leaves anything up to half a step, evenly. Dashed lines are the "
        "bounds: half a step and " +
        (complete ? "0.02 mm" : "0.1 mm");
    if (!complete && d.range.contains('J'))
        out += ", for QZSS 0.4 mm more, for its specified rotation rate";
    out += ". A satellite that hardly moves in a short run has the same difference again and "
           "again: a peak.</p>\n";
    return out + "<div class=\"pair\">\n<div>" + errorChart(d, t.verdict, ErrorOf::range) +
           "</div>\n<div>" + errorChart(d, t.verdict, ErrorOf::phase) + "</div>\n</div>\n" +
           errorTable(d, t.verdict) + "</section>\n";
}

std::string delaySection(const ReportData& d, const simulate::Totals& t) {
    return "<section>\n<h2>Delay of the replies</h2>\n<p class=\"note\">From the last byte of an "
           "epoch sent to the first byte of its reply received.</p>\n" +
           delayChart(d, simulate::delayAt(t.verdict.delaysS, 0.5),
                      simulate::delayAt(t.verdict.delaysS, 0.99)) +
           delayTable(d) + "</section>\n";
}

std::string signalSection(const ReportData& d, const ref::Verdict& v) {
    return "<section class=\"wide\">\n<h2>Signals in and out</h2>\n<p class=\"note\">Observations "
           "of the stream by signal, and how many of them came back.</p>\n" +
           signalsTable(d, v) + "</section>\n";
}

std::string keptSection(const simulate::Totals& t) {
    return "<section class=\"wide\">\n<h2>What each answer keeps</h2>\n<p class=\"note\">"
           "Observations of one stream by signal, and those that came back in each answer.</p>\n" +
           keptTable(t) + "</section>\n";
}

std::string typeSection(const ref::Verdict& v) {
    std::vector<std::pair<int, std::uint64_t>> types(v.bytes.begin(), v.bytes.end());
    std::stable_sort(types.begin(), types.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string out = "<section class=\"wide\">\n<h2>What came back</h2>\n<p class=\"note\">Bytes "
                      "by message: those "
                      "of the replies and those forwarded.</p>\n<dl class=\"types\">\n";
    for (const auto& [type, n] : types)
        out += "<div><dt>" + escaped(barName(type)) + "</dt><dd>" + escaped(sizeText(n)) +
               "</dd><i style=\"width:" +
               coordinate(100 * static_cast<double>(n) / static_cast<double>(types[0].second)) +
               "%\"></i></div>\n";
    return out + "</dl>\n</section>\n";
}

} // namespace

void ErrorBins::add(double errorM, double halfStepM, double boundM) {
    constexpr int middle = kBins / 2;
    halfStepM_ = halfStepM;
    boundM_ = boundM;
    const double bin =
        std::isfinite(errorM) ? middle + std::floor(errorM / halfStepM * kBinsOfHalfStep) : 0;
    ++counts_[static_cast<std::size_t>(std::clamp(bin, 0.0, kBins - 1.0))];
}

long ErrorBins::most() const {
    return *std::max_element(counts_.begin(), counts_.end());
}

int ErrorBins::reach() const {
    int out = 0;
    for (int bin = 0; bin < kBins; ++bin)
        if (count(bin) > 0)
            out = std::max(out, bin < kBins / 2 ? kBins / 2 - bin : bin - kBins / 2 + 1);
    return out;
}

void Report::epoch(const ref::EpochResult& result) {
    if (data_.epochs == 0)
        data_.first = result.time;
    data_.last = result.time;
    const bool kept = data_.epochs % data_.skyStride == 0;
    for (const auto& s : result.satellites) {
        const ref::Direction& d = s.expected.direction;
        ShownSatellite& record = data_.satellites[s.expected.sat];
        ++record.epochs[s.expected.fate];
        // a place unknown stands as zeros
        const SkySample sample{data_.epochs, s.expected.fate,
                               d.azimuthDeg != 0 || d.elevationDeg != 0, d, s.expected.changeM};
        if (sample.placed || !record.last.placed)
            record.last = sample;
        if (kept) {
            record.track.push_back(sample);
            ++samples_;
        }
        for (const ref::CellError& e : s.cells) {
            data_.range[s.expected.sat[0]].add(e.rangeM, s.bounds.rangeHalfStepM, s.bounds.rangeM);
            data_.phase[s.expected.sat[0]].add(e.phaseM, s.bounds.phaseHalfStepM, s.bounds.phaseM);
        }
    }
    addDelay(result.delayS);
    ++data_.epochs;
    while (samples_ > kMostSkySamples && data_.skyStride < data_.epochs)
        thinOut();
}

void Report::addDelay(double s) {
    std::vector<DelaySample>& all = data_.delays;
    if (data_.epochs % data_.delayStride != 0) {
        all.back() = {std::min(all.back().least, s), std::max(all.back().most, s)};
        return;
    }
    if (all.size() == kMostDelaySamples) {
        for (std::size_t i = 0; i < all.size() / 2; ++i)
            all[i] = {std::min(all[2 * i].least, all[2 * i + 1].least),
                      std::max(all[2 * i].most, all[2 * i + 1].most)};
        all.resize(all.size() / 2);
        data_.delayStride *= 2;
    }
    all.push_back({s, s});
}

// Every other epoch of those kept goes.
void Report::thinOut() {
    data_.skyStride *= 2;
    samples_ = 0;
    for (auto& [sat, record] : data_.satellites) {
        std::erase_if(record.track,
                      [&](const SkySample& s) { return s.epoch % data_.skyStride != 0; });
        samples_ += record.track.size();
    }
}

std::string Report::page(const simulate::Totals& t) const {
    const simulate::Judgement judgement = judgementOf(t);
    std::string out = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
                      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
                      "<title>Kestrune at work</title>\n<style>";
    out += kReportStyle;
    out += "</style>\n</head>\n<body>\n<main>\n" + headline(data_, t, judgement) +
           "<div class=\"columns\">\n" + trouble(t, judgement);
    if (!data_.satellites.empty())
        out += skySection(data_);
    if (!data_.range.empty())
        out += errorSection(data_, t);
    if (!data_.range.empty())
        out += "<section>\n<h2>Change of range</h2>\n<p class=\"note\">What each satellite's "
               "observations were shifted by. The dotted lines are the most that is possible at "
               "an elevation.</p>\n" +
               rangeChangeChart(data_) + systemKey(data_) +
               "<p class=\"note\">The numbers are in the table of the sky.</p>\n</section>\n";
    if (!t.verdict.delaysS.empty() && !data_.delays.empty())
        out += delaySection(data_, t);
    if (!t.verdict.stream.cells.empty())
        out += t.kept.size() > 1 ? keptSection(t) : signalSection(data_, t.verdict);
    if (!t.verdict.bytes.empty())
        out += typeSection(t.verdict);
    return out + "</div>\n</main>\n</body>\n</html>\n";
}

} // namespace ctl::report
