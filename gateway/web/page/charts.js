// Charts: over time by uPlot (vendor, a script of the page), the others as SVG. Behind each stands a
// table.

import { draw, make, setAttribute, setRows, setText } from "./dom.js";
import { fixed, grouped, median, systemNames, systems, time } from "./format.js";
import { satelliteMark } from "./marks.js";

const dark = matchMedia("(prefers-color-scheme: dark)");
const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

/// A table under a chart, written only while it is open or printed.
export class Behind {
    constructor(holder, heads) {
        this.body = make("tbody");
        this.details = make(
            "details",
            {},
            make("summary", {}, "The chart as a table"),
            make(
                "div",
                { class: "scroll", tabindex: 0, role: "group", "aria-label": "The chart as a table" },
                make("table", { class: "numbers" }, make("thead", {}, make("tr", {}, ...heads.map((h) => make("th", { scope: "col" }, h)))), this.body),
            ),
        );
        holder.append(this.details);
        this.rows = () => [];
        this.details.addEventListener("toggle", () => this.refresh());
    }

    set(rows) {
        this.rows = rows;
        this.refresh();
    }

    refresh() {
        if (this.details.open) setRows(this.body, this.rows());
    }
}

const minutes = [60, 120, 300, 600, 900, 1800, 3600]; // between the names of times, s
const font = '12px system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", sans-serif';

/// Series over the same times. `series`: {label, colour, write(value), width, dash, steps}; the values under
/// the pointer, or else the last ones, are told below.
export class TimeChart {
    #plot = null;
    #data = null;

