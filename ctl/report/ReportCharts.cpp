#include "ctl/report/ReportCharts.h"

#include "base/Findings.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ctl::report {

namespace {

// 1, 2 or 5 times a power of ten: the smallest that divides the span into so many parts or fewer.
double niceStep(double span, int parts) {
    const double least = span / parts;
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= least * (1 - 1e-9))
            return factor * power;
    return 10 * power;
}

// A number without needless zeros.
std::string plain(double value) {
    return text("%.6g", value);
}

struct Axis {
    double low = 0, high = 1; // values
    double from = 0, to = 1;  // where they are drawn
    bool log = false;
    double at(double value) const {
        const double part = log ? std::log(std::max(value, low) / low) / std::log(high / low)
                                : (value - low) / (high - low);
        return from + part * (to - from);
    }
};

} // namespace

std::string escaped(std::string_view plainText) {
    std::string out;
    for (const char c : plainText) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else if (c == '\'')
            out += "&#39;";
        else if (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t')
            out += "\uFFFD"; // no place in a page, not even escaped
        else
            out += c;
    }
    return out;
}

std::string coordinate(double value) {
    std::string out = text("%.1f", std::isfinite(value) ? value : 0.0);
    if (out.ends_with(".0"))
        out.resize(out.size() - 2);
    return out == "-0" ? "0" : out;
}

std::string grouped(std::uint64_t n) {
    std::string out = std::to_string(n);
    if (out.size() > 4)
        for (std::size_t at = out.size() - 3;; at -= 3) {
            out.insert(at, "\u202F");
            if (at <= 3)
                break;
        }
    return out;
}

std::string count(long n) {
    return grouped(static_cast<std::uint64_t>(std::max(n, 0L)));
}

std::string svgStart(double height, const std::string& title) {
    return "<svg viewBox=\"0 0 " + coordinate(kChartWidth) + " " + coordinate(height) +
           "\" role=\"img\" aria-label=\"" + escaped(title) + "\">\n";
}

std::string svgText(double x, double y, const char* classes, const std::string& words) {
    return "<text x=\"" + coordinate(x) + "\" y=\"" + coordinate(y) + "\" class=\"" + classes +
           "\">" + escaped(words) + "</text>\n";
}

std::string svgLine(double x1, double y1, double x2, double y2, const char* classes) {
    return "<line x1=\"" + coordinate(x1) + "\" y1=\"" + coordinate(y1) + "\" x2=\"" +
           coordinate(x2) + "\" y2=\"" + coordinate(y2) + "\" class=\"" + classes + "\"/>\n";
}

std::string rangeChangeChart(const ReportData& data) {
    const ref::Vec3 offsetM = data.virtualM - data.siteM;
    const double lengthM = norm(offsetM);
    const double upM =
        lengthM * std::sin(ref::direction(data.siteM, data.virtualM).elevationDeg * ref::kDegree);
    const double levelM = std::sqrt(std::max(0.0, lengthM * lengthM - upM * upM));
    const double farthestM = std::max(1.0, lengthM);
    const Axis x{0, 90, 40, kChartWidth - 6};
    const Axis y{-farthestM * 1.08, farthestM * 1.08, 252, 26};
    std::string out = svgStart(290, "change of range by elevation");
    const double step = niceStep(2 * farthestM, 6);
    for (int i = -static_cast<int>(farthestM / step); i <= farthestM / step; ++i) {
        const double m = i * step;
        out += svgLine(x.from, y.at(m), x.to, y.at(m), i == 0 ? "axis" : "grid");
        out +=
            svgText(x.from - 6, y.at(m) + 4, "end", (i < 0 ? "\u2212" : "") + plain(std::abs(m)));
    }
    for (int deg = 0; deg <= 90; deg += 15) {
        out += svgLine(x.at(deg), y.from, x.at(deg), y.from + 4, "axis");
        out += svgText(x.at(deg) - (deg == 90 ? 6 : 0), y.from + 18, "mid", text("%d\u00B0", deg));
    }
    out += svgText(x.from, 14, "", "change of range, m");
    out += svgText(x.to, y.from + 34, "end", "elevation");
    // a satellite straight ahead or behind changes most
    for (const int side : {-1, 1}) {
        std::string path;
        for (int deg = 0; deg <= 90; deg += 3)
            path += (deg == 0 ? "M" : "L") + coordinate(x.at(deg)) + " " +
                    coordinate(y.at(side * (levelM * std::cos(deg * ref::kDegree) +
                                            std::abs(upM) * std::sin(deg * ref::kDegree))));
        out += "<path d=\"" + path + "\" class=\"limit\"/>\n";
    }
    for (const auto& [sat, record] : data.satellites) {
        std::string path;
        double beforeX = 0;
        double beforeY = 0;
        long before = -1; // epoch of the last sample
        for (const SkySample& s : record.track) {
            if (!s.placed || s.changeM == 0 || s.direction.elevationDeg < 0)
                continue;
            const double px = x.at(s.direction.elevationDeg);
            const double py = y.at(s.changeM);
            const bool joined = before >= 0 && s.epoch - before <= data.skyStride;
            before = s.epoch;
            if (joined && std::hypot(px - beforeX, py - beforeY) < 1)
                continue;
            path += (joined ? "L" : "M") + coordinate(px) + " " + coordinate(py);
            beforeX = px;
            beforeY = py;
        }
        if (path.empty())
            continue;
        out += std::string("<g class=\"") + sat[0] + "\"><path d=\"" + path +
               "\" class=\"curve\"/>" +
               satelliteMark(sat[0], ref::Fate::answered, beforeX, beforeY, 2.8) + "</g>\n";
    }
    return out + "</svg>\n";
}

