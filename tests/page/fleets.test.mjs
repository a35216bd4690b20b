// The pages in a browser, of gateways that are made up: states that are rare, and very many stations.

import assert from "node:assert/strict";
import { test } from "node:test";
import { Fleet, longName } from "./fleet.mjs";
import { costOfFleet, dress, looks } from "./looks.mjs";
import { serve } from "./mock.mjs";
import { stationPath, until, Visit } from "./visit.mjs";

const visit = new Visit(() => serve({ fleet: new Fleet({ count: 24 }) }));

visit.looksRight({ "made-up-fleet": () => "/", "made-up-station": () => stationPath("BERL") });

test("ages and times are those of the gateway's clock", async () => {
    const whole = visit.gateway.fleet;
    try {
        for (const ahead of [4000, -4000]) {
            visit.gateway.fleet = new Fleet({ count: 3, ahead });
            await visit.open("/");
            const [row] = (await visit.rowsOf("#rows tr:not(.gap)")).filter((r) => r.state === "delivering");
            assert.match(row.age, /^[0-4] s ago$/);
            const shown = await visit.textOf("#clock");
            const expected = [-2, -1, 0, 1].map((s) => `${new Date(Date.now() + (ahead + s) * 1e3).toISOString().slice(11, 19)} UTC`);
            assert.ok(expected.includes(shown), `${shown} of ${expected}`);
        }
    } finally {
        visit.gateway.fleet = whole;
    }
});

test("a gateway without stations, one without epochs and long names look right", async () => {
    const whole = visit.gateway.fleet;
    try {
        visit.gateway.fleet = new Fleet({ count: 0 });
        for (const look of looks.filter((l) => l.scheme === "light")) {
            await dress(visit.page, look);
            await visit.open("/");
            assert.equal(await visit.textOf("#headline"), "No station yet");
            assert.match(await visit.textOf("#empty"), /No station is configured/);
            await visit.picture(`empty-${look.width}`);
            visit.gateway.fleet = whole;
            await until("the first stations", async () => (await visit.page.$$("#rows tr:not(.gap)")).length > 0);
            visit.gateway.fleet = new Fleet({ count: 0 });
        }
        visit.gateway.fleet = whole;
        for (const name of [longName, "STUT"])
            for (const look of looks.filter((l) => l.scheme === "light")) {
                await dress(visit.page, look);
                await visit.open(stationPath(name));
                await visit.overflowsNowhere();
                await visit.picture(`${name === "STUT" ? "no-epoch" : "long-name"}-${look.width}`);
            }
    } finally {
        visit.gateway.fleet = whole;
    }
    assert.deepEqual(visit.complaints, []);
});

test("rows stand in the order that was asked for", async () => {
    await visit.open("/?sort=-delay&state=delivering");
    const delays = (await visit.rowsOf("#rows tr:not(.gap)")).map((r) => Number.parseFloat(r.delay));
    assert.ok(delays.length > 8);
    assert.ok(delays.every((d, i) => i === 0 || d <= delays[i - 1] + 3.5), delays.join());
});

// What it costs is told, not judged: machines differ, and are busy.
test("1000 stations: only the rows in sight stand, and scrolling leaves no hole", async (t) => {
    const large = await serve({ fleet: new Fleet({ count: 1000 }) });
    try {
        const { tasks, rows, told } = await costOfFleet(visit.page, large.address);
        told.forEach((line) => t.diagnostic(line));
        assert.ok(tasks > 8, "updates were measured");
        assert.ok(rows < 100);
        await visit.picture("thousand", { most: 1600 });
    } finally {
        await large.close();
    }
    assert.deepEqual(visit.complaints, []);
});
