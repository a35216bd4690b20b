// Names beside marks: each where it covers neither a mark nor another name.

const height = 12;
const overlap = (a, b) => a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h && b.y < a.y + a.h;

// To the right, left, above, below, then the corners.
const sides = [[1, 0], [-1, 0], [0, -1], [0, 1], [0.8, -0.8], [0.8, 0.8], [-0.8, -0.8], [-0.8, 0.8]];

/// `points`: {x, y, reach, width, side}, px; `taken`: boxes of other texts; `bounds`: {w, h}. Gives a
/// box {x, y, w, h, side} for each, or null where there is no room. The side of the last time is
/// tried first, so that names do not jump.
export function placeNames(points, taken, bounds) {
    const blocked = [
        ...taken,
        ...points.map((p) => ({ x: p.x - p.reach, y: p.y - p.reach, w: 2 * p.reach, h: 2 * p.reach, of: p })),
    ];
    return points.map((p) => {
        const order = [...sides.keys()];
        if (p.side > 0) order.unshift(p.side);
        for (const side of order) {
            const [dx, dy] = sides[side];
            const away = p.reach + 2;
            const box = {
                x: p.x + dx * (away + p.width / 2) - p.width / 2,
                y: p.y + dy * (away + height / 2) - height / 2,
                w: p.width,
                h: height,
                side,
            };
            if (box.x < 0 || box.y < 0 || box.x + box.w > bounds.w || box.y + box.h > bounds.h) continue;
            if (blocked.some((b) => b.of !== p && overlap(b, box))) continue;
            blocked.push(box);
            return box;
        }
        return null;
    });
}