std::string errorChart(const ReportData& data, const ref::Verdict& verdict, ErrorOf what) {
    const bool range = what == ErrorOf::range;
    const auto binMmOf = [](const ErrorBins& bins) {
        return bins.halfStepM() * 1e3 / ErrorBins::kBinsOfHalfStep;
    };
    const std::map<char, ErrorBins>& systems = range ? data.range : data.phase;
    double mostMm = 1e-3;
    for (const auto& [system, bins] : systems)
        mostMm = std::max({mostMm, bins.boundM() * 1e3, bins.reach() * binMmOf(bins)});
    const Axis x{-1.08 * mostMm, 1.08 * mostMm, 0, kChartWidth};
    constexpr double rowHeight = 66;
    constexpr double barHeight = 36;
    const double rows = rowHeight * static_cast<double>(systems.size());
    std::string out = svgStart(rows + 44, range ? "errors of range" : "errors of phase");
    double top = 0;
    for (const char system : simulate::kSimulatedSystems) {
        const auto it = systems.find(system);
        if (it == systems.end())
            continue;
        const ErrorBins& bins = it->second;
        const double ownMm = bins.boundM() * 1e3;
        const double binMm = binMmOf(bins);
        const double floor = top + rowHeight - 8;
        const auto worst = verdict.worst.find(system);
        const double worstMm = worst == verdict.worst.end()
                                   ? 0
                                   : (range ? worst->second.rangeM : worst->second.phaseM) * 1e3;
        out += "<g class=\"" + std::string(1, system) + "\">\n";
        out += svgText(0, top + 14, "own strong", simulate::systemName(system));
        out += svgText(
            kChartWidth, top + 14, worstMm > ownMm ? "end bad" : "end",
            text(range ? "worst %.2f of %.2f mm" : "worst %.3f of %.3f mm", worstMm, ownMm));
        for (int bin = 0; bin < ErrorBins::kBins; ++bin) {
            if (bins.count(bin) == 0)
                continue;
            const int fromMiddle = bin - ErrorBins::kBins / 2;
            const double leftMm = fromMiddle * binMm;
            const double height = std::max(1.0, barHeight * static_cast<double>(bins.count(bin)) /
                                                    static_cast<double>(bins.most()));
            const bool beyond = std::min(std::abs(leftMm), std::abs(leftMm + binMm)) >= ownMm;
            out += "<rect x=\"" + coordinate(x.at(leftMm) + 0.3) + "\" y=\"" +
                   coordinate(floor - height) + "\" width=\"" +
                   coordinate(x.at(leftMm + binMm) - x.at(leftMm) - 0.6) + "\" height=\"" +
                   coordinate(height) + "\" class=\"" + (beyond ? "beyond" : "bar") + "\"/>\n";
        }
        out += "</g>\n";
        out += svgLine(x.from, floor, x.to, floor, "axis");
        for (const int side : {-1, 1})
            if (ownMm <= x.high)
                out += svgLine(x.at(side * ownMm), top + 20, x.at(side * ownMm), floor, "bound");
        top += rowHeight;
    }
    const double step = niceStep(2 * mostMm, 6);
    for (int i = static_cast<int>(std::floor(mostMm / step)); i >= 0; --i)
        for (const int side : {-1, 1}) {
            const double mm = side * i * step;
            if (i == 0 && side > 0)
                continue;
            out += svgLine(x.at(mm), top - 8, x.at(mm), top - 4, "axis");
            out +=
                svgText(x.at(mm), top + 10, "mid", (mm < 0 ? "\u2212" : "") + plain(std::abs(mm)));
        }
    out += svgText(kMiddle, top + 28, "mid",
                   range ? "range, mm from the truth" : "phase, mm from the truth");
    return out + "</svg>\n";
}

