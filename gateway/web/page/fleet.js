// The page of all stations.

import { find, foreign, make, setAttribute, setText, show } from "./dom.js";
import * as format from "./format.js";
import { address, alarmList, figure, frame, stationAddress } from "./frame.js";
import { Live } from "./live.js";
import { StationMap } from "./map.js";
import { stateIcon, systemIcon } from "./marks.js";
import { LongTable } from "./table.js";

const orderHoldsMs = 5e3; // so that rows do not dance
const alarmsShown = 5;
const alarmFilter = "alarm";

const stations = new Map();
let fleet = null; // totals and alarms of the last event
const view = readView();

// The view is in the address, so that it can be bookmarked.
function readView() {
    const query = new URLSearchParams(location.search);
    const sort = query.get("sort") ?? "state";
    return {
        words: query.get("q") ?? "",
        states: new Set((query.get("state") ?? "").split(",").filter((s) => [...format.states, alarmFilter].includes(s))),
        sort: { key: sort.replace(/^-/, ""), down: sort.startsWith("-") },
        allAlarms: false,
    };
}

function writeView() {
    const query = new URLSearchParams();
    if (view.words) query.set("q", view.words);
    if (view.states.size) query.set("state", [...view.states].join(","));
    const sort = (view.sort.down ? "-" : "") + view.sort.key;
    if (sort !== "state") query.set("sort", sort);
    const text = query.toString().replaceAll("%2C", ",");
    history.replaceState(null, "", text ? `?${text}` : location.pathname);
}

// --- the table

const heard = (s) => s.last_epoch_unix_s !== undefined;

const text = (value) => ({
    create: (cell) => cell,
    update: (cell, s, now) => setText(cell, value(s, now)),
});

const columns = [
    {
        key: "name", head: "Station", first: "up", value: (s) => s.name,
        create(cell, s) {
            const link = make("a", { href: stationAddress(s.name) }, foreign(s.name));
            const mountpoint = make("small");
            cell.append(link, " ", mountpoint);
            setAttribute(cell, "title", s.name);
            return mountpoint;
        },
        update: (mountpoint, s) => setText(mountpoint, s.mountpoint === s.name ? "" : s.mountpoint),
    },
    {
        key: "state", head: "State", first: "up", value: (s) => format.states.indexOf(s.state),
        create: (cell) => ({ cell, state: "" }),
        update(part, s) {
            if (part.state === s.state) return;
            part.state = s.state;
            part.cell.replaceChildren(stateIcon(s.state), format.stateNames[s.state]);
        },
    },
    {
        key: "age", head: "Last epoch", first: "down",
        value: (s) => (heard(s) ? -s.last_epoch_unix_s : undefined),
        ...text((s, now) => (heard(s) ? `${format.age(now - s.last_epoch_unix_s)} ago` : format.unknown)),
    },
    {
        key: "satellites", head: "Satellites", first: "up",
        value: (s) => (heard(s) ? format.total(s.satellites, "answered_count") : undefined),
        create(cell) {
            const total = make("span", { class: "total" });
            const parts = make("span", { class: "systems", "aria-hidden": "true" });
            const words = make("span", { class: "hidden" });
            cell.append(total, parts, words);
            return { total, parts, words, said: null };
        },
        update(part, s) {
            const of = format.systems.filter((system) => s.satellites[system]);
            const said = of
                .map((system) => {
                    const { answered_count: answered, seen_count: seen } = s.satellites[system];
                    return `${format.systemNames[system]} ${answered} of ${seen}`;
                })
                .join(", ");
            if (part.said === said) return;
            part.said = said;
            setText(part.total, of.length ? `${format.total(s.satellites, "answered_count")}/${format.total(s.satellites, "seen_count")}` : format.unknown);
            setText(part.words, said && ` answered of seen: ${said}`);
            setAttribute(part.total.parentElement, "title", said || null);
            part.parts.replaceChildren(
                ...of.map((system) =>
                    make("span", { class: system }, systemIcon(system), String(s.satellites[system].answered_count)),
                ),
            );
        },
    },
    {
        key: "signals", head: "Signals kept", first: "up",
        value: (s) => (s.received_signals_count ? s.kept_signals_count / s.received_signals_count : undefined),
        ...text((s) => (heard(s) ? `${s.kept_signals_count}/${s.received_signals_count}` : format.unknown)),
    },
    { key: "rovers", head: "Rovers", first: "down", value: (s) => s.rovers_count, ...text((s) => format.count(s.rovers_count)) },
    { key: "delay", head: "Delay", first: "down", value: (s) => s.delay_s, ...text((s) => format.milliseconds(s.delay_s)) },
    {
        key: "alarms", head: "Alarms", first: "down", value: (s) => s.alarms.length,
        create: (cell) => ({ cell, said: "" }),
        update(part, s) {
            const said = s.alarms.map((kind) => format.alarmNames[kind] ?? kind).join(", ");
            if (part.said === said) return;
            part.said = said;
            part.cell.replaceChildren(...(said ? [make("span", { class: "alarm" }, said)] : []));
            setAttribute(part.cell, "title", said || null);
        },
    },
];

