#include "ctl/report/Labels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>

namespace ctl::report {

namespace {

constexpr double kGap = 1.5;       // between a mark and its label
constexpr double kStep = 2.0;      // outwards
constexpr double kLeaderFrom = 6;  // a label further away than that has a line
constexpr int kRounds = 6;         // in each, those without a place in the last choose first
constexpr double kPriceOfMark = 4; // in units of distance, for every kDash of the line above it
constexpr double kPriceOfLine = 8;
constexpr double kDash = 2;
constexpr double kCrowd = 40; // marks nearer than this compete for room

// Right and left read best, then above and below, then between.
constexpr std::array kTurns{
    0.0,  4.0,   1.0,  3.0,   -1.0, -3.0,  2.0,   -2.0,  0.5,   -0.5, 3.5,
    -3.5, 1.5,   -1.5, 2.5,   -2.5, 0.25,  -0.25, 3.75,  -3.75, 0.75, -0.75,
    3.25, -3.25, 1.25, -1.25, 2.75, -2.75, 1.75,  -1.75, 2.25,  -2.25}; // of 45 degrees

bool free(const Box& box, const std::vector<Box>& taken) {
    return std::none_of(taken.begin(), taken.end(), [&](const Box& b) { return box.overlaps(b); });
}

// The line as small boxes, without its ends.
std::vector<Box> along(const PlacedLabel& p) {
    std::vector<Box> out;
    const double length = std::hypot(p.toX - p.fromX, p.toY - p.fromY);
    for (int i = 0; 1 + i * kDash < length - 0.5; ++i) {
        const double part = (1 + i * kDash) / length;
        out.push_back({p.fromX + part * (p.toX - p.fromX) - 0.5,
                       p.fromY + part * (p.toY - p.fromY) - 0.5, 1, 1});
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

// What is drawn already. Labels cover nothing of it; the lines to them cross no text, and marks and
// other lines at a price.
struct Drawing {
    std::vector<Box> texts, marks, lines;
};

long crossed(const Box& box, const std::vector<Box>& taken) {
    return std::count_if(taken.begin(), taken.end(), [&](const Box& b) { return box.overlaps(b); });
}

// What it costs to read the label there: the distance and what its line crosses; nothing where it
// cannot stand.
std::optional<double> cost(const PlacedLabel& p, double distance, const Drawing& drawing) {
    if (!free(p.box, drawing.texts) || !free(p.box, drawing.marks) || !free(p.box, drawing.lines))
        return std::nullopt;
    double sum = distance;
    if (p.leader)
        for (const Box& b : along(p)) {
            if (!free(b, drawing.texts))
                return std::nullopt;
            sum += kPriceOfMark * static_cast<double>(crossed(b, drawing.marks)) +
                   kPriceOfLine * static_cast<double>(crossed(b, drawing.lines));
        }
    return sum;
}

std::optional<PlacedLabel> place(const Label& label, const Drawing& drawing, const Box& bounds,
                                 double mostDistance) {
    std::optional<PlacedLabel> best;
    double least = 1e9;
    for (double distance = 0; distance <= mostDistance && distance < least; distance += kStep)
        for (const double turn : kTurns) {
            const PlacedLabel p = candidate(label, turn * std::numbers::pi / 4, distance);
            if (!p.box.inside(bounds))
                continue;
            if (const auto c = cost(p, distance, drawing); c && *c < least) {
                best = p;
                least = *c;
            }
        }
    return best;
}

using Places = std::vector<std::optional<PlacedLabel>>;

Places placeInOrder(const std::vector<Label>& labels, const std::vector<std::size_t>& order,
                    Drawing drawing, const Box& bounds, double mostDistance) {
    Places out(labels.size());
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

long missing(const Places& places) {
    return std::count_if(places.begin(), places.end(), [](const auto& p) { return !p; });
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
    Places best = placeInOrder(labels, order, drawing, bounds, mostDistance);
    Places last = best;
    for (int round = 0; round < kRounds && missing(best) > 0; ++round) {
        std::stable_partition(order.begin(), order.end(),
                              [&](std::size_t i) { return !last[i] && !labels[i].minor; });
        last = placeInOrder(labels, order, drawing, bounds, mostDistance);
        if (missing(last) < missing(best))
            best = last;
    }
    return best;
}

} // namespace ctl::report
