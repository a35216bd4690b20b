// The stations on a map. Coastlines and borders are SVG paths of this server; plate carrée, true to
// scale along the middle parallel.

import { draw, setAttribute, setText } from "./dom.js";
import { placeNames } from "./labels.js";
import { stateMark } from "./marks.js";
import { roam } from "./roam.js";
import { distance, plural, states } from "./format.js";

const degree = Math.PI / 180;
const metresADegree = 111195;
const namesUpTo = 60; // marks in sight
const smallFrom = 150; // stations: smaller marks
const most = 3000; // px a degree
const longestName = 14;

// The shortest range of longitudes that holds them all, degrees.
function longitudes(values) {
    const sorted = [...values].sort((a, b) => a - b);
    let gap = sorted[0] + 360 - sorted.at(-1);
    let from = 0;
    for (let i = 1; i < sorted.length; ++i)
        if (sorted[i] - sorted[i - 1] > gap) [gap, from] = [sorted[i] - sorted[i - 1], i];
    return { from: sorted[from], span: 360 - gap };
}

export class StationMap {
    #size = { w: 0, h: 0 };
    #view = null; // centre in degrees, px a degree of latitude
    #marks = new Map(); // by name: {link, state, place, x, y, shown}
    #moved = false; // by hand: new stations do not change the view

