// The page of one station.

import { Behind, boundBar, ChangeChart, SignalChart, TimeChart } from "./charts.js";
import { find, foreign, Keyed, make, setAttribute, setRows, setText, show } from "./dom.js";
import * as format from "./format.js";
import { address, alarmList, figure, frame } from "./frame.js";
import { Live } from "./live.js";
import { fateIcon, stateIcon, systemIcon } from "./marks.js";
import { Sky } from "./sky.js";

const name = decodeURIComponent(location.pathname.split("/").pop());
let station = null;

const system = (letter) => make("span", { class: "with-icon" }, systemIcon(letter), format.systemNames[letter] ?? letter);

// A table in a box that scrolls on its own where it is too wide; words instead while it is empty.
// On a phone a row of many cells becomes a card.
function list(holder, label, heads, none, stacked = heads.length > 4) {
    const names = heads.map((h) => h.numeric ?? h);
    const body = make("tbody");
    const head = make("tr", {}, ...heads.map((h, i) => make("th", { scope: "col", class: h.numeric ? "numeric" : null }, names[i])));
    const box = make("div", { class: "scroll", tabindex: 0, role: "group", "aria-label": label }, make("table", { class: stacked ? "numbers stack" : "numbers" }, make("thead", {}, head), body));
    const empty = make("p", { class: "empty" }, none);
    holder.append(box, empty);
    return (rows) => {
        show(box, rows.length > 0);
        show(empty, rows.length === 0);
        setRows(body, rows);
        for (const row of body.rows)
            [...row.cells].forEach((cell, i) => {
                setAttribute(cell, "class", heads[i].numeric ? "numeric" : null);
                setAttribute(cell, "data-head", names[i]);
            });
    };
}
const numeric = (head) => ({ numeric: head });

// --- over all

const figures = Object.fromEntries(
    ["last epoch", "satellites answered", "signals kept", "delay", "rovers", "virtual station", "engine", "failovers"].map((n) => [n, figure(find("#figures"), n)]),
);

const winds = ["N", "NE", "E", "SE", "S", "SW", "W", "NW"];
function whither([east, north]) {
    return winds[Math.round(((Math.atan2(east, north) * 180) / Math.PI + 360) / 45) % 8];
}

function showFigures(s) {
    const heard = s.last_epoch_unix_s !== undefined;
    const seen = format.total(s.satellites, "seen_count");
    figures["satellites answered"].set(heard ? `${format.total(s.satellites, "answered_count")} of ${seen}` : format.unknown, heard ? "of those received" : "no epoch yet");
    figures["signals kept"].set(heard ? `${s.kept_signals_count} of ${s.received_signals_count}` : format.unknown, heard ? "of those received" : "");
    figures.delay.set(format.milliseconds(s.delay_s), "median of the last minute");
    const sent = s.rovers.reduce((n, r) => n + r.sent_bytes_total, 0);
    const listed = s.rovers.length === s.rovers_count; // of very many only the newest are
    figures.rovers.set(
        format.grouped(s.rovers_count),
        s.rovers_count === 0 ? "none connected" : listed ? `${format.bytes(sent)} sent to them` : "",
    );
    const [east, north, up] = s.virtual_offset_m;
    figures["virtual station"].set(
        `${format.distance(Math.hypot(east, north, up))} ${Math.hypot(east, north) < 1 ? "" : whither(s.virtual_offset_m)}`,
        `${format.signed(up)} m up`,
    );
    figures.engine.set(s.engine.state, format.plural(s.engine.starts_total, "start", "starts"));
    figures.failovers.set(format.grouped(s.failovers_total), s.failovers_total ? "to another source" : "none so far");
}

