// Many marks, one stop of the Tab key: the arrow keys go from mark to mark.

const directions = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

// The nearest in that direction; straight ahead counts as nearer than aside.
function next(from, points, [dx, dy]) {
    let best = null;
    let least = Infinity;
    for (const p of points) {
        const ahead = (p.x - from.x) * dx + (p.y - from.y) * dy;
        const aside = Math.abs((p.x - from.x) * dy) + Math.abs((p.y - from.y) * dx);
        if (ahead <= 0.01 || aside > 3 * ahead) continue;
        if (ahead + 2 * aside < least) [least, best] = [ahead + 2 * aside, p];
    }
    return best;
}

/// `points()` gives {element, x, y} of what can be reached now. Returns a function to call after the
/// marks have changed: one of them, no more, takes part in the order of the Tab key.
export function roam(holder, points) {
    let current = null;
    const choose = (element) => {
        if (current && current !== element) current.setAttribute("tabindex", -1);
        current = element;
        current?.setAttribute("tabindex", 0);
    };
    holder.addEventListener("focusin", (event) => {
        const point = points().find((p) => p.element === event.target);
        if (point) choose(point.element);
    });
    holder.addEventListener("keydown", (event) => {
        if (event.ctrlKey || event.altKey || event.metaKey) return;
        const all = points();
        const here = all.find((p) => p.element === document.activeElement);
        if (!here) return;
        const to = directions[event.key]
            ? next(here, all, directions[event.key])
            : { Home: all[0], End: all.at(-1) }[event.key];
        if (!directions[event.key] && !to) return;
        event.preventDefault();
        if (!to) return;
        choose(to.element);
        to.element.focus({ preventScroll: true });
    });
    return () => {
        const all = points();
        if (!all.some((p) => p.element === current)) choose(all[0]?.element ?? null);
    };
}
