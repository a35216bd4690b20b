#pragma once

#include <cstddef>
#include <optional>
#include <vector>

/// Labels: finds places for the labels of a drawing so that none covers another or a mark. Lengths
/// are in the units of the drawing, y points down.

namespace ctl::report {

struct Box {
    double x = 0, y = 0, width = 0, height = 0; // x, y: upper left corner
    bool overlaps(const Box& b) const {
        return x < b.x + b.width && b.x < x + width && y < b.y + b.height && b.y < y + height;
    }
    bool inside(const Box& b) const {
        return x >= b.x && y >= b.y && x + width <= b.x + b.width && y + height <= b.y + b.height;
    }
};

struct Label {
    double x = 0, y = 0;          // of the mark that it names
    double markRadius = 0;        // kept free
    double width = 0, height = 0; // of its text
    bool minor = false;           // after all others
};
/// What its mark covers.
Box markBox(const Label& label);

struct PlacedLabel {
    Box box;
    bool leader = false; // too far from its mark to go without a line between them
    double fromX = 0, fromY = 0, toX = 0, toY = 0;
};

/// Places in the order of the labels, inside the bounds, clear of the obstacles and of each other's
/// marks; nothing where there is no room within the distance. The most crowded choose first.
std::vector<std::optional<PlacedLabel>> placeLabels(const std::vector<Label>& labels,
                                                    std::vector<Box> obstacles, const Box& bounds,
                                                    double mostDistance);

} // namespace ctl::report