    constructor(holder, { title, series, height, sync }) {
        Object.assign(this, { title, series, height, sync });
        this.box = make("div", { class: "chart", role: "img" });
        this.told = make("p", { class: "note", "aria-hidden": "true" });
        holder.append(this.box, this.told);
        dark.addEventListener("change", () => this.#build());
        new ResizeObserver(() => this.#plot?.setSize({ width: this.box.clientWidth, height })).observe(this.box);
    }

    /// `times` s since 1970; `values` one array for each series, null where there is none.
    set(times, ...values) {
        this.#data = [times, ...values];
        if (this.#plot) this.#plot.setData(this.#data);
        else this.#build();
        const said = this.series.map((s, i) => {
            const known = values[i].filter((v) => v !== null);
            if (known.length === 0) return `${s.label}: none`;
            return `${s.label}: last ${s.write(known.at(-1))}, from ${s.write(Math.min(...known))} to ${s.write(Math.max(...known))}`;
        });
        setAttribute(this.box, "aria-label", `${this.title}. ${said.join("; ")}.`);
        this.#tell(this.#plot.cursor.idx);
    }

    // What is new begins at the left: of a span that has hardly any values only the last sixth is shown.
    #from(low, high) {
        const [times, ...values] = this.#data;
        const known = times.find((_, i) => values.some((v) => v[i] !== null)) ?? low;
        return Math.min(known, high - (high - low) / 6);
    }

    #tell(at) {
        const [times, ...values] = this.#data;
        const i = at ?? times.length - 1;
        if (!(i >= 0)) return setText(this.told, "");
        setText(
            this.told,
            `${time(times[i])}  ` + this.series.map((s, k) => `${s.label} ${values[k][i] === null ? "\u2013" : s.write(values[k][i])}`).join(", "),
        );
    }

    #build() {
        if (!this.#data) return;
        this.#plot?.destroy();
        const line = { stroke: colour("line"), width: 1 };
        const axis = { stroke: colour("soft"), font, grid: { ...line, dash: [1, 4] }, ticks: { ...line, size: 4 } };
        this.#plot = new uPlot(
            {
                width: this.box.clientWidth,
                height: this.height,
                legend: { show: false },
                padding: [8, 18, 0, 0],
                tzDate: (t) => uPlot.tzDate(new Date(t * 1e3), "Etc/UTC"),
                cursor: { y: false, drag: { x: false, y: false }, points: { show: false }, ...(this.sync ? { sync: { key: this.sync } } : {}) },
                scales: { x: { range: (_, low, high) => [this.#from(low, high), high] }, y: { range: (_, low, high) => [0, high > 0 ? high * 1.08 : 1] } },
                hooks: { setCursor: [(plot) => this.#tell(plot.cursor.idx)] },
                axes: [
                    { ...axis, space: 64, size: 28, incrs: minutes, values: (_, ticks) => ticks.map((t) => time(t).slice(0, 5)) },
                    { ...axis, space: 34, size: 48, values: (_, ticks) => ticks.map(grouped) },
                ],
                series: [
                    {},
                    ...this.series.map((s) => ({
                        label: s.label,
                        stroke: colour(s.colour),
                        width: s.width ?? 1.5,
                        dash: s.dash,
                        paths: s.steps ? uPlot.paths.stepped({ align: -1 }) : undefined,
                        points: { show: false },
                    })),
                ],
            },
            this.#data,
            this.box,
        );
    }
}

const widest = 520;
const text = (x, y, classes, words) => draw("text", { x, y, class: classes }, words);
const line = (x1, y1, x2, y2, classes) => draw("line", { x1, y1, x2, y2, class: classes });
const at = (x, y, element) => {
    setAttribute(element, "transform", `translate(${x.toFixed(1)} ${y.toFixed(1)})`);
    return element;
};
const titled = (element, words) => draw("g", {}, draw("title", {}, words), element);

// As wide as its place: its words are then as large as all others.
const widthOf = (svg) => Math.min(widest, Math.max(280, svg.parentElement.clientWidth));

function svgChart(holder, words) {
    const svg = draw("svg", { class: "chart", role: "img", "aria-label": words });
    holder.append(svg);
    return svg;
}

/// C/N0: a row for each signal, in it a mark for each satellite; a line at the median.
export class SignalChart {
    constructor(holder) {
        this.svg = svgChart(holder, "C/N0 by signal");
    }

    set(satellites) {
        const wide = widthOf(this.svg);
        const [low, high, left, row] = [20, 60, 92, 25];
        const x = (dbhz) => left + ((Math.min(high, Math.max(low, dbhz)) - low) / (high - low)) * (wide - left - 8);
        const rows = new Map();
        for (const s of satellites)
            for (const [signal, dbhz] of Object.entries(s.cn0_dbhz)) {
                const key = `${systems.indexOf(s.name[0])} ${s.name[0]} ${signal}`;
                rows.set(key, [...(rows.get(key) ?? []), { s, signal, dbhz }]);
            }
        const sorted = [...rows].sort(([a], [b]) => (a < b ? -1 : 1));
        const height = sorted.length * row + 40;
        const out = [];
        for (let dbhz = low; dbhz <= high; dbhz += 10)
            out.push(line(x(dbhz), 6, x(dbhz), height - 34, "grid"), text(x(dbhz), height - 18, "mid", String(dbhz)));
        out.push(text(wide - 8, height - 2, "end", "dB-Hz"));
        const said = [];
        sorted.forEach(([key, cells], i) => {
            const [, system, signal] = key.split(" ");
            const y = 6 + row * i + row / 2;
            const middle = median(cells.map((c) => c.dbhz));
            said.push(`${systemNames[system]} ${signal} ${fixed(middle, 0)}`);
            out.push(text(0, y + 4, "", `${systemNames[system] ?? system} ${signal}`));
            out.push(line(left, y, wide - 8, y, "thin"));
            const group = draw("g", { class: system });
            for (const { s, dbhz } of cells)
                group.append(
                    titled(
                        at(x(dbhz), y, satelliteMark(system, s.kept?.includes(signal) ? "answered" : "low", 3.2)),
                        `${s.name} ${signal}: ${fixed(dbhz, 1)} dB-Hz${s.kept?.includes(signal) ? ", sent on" : ""}`,
                    ),
                );
            out.push(group, line(x(middle), y - 9, x(middle), y + 9, "median"));
        });
        setAttribute(this.svg, "viewBox", `0 0 ${wide} ${height}`);
        setAttribute(this.svg, "aria-label", `C/N0 by signal, medians in dB-Hz: ${said.join(", ") || "none"}`);
        this.svg.replaceChildren(...out);
    }
}

// 1, 2 or 5 times a power of ten that divides the span into so many parts or fewer.
function niceStep(span, parts) {
    const least = span / parts;
    const power = 10 ** Math.floor(Math.log10(least));
    return [1, 2, 5, 10].map((f) => f * power).find((step) => step >= least * (1 - 1e-9));
}

/// Change of the geometric range by elevation, between the limits of the offset.
export class ChangeChart {
    constructor(holder) {
        this.svg = svgChart(holder, "change of range by elevation");
    }

    set(satellites, [east, north, up]) {
        const shown = satellites.filter((s) => s.change_m !== undefined && s.elevation_deg !== undefined);
        const level = Math.hypot(east, north);
        const far = Math.max(1, Math.hypot(level, up));
        const wide = widthOf(this.svg);
        const [left, right, top, floor] = [46, wide - 8, 24, 264];
        const x = (deg) => left + (deg / 90) * (right - left);
        const y = (m) => floor + ((m / far / 1.08 + 1) / 2) * (top - floor);
        const step = niceStep(2 * far, 6);
        const out = [text(left, 12, "", "change of range, m"), text(right, floor + 34, "end", "elevation")];
        for (let i = -Math.floor(far / step); i <= far / step; ++i) {
            out.push(line(left, y(i * step), right, y(i * step), i === 0 ? "axis" : "grid"));
            out.push(text(left - 6, y(i * step) + 4, "end", fixed(i * step, step < 1 ? 1 : 0)));
        }
        for (let deg = 0; deg <= 90; deg += 15) {
            out.push(line(x(deg), floor, x(deg), floor + 4, "axis"));
            out.push(text(x(deg) - (deg === 90 ? 6 : 0), floor + 18, "mid", `${deg}\u00b0`));
        }
        // a satellite straight ahead or behind changes most
        for (const side of [-1, 1]) {
            const points = Array.from({ length: 31 }, (_, i) => {
                const e = (i * 3 * Math.PI) / 180;
                return `${x(i * 3).toFixed(1)} ${y(side * (level * Math.cos(e) + Math.abs(up) * Math.sin(e))).toFixed(1)}`;
            });
            out.push(draw("path", { d: `M${points.join("L")}`, class: "limit" }));
        }
        for (const s of shown)
            out.push(
                draw("g", { class: s.name[0] }, titled(at(x(Math.max(0, s.elevation_deg)), y(s.change_m), satelliteMark(s.name[0], s.fate, 3.4)), `${s.name}: ${fixed(s.change_m, 1)} m`)),
            );
        setAttribute(this.svg, "viewBox", `0 0 ${wide} ${floor + 40}`);
        setAttribute(this.svg, "aria-label", `Change of range by elevation, ${shown.length} satellites, at most ${fixed(far, 0)} m`);
        this.svg.replaceChildren(...out);
    }
}

/// The part of a bound that a difference takes: a bar up to a line.
export function boundBar(part) {
    const full = 120;
    const over = part > 1;
    const length = over ? full * Math.min(1.25, part) : full * part;
    return draw(
        "svg",
        { class: "bound-bar", viewBox: "0 0 150 14", "aria-hidden": "true", preserveAspectRatio: "none" },
        draw("rect", { x: 0, y: 4, width: Math.max(1, length).toFixed(1), height: 6, rx: 1.5, class: over ? "beyond" : "dot" }),
        line(full, 0, full, 14, "bound"),
    );
}