function showHead(s) {
    setText(find("#name"), s.name);
    if (find("#state").dataset.state !== s.state) {
        find("#state").dataset.state = s.state;
        find("#state").replaceChildren(stateIcon(s.state), format.stateNames[s.state]);
        find("#state").title = format.stateMeanings[s.state];
    }
    document.title = `${s.name}, ${format.stateNames[s.state]} \u2013 Kestrune gateway`;
    const parts = [s.mountpoint === s.name ? "" : `mountpoint ${s.mountpoint}`, s.descriptor].filter(Boolean);
    const said = parts.join("\n");
    const descriptor = find("#descriptor");
    if (descriptor.said !== said) {
        descriptor.said = said;
        descriptor.replaceChildren(...parts.flatMap((p, i) => (i ? [" \u00b7 ", foreign(p)] : [foreign(p)])));
    }
}

const alarmRows = alarmList(find("#alarms"), (kind, words, when) => make("li", {}, kind, " ", words, " ", when));

// --- satellites

const degrees = (value) => (value === undefined ? "" : `${format.fixed(value, 1)}\u00b0`);
const sky = new Sky(find("#sky"));
const skyTable = new Behind(find("#sky"), ["Satellite", "What became of it", "Azimuth", "Elevation"]);
const cn0 = new SignalChart(find("#cn0"));
find("#cn0").append(make("p", { class: "note" }, "Filled: sent to rovers. Hollow: received, not sent. Line: median."));
const cn0Table = new Behind(find("#cn0"), ["Satellite", "C/N0, dB-Hz", "Sent to rovers"]);
const change = new ChangeChart(find("#change"));
find("#change").append(make("p", { class: "note" }, "From the station to the virtual station. Dotted: the most that its offset allows."));
const changeTable = new Behind(find("#change"), ["Satellite", "Elevation", "Change of range"]);

function showSatellites(s) {
    sky.set(s.sky);
    skyTable.set(() => s.sky.map((x) => [x.name, format.fateNames[x.fate] ?? x.fate, degrees(x.azimuth_deg), degrees(x.elevation_deg)]));
    cn0.set(s.sky);
    cn0Table.set(() =>
        s.sky.map((x) => [
            x.name,
            Object.entries(x.cn0_dbhz).map(([signal, dbhz]) => `${signal} ${format.fixed(dbhz, 1)}`).join(", ") || format.unknown,
            x.kept?.join(", ") || "none",
        ]),
    );
    change.set(s.sky, s.virtual_offset_m);
    changeTable.set(() => s.sky.filter((x) => x.change_m !== undefined).map((x) => [x.name, degrees(x.elevation_deg), `${format.fixed(x.change_m, 3)} m`]));
    showEphemerides(s);
}

const ephemerides = make("ul", { class: "ephemerides" });
const noEphemerides = make("p", { class: "empty" }, "No satellite yet.");
find("#ephemerides").append(
    ephemerides,
    noEphemerides,
    make("p", { class: "note" }, "Ages are from the reference time that an ephemeris states, whether it is past or ahead."),
);
const ephemerisList = new Keyed(
    ephemerides,
    (s) => {
        const age = make("span", { class: "age" });
        const issue = make("span", { class: "soft" });
        const icon = make("span");
        return Object.assign(make("li", { class: s.name[0] }, icon, make("b", {}, s.name), age, issue), { age, issue, icon });
    },
    (item, s) => {
        const fate = s.fate === "old_ephemeris" || s.fate === "no_ephemeris" ? s.fate : "answered";
        if (item.fate !== fate) {
            item.fate = fate;
            item.icon.replaceChildren(fateIcon(fate, s.name[0]));
            item.age.className = fate === "answered" ? "age" : "age alarm";
        }
        item.satellite = s;
        setText(item.issue, s.ephemeris_issue === undefined ? "" : `issue ${s.ephemeris_issue}`);
    },
);

function showEphemerides(s) {
    const order = [...s.sky].sort((a, b) => format.systems.indexOf(a.name[0]) - format.systems.indexOf(b.name[0]) || (a.name < b.name ? -1 : 1));
    ephemerisList.set(order, (x) => x.name);
    show(noEphemerides, order.length === 0);
}

// --- over time

