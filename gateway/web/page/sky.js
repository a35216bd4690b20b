// The sky over a station: where each satellite of the last epoch stands and what became of it.

import { draw, Keyed, make, setAttribute, setText } from "./dom.js";
import { fateNames, fates, fixed, systemNames, systems } from "./format.js";
import { placeNames } from "./labels.js";
import { fateIcon, satelliteMark, systemIcon } from "./marks.js";
import { roam } from "./roam.js";

const size = 340;
const middle = size / 2;
const radius = 148; // of the horizon

// North up, east to the right as on a map.
function at(azimuthDeg, elevationDeg) {
    const r = (radius * Math.min(90 - elevationDeg, 92)) / 90;
    const azimuth = (azimuthDeg * Math.PI) / 180;
    return { x: middle + r * Math.sin(azimuth), y: middle - r * Math.cos(azimuth) };
}

function net() {
    const out = [];
    for (const [deg, look] of [[0, "axis"], [5, "cutoff"], [30, "grid"], [60, "grid"]])
        out.push(draw("circle", { cx: middle, cy: middle, r: (radius * (90 - deg)) / 90, class: `${look} hollow` }));
    const line = (x1, y1, x2, y2) => draw("line", { x1, y1, x2, y2, class: "grid" });
    out.push(line(middle - radius, middle, middle + radius, middle), line(middle, middle - radius, middle, middle + radius));
    for (const [name, azimuth] of [["N", 0], ["E", 90], ["S", 180], ["W", 270]]) {
        const p = at(azimuth, 0);
        const out1 = (v) => middle + ((v - middle) * (radius + 13)) / radius;
        out.push(draw("text", { x: out1(p.x), y: out1(p.y) + 4.5, class: "mid strong" }, name));
    }
    return out;
}

export function describeSatellite(s) {
    const strongest = Object.values(s.cn0_dbhz);
    return (
        `${s.name}, ${systemNames[s.name[0]] ?? ""}: ${fateNames[s.fate] ?? s.fate}` +
        (s.azimuth_deg === undefined ? "" : `, azimuth ${fixed(s.azimuth_deg, 0)}\u00b0, elevation ${fixed(s.elevation_deg, 0)}\u00b0`) +
        (strongest.length ? `, ${fixed(Math.max(...strongest), 0)} dB-Hz` : "")
    );
}

export class Sky {
    #points = [];

    constructor(holder) {
        this.marks = draw("g");
        this.names = draw("g", { "aria-hidden": "true", class: "names" });
        this.svg = draw(
            "svg",
            { class: "sky", viewBox: `0 0 ${size} ${size}`, role: "group", "aria-label": "Sky. The arrow keys go from one satellite to the next." },
            draw("g", { "aria-hidden": "true" }, ...net()), this.marks, this.names,
        );
        this.note = make("p", { class: "note" });
        this.systemKey = make("ul", { class: "key" });
        this.fateKey = make("ul", { class: "key" });
        holder.append(this.svg, this.note, this.systemKey, this.fateKey);
        // listeners not of the SVG: they would make it a stop of the Tab key
        this.roamed = roam(holder, () => this.#points);
        this.told = null;
        for (const kind of ["focusin", "pointerover"])
            holder.addEventListener(kind, (event) => this.#tell(event.target.closest("[data-name]")?.dataset.name ?? null));
        this.svg.addEventListener("pointerleave", () => this.#tell(null));
        this.list = new Keyed(
            this.marks,
            (s) => {
                const element = draw("g", { class: s.name[0], role: "img", tabindex: -1 });
                element.dataset.name = s.name;
                return element;
            },
            (element, s) => {
                const p = at(s.azimuth_deg, s.elevation_deg);
                setAttribute(element, "transform", `translate(${p.x.toFixed(1)} ${p.y.toFixed(1)})`);
                setAttribute(element, "aria-label", describeSatellite(s));
                if (element.fate === s.fate) return;
                element.fate = s.fate;
                element.replaceChildren(draw("circle", { r: 9, class: "touch" }), satelliteMark(s.name[0], s.fate, 4));
            },
        );
        this.nameList = new Keyed(
            this.names,
            (n) => draw("text", { class: `mid own halo ${n.name[0]}` }, n.name),
            (element, { name, box }) => {
                element.side = box.side;
                setAttribute(element, "x", (box.x + box.w / 2).toFixed(1));
                setAttribute(element, "y", (box.y + box.h - 2).toFixed(1));
            },
        );
    }

    set(satellites) {
        const placed = satellites.filter((s) => s.azimuth_deg !== undefined && s.elevation_deg !== undefined);
        this.list.set(placed, (s) => s.name);
        const points = placed.map((s) => ({
            ...at(s.azimuth_deg, s.elevation_deg), reach: 6.5, width: 25, name: s.name,
            element: this.list.elements.get(s.name), side: this.nameList.elements.get(s.name)?.side,
        }));
        this.#points = points;
        const places = placeNames(points, [], { w: size, h: size });
        this.nameList.set(points.map((p, i) => ({ name: p.name, box: places[i] })).filter((n) => n.box), (n) => n.name);
        this.roamed();
        const without = satellites.length - placed.length;
        this.satellites = new Map(satellites.map((s) => [s.name, s]));
        this.words = satellites.length === 0 ? "No epoch yet." : without ? `${without} without a known direction.` : "";
        this.#tell(this.told);
        this.#keys(satellites);
    }

    #tell(name) {
        this.told = this.satellites?.has(name) ? name : null;
        setText(this.note, this.told ? describeSatellite(this.satellites.get(this.told)) : (this.words ?? ""));
    }

    #keys(satellites) {
        const number = (test) => satellites.filter(test).length;
        const key = (list, keys, test, icon, names) => {
            const shown = keys.map((k) => [k, number((s) => test(s) === k)]).filter(([, n]) => n > 0);
            const said = shown.join();
            if (list.said === said) return;
            list.said = said;
            list.replaceChildren(...shown.map(([k, n]) => make("li", {}, icon(k), `${names[k]} `, make("span", { class: "number" }, String(n)))));
        };
        key(this.systemKey, systems, (s) => s.name[0], systemIcon, systemNames);
        key(this.fateKey, fates, (s) => s.fate, fateIcon, fateNames);
    }
}