const table = new LongTable(find("#table"), {
    columns,
    keyOf: (s) => s.name,
    onSort(sort) {
        view.sort = sort;
        writeView();
        arrange();
    },
});
if (!columns.some((c) => c.key === view.sort.key)) view.sort = { key: "state", down: false };

const map = new StationMap(find("#map"), {
    href: stationAddress,
    buttons: { in: find("#map-in"), out: find("#map-out"), fit: find("#map-fit"), world: find("#map-world") },
    describe: (s) =>
        `${s.name}: ${format.stateNames[s.state]}, ${format.plural(format.total(s.satellites, "answered_count"), "satellite", "satellites")}, ` +
        format.plural(s.rovers_count, "rover", "rovers"),
    note: find("#map-note"),
    address: address("vendor/land.json"),
});

// --- search, filter, order

function matches(s) {
    const words = view.words.toLowerCase().split(/\s+/).filter(Boolean);
    const name = `${s.name} ${s.mountpoint}`.toLowerCase();
    if (!words.every((word) => name.includes(word))) return false;
    if (view.states.size === 0) return true;
    return view.states.has(s.state) || (view.states.has(alarmFilter) && s.alarms.length > 0);
}

let arranged = 0;
function arrange() {
    arranged = performance.now();
    table.sort = view.sort;
    const shown = [...stations.values()].filter(matches).sort(table.compare());
    table.set(shown);
    map.set(stations, new Set(shown.map((s) => s.name)));
    const all = shown.length === stations.size;
    setText(find("#shown"), all || !fleet ? "" : `${format.grouped(shown.length)} of ${format.grouped(stations.size)} shown`);
    show(find("#empty"), fleet !== null && shown.length === 0);
    setText(
        find("#empty"),
        stations.size === 0
            ? "No station is configured. As soon as there is one it appears here."
            : "No station matches the search and the filter.",
    );
    show(find("#table"), shown.length > 0);
}

// The states are read again, the order holds.
function refresh() {
    const kept = table.items.map((s) => stations.get(s.name)).filter(Boolean);
    const same = kept.length === table.items.length && kept.every(matches);
    const others = same && [...stations.values()].filter(matches).length === kept.length;
    if (others && (table.held || performance.now() - arranged < orderHoldsMs)) {
        table.set(kept);
        map.set(stations, new Set(kept.map((s) => s.name)));
    } else arrange();
}

const chips = new Map();
for (const key of ["", ...format.states, alarmFilter]) {
    const number = make("span", { class: "number" });
    const name = key === "" ? "all" : key === alarmFilter ? "with alarm" : format.stateNames[key];
    const chip = make("button", { type: "button", title: format.stateMeanings[key] }, name, " ", number);
    if (format.stateNames[key]) chip.prepend(stateIcon(key));
    chip.addEventListener("click", () => {
        if (key === "") view.states.clear();
        else if (!view.states.delete(key)) view.states.add(key);
        changed();
    });
    chips.set(key, { chip, number });
    find("#filter").append(chip);
}

function showFilter() {
    const numbers = new Map([["", stations.size]]);
    for (const s of stations.values()) {
        numbers.set(s.state, (numbers.get(s.state) ?? 0) + 1);
        if (s.alarms.length) numbers.set(alarmFilter, (numbers.get(alarmFilter) ?? 0) + 1);
    }
    for (const [key, { chip, number }] of chips) {
        setText(number, fleet ? format.grouped(numbers.get(key) ?? 0) : "");
        setAttribute(chip, "aria-pressed", key === "" ? view.states.size === 0 : view.states.has(key));
    }
}