std::string delayChart(const ReportData& data, double medianS, double ninetyNineS) {
    double least = 1e9;
    double most = 0;
    for (const DelaySample& d : data.delays) {
        least = std::min(least, d.least * 1e3);
        most = std::max(most, d.most * 1e3);
    }
    most = std::max({most, ninetyNineS * 1e3, 1e-3});
    least = std::clamp(least, most * 1e-4, most);
    Axis y{0, most * 1.08, 196, 26};
    std::vector<double> ticks;
    if (most > 8 * medianS * 1e3) { // a few late ones would press all others to the floor
        y.log = true;
        y.low = least * 0.7;
        y.high = most * 1.3;
        const int last = static_cast<int>(std::floor(std::log10(y.high)));
        for (int decade = static_cast<int>(std::floor(std::log10(y.low))); decade <= last; ++decade)
            for (const double factor : {1.0, 2.0, 5.0})
                if (const double tick = factor * std::pow(10, decade);
                    tick > y.low && tick < y.high && (factor == 1 || y.high / y.low < 300))
                    ticks.push_back(tick);
    } else {
        const double step = niceStep(y.high, 5);
        for (int i = 0; i * step <= y.high; ++i)
            ticks.push_back(i * step);
    }
    const double epochs = static_cast<double>(std::max(data.epochs, 2L));
    const Axis x{1, epochs, 44, kChartWidth - 54};
    std::string out = svgStart(248, "delay of the replies");
    for (const double ms : ticks) {
        out += svgLine(x.from, y.at(ms), x.to, y.at(ms), "grid");
        out += svgText(x.from - 6, y.at(ms) + 4, "end", plain(ms));
    }
    out += svgText(0, 12, "", y.log ? "delay, ms (logarithmic)" : "delay, ms");
    const double step = std::max(1.0, niceStep(epochs, 4));
    out += svgText(x.from, y.from + 20, "mid", "1");
    for (int i = 1; i * step <= epochs; ++i)
        if (const double e = i * step; x.at(e) > x.from + 20)
            out += svgText(x.at(e), y.from + 20, "mid",
                           grouped(static_cast<std::uint64_t>(std::lround(e))));
    out += svgText(x.to, y.from + 38, "end", "epoch");
    std::string path;
    for (std::size_t i = 0; i < data.delays.size(); ++i) {
        const long epoch = static_cast<long>(i) * data.delayStride + (data.delayStride + 1) / 2;
        path += "M" + coordinate(x.at(static_cast<double>(std::min(epoch, data.epochs)))) + " " +
                coordinate(y.at(data.delays[i].least * 1e3)) + "V" +
                coordinate(y.at(data.delays[i].most * 1e3));
    }
    out += "<path d=\"" + path + "\" class=\"plainc " + (data.delayStride > 1 ? "curve" : "dots") +
           "\"/>\n";
    const double medianY = y.at(medianS * 1e3);
    const double highY = y.at(ninetyNineS * 1e3);
    // their names stay apart where the lines do not
    const double apart = std::max(0.0, 15 - (medianY - highY)) / 2;
    out += svgLine(x.from, medianY, x.to, medianY, "median") +
           svgLine(x.from, highY, x.to, highY, "high");
    out += svgText(x.to + 5, medianY + 4 + apart, "", "median");
    out += svgText(x.to + 5, highY + 4 - apart, "", "99 %");
    return out + "</svg>\n";
}

} // namespace ctl::report
