#include "ctl/report/Labels.h"
#include "ctl/report/ReportCharts.h"

#include "base/Findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace ctl::report {

namespace {

constexpr double kRadius = 142; // of the horizon
constexpr double kDot = 3.4;
constexpr double kGoneDot = 2.4;    // of a satellite out of sight
constexpr double kHollow = 1.3;     // a hollow mark against a filled one
constexpr double kFarCorner = 1.35; // of a mark of radius 1
constexpr double kHalfStroke = 0.75;
constexpr double kSecondOutline = 2.6; // behind the first one
constexpr double kLabelHeight = 11;    // of capitals and digits, with some air
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

// Corners of a mark of radius 1, about as large as the circle of that radius, which is the shape of
// all other systems.
struct Shape {
    char system;
    std::size_t count;
    std::array<Point, 4> corners;
};
constexpr Shape kShapes[] = {
    {'R', 4, {{{-0.9, -0.9}, {0.9, -0.9}, {0.9, 0.9}, {-0.9, 0.9}}}},
    {'E', 3, {{{0, -1.3}, {1.2, 0.9}, {-1.2, 0.9}}}},
    {'C', 4, {{{0, -kFarCorner}, {kFarCorner, 0}, {0, kFarCorner}, {-kFarCorner, 0}}}},
    {'J', 3, {{{0, 1.3}, {1.2, -0.9}, {-1.2, -0.9}}}},
};

std::string outline(char system, double x, double y, double r, const char* classes) {
    for (const Shape& s : kShapes) {
        if (s.system != system)
            continue;
        std::string path;
        for (std::size_t i = 0; i < s.count; ++i)
            path += (i == 0 ? "M" : "L") + pair(x + r * s.corners[i].x, y + r * s.corners[i].y);
        return "<path d=\"" + path + "Z\" class=\"" + classes + "\"/>";
    }
    return "<circle cx=\"" + coordinate(x) + "\" cy=\"" + coordinate(y) + "\" r=\"" +
           coordinate(r) + "\" class=\"" + classes + "\"/>";
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

// Apart from rising, which is nothing odd.
bool fateChanged(const ShownSatellite& record) {
    return std::any_of(record.epochs.begin(), record.epochs.end(), [&](const auto& e) {
        return e.first != record.last.fate && e.first != ref::Fate::low;
    });
}

std::string labelText(const std::string& sat, const PlacedLabel& p) {
    std::string out;
    if (p.leader)
        out += svgLine(p.fromX, p.fromY, p.toX, p.toY, "leader");
    return out +
           svgText(p.box.x + p.box.width / 2, p.box.y + p.box.height - 1.2, "mid own halo", sat);
}

} // namespace

std::string satelliteMark(char system, ref::Fate fate, double x, double y, double radius) {
    if (fate == ref::Fate::answered)
        return outline(system, x, y, radius, "dot");
    const double r = radius * kHollow;
    const double in = r * 0.5;
    const auto path = [](const std::string& d) { return "<path d=\"" + d + "\" class=\"mark\"/>"; };
    std::string hollow = outline(system, x, y, r, "mark");
    switch (fate) {
    case ref::Fate::answered:
    case ref::Fate::low:
        break;
    case ref::Fate::noEphemeris:
        return hollow + path("M" + pair(x - in, y - in) + "L" + pair(x + in, y + in) + "M" +
                             pair(x - in, y + in) + "L" + pair(x + in, y - in));
    case ref::Fate::oldEphemeris:
        return hollow + "<circle cx=\"" + coordinate(x) + "\" cy=\"" + coordinate(y) +
               "\" r=\"1.4\" class=\"dot\"/>";
    case ref::Fate::noPhase:
        return hollow + path("M" + pair(x - r, y) + "H" + coordinate(x + r));
    case ref::Fate::noSignal:
        return hollow + path("M" + pair(x, y - r) + "V" + coordinate(y + r));
    case ref::Fate::missing:
        return hollow + path("M" + pair(x - 0.95 * r, y + 0.95 * r) + "L" +
                             pair(x + 0.95 * r, y - 0.95 * r));
    }
    return hollow;
}

double markReach(ref::Fate fate, double radius) {
    return kFarCorner * radius * (fate == ref::Fate::answered ? 1 : kHollow) + kHalfStroke;
}

std::string systemIcon(char system) {
    return "<svg class=\"icon " + std::string(1, system) +
           "\" viewBox=\"0 0 14 14\" aria-hidden=\"true\">" +
           satelliteMark(system, ref::Fate::answered, 7, 7, kDot + 0.6) + "</svg>";
}

std::string fateIcon(ref::Fate fate) {
    return "<svg class=\"icon\" viewBox=\"0 0 14 14\" aria-hidden=\"true\">" +
           satelliteMark('G', fate, 7, 7, kDot + 0.6) + "</svg>";
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
        const char system = entry.first[0];
        const bool gone = record.last.epoch + 1 < data.epochs;
        const double dot = gone ? kGoneDot : kDot;
        double reach = markReach(record.last.fate, dot);
        marks += "<g class=\"" + std::string(1, system) + "\">" + track(record, data.skyStride) +
                 satelliteMark(system, record.last.fate, p.x, p.y, dot);
        if (fateChanged(record)) {
            reach += kSecondOutline * kFarCorner;
            marks += outline(system, p.x, p.y, reach / kFarCorner, "mark");
        }
        marks += "</g>\n";
        labels.push_back({p.x, p.y, reach, kLabelWidth, kLabelHeight, gone});
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
