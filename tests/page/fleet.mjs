// A made-up fleet by the gateway's API: everything follows from the number of the station and the
// time, so that nothing need be kept. Some stations are late, silent or withheld now and then; the
// texts of some are hostile.

import { signals, skyOf } from "./sky.mjs";

// 0 to 1, the same for the same words.
function chance(...words) {
    let h = 2166136261;
    for (const c of words.join(" ")) h = Math.imul(h ^ c.charCodeAt(0), 16777619);
    h ^= h >>> 15;
    h = Math.imul(h, 0x2c1b3c6d);
    h ^= h >>> 12;
    return (h >>> 0) / 2 ** 32;
}
const round = (value, digits) => Number(value.toFixed(digits));

export const hostile = {
    descriptor: 'TPSX <script>window.harmed="descriptor"</script><img src=x onerror=window.harmed=1> & "Q" \u202eesrever',
    agent: 'NTRIP <script>window.harmed="agent"</script>/1.0 <b>bold</b>',
};
export const longName = "A-STATION-WITH-A-VERY-LONG-NAME.EXAMPLE";

const cities = [
    [52.5, 13.4], [53.55, 10], [48.14, 11.58], [50.94, 6.96], [50.11, 8.68], [51.05, 13.74], [54.32, 10.13], [47.56, 7.59],
    [48.78, 9.18], [49.45, 11.08], [51.34, 12.37], [53.08, 8.8], [47.37, 8.54], [48.2, 16.37], [50.08, 14.43], [52.37, 9.73],
    [47.07, 15.44], [47.27, 11.4], [52.23, 21.01], [51.1, 17.03], [50.85, 4.35], [52.16, 4.49], [48.58, 7.75], [45.76, 4.84],
];
const names = [
    "BERL", "HAMB", "MUNI", "COLO", "FRAN", "DRES", "KIEL", "BASE", "STUT", "NUER", "LEIP", "BREM", "ZURI", "VIEN", "PRAG",
    "HANN", "GRAZ", "INNS", "WARS", "WROC", "BRUS", "LEID", "STRA", "LYON",
];

// [state, since] at a time; disturbances last some minutes.
function stateOf(i, unix, started) {
    const block = 240;
    const now = Math.floor(unix / block);
    if (unix - started < 3 + chance(i, "start") * 4) return ["starting", started];
    if (i % 47 === 5) return ["stopped", started - 5400];
    if (i % 61 === 7) return ["wrong", started - 660];
    if (i % 53 === 11) return ["starting", started - 20];
    if (i % 29 === 9) return ["silent", started - 3 * 3600 - 40];
    if (chance(i, now, "silent") < 0.02) return ["silent", now * block];
    return ["delivering", started - 86400 * chance(i, "since") * 9];
}

export class Fleet {
    // `ahead`: s, its clock before that of the machine
    constructor({ count = 24, extra = true, spread = count > 24 ? 1.5 : 0, ahead = 0 } = {}) {
        this.ahead = ahead;
        this.started = this.now() - 60;
        this.stations = Array.from({ length: count }, (_, i) => {
            const [latitude, longitude] = cities[i % cities.length];
            const away = (what) => (chance(i, what) + chance(i, what, 2) + chance(i, what, 3) - 1.5) * spread;
            const name = i < names.length ? names[i] : `${names[i % names.length].slice(0, 2)}${String(i).padStart(3, "0")}`;
            return {
                i,
                name: extra && i === 3 ? longName : name,
                place: {
                    latitude_deg: round(latitude + away("lat") + chance(i) * 0.01, 8),
                    longitude_deg: round(longitude + 1.5 * away("lon") + chance(i, 1) * 0.01, 8),
                    height_m: round(60 + chance(i, "h") * 700, 4),
                },
                // one that has never had an epoch
                never: extra && count > 8 && i === 8,
            };
        });
        this.byName = new Map(this.stations.map((s) => [s.name, s]));
    }

    now() {
        return Date.now() / 1e3 + this.ahead;
    }