function changed() {
    writeView();
    showFilter();
    arrange();
}

const search = find("#search");
search.value = view.words;
search.addEventListener("input", () => {
    view.words = search.value.trim();
    changed();
});

// --- over all

const figures = Object.fromEntries(
    ["delivering", "rovers", "alarms", "sent to rovers"].map((name) => [name, figure(find("#figures"), name)]),
);

const sent = []; // {at, bytes} of the last ten seconds
function rate(at, bytes) {
    if (sent.length && (bytes < sent.at(-1).bytes || at <= sent.at(-1).at)) sent.length = 0;
    sent.push({ at, bytes });
    while (sent[0].at < at - 10) sent.shift();
    const seconds = at - sent[0].at;
    return seconds >= 2 ? `${format.bytes(Math.round((bytes - sent[0].bytes) / seconds))}/s` : "";
}

function headline(all, delivering) {
    if (all === 0) return ["No station yet", "open"];
    if (delivering === all) return [all === 1 ? "The station delivers" : `All ${format.grouped(all)} stations deliver`, "good"];
    const waiting = [...stations.values()].filter((s) => s.state === "starting").length;
    const down = all - delivering;
    const many = `${format.grouped(down)} of ${format.plural(all, "station", "stations")}`;
    if (waiting === down) return [`${many} ${down === 1 ? "is" : "are"} starting`, "open"];
    return [`${many} ${down === 1 ? "does" : "do"} not deliver`, "bad"];
}

function showTotals() {
    const { totals, alarms = [], at_unix_s: at } = fleet;
    const [words, look] = headline(totals.stations_count, totals.delivering_count);
    setText(find("#headline"), words);
    find("#headline").className = look;
    document.title = `${words} \u2013 Kestrune gateway`;
    setText(find("#version"), fleet.version ?? "");
    const served = [...stations.values()].filter((s) => s.rovers_count > 0).length;
    const alarmed = [...stations.values()].filter((s) => s.alarms.length > 0).length;
    figures.delivering.set(
        format.grouped(totals.delivering_count),
        `of ${format.plural(totals.stations_count, "station", "stations")}`,
    );
    figures.rovers.set(
        format.grouped(totals.rovers_count),
        totals.rovers_count ? `at ${format.plural(served, "station", "stations")}` : "none connected",
    );
    figures.alarms.set(
        format.grouped(totals.alarms_count),
        totals.alarms_count === 0 ? "none" : alarmed ? `of ${format.plural(alarmed, "station", "stations")}` : "of the gateway",
    );
    figures["sent to rovers"].set(format.bytes(totals.sent_bytes_total), rate(at, totals.sent_bytes_total));
    showAlarms([...alarms].sort((a, b) => b.since_unix_s - a.since_unix_s));
}

const alarmRows = alarmList(find("#alarms"), (kind, words, when, { station }) => {
    const who = station === undefined ? "the gateway" : make("a", { href: stationAddress(station) }, foreign(station));
    return make("li", {}, make("p", { class: "who" }, kind, " ", who, " ", when), make("p", {}, words));
});

const more = find("#alarms-more");
more.addEventListener("click", () => {
    view.allAlarms = !view.allAlarms;
    showTotals();
});

function showAlarms(alarms) {
    setText(find("#alarms-number"), alarms.length ? format.grouped(alarms.length) : "");
    const shown = view.allAlarms ? alarms : alarms.slice(0, alarmsShown);
    alarmRows.set(shown);
    show(more, alarms.length > alarmsShown);
    setText(more, view.allAlarms ? "Only the newest" : `All ${format.grouped(alarms.length)} alarms`);
    setAttribute(more, "aria-expanded", view.allAlarms);
    find(".alarm-list").classList.toggle("none", alarms.length === 0);
}

// --- live

const live = new Live(address("api/v1/live"), "fleet", {
    onData(data, first) {
        if (first) stations.clear();
        for (const s of data.stations) stations.set(s.name, s);
        for (const name of data.removed ?? []) stations.delete(name);
        fleet = { alarms: fleet?.alarms, version: fleet?.version, ...data };
        showFilter();
        showTotals();
        if (first) arrange();
        else refresh();
        tick();
    },
});
table.now = () => live.now();

const tick = frame(live, (now) => {
    table.tick(now);
    alarmRows.tick(now);
});
showFilter();
