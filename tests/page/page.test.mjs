// The pages in a browser, of a gateway that runs.

import assert from "node:assert/strict";
import { test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import { dress, looks } from "./looks.mjs";
import { hostile, Running } from "./running.mjs";
import { stationPath, until, Visit } from "./visit.mjs";

const station = "CANB"; // of which there is most to see
const attacked = "TIDB";
const visit = new Visit(() => Running.begin());

const sum = (satellites, of) => Object.values(satellites).reduce((n, c) => n + c[of], 0);
const plain = (text) => text.replaceAll("\u202f", "").replace("\u2212", "-");
const near = (text, value, tolerance, what) => assert.ok(Math.abs(Number.parseFloat(plain(text)) - value) <= tolerance, `${what}: ${text} is not ${value}`);
// An age in words is not less than the true one, and at most one unit and the time of reading more.
function olderThan(text, seconds, what) {
    const unit = { s: 1, min: 60, h: 3600, d: 86400 }[text.split(" ")[1]];
    const shown = Number.parseFloat(plain(text)) * unit;
    assert.ok(shown >= seconds - 1.5 && shown <= seconds + unit + 2.5, `${what}: ${text} is not ${seconds} s`);
}

test("the fleet page shows the values of the API", async () => {
    await visit.open("/");
    await until("equal values", async () => {
        const [fleet, rows] = [await visit.get("/api/v1/stations"), await visit.rowsOf("#rows tr:not(.gap)")];
        const byName = new Map(fleet.stations.map((s) => [s.name, s]));
        assert.ok(rows.length >= Math.min(fleet.stations.length, 5));
        for (const row of rows) {
            const name = row.name.split("\n")[0].split(/\s/)[0];
            const s = byName.get(name);
            assert.ok(s, `a row of ${name}`);
            assert.equal(row.state, s.state);
            const heard = s.last_epoch_unix_s !== undefined;
            assert.ok(row.satellites.startsWith(heard ? `${sum(s.satellites, "answered_count")}/${sum(s.satellites, "seen_count")}` : "\u2013"), `${name} ${row.satellites}`);
            for (const [system, n] of Object.entries({ GPS: "G", GLONASS: "R", Galileo: "E", BeiDou: "C" }))
                if (s.satellites[n]) assert.ok(row.satellites.includes(`${system} ${s.satellites[n].answered_count} of ${s.satellites[n].seen_count}`), `${name} ${row.satellites}`);
            assert.equal(row.signals, heard ? `${s.kept_signals_count}/${s.received_signals_count}` : "\u2013");
            near(row.rovers, s.rovers_count, 0, name);
            if (s.delay_s === undefined) assert.equal(row.delay, "\u2013");
            else near(row.delay, s.delay_s * 1e3, Math.max(0.006, s.delay_s * 6), `${name} delay`);
            if (heard) olderThan(row.age, fleet.at_unix_s - s.last_epoch_unix_s, name);
            assert.equal(row.alarms, s.alarms.map((a) => a.replace("_", " ")).join(", "));
        }
        const figures = await visit.page.$$eval("#figures dd > span", (all) => all.map((e) => e.textContent));
        near(figures[0], fleet.totals.delivering_count, 0, "delivering");
        near(figures[1], fleet.totals.rovers_count, 0, "rovers");
        near(figures[2], fleet.totals.alarms_count, 0, "alarms");
        const marks = await visit.page.$$eval("#map a", (all) => all.length);
        assert.equal(marks, fleet.stations.filter((s) => s.place).length);
    });
});

test("the station page shows the values of the API", async () => {
    await visit.open(stationPath(station));
    await visit.page.$$eval("details", (all) => all.forEach((d) => (d.open = true)));
    const cells = (selector) => visit.page.$$eval(`${selector} tbody tr`, (rows) => rows.map((r) => [...r.cells].map((c) => c.innerText.trim())));
    await until("equal values", async () => {
        const s = await visit.get(`/api/v1/stations/${encodeURIComponent(station)}`);
        assert.equal(await visit.textOf("#name"), s.name);
        assert.equal(await visit.textOf("#state"), s.state);
        const figures = await visit.page.$$eval("#figures dd > span", (all) => all.map((e) => e.textContent));
        olderThan(figures[0], s.at_unix_s - s.last_epoch_unix_s, "last epoch");
        assert.equal(figures[1], `${sum(s.satellites, "answered_count")} of ${sum(s.satellites, "seen_count")}`);
        assert.equal(figures[2], `${s.kept_signals_count} of ${s.received_signals_count}`);
        near(figures[4], s.rovers_count, 0, "rovers");
        const words = { left_out: "left out", low: "below 5 degrees", no_ephemeris: "no ephemeris", old_ephemeris: "ephemeris too old", no_signal: "no signal to carry", answered: "answered" };
        assert.deepEqual((await cells("#sky")).map((r) => r.slice(0, 2)), s.sky.map((x) => [x.name, words[x.fate]]));
        for (const [row, x] of (await cells("#sky")).map((r, i) => [r, s.sky[i]])) if (x.elevation_deg !== undefined) near(row[3], x.elevation_deg, 0.2, x.name);
        assert.equal(await visit.page.$$eval("#sky [data-name]", (all) => all.length), s.sky.filter((x) => x.azimuth_deg !== undefined).length);
        for (const [i, row] of (await cells("#cn0")).entries())
            assert.deepEqual(row[1].split(", ").map((w) => w.split(" ")[0]).filter((w) => w !== "\u2013"), Object.keys(s.sky[i].cn0_dbhz));
        const ephemerides = await visit.page.$$eval("#ephemerides li", (all) => all.map((e) => [e.querySelector("b").textContent, e.querySelector(".age").textContent]));
        for (const [name, age] of ephemerides) {
            const { ephemeris_age_s: then } = s.sky.find((x) => x.name === name);
            if (then === undefined) assert.equal(age, "none");
            else olderThan(age, then, name);
        }
        const change = s.sky.filter((x) => x.change_m !== undefined);
        for (const [i, row] of (await cells("#change")).entries()) near(row[2], change[i].change_m, 1, row[0]);
        const hour = await cells("#hour");
        assert.equal(hour.length, s.history.seen.values.length);
        assert.deepEqual(hour[0].slice(1), [s.history.seen, s.history.answered, s.history.epochs].map((x) => String(x.values.at(-1) ?? "\u2013")));
        assert.equal((await cells("#delay")).length, s.history.delay.values.length);
        for (const kind of ["received", "sent"]) {
            const rows = await cells(`#${kind}`);
            assert.deepEqual(rows.map((r) => Number.parseInt(r[0])), s[kind].map((m) => m.number));
            for (const [i, m] of s[kind].entries()) near(rows[i][2], m.messages_total, 3, `${m.number}`), m.interval_s === undefined ? assert.equal(rows[i][1], "\u2013") : near(rows[i][1], m.interval_s, 0.06, `${m.number}`);
        }
        assert.deepEqual((await cells("#rovers")).map((r) => r[2]), s.rovers.map((r) => r.address));
        for (const [i, row] of (await cells("#rovers")).entries()) olderThan(row[3], s.at_unix_s - s.rovers[i].since_unix_s, row[2]);
        assert.deepEqual((await cells("#sources")).slice(0, s.sources.length).map((r) => [r[0], r[2]]), s.sources.map((x) => [x.address, x.state]));
        assert.deepEqual((await cells("#events")).map((r) => r[2].replaceAll(/\s+/g, " ")), s.events.map((e) => e.text.replaceAll(/\s+/g, " ")));
        const audit = await cells("#audit");
        assert.equal(audit.length, s.audit.worst?.length ?? 0);
        for (const [i, row] of audit.entries()) near(row[1], s.audit.worst[i].range_m * 1e3, 0.4, row[0]), assert.ok(row[1].endsWith(`of ${(s.audit.worst[i].range_bound_m * 1e3).toFixed(2)} mm`), row[1]);
    });
    assert.deepEqual(visit.complaints, []);
});

test("the fleet is searched, filtered and sorted, by the keyboard alone, and the address tells it", async () => {
    await visit.open("/");
    const here = () =>
        visit.page.evaluate(() => {
            const e = document.activeElement;
            const style = getComputedStyle(e);
            return { id: e.id, tag: e.tagName, words: (e.getAttribute("aria-label") ?? e.textContent).trim(), seen: style.outlineStyle !== "none" && parseFloat(style.outlineWidth) >= 2, in: e.closest("#map,#alarms,#filter,#heads,#rows")?.id ?? "" };
        });
    const stops = [];
    for (let i = 0; i < 250; ++i) {
        await visit.page.keyboard.press("Tab");
        const stop = await here();
        if (stop.tag === "BODY") break;
        stops.push(stop);
        assert.ok(stop.seen, `no outline: ${JSON.stringify(stop)}`);
    }
    const count = (part) => stops.filter((s) => s.in === part).length;
    const { stations } = await visit.get("/api/v1/stations");
    for (const id of ["map-in", "map-out", "map-fit", "map-world", "search"]) assert.ok(stops.some((s) => s.id === id), id);
    assert.equal(count("map"), 1, `the map is one stop: ${JSON.stringify(stops.filter((s) => s.in === "map"))}`);
    assert.equal(count("filter"), 7);
    assert.equal(count("heads"), 8);
    assert.equal(count("rows"), stations.length, "each station is reached");

    await visit.focus("#map a[tabindex='0']");
    const reached = new Set([(await here()).words]);
    for (const key of ["ArrowRight", "ArrowRight", "ArrowDown", "ArrowLeft", "ArrowUp", "End", "Home"]) {
        await visit.page.keyboard.press(key);
        reached.add((await here()).words);
    }
    assert.ok(reached.size >= 3, [...reached].join("; "));
    assert.equal(await visit.textOf("#map-note"), (await here()).words);

    await visit.page.focus("#filter button:nth-child(6)");
    await visit.page.keyboard.press("Space");
    await visit.page.focus("#heads .delay button");
    await visit.page.keyboard.press("Enter");
    assert.equal(await visit.page.$eval("#heads .delay", (e) => e.getAttribute("aria-sort")), "descending");
    await visit.page.focus("#search");
    await visit.page.keyboard.type("R");
    const expected = async () => (await visit.get("/api/v1/stations")).stations.filter((s) => s.state === "delivering" && /r/i.test(`${s.name} ${s.mountpoint}`)).map((s) => s.name);
    const shown = () => visit.page.$$eval("#rows tr:not(.gap) .name a", (all) => all.map((a) => a.textContent));
    await until("the filter", async () => assert.deepEqual((await shown()).sort(), (await expected()).sort()));
    assert.equal(new URL(visit.page.url()).search, "?q=R&state=delivering&sort=-delay");
    await visit.open(new URL(visit.page.url()).pathname + new URL(visit.page.url()).search);
    await until("the bookmark", async () => assert.deepEqual((await shown()).sort(), (await expected()).sort()));
    assert.equal(await visit.page.$eval("#search", (e) => e.value), "R");
    await visit.page.focus("#rows .name a");
    const to = (await here()).words;
    await Promise.all([visit.page.waitForNavigation(), visit.page.keyboard.press("Enter")]);
    await visit.page.waitForSelector("body[data-link=live]");
    assert.equal(await visit.textOf("#name"), to);
});

test("the station page is walked by the keyboard alone", async () => {
    await visit.open(stationPath(station));
    const names = new Set();
    await visit.focus("#sky [data-name][tabindex='0']");
    for (const key of ["ArrowRight", "ArrowDown", "ArrowLeft", "ArrowUp", "End", "Home"]) {
        await visit.page.keyboard.press(key);
        const words = await visit.page.evaluate(() => document.activeElement.getAttribute("aria-label"));
        assert.equal(await visit.textOf("#sky .note"), words);
        names.add(words);
    }
    assert.ok(names.size >= 4, [...names].join("; "));
    await pause(1300); // an update takes the focus from nobody
    assert.ok(await visit.page.evaluate(() => document.activeElement.closest("#sky [data-name]")));
    const opened = [];
    await visit.page.click("#name");
    for (;;) {
        await visit.page.keyboard.press("Tab");
        const { tag } = await visit.page.evaluate(() => ({ tag: document.activeElement.tagName }));
        if (tag === "BODY") break;
        if (tag !== "SUMMARY") continue;
        await visit.page.keyboard.press("Enter");
        await pause(100);
        opened.push(await visit.page.evaluate(() => document.activeElement.parentElement.querySelectorAll("tbody tr").length > 0));
    }
    assert.deepEqual(opened, [true, true, true, true, true], "a table behind each chart");
});

test("texts of streams and rovers change nothing", async () => {
    for (const path of [stationPath(attacked), stationPath(station), "/"]) {
        await visit.open(path);
        const scripts = await visit.page.$$eval("script", (all) => all.length);
        await pause(1300);
        const served = await (await fetch(visit.page.url())).text();
        assert.equal(scripts, served.match(/<script/g).length);
        assert.equal(await visit.page.evaluate(() => window.harmed), undefined);
        assert.equal(await visit.page.$$eval("main img, main b:not(li b):not(th b), main script", (all) => all.length), 0);
    }
    await visit.open(stationPath(attacked));
    assert.equal(await visit.textOf("#descriptor"), `${hostile.receiver}, ${hostile.antenna}`);
    await visit.open(stationPath(station));
    for (const list of ["#rovers", "#events"]) assert.ok((await visit.textOf(list)).includes(hostile.agent), list);
    await visit.page.goto(visit.gateway.address + stationPath('"><script>window.harmed=1</script>'));
    await until("that there is none", async () => /no such station/.test(await visit.textOf("main")));
    assert.equal(await visit.page.evaluate(() => window.harmed), undefined);
});

test("on paper all stations are there", async () => {
    await visit.open("/");
    await visit.page.evaluate(() => dispatchEvent(new Event("beforeprint")));
    const { stations } = await visit.get("/api/v1/stations");
    assert.equal((await visit.page.$$("#rows tr:not(.gap)")).length, stations.length);
    await visit.print("fleet", { landscape: true });
    await visit.open(stationPath(station));
    await visit.print("station");
});

visit.looksRight({ fleet: () => "/", station: () => stationPath(station) }, () =>
    until("a silent station", async () => (await visit.get("/api/v1/stations")).stations.some((s) => s.state === "silent"), 40e3),
);

// Both pages at once, each in a tab of its own.
async function tabs(work) {
    const all = [];
    try {
        for (const path of ["/", stationPath(station)]) {
            const page = await visit.page.browser().newPage();
            all.push(page);
            page.on("pageerror", (error) => visit.complaints.push(String(error)));
            await dress(page, looks.find((l) => l.width === 1280));
            await page.goto(visit.gateway.address + path);
            await page.waitForSelector("body[data-link=live]");
        }
        await work(all);
    } finally {
        for (const page of all) await page.close();
    }
}
async function isLost(page, why) {
    await page.waitForSelector("body.old[data-link=lost]", { timeout: 32000 });
    assert.match(await page.$eval("#lost", (e) => e.textContent), why);
    assert.equal(await page.$eval("#clock", (e) => e.textContent), "");
}
async function isMended(page) {
    await page.bringToFront();
    await page.waitForFunction(() => document.querySelector("body[data-link=live]:not(.old) #lost[hidden]"), { timeout: 20000, polling: 100 });
}

test("a gateway that ends is shown, values are marked as old, and it mends itself", () =>
    tabs(async (pages) => {
        await visit.gateway.stop();
        for (const [i, page] of pages.entries()) {
            await page.bringToFront();
            await isLost(page, /^The gateway (cannot be reached|closed the connection).* The values below are of \d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC\. They are \d+ s old\./);
            const age = i === 0 ? "#rows tr:nth-last-child(2) .age" : "#figures dd > span";
            await until("ages go on", async () => Number.parseInt(await page.$eval(age, (e) => e.textContent)) >= 4);
            await visit.axeFindsNothing(page);
            await visit.picture(`${i === 0 ? "fleet" : "station"}-lost`, { page });
        }
        await visit.gateway.start();
        await pages[1].click("#lost button");
        for (const page of pages) await isMended(page);
        await visit.gateway.deliver();
        assert.deepEqual(visit.complaints, []);
    }));

test("a gateway that says nothing is noticed, and heard when it goes on", () =>
    tabs(async (pages) => {
        visit.gateway.stall();
        try {
            for (const page of pages) await isLost(page, /nothing for 25 s.*They are (2[4-9]|3\d) s old/);
        } finally {
            visit.gateway.goOn();
        }
        for (const page of pages) await isMended(page);
    }));