    // Of the sky only the numbers; kept for ten seconds, it changes slowly.
    #counts(s, unix) {
        const at = Math.floor(unix / 10);
        if (s.countsAt === at) return s.counts;
        const sky = this.sky(s, at * 10);
        const satellites = {};
        let received = 0;
        let kept = 0;
        for (const sat of sky) {
            const c = (satellites[sat.name[0]] ??= { seen_count: 0, answered_count: 0 });
            ++c.seen_count;
            if (sat.fate === "answered") ++c.answered_count;
            received += Object.keys(sat.cn0_dbhz).length;
            kept += sat.kept?.length ?? 0;
        }
        s.countsAt = at;
        return (s.counts = { satellites, received_signals_count: received, kept_signals_count: kept });
    }

    sky(s, unix) {
        const offset = this.offset(s);
        return skyOf(s.place, unix)
            .filter((sat) => !(sat.system === "J" && s.i % 3))
            .map((sat) => {
                const p = chance(s.i, sat.name, Math.floor(unix / 1800));
                const fate =
                    sat.elevation < 5 ? "low" : p < 0.03 ? "no_ephemeris" : p < 0.05 ? "old_ephemeris" : p < 0.07 ? "no_signal" : p < 0.09 ? "left_out" : "answered";
                const carried = signals[sat.system].slice(0, 1 + Math.floor(chance(sat.name) * 2.9));
                const cn0 = (signal, k) =>
                    round(33 + 17 * Math.sqrt(Math.max(0, sat.elevation) / 90) - 3 * k + 2 * chance(unix, sat.name, signal), 1);
                return {
                    name: sat.name,
                    fate,
                    azimuth_deg: round(sat.azimuth, 2),
                    elevation_deg: round(sat.elevation, 2),
                    cn0_dbhz: Object.fromEntries(carried.map((signal, k) => [signal, cn0(signal, k)])),
                    ...(fate === "no_ephemeris"
                        ? {}
                        : {
                              ephemeris_age_s: fate === "old_ephemeris" ? 15200 + 900 * p : (unix + 7200 * chance(sat.name)) % 7200,
                              ephemeris_issue: Math.floor(chance(sat.name, "issue") * 120),
                          }),
                    ...(fate === "answered"
                        ? {
                              kept: carried.slice(0, 2),
                              change_m: round(-sat.unit.reduce((sum, u, k) => sum + u * offset[k], 0), 4),
                          }
                        : {}),
                };
            });
    }

    offset(s) {
        const turn = chance(s.i, "offset") * 2 * Math.PI;
        return [round(4800 * Math.sin(turn), 4), round(4800 * Math.cos(turn), 4), round(20 * chance(s.i, "up"), 4)];
    }

    #rovers(s, state) {
        return state === "starting" || s.never || s.i % 6 === 4 ? 0 : 1 + Math.floor(chance(s.i, "rovers") * (s.i % 17 === 2 ? 60 : 9));
    }

    #delay(s, unix) {
        const late = s.i % 19 === 3 ? 0.45 : 0;
        return 0.004 + 0.02 * chance(s.i, "delay") + 0.003 * chance(s.i, Math.floor(unix), "jitter") + late;
    }

    summary(s, unix) {
        const [state, since] = s.never ? ["starting", this.started] : stateOf(s.i, unix, this.started);
        const base = { name: s.name, mountpoint: s.i % 4 ? s.name.slice(0, 60) : `${s.name.slice(0, 8)}_RTCM3`, state, since_unix_s: since };
        const heard = state !== "starting" && !s.never;
        const delivering = state === "delivering";
        const alarms = this.#alarmsOf(s, state, unix).map((a) => a.kind);
        if (!heard)
            return { ...base, satellites: {}, received_signals_count: 0, kept_signals_count: 0, rovers_count: this.#rovers(s, state), alarms };
        return {
            ...base,
            last_epoch_unix_s: round(delivering ? Math.floor(unix - 0.1) + 0.1 : since - 30, 3),
            interval_s: 1,
            ...this.#counts(s, delivering ? unix : since),
            rovers_count: this.#rovers(s, state),
            ...(delivering ? { delay_s: round(this.#delay(s, unix), 5) } : {}),
            place: s.place,
            alarms,
        };
    }

    #alarmsOf(s, state, unix) {
        const alarm = (kind, since, text) => ({ kind, station: s.name, since_unix_s: since, text });
        if (s.never) return [];
        const [, since] = stateOf(s.i, unix, this.started);
        const out = [];
        if (state === "silent") out.push(alarm("no_epochs", since + 30, "no epoch for 30 s; the caster 192.0.2.17:2101 does not answer"));
        if (state === "stopped") out.push(alarm("moved", since, "the base stands 50.003 m from where it stood; confirm the move or put it back"));
        if (state === "wrong") out.push(alarm("audit", since, "Galileo range differs by 0.0123 m, 0.0020 m allowed"));
        if (state === "delivering" && s.i % 19 === 3) out.push(alarm("delay", this.started - 400, "epochs need 455 ms, 250 ms allowed"));
        if (state === "delivering" && s.i % 31 === 14) out.push(alarm("system_gone", this.started - 75, "no BeiDou satellite for 60 s, usually 9"));
        return out;
    }

    fleet(unix = this.now(), only = null) {
        const stations = this.stations.map((s) => this.summary(s, unix));
        const alarms = this.stations.flatMap((s, k) => this.#alarmsOf(s, stations[k].state, unix));
        if (this.stations.length > 8)
            alarms.push({ kind: "certificate", since_unix_s: this.started - 90000, text: "the certificate of the caster ends in 13 days" });
        return {
            at_unix_s: unix,
            version: "2.5",
            stations: only ? stations.filter(only) : stations,
            totals: {
                stations_count: stations.length,
                delivering_count: stations.filter((s) => s.state === "delivering").length,
                rovers_count: stations.reduce((n, s) => n + s.rovers_count, 0),
                alarms_count: alarms.length,
                sent_bytes_total: Math.floor((unix - this.started + 90000) * 610 * stations.reduce((n, s) => n + s.rovers_count, 0)),
            },
            alarms,
        };
    }

    station(name, unix = this.now()) {
        const s = this.byName.get(name);
        if (!s) return null;
        const summary = this.summary(s, unix);
        const heard = summary.last_epoch_unix_s !== undefined;
        const offset = this.offset(s);
        const series = (step, values, end = Math.floor(unix / step) * step) => ({ end_unix_s: end, step_s: step, values });
        const each = (count, step, value) =>
            Array.from({ length: count }, (_, k) => (heard ? value(Math.floor(unix / step) * step - (count - 1 - k) * step) : null));
        const total = (of) => Object.values(summary.satellites).reduce((n, c) => n + c[of], 0);
        const wave = (t) => Math.round(2 * Math.sin(t / 700 + s.i) + 1.4 * Math.sin(t / 190) + chance(s.i, t) * 0.8);
        const gap = (t) => chance(s.i, Math.floor(t / 120), "gap") < 0.03;
        const message = (number, text, interval, of) => ({
            number, name: text, interval_s: round(interval * (1 + 0.01 * chance(number, s.i)), 3),
            messages_total: Math.floor((unix - this.started + 7000) / interval), bytes_total: Math.floor(((unix - this.started + 7000) / interval) * of),
        });
        const source = (address, state, active, more = {}) => ({ address, state, active, ...more });
        return {
            ...summary,
            at_unix_s: unix,
            identifier: `${s.i + 1}`,
            ...(heard ? { descriptor: s.i % 5 === 0 ? hostile.descriptor : "TRM59800.00 SCIS / SEPT POLARX5 5.5.0" } : {}),
            ...(heard
                ? {
                      virtual_place: {
                          latitude_deg: round(s.place.latitude_deg + offset[1] / 111195, 8),
                          longitude_deg: round(s.place.longitude_deg + offset[0] / 70000, 8),
                          height_m: round(s.place.height_m + offset[2], 4),
                      },
                  }
                : {}),
            virtual_offset_m: offset,
            sources: [
                source(`ntrip://192.0.2.${10 + (s.i % 200)}:2101/${s.name}`, heard ? (summary.state === "silent" ? "waiting" : "connected") : "connecting", true, {
                    ...(summary.state === "delivering" ? { delivering_since_unix_s: summary.since_unix_s } : {}),
                    ...(summary.state === "silent" ? { last_error: "connection refused; next try in 10 s" } : {}),
                }),
                source(`tcp://198.51.100.${7 + (s.i % 200)}:9000`, "idle", false, s.i % 2 ? { last_error: "closed by the peer on 2026-11-22 at 18:20:07" } : {}),
            ],
            ephemeris_source: source("ntrip://203.0.113.4:2101/EPHEMERIS", "connected", true, { delivering_since_unix_s: this.started - 9000 }),
            failovers_total: s.i % 4,
            engine: { state: heard ? "connected" : "waiting", starts_total: 1 + (s.i % 3), since_unix_s: this.started - 7200 },
            sky: heard ? this.sky(s, summary.last_epoch_unix_s) : [],
            received: heard
                ? [message(1005, "station position", 10, 25), message(1077, "GPS MSM7", 1, 430), message(1087, "GLONASS MSM7", 1, 290),
                   message(1097, "Galileo MSM7", 1, 372), message(1127, "BeiDou MSM7", 1, 505), message(1230, "GLONASS biases", 10, 14), message(1033, "receiver and antenna", 10, 88)]
                : [],
            sent: heard
                ? [message(1005, "station position", 10, 25), message(1074, "GPS MSM4", 1, 196), message(1084, "GLONASS MSM4", 1, 131),
                   message(1094, "Galileo MSM4", 1, 180), message(1124, "BeiDou MSM4", 1, 245), message(1230, "GLONASS biases", 10, 14)]
                : [],
            history: {
                seen: series(10, each(360, 10, (t) => (gap(t) ? null : total("seen_count") + wave(t)))),
                answered: series(10, each(360, 10, (t) => (gap(t) ? null : total("answered_count") + wave(t) - Math.round(chance(t, s.i, 4) * 1.3)))),
                epochs: series(10, each(360, 10, (t) => (gap(t) ? 0 : 10 - (chance(t, s.i, 5) < 0.04 ? 2 : 0)))),
                delay: series(1, each(600, 1, (t) => (gap(t) ? null : round(this.#delay(s, t) * (chance(t, s.i, "peak") < 0.01 ? 2.5 : 1), 5)))),
            },
            audit:
                s.i % 6 === 1
                    ? { on: false, epochs_total: 0, unaudited_epochs_total: 0, withheld_epochs_total: 0, cells_total: 0 }
                    : {
                          on: true, epochs_total: Math.floor(unix - this.started + 6800), unaudited_epochs_total: 3, withheld_epochs_total: summary.state === "wrong" ? 660 : 0,
                          cells_total: Math.floor((unix - this.started + 6800) * 61),
                          worst: Object.keys(summary.satellites).map((system) => ({
                              system, range_m: round((system === "E" && summary.state === "wrong" ? 0.0123 : 0.0011) * (0.6 + 0.4 * chance(unix, system)), 6),
                              phase_m: round(0.00028 * (0.5 + 0.5 * chance(unix, system, 1)), 7), range_bound_m: system === "R" ? 0.004 : 0.002, phase_bound_m: 0.0005,
                          })),
                      },
            rovers: Array.from({ length: Math.min(200, summary.rovers_count) }, (_, k) => {
                const since = this.started - chance(s.i, k, "since") * 20000;
                const place = heard && k % 4 !== 3;
                return {
                    ...(k % 3 ? { user: `rover${String(100 + k)}` } : {}),
                    address: `203.0.113.${1 + ((s.i + 13 * k) % 250)}:${40000 + 7 * k}`,
                    ...(k % 5 !== 4 ? { agent: k === 0 ? hostile.agent : ["NTRIP GNSSInternetRadio/2.4.11", "NTRIP FieldWorks/7.2", "NTRIP TractorOS 3"][k % 3] } : {}),
                    since_unix_s: since,
                    sent_bytes_total: Math.floor((unix - since) * 610),
                    ...(k % 7 === 2 ? { waiting_bytes: 4096 } : {}),
                    ...(place
                        ? {
                              place: { latitude_deg: round(s.place.latitude_deg + 0.2 * (chance(k, 1) - 0.5), 7), longitude_deg: round(s.place.longitude_deg + 0.2 * (chance(k, 2) - 0.5), 7), height_m: round(s.place.height_m, 2) },
                              place_unix_s: unix - 2 - 9 * chance(k),
                          }
                        : {}),
                };
            }).sort((a, b) => b.since_unix_s - a.since_unix_s),
            events: this.events(name),
            alarms_now: this.#alarmsOf(s, summary.state, unix),
        };
    }

    events(name) {
        const s = this.byName.get(name ?? this.stations[0]?.name);
        if (!s) return [];
        const of = [
            ["info", "connected to the first source"], ["info", `rover 203.0.113.9 begins (${hostile.agent})`], ["notice", "the stream has a new descriptor"],
            ["warning", "no epoch for 12 s"], ["error", "the first source closed the connection; the second one is taken"], ["notice", "the first source delivers again"],
        ];
        return Array.from({ length: 14 }, (_, k) => ({
            number: 100 - k, at_unix_s: round(this.started - 40 - k * 777, 3), station: s.name, level: of[(k + s.i) % of.length][0], text: of[(k + s.i) % of.length][1],
        }));
    }
}