const whole = (value) => String(value);
const hour = new TimeChart(find("#hour"), {
    title: "Satellites of the last hour",
    height: 170,
    sync: "hour",
    series: [
        { label: "received", colour: "soft", dash: [3, 3], width: 1.3, write: whole },
        { label: "answered", colour: "good", width: 1.8, write: whole },
    ],
});
const epochs = new TimeChart(find("#hour"), {
    title: "Epochs in each 10 s of the last hour",
    height: 110,
    sync: "hour",
    series: [{ label: "epochs in 10 s", colour: "plain", steps: true, write: whole }],
});
const hourTable = new Behind(find("#hour"), ["Time, UTC", "Received", "Answered", "Epochs in 10 s"]);
const delay = new TimeChart(find("#delay"), {
    title: "The largest delay of each second",
    height: 250,
    series: [{ label: "delay", colour: "plain", write: (ms) => format.milliseconds(ms / 1e3) }],
});
find("#delay").append(make("p", { class: "note" }, "The largest of each second, ms: last byte of an epoch in to its answer out."));
const delayTable = new Behind(find("#delay"), ["Time, UTC", "Largest delay"]);

const timesOf = ({ end_unix_s: end, step_s: step, values }) => values.map((_, i) => end - (values.length - 1 - i) * step);

function showHistory({ seen, answered, epochs: sent, delay: late }) {
    const times = timesOf(seen);
    const said = (value) => (value === null || value === undefined ? format.unknown : String(value));
    hour.set(times, seen.values, answered.values);
    epochs.set(timesOf(sent), sent.values);
    hourTable.set(() => times.map((t, i) => [format.time(t), said(seen.values[i]), said(answered.values[i]), said(sent.values[i])]).reverse());
    const delayTimes = timesOf(late);
    delay.set(delayTimes, late.values.map((v) => (v === null ? null : v * 1e3)));
    delayTable.set(() => delayTimes.map((t, i) => [format.time(t), format.milliseconds(late.values[i])]).reverse());
}

// --- audit

const auditWords = make("p", { class: "note" });
find("#audit").append(auditWords);
const auditRows = list(find("#audit"), "Largest differences of the last epoch", ["System", "Range, bar to its bound", "Phase, bar to its bound"], "No epoch has been compared yet.");

function showAudit(audit) {
    setText(
        auditWords,
        audit.on
            ? `${format.grouped(audit.epochs_total)} epochs compared, ${format.grouped(audit.unaudited_epochs_total)} not, ${format.grouped(audit.withheld_epochs_total)} withheld; ` +
                  `${format.grouped(audit.cells_total)} observations. The largest difference of the last epoch:`
            : "The audit is off: nothing is compared.",
    );
    const cell = (letter, value, bound, digits) =>
        make(
            "span",
            { class: letter },
            boundBar(value / bound),
            `${(value * 1e3).toFixed(digits)} of ${(bound * 1e3).toFixed(digits)} mm`,
        );
    auditRows(
        (audit.worst ?? []).map((w) => [
            system(w.system),
            cell(w.system, w.range_m, w.range_bound_m, 2),
            cell(w.system, w.phase_m, w.phase_bound_m, 3),
        ]),
    );
    find("#audit").classList.toggle("off", !audit.on);
}

// --- lists

const rovers = list(
    find("#rovers"), "Rovers",
    ["Rover", "Calls itself", "Address", numeric("Since"), numeric("Sent"), numeric("Waiting"), "Last position", numeric("Distance")],
    "No rover is connected.",
);

function showRovers(s, now) {
    setText(find("#rovers-number"), s.rovers_count > s.rovers.length ? `the newest ${s.rovers.length} of ${format.grouped(s.rovers_count)}` : s.rovers_count ? format.grouped(s.rovers_count) : "");
    rovers(
        s.rovers.map((r) => [
            foreign(r.user ?? "anonymous"),
            foreign(r.agent ?? format.unknown),
            foreign(r.address),
            format.age(now - r.since_unix_s),
            format.bytes(r.sent_bytes_total),
            r.waiting_bytes ? format.bytes(r.waiting_bytes) : "",
            r.place ? `${format.place(r.place, 5)}${r.place_unix_s === undefined ? "" : `, ${format.age(now - r.place_unix_s)} ago`}` : "",
            r.place && s.place ? format.distance(format.metresBetween(r.place, s.virtual_place ?? s.place)) : "",
        ]),
    );
}

