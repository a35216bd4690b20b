// What rovers of others make of the stream and the source table: gpsd, and ntrip-client of npm.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import net from "node:net";
import { tmpdir } from "node:os";
import { after, before, test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import client from "ntrip-client";

const host = "127.0.0.1";
const folder = mkdtempSync(`${tmpdir()}/rovers-`);
const latitude = -35.4, longitude = 148.98, height = 680; // degrees, m
const types = [1077, 1087, 1097, 1117, 1127];
const programs = [];
let caster;

function start(program, ...args) {
    const started = spawn(program, args, { stdio: ["ignore", "pipe", "pipe"] });
    started.ended = new Promise((ended) => started.on("close", ended));
    started.told = "";
    for (const stream of [started.stdout, started.stderr])
        stream.on("data", (text) => (started.told += text));
    programs.push(started);
    return started;
}
async function freePort() {
    const server = net.createServer().listen(0, host);
    await new Promise((listening) => server.once("listening", listening));
    const { port } = server.address();
    await new Promise((closed) => server.close(closed));
    return port;
}
async function until(what, condition, seconds = 30) {
    for (const end = Date.now() + 1000 * seconds; Date.now() < end; await pause(50)) {
        const found = await condition();
        if (found) return found;
    }
    assert.fail(`${what}: not within ${seconds} s\n${programs.map((p) => p.told.slice(-2000)).join("\n---\n")}`);
}
/** 300 m north of the station (EPSG:4326 to EPSG:4978), m. */
function virtualStation() {
    const a = 6378137, f = 1 / 298.257223563, e2 = f * (2 - f);
    const phi = (latitude * Math.PI) / 180 + 4.7088369190215936e-5, lambda = (longitude * Math.PI) / 180;
    const n = a / Math.sqrt(1 - e2 * Math.sin(phi) ** 2);
    const r = (n + height) * Math.cos(phi);
    return [r * Math.cos(lambda), r * Math.sin(lambda), (n * (1 - e2) + height) * Math.sin(phi)];
}

before(async () => {
    const station = await freePort();
    caster = await freePort();
    start("build/release/ctl/kestrunectl", "simulate", "--port", station, "--answer", "complete", "--msm", "7",
        "--site", `${latitude},${longitude},${height}`);
    writeFileSync(`${folder}/gateway.toml`, `
        [gateway]
        state = "${folder}/state"
        engine = "${process.cwd()}/build/release/src/app/Kestrune"
        [web]
        listen = []
        [caster]
        listen = ["${host}:${caster}"]
        [[station]]
        name = "SIMU"
        source = "tcp://${host}:${station}"
        `);
    start("build/release/gateway/app/kestrune-gateway", `${folder}/gateway.toml`);
    await until("a stream", async () => {
        const table = await fetch(`http://${host}:${caster}/`).then((answer) => answer.text(), () => "");
        return table.includes("1077(1)");
    });
});
after(async () => {
    for (const program of programs) program.kill();
    await Promise.all(programs.map((program) => program.ended));
    rmSync(folder, { recursive: true });
});

test("gpsd finds the mountpoint in the source table and decodes every message", async () => {
    const port = await freePort();
    const gpsd = start("gpsd", "-N", "-n", "-D", "5", "-S", port, `ntrip://${host}:${caster}/SIMU`);
    await until("gpsd", () => gpsd.told.includes("identified as type RTCM104V3"));
    const socket = net.connect(port, host);
    let reports = "";
    socket.on("data", (text) => (reports += text));
    socket.write('?WATCH={"enable":true,"json":true};\n');
    await until("1006 at gpsd", () => reports.includes('"type":1006') && reports.endsWith("\n"));
    const position = reports.split("\n").find((line) => line.includes('"type":1006'));
    const { x, y, z, station_id } = JSON.parse(position);
    virtualStation().forEach((m, axis) => assert.ok(Math.abs(m - [x, y, z][axis]) < 1e-3, `${m} ${position}`));
    assert.equal(station_id, 4095);
    socket.destroy();
    const count = (type) => gpsd.told.split(`(type ${type})`).length - 1;
    await until("epochs at gpsd", () => types.every((type) => count(type) >= 5));
    const epochs = types.filter((type) => type !== 1127).map(count); // BeiDou needs two messages
    assert.ok(Math.max(...epochs) - Math.min(...epochs) <= 1, `${epochs}`);
    assert.equal(gpsd.told.match(/unknown type|checksum|bad CRC/gi), null);
});

test("ntrip-client reads the source table and every message", async () => {
    const run = (mountpoint) => {
        const got = [];
        const of = new client.NtripClient({ host, port: caster, mountpoint, username: "u", password: "p",
            xyz: virtualStation(), interval: 1000 });
        of.on("data", (data) => got.push(data));
        of.on("error", () => {});
        of.run();
        return { of, got };
    };
    const table = run("");
    await until("the source table", () => table.got.length > 0);
    const [cas, str] = table.got[0];
    assert.deepEqual([cas.type, cas.host, cas.port], ["CAS", host, `${caster}`]);
    assert.match(str.formatDetails, /^1006.*,1019.*1077\(1\),1087\(1\),1097\(1\),1117\(1\),1127\(1\)/);
    assert.deepEqual([str.type, str.mountpoint, str.format, str.navSystem, str.latitude, str.longitude,
        str.nmea, str.authentication],
    ["STR", "SIMU", "RTCM 3.3", "GPS+GLO+GAL+BDS+QZS", "-35.40", "148.98", "0", "N"]);
    assert.ok(Number(str.bitrate) > 10000, str.bitrate);

    const stream = run("SIMU");
    const typeOf = (frame) => (frame[3] << 4) | (frame[4] >> 4);
    const count = (type) => stream.got.filter((frame) => frame[0] === 0xd3 && typeOf(frame) === type).length;
    await until("epochs at ntrip-client", () => types.every((type) => count(type) >= 3));
    assert.equal(stream.got[0].toString(), "ICY 200 OK");
    for (const type of [1006, 1033, 1019, 1020, 1042, 1044, 1046]) // kept for who comes now
        assert.ok(count(type) >= 1, `${type}`);
    stream.of.close();
});

test("an HTTP client gets both by version 2", async () => {
    const ask = (path) => fetch(`http://${host}:${caster}/${path}`, { headers: { "Ntrip-Version": "Ntrip/2.0" } });
    const headers = (answer) => ["content-type", "ntrip-version"].map((name) => answer.headers.get(name));
    const table = await ask("");
    assert.deepEqual([table.status, ...headers(table)], [200, "gnss/sourcetable", "Ntrip/2.0"]);
    assert.match(await table.text(), /^CAS;.*\r\nSTR;SIMU;.*\r\nENDSOURCETABLE\r\n$/);
    const stream = await ask("SIMU");
    assert.deepEqual([stream.status, ...headers(stream)], [200, "gnss/data", "Ntrip/2.0"]);
    for await (const piece of stream.body) {
        assert.equal(piece[0], 0xd3);
        break;
    }
    assert.equal((await ask("NOBODY")).status, 404);
});
