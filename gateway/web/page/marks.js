// Marks: systems differ by shape as well as by colour, and so do the states of stations.

import { draw } from "./dom.js";

// Corners of a mark of radius 1, about as large as the circle of that radius, which is the shape of
// all others.
const shapes = {
    R: [[-0.9, -0.9], [0.9, -0.9], [0.9, 0.9], [-0.9, 0.9]],
    E: [[0, -1.3], [1.2, 0.9], [-1.2, 0.9]],
    C: [[0, -1.35], [1.35, 0], [0, 1.35], [-1.35, 0]],
    J: [[0, 1.3], [1.2, -0.9], [-1.2, -0.9]],
    S: [[-1.5, -0.6], [1.5, -0.6], [1.5, 0.6], [-1.5, 0.6]],
    I: [[-0.6, -1.5], [0.6, -1.5], [0.6, 1.5], [-0.6, 1.5]],
    stopped: [[-0.9, -0.9], [0.9, -0.9], [0.9, 0.9], [-0.9, 0.9]],
    silent: [[0, -1.3], [1.25, 0.95], [-1.25, 0.95]],
    wrong: [[0, -1.45], [1.45, 0], [0, 1.45], [-1.45, 0]],
};

const number = (value) => value.toFixed(2);

function polygon(corners, x, y, r) {
    return corners.map(([dx, dy], i) => `${i ? "L" : "M"}${number(x + r * dx)} ${number(y + r * dy)}`).join("") + "Z";
}

function circle(x, y, r) {
    const [left, twice] = [number(x - r), number(2 * r)];
    return `M${left} ${number(y)}a${r} ${r} 0 1 0 ${twice} 0a${r} ${r} 0 1 0 -${twice} 0Z`;
}

const outline = (shape, x, y, r) => (shapes[shape] ? polygon(shapes[shape], x, y, r) : circle(x, y, r));

const hollowR = 1.3; // a hollow mark against a filled one
const inside = {
    no_ephemeris: (r) => `M${-r / 2} ${-r / 2}L${r / 2} ${r / 2}M${-r / 2} ${r / 2}L${r / 2} ${-r / 2}`,
    old_ephemeris: () => circle(0, 0, 0.6),
    no_signal: (r) => `M0 ${-r}V${r}`,
    left_out: (r) => `M${-0.95 * r} ${0.95 * r}L${0.95 * r} ${-0.95 * r}`,
};

/// A satellite by its system and what became of it: filled when it was answered. Around 0, 0.
export function satelliteMark(system, fate, r = 3.4) {
    if (fate === "answered") return draw("path", { d: outline(system, 0, 0, r), class: "dot" });
    const d = outline(system, 0, 0, r * hollowR) + (inside[fate]?.(r * hollowR) ?? "");
    return draw("path", { d, class: "mark" });
}

export function stateMark(state, r = 4) {
    return draw("path", { d: outline(state, 0, 0, r), class: state === "starting" ? "mark" : "dot" });
}

const icon = (classes, mark) =>
    draw("svg", { class: `icon ${classes}`, viewBox: "-7 -7 14 14", "aria-hidden": "true" }, mark);

export const systemIcon = (system) => icon(system, satelliteMark(system, "answered", 4));
export const fateIcon = (fate, system = "") => icon(system, satelliteMark(system || "G", fate, 4));
export const stateIcon = (state) => icon(`state-${state}`, stateMark(state, 4.4));
