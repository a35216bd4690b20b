#include "ctl/Labels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kGap = 1.5;      // between a mark and its label
constexpr double kStep = 2.0;     // outwards
constexpr double kLeaderFrom = 6; // a label further away than that has a line
constexpr double kCrowd = 40;     // marks nearer than this compete for room

// Right and left read best, then above and below, then between.
constexpr std::array kTurns{0.0, 4.0,  1.0, 3.0,  -1.0, -3.0, 2.0, -2.0,
                            0.5, -0.5, 3.5, -3.5, 1.5,  -1.5, 2.5, -2.5}; // of 45 degrees

bool free(const Box& box, const std::vector<Box>& taken) {
    return std::none_of(taken.begin(), taken.end(), [&](const Box& b) { return box.overlaps(b); });
}

// The line as small boxes, without its ends.
std::vector<Box> along(const PlacedLabel& p) {
    std::vector<Box> out;
    const double length = std::hypot(p.toX - p.fromX, p.toY - p.fromY);
    for (double s = 1; s < length - 0.5; s += 1) {
        const double part = s / length;
        out.push_back({p.fromX + part * (p.toX - p.fromX) - 0.4,
                       p.fromY + part * (p.toY - p.fromY) - 0.4, 0.8, 0.8});
    }
    return out;
}

// The label in a direction, its nearest edge so far from the mark.
PlacedLabel candidate(const Label& label, double angle, double distance) {
    const double dx = std::cos(angle);
    const double dy = std::sin(angle);
    // how far the middle of the label is when its edge touches the middle of the mark
    const double reach = std::min(std::abs(dx) > 1e-9 ? label.width / 2 / std::abs(dx) : 1e9,
                                  std::abs(dy) > 1e-9 ? label.height / 2 / std::abs(dy) : 1e9);
    const double from = label.markRadius + kGap + distance;
    PlacedLabel p;
    p.box = {label.x + dx * (from + reach) - label.width / 2,
             label.y + dy * (from + reach) - label.height / 2, label.width, label.height};
    p.leader = distance >= kLeaderFrom;
    p.fromX = label.x + dx * label.markRadius;
    p.fromY = label.y + dy * label.markRadius;
    p.toX = label.x + dx * from;
    p.toY = label.y + dy * from;
    return p;
}

// What is drawn already. Labels cover nothing of it; the lines to them keep clear of texts, and of
// marks and other lines where they can.
struct Drawing {
    std::vector<Box> texts, marks, lines;
};
enum class Crossing { none, marks, marksAndLines };

bool clear(const PlacedLabel& p, const Drawing& drawing, Crossing allowed) {
    if (!free(p.box, drawing.texts) || !free(p.box, drawing.marks) || !free(p.box, drawing.lines))
        return false;
    const std::vector<Box> line = p.leader ? along(p) : std::vector<Box>{};
    return std::all_of(line.begin(), line.end(), [&](const Box& b) {
        return free(b, drawing.texts) && (allowed >= Crossing::marks || free(b, drawing.marks)) &&
               (allowed == Crossing::marksAndLines || free(b, drawing.lines));
    });
}

std::optional<PlacedLabel> place(const Label& label, const Drawing& drawing, const Box& bounds,
                                 double mostDistance) {
    for (const Crossing allowed : {Crossing::none, Crossing::marks, Crossing::marksAndLines})
        for (double distance = 0; distance <= mostDistance; distance += kStep)
            for (const double turn : kTurns) {
                const PlacedLabel p = candidate(label, turn * kPi / 4, distance);
                if (p.box.inside(bounds) && clear(p, drawing, allowed))
                    return p;
            }
    return std::nullopt;
}

} // namespace

Box markBox(const Label& l) {
    return {l.x - l.markRadius, l.y - l.markRadius, 2 * l.markRadius, 2 * l.markRadius};
}

std::vector<std::optional<PlacedLabel>> placeLabels(const std::vector<Label>& labels,
                                                    std::vector<Box> obstacles, const Box& bounds,
                                                    double mostDistance) {
    Drawing drawing{std::move(obstacles), {}, {}};
    std::vector<std::size_t> order(labels.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::vector<long> neighbours;
    for (const Label& l : labels) {
        drawing.marks.push_back(markBox(l));
        neighbours.push_back(std::count_if(labels.begin(), labels.end(), [&](const Label& other) {
            return std::hypot(other.x - l.x, other.y - l.y) < kCrowd;
        }));
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return labels[a].minor != labels[b].minor ? labels[b].minor : neighbours[a] > neighbours[b];
    });
    std::vector<std::optional<PlacedLabel>> out(labels.size());
    for (const std::size_t i : order) {
        out[i] = place(labels[i], drawing, bounds, mostDistance);
        if (!out[i])
            continue;
        drawing.texts.push_back(out[i]->box);
        if (out[i]->leader)
            for (const Box& b : along(*out[i]))
                drawing.lines.push_back(b);
    }
    return out;
}
