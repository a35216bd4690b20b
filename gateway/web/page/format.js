// Numbers, times and names as the pages write them.

export const systemNames = {
    G: "GPS", R: "GLONASS", E: "Galileo", C: "BeiDou", J: "QZSS", S: "SBAS", I: "NavIC",
};
export const systems = Object.keys(systemNames);

// The worst first.
export const stateNames = {
    wrong: "wrong", stopped: "stopped", silent: "silent", starting: "starting", delivering: "delivering",
};
export const states = Object.keys(stateNames);
export const stateMeanings = {
    wrong: "The audit withholds epochs.",
    stopped: "Withheld until somebody acts: the base moved.",
    silent: "No epoch for 30 seconds.",
    starting: "The first epoch is awaited.",
    delivering: "Epochs reach rovers.",
};

export const fateNames = {
    answered: "answered",
    left_out: "left out",
    low: "below 5 degrees",
    no_ephemeris: "no ephemeris",
    old_ephemeris: "ephemeris too old",
    no_signal: "no signal to carry",
};
export const fates = Object.keys(fateNames);

export const alarmNames = {
    no_epochs: "no epochs", few_satellites: "few satellites", system_gone: "system gone",
    delay: "delay", moved: "moved", audit: "audit", clock: "clock", leap_seconds: "leap seconds",
    certificate: "certificate", disk: "disk", engine: "engine", rovers_cut: "rovers cut off",
};

export const unknown = "\u2013";
const minus = (text) => text.replace(/^-/, "\u2212");

// Groups of three, from five digits on.
export function grouped(n) {
    const digits = String(n);
    return digits.length < 5 ? digits : digits.replace(/\B(?=(\d{3})+$)/g, "\u202f");
}

/// Over all systems.
export const total = (counts, of) => Object.values(counts).reduce((n, c) => n + c[of], 0);
export const count = (n) => (n === undefined ? unknown : grouped(n));
export const fixed = (value, digits) =>
    value === undefined || value === null ? unknown : minus(value.toFixed(digits));
export const plural = (n, one, many) => `${grouped(n)} ${n === 1 ? one : many}`;

// Rounded up: nothing is older than the page says.
export function age(seconds) {
    if (seconds === undefined || Number.isNaN(seconds)) return unknown;
    const s = Math.max(0, Math.ceil(seconds));
    if (s < 100) return `${s} s`;
    if (s <= 5400) return `${Math.ceil(s / 60)} min`;
    if (s <= 172800) return `${Math.ceil(s / 3600)} h`;
    return `${grouped(Math.ceil(s / 86400))} d`;
}

export function bytes(n) {
    if (n === undefined) return unknown;
    if (n < 1e4) return `${n} B`;
    const units = ["kB", "MB", "GB", "TB", "PB"];
    let value = n / 1e3;
    let unit = 0;
    for (; value >= 999.5 && unit < units.length - 1; ++unit) value /= 1e3;
    return `${value < 99.95 ? value.toFixed(1) : value.toFixed(0)} ${units[unit]}`;
}

export function milliseconds(s) {
    if (s === undefined || s === null) return unknown;
    const ms = s * 1e3;
    return `${ms < 9.995 ? ms.toFixed(2) : ms < 99.95 ? ms.toFixed(1) : grouped(Math.round(ms))} ms`;
}

export const millimetres = (m, digits) => (m === undefined ? unknown : `${(m * 1e3).toFixed(digits)} mm`);

export function interval(s) {
    if (s === undefined) return unknown;
    return s < 0.9995 ? `${s.toFixed(2)} s` : s < 99.95 ? `${s.toFixed(1)} s` : age(s);
}

export const distance = (m) =>
    m < 1e4 ? `${grouped(Math.round(m))} m` : `${(m / 1e3).toFixed(m < 1e5 ? 1 : 0)} km`;

export const signed = (m, digits = 1) => (m < 0 ? "\u2212" : "+") + Math.abs(m).toFixed(digits);

const iso = (unix) => new Date(unix * 1e3).toISOString();
export const time = (unix) => iso(unix).slice(11, 19);
export const day = (unix) => iso(unix).slice(0, 10);
export const dayTime = (unix) => `${day(unix)} ${time(unix)}`;

// Of the same day only the time.
export const moment = (unix, now) => (day(unix) === day(now) ? time(unix) : dayTime(unix));

export function place({ latitude_deg: latitude, longitude_deg: longitude, height_m: height }, digits = 6) {
    return (
        `${Math.abs(latitude).toFixed(digits)}\u00b0\u202f${latitude < 0 ? "S" : "N"}, ` +
        `${Math.abs(longitude).toFixed(digits)}\u00b0\u202f${longitude < 0 ? "W" : "E"}, ` +
        `${minus(height.toFixed(digits > 5 ? 2 : 0))} m`
    );
}

// Along the sphere, m: for people, not for surveying.
export function metresBetween(a, b) {
    const degree = Math.PI / 180;
    const half = (from, to) => Math.sin(((to - from) * degree) / 2) ** 2;
    const h =
        half(a.latitude_deg, b.latitude_deg) +
        Math.cos(a.latitude_deg * degree) *
            Math.cos(b.latitude_deg * degree) *
            half(a.longitude_deg, b.longitude_deg);
    return 2 * 6371008.8 * Math.asin(Math.min(1, Math.sqrt(h)));
}

export function median(values) {
    const sorted = [...values].sort((a, b) => a - b);
    const middle = sorted.length >> 1;
    return sorted.length % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}
