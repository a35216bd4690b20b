#include "ctl/Labels.h"
#include "ctl/ReportCharts.h"

#include "common/Findings.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ctl::report {

namespace {

constexpr double kMiddle = kChartWidth / 2;
constexpr double kRadius = 142; // of the horizon
constexpr double kDot = 3.4;
constexpr double kLabelHeight = 11; // of capitals and digits, with some air
constexpr double kLabelWidth = 26;

struct Point {
    double x = 0, y = 0;
};

// North up, east to the right as on a map.
Point at(double azimuthDeg, double elevationDeg) {
    constexpr double degree = std::numbers::pi / 180;
    const double r = kRadius * std::min(90 - elevationDeg, 92.0) / 90;
    return {kMiddle + r * std::sin(azimuthDeg * degree),
            kMiddle - r * std::cos(azimuthDeg * degree)};
}
Point at(const ref::Direction& d) {
    return at(d.azimuthDeg, d.elevationDeg);
}

std::string pair(double x, double y) {
    return coordinate(x) + " " + coordinate(y);
}

// Solid while it is answered, dotted while not; a gap where it was out of sight.
std::string track(const ShownSatellite& record, long stride) {
    std::string answered;
    std::string other;
    const SkySample* before = nullptr;
    Point last;
    for (const SkySample& s : record.track) {
        if (!s.placed)
            continue;
        const Point p = at(s.direction);
        const bool joined = before != nullptr && s.epoch - before->epoch <= stride;
        if (joined && std::hypot(p.x - last.x, p.y - last.y) < 1)
            continue;
        if (joined)
            (s.fate == ref::Fate::answered ? answered : other) +=
                "M" + pair(last.x, last.y) + "L" + pair(p.x, p.y);
        before = &s;
        last = p;
    }
    std::string out;
    if (!answered.empty())
        out += "<path d=\"" + answered + "\" class=\"track\"/>\n";
    if (!other.empty())
        out += "<path d=\"" + other + "\" class=\"track dim\"/>\n";
    return out;
}

// The net; where its words stand goes to `texts`.
std::string rings(const std::vector<Label>& marks, std::vector<Box>& texts) {
    std::string out;
    for (const int deg : {0, 5, 30, 60}) {
        out += "<circle cx=\"" + coordinate(kMiddle) + "\" cy=\"" + coordinate(kMiddle) +
               "\" r=\"" + coordinate(kRadius * (90 - deg) / 90) + "\" class=\"" +
               (deg == 0   ? "axis hollow"
                : deg == 5 ? "cutoff hollow"
                           : "grid hollow") +
               "\"/>\n";
    }
    out += svgLine(kMiddle - kRadius, kMiddle, kMiddle + kRadius, kMiddle, "grid");
    out += svgLine(kMiddle, kMiddle - kRadius, kMiddle, kMiddle + kRadius, "grid");
    const struct {
        const char* name;
        double azimuthDeg;
    } winds[] = {{"N", 0}, {"E", 90}, {"S", 180}, {"W", 270}};
    for (const auto& w : winds) {
        const Point p = at(w.azimuthDeg, 0);
        const double x = kMiddle + (p.x - kMiddle) * (kRadius + 12) / kRadius;
        const double y = kMiddle + (p.y - kMiddle) * (kRadius + 12) / kRadius;
        out += svgText(x, y + 4.5, "mid strong", w.name);
        texts.push_back({x - 7, y - 8, 14, 16});
    }
    // the elevations where no mark is
    for (const int deg : {30, 60})
        for (int azimuth = 2; azimuth < 360; azimuth += 5) {
            const Point p = at(azimuth, deg);
            const Box box{p.x - 12, p.y - 7, 24, 14};
            if (std::any_of(marks.begin(), marks.end(),
                            [&](const Label& m) { return box.overlaps(markBox(m)); }))
                continue;
            texts.push_back(box);
            out += svgText(p.x, p.y + 4.5, "mid halo", text("%d\u00B0", deg));
            break;
        }
    return out;
}

std::string labelText(const std::string& sat, const PlacedLabel& p) {
    std::string out;
    if (p.leader)
        out += svgLine(p.fromX, p.fromY, p.toX, p.toY, "leader");
    return out +
           svgText(p.box.x + p.box.width / 2, p.box.y + p.box.height - 1.2, "mid own halo", sat);
}

} // namespace