    constructor(holder, { href, describe, note, buttons, address }) {
        Object.assign(this, { href, describe, note });
        this.land = draw("g", { class: "land" });
        this.groups = Object.fromEntries(
            [...states].reverse().map((state) => [state, draw("g", { class: `state-${state}` })]),
        );
        this.names = draw("g", { class: "names", "aria-hidden": "true" });
        this.scale = draw("path", { class: "scale" });
        this.scaleText = draw("text", { class: "halo" });
        this.svg = draw(
            "svg",
            { class: "world", role: "group", "aria-label": "Map of the stations. The arrow keys go from one to the next." },
            this.land, ...Object.values(this.groups), this.names, this.scale, this.scaleText,
        );
        holder.append(this.svg);
        // not of the SVG: a listener there would make it a stop of the Tab key
        this.roamed = roam(holder, () => this.#reachable());
        holder.addEventListener("focusin", (event) => this.#tell(event.target.closest("a")));
        this.svg.addEventListener("pointerover", (event) => this.#tell(event.target.closest("a")));
        this.svg.addEventListener("pointerleave", () => this.#tell(null));
        buttons.in.addEventListener("click", () => this.#zoom(2));
        buttons.out.addEventListener("click", () => this.#zoom(0.5));
        buttons.fit.addEventListener("click", () => this.fit());
        buttons.world.addEventListener("click", () => this.#show({ longitude: 0, latitude: 8, scale: 0 }));
        this.#drag();
        new ResizeObserver(() => this.#resize()).observe(holder);
        this.#load(address);
    }

    async #load(address) {
        // after the first picture of the table
        await new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));
        const response = await fetch(address);
        if (!response.ok) return;
        const { land, borders } = await response.json();
        const paths = [draw("path", { d: land, class: "coast" }), draw("path", { d: borders, class: "border" })];
        for (const turn of [-36000, 0, 36000])
            this.land.append(draw("g", { transform: `translate(${turn} 0)` }, ...paths.map((p) => p.cloneNode())));
        this.#place();
    }

    #resize() {
        const { width: w, height: h } = this.svg.getBoundingClientRect();
        if (w === 0 || (w === this.#size.w && h === this.#size.h)) return;
        this.#size = { w, h };
        setAttribute(this.svg, "viewBox", `0 0 ${w} ${h}`);
        if (!this.#moved) this.fit();
        else this.#place();
    }

    /// All stations by name, and the names of those that search and filter show.
    set(stations, shown) {
        const before = this.#marks;
        this.#marks = new Map();
        let placed = 0;
        let changed = false;
        for (const s of stations.values()) {
            if (!s.place) continue;
            ++placed;
            const mark = before.get(s.name) ?? this.#create(s);
            before.delete(s.name);
            this.#marks.set(s.name, mark);
            mark.station = s;
            const { latitude_deg: latitude, longitude_deg: longitude } = s.place;
            if (mark.latitude !== latitude || mark.longitude !== longitude || mark.state !== s.state || mark.shown !== shown.has(s.name)) {
                changed = true;
                Object.assign(mark, { latitude, longitude, shown: shown.has(s.name) });
                this.#dress(mark, s.state);
            }
        }
        for (const mark of before.values()) mark.link.remove();
        const without = stations.size - placed;
        this.without = without ? `${plural(without, "station has", "stations have")} no position yet.` : "";
        this.svg.classList.toggle("many", this.#marks.size >= smallFrom);
        if (!changed && before.size === 0) return;
        if (!this.#moved) this.fit();
        else this.#place();
        this.#tell(null);
    }

    #create(s) {
        const link = draw("a", { href: this.href(s.name), tabindex: -1 });
        link.dataset.name = s.name;
        return { link, state: "", x: 0, y: 0 };
    }

    #dress(mark, state) {
        if (mark.state !== state) {
            const focused = document.activeElement === mark.link;
            mark.state = state;
            mark.link.replaceChildren(stateMark(state, 4.5));
            this.groups[state].append(mark.link);
            if (focused) mark.link.focus({ preventScroll: true });
        }
        setAttribute(mark.link, "class", mark.shown ? null : "out");
        setAttribute(mark.link, "aria-label", this.describe(mark.station));
    }

    fit() {
        this.#moved = false;
        const shown = [...this.#marks.values()].filter((m) => m.shown);
        const of = shown.length ? shown : [...this.#marks.values()];
        if (of.length === 0) return this.#show({ longitude: 0, latitude: 8, scale: 0 }, false);
        const across = longitudes(of.map((m) => m.longitude));
        const latitudes = of.map((m) => m.latitude);
        const [south, north] = [Math.min(...latitudes), Math.max(...latitudes)];
        const latitude = (south + north) / 2;
        const k = Math.max(0.2, Math.cos(latitude * degree));
        const { w, h } = this.#size;
        const [wide, high] = [Math.max(across.span * k, 2.5), Math.max(north - south, 2.5)];
        this.#show({ longitude: across.from + across.span / 2, latitude, scale: Math.min((w - 70) / wide, (h - 50) / high) }, false);
    }

    #zoom(factor, x = this.#size.w / 2, y = this.#size.h / 2) {
        const before = this.#degrees(x, y);
        this.#view.scale *= factor;
        this.#limit();
        const after = this.#degrees(x, y);
        this.#show({
            longitude: this.#view.longitude + before.longitude - after.longitude,
            latitude: this.#view.latitude + before.latitude - after.latitude,
            scale: this.#view.scale,
        });
    }

    get #k() {
        return Math.max(0.2, Math.cos(this.#view.latitude * degree));
    }

    #degrees(x, y) {
        const { longitude, latitude, scale } = this.#view;
        return {
            longitude: longitude + (x - this.#size.w / 2) / (scale * this.#k),
            latitude: latitude - (y - this.#size.h / 2) / scale,
        };
    }

    #limit() {
        const { w, h } = this.#size;
        const least = Math.min(w / 360, h / 150);
        this.#view.scale = Math.min(most, Math.max(least, this.#view.scale));
    }

    #show(view, byHand = true) {
        this.#moved = byHand;
        this.#view = view;
        if (this.#size.w === 0) return;
        this.#limit();
        const half = this.#size.h / 2 / this.#view.scale;
        this.#view.latitude = Math.max(-90 + Math.min(half, 88), Math.min(90 - Math.min(half, 88), this.#view.latitude));
        this.#view.longitude = ((((this.#view.longitude + 180) % 360) + 360) % 360) - 180;
        this.#place();
    }

    #place() {
        if (!this.#view || this.#size.w === 0) return;
        const { longitude, latitude, scale } = this.#view;
        const { w, h } = this.#size;
        const k = this.#k;
        setAttribute(
            this.land,
            "transform",
            `translate(${w / 2 - longitude * k * scale} ${h / 2 + latitude * scale}) scale(${(k * scale) / 100} ${scale / 100})`,
        );
        const half = w / 2 / (k * scale);
        [...this.land.children].forEach((copy, i) => {
            const turn = (i - 1) * 360;
            const reach = 180 + 30; // what crosses the 180th meridian lies beyond it
            const away = turn + reach < longitude - half || turn - reach > longitude + half;
            setAttribute(copy, "display", away ? "none" : null);
        });
        for (const mark of this.#marks.values()) {
            const away = ((mark.longitude - longitude + 540) % 360) - 180;
            mark.x = w / 2 + away * k * scale;
            mark.y = h / 2 - (mark.latitude - latitude) * scale;
            mark.inside = mark.x > 0 && mark.x < w && mark.y > 0 && mark.y < h;
            setAttribute(mark.link, "transform", `translate(${mark.x.toFixed(1)} ${mark.y.toFixed(1)})`);
            setAttribute(mark.link, "display", mark.inside ? null : "none");
        }
        this.#placeNames();
        this.#placeScale(scale);
        this.roamed();
    }

    #placeNames() {
        const inside = [...this.#marks.values()].filter((m) => m.inside && m.shown);
        if (inside.length > namesUpTo) return this.names.replaceChildren();
        const points = inside.map((m) => {
            const name = m.station.name;
            const words = name.length > longestName ? `${name.slice(0, longestName - 1)}\u2026` : name;
            return { x: m.x, y: m.y, reach: 6, width: 7 * [...words].length, words };
        });
        const places = placeNames(points, [{ x: 0, y: this.#size.h - 30, w: 150, h: 30 }], this.#size);
        this.names.replaceChildren(
            ...places.flatMap((box, i) =>
                box ? [draw("text", { x: box.x + box.w / 2, y: box.y + box.h - 2, class: "mid halo" }, points[i].words)] : [],
            ),
        );
    }

    #placeScale(scale) {
        const widest = (110 / scale) * metresADegree; // m
        const power = 10 ** Math.floor(Math.log10(widest));
        const length = [5, 2, 1].map((f) => f * power).find((m) => m <= widest);
        const px = (length / metresADegree) * scale;
        const y = this.#size.h - 10;
        setAttribute(this.scale, "d", `M10 ${y - 4}v4h${px.toFixed(1)}v-4`);
        setAttribute(this.scaleText, "x", 14);
        setAttribute(this.scaleText, "y", y - 5);
        setText(this.scaleText, length >= 1000 ? distance(length).replace(".0", "") : `${length} m`);
        if (length >= 1e4) setText(this.scaleText, `${Math.round(length / 1e3)} km`);
    }

    #reachable() {
        return [...this.#marks.values()]
            .filter((m) => m.inside && m.shown)
            .map((m) => ({ element: m.link, x: m.x, y: m.y }));
    }

    // Of the mark under the pointer or the keyboard.
    #tell(link) {
        const mark = link ? this.#marks.get(link.dataset.name) : null;
        setText(this.note, mark ? this.describe(mark.station) : (this.without ?? ""));
        if (mark) setAttribute(link, "aria-label", this.describe(mark.station));
    }

    #drag() {
        let from = null;
        let dragged = false;
        this.svg.addEventListener("pointerdown", (event) => {
            dragged = false;
            if (event.button === 0 && event.pointerType !== "touch" && this.#view)
                from = { x: event.clientX, y: event.clientY, ...this.#view };
        });
        addEventListener("pointermove", (event) => {
            if (!from) return;
            const [dx, dy] = [event.clientX - from.x, event.clientY - from.y];
            dragged ||= Math.hypot(dx, dy) > 4;
            if (!dragged) return;
            this.#show({
                longitude: from.longitude - dx / (from.scale * this.#k),
                latitude: from.latitude + dy / from.scale,
                scale: from.scale,
            });
        });
        addEventListener("pointerup", () => (from = null));
        this.svg.addEventListener("dragstart", (event) => event.preventDefault());
        this.svg.addEventListener("click", (event) => dragged && event.preventDefault(), true);
        this.svg.addEventListener("dblclick", (event) => this.#view && this.#zoom(2, event.offsetX, event.offsetY));
        this.svg.addEventListener(
            "wheel",
            (event) => {
                if (!event.ctrlKey || !this.#view) return; // the page scrolls
                event.preventDefault();
                this.#zoom(2 ** (-event.deltaY / 100), event.offsetX, event.offsetY);
            },
            { passive: false },
        );
    }
}