const messageHeads = ["Message", numeric("Every"), numeric("Count"), numeric("Bytes")];
const received = list(find("#received"), "Received messages", messageHeads, "None yet.");
const sent = list(find("#sent"), "Sent messages", messageHeads, "None yet.");
const messageRows = (messages) =>
    messages.map((m) => [
        make("span", {}, make("b", {}, String(m.number)), m.name ? ` ${m.name}` : ""),
        format.interval(m.interval_s), format.grouped(m.messages_total), format.bytes(m.bytes_total),
    ]);

const sources = list(find("#sources"), "Sources", ["Source", "Used for", "State", numeric("Delivers since"), "Last trouble"], "None.");

function showSources(s, now) {
    const row = (source, use) => [
        foreign(source.address), use, source.state,
        source.delivering_since_unix_s === undefined ? "" : format.age(now - source.delivering_since_unix_s),
        source.last_error ? foreign(source.last_error) : "",
    ];
    sources([
        ...s.sources.map((x) => row(x, x.active ? "observations" : "in reserve")),
        ...(s.ephemeris_source ? [row(s.ephemeris_source, "ephemerides")] : []),
    ]);
    setText(find("#failovers"), s.failovers_total ? format.plural(s.failovers_total, "failover", "failovers") : "");
}

const places = list(find("#places"), "Positions", ["Point", "Position (WGS 84)"], "Not known yet.");
const events = list(find("#events"), "Events", ["Time, UTC", "Level", "What happened"], "Nothing yet.", true);

function showLists(s, now) {
    showRovers(s, now);
    received(messageRows(s.received));
    sent(messageRows(s.sent));
    showSources(s, now);
    const [east, north, up] = s.virtual_offset_m;
    places([
        ...(s.place ? [["Station", format.place(s.place, 8)]] : []),
        ...(s.virtual_place ? [["Virtual station", format.place(s.virtual_place, 8)]] : []),
        ["Offset", `${format.signed(east, 3)} m east, ${format.signed(north, 3)} m north, ${format.signed(up, 3)} m up`],
        ["Identifier", s.identifier],
    ]);
    events(
        s.events.map((e) => [
            format.moment(e.at_unix_s, now),
            make("span", { class: e.level === "warning" || e.level === "error" ? "alarm" : "" }, e.level),
            foreign(e.text),
        ]),
    );
}

// --- live

function showAges(now) {
    const s = station;
    if (!s) return;
    setText(find("#since"), `since ${format.age(now - s.since_unix_s)}`);
    figures["last epoch"].set(
        s.last_epoch_unix_s === undefined ? "none yet" : format.age(now - s.last_epoch_unix_s),
        s.interval_s === undefined ? "" : `every ${format.interval(s.interval_s)}`,
    );
    alarmRows.tick(now);
    for (const item of ephemerides.children) {
        const then = item.satellite.ephemeris_age_s;
        setText(item.age, then === undefined ? "none" : format.age(then + now - s.at_unix_s));
    }
}

const live = new Live(`${address("api/v1/live")}?station=${encodeURIComponent(name)}`, "station", {
    onData(data) {
        station = data;
        showHead(data);
        alarmRows.set(data.alarms_now);
        showFigures(data);
        showSatellites(data);
        showHistory(data.history);
        showAudit(data.audit);
        showLists(data, live.now());
        find("#content").classList.toggle("unheard", data.last_epoch_unix_s === undefined);
        tick();
    },
});

// Of lists only each second: they are long.
let listed = 0;
const tick = frame(live, (now) => {
    showAges(now);
    if (station && live.state !== "live" && now - listed > 1) {
        listed = now;
        showRovers(station, now);
        showSources(station, now);
    }
    if (live.missing) setText(find("#since"), "This gateway has no such station.");
});
setText(find("#name"), name);