std::string fateMark(ref::Fate fate, double x, double y, double radius) {
    const double r = radius * 1.25;
    const auto path = [](const std::string& d) { return "<path d=\"" + d + "\" class=\"mark\"/>"; };
    switch (fate) {
    case ref::Fate::answered:
        return "<circle cx=\"" + coordinate(x) + "\" cy=\"" + coordinate(y) + "\" r=\"" +
               coordinate(radius) + "\" class=\"dot\"/>";
    case ref::Fate::low:
        return "<circle cx=\"" + coordinate(x) + "\" cy=\"" + coordinate(y) + "\" r=\"" +
               coordinate(radius * 1.1) + "\" class=\"mark\"/>";
    case ref::Fate::noEphemeris:
        return path("M" + pair(x - r, y - r) + "L" + pair(x + r, y + r) + "M" + pair(x - r, y + r) +
                    "L" + pair(x + r, y - r));
    case ref::Fate::oldEphemeris:
        return path("M" + pair(x, y - 1.3 * r) + "L" + pair(x + 1.3 * r, y) + "L" +
                    pair(x, y + 1.3 * r) + "L" + pair(x - 1.3 * r, y) + "Z");
    case ref::Fate::noPhase:
        return path("M" + pair(x, y - 1.2 * r) + "L" + pair(x + 1.2 * r, y + 0.9 * r) + "L" +
                    pair(x - 1.2 * r, y + 0.9 * r) + "Z");
    case ref::Fate::noSignal:
        return path("M" + pair(x - r, y - r) + "H" + coordinate(x + r) + "V" + coordinate(y + r) +
                    "H" + coordinate(x - r) + "Z");
    }
    return "";
}

std::string fateIcon(ref::Fate fate) {
    return "<svg class=\"icon\" viewBox=\"0 0 14 14\" aria-hidden=\"true\">" +
           fateMark(fate, 7, 7, kDot + 0.4) + "</svg>";
}

std::string skyPlot(const ReportData& data) {
    std::vector<Label> labels;
    std::vector<const std::pair<const std::string, ShownSatellite>*> shown;
    std::string marks;
    for (const auto& entry : data.satellites) {
        const ShownSatellite& record = entry.second;
        if (!record.last.placed)
            continue;
        const Point p = at(record.last.direction);
        const bool gone = record.last.epoch + 1 < data.epochs;
        marks += "<g class=\"" + entry.first.substr(0, 1) + (gone ? " gone" : "") + "\">" +
                 track(record, data.skyStride);
        // its last fate, and around it, larger, what else it met
        marks += fateMark(record.last.fate, p.x, p.y, kDot);
        double radius = kDot;
        for (const auto& [fate, n] : record.epochs)
            if (fate != record.last.fate && fate != ref::Fate::low) { // it has risen: nothing odd
                radius += 2;
                marks +=
                    fateMark(fate, p.x, p.y, fate == ref::Fate::answered ? kDot - 1.4 : radius);
            }
        marks += "</g>\n";
        labels.push_back({p.x, p.y, radius * 1.1 + 0.4, kLabelWidth, kLabelHeight, gone});
        shown.push_back(&entry);
    }
    std::vector<Box> texts;
    std::string out = rings(labels, texts) + marks;
    const auto places = placeLabels(labels, texts, {0, 0, kChartWidth, kChartWidth}, 90);
    int nameless = 0;
    for (std::size_t i = 0; i < places.size(); ++i)
        if (!places[i])
            ++nameless;
        else
            out += "<g class=\"" + shown[i]->first.substr(0, 1) + "\">" +
                   labelText(shown[i]->first, *places[i]) + "</g>\n";
    if (nameless > 0)
        out += svgText(0, kChartWidth + 14, "",
                       text("%d without room for a name: see the table", nameless));
    return svgStart(kChartWidth + (nameless > 0 ? 20 : 0), "the satellites in the sky") + out +
           "</svg>\n";
}

} // namespace ctl::report
