// The description of the API is valid, and the answers are as it says.

import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { request } from "node:http";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { setTimeout as pause } from "node:timers/promises";
import { after, before, test } from "node:test";
import { fileURLToPath } from "node:url";
import { Validator } from "@seriousme/openapi-schema-validator";
import Ajv2020 from "ajv/dist/2020.js";
import { Fleet } from "./fleet.mjs";
import { policy, serve } from "./mock.mjs";
import { engineProgram, gatewayProgram, Running } from "./running.mjs";
import { EventReader } from "../../gateway/web/page/live.js";

const file = fileURLToPath(new URL("../../gateway/web/openapi.json", import.meta.url));
const api = JSON.parse(readFileSync(file, "utf8"));
const gateways = { "that runs": null, "made up": null };

before(async () => {
    gateways["that runs"] = await Running.begin();
    gateways["made up"] = await serve({ fleet: new Fleet({ count: 70 }) });
});
after(async () => {
    for (const gateway of Object.values(gateways)) await gateway?.close();
});

// What the description does not name is a mistake in an answer.
function closed(schema) {
    if (Array.isArray(schema)) return schema.map(closed);
    if (schema === null || typeof schema !== "object") return schema;
    const out = Object.fromEntries(Object.entries(schema).map(([key, value]) => [key, closed(value)]));
    if (schema.type === "object" && schema.properties && !schema.additionalProperties) out.unevaluatedProperties = false;
    return out;
}
const { Summary, Station, Fleet: FleetSchema, ...others } = api.components.schemas;
const strict = closed({ ...others, Fleet: FleetSchema });
strict.Summary = { ...closed(Summary), unevaluatedProperties: undefined };
delete strict.Summary.unevaluatedProperties;
strict.Fleet.properties.stations.items = { $ref: "#/components/schemas/Summary", unevaluatedProperties: false };
const own = closed(Station.allOf[1]);
delete own.unevaluatedProperties;
strict.Station = { allOf: [Station.allOf[0], own], unevaluatedProperties: false };
const ajv = new Ajv2020({ allErrors: true, strict: false });
ajv.addSchema({ $id: "api", components: { schemas: strict } });
const events = api.paths["/api/v1/events"].get.responses["200"].content["application/json"].schema;
ajv.addSchema({ $id: "events", ...JSON.parse(JSON.stringify(events).replaceAll("#/components", "api#/components")) });

function conforms(kind, value) {
    const schema = kind === "events" ? "events" : `api#/components/schemas/${kind}`;
    const valid = ajv.validate(schema, value);
    assert.ok(valid, `${kind}: ${ajv.errorsText(ajv.errors?.slice(0, 5))}`);
}

async function get(base, path, status = 200) {
    const response = await fetch(base + path);
    assert.equal(response.status, status, path);
    assert.match(response.headers.get("content-type"), /^application\/json/);
    return response.json();
}

test("a validator accepts the description", async () => {
    const { valid, errors } = await new Validator().validate(file);
    assert.ok(valid, JSON.stringify(errors, null, 1));
});

test("the test finds answers that are wrong", () => {
    const good = { stations_count: 1, delivering_count: 1, rovers_count: 0, alarms_count: 0, sent_bytes_total: 0 };
    conforms("Fleet", { at_unix_s: 1, stations: [], totals: good });
    for (const totals of [{ ...good, rovers_count: "0" }, { ...good, rover_count: 0 }, {}])
        assert.throws(() => conforms("Fleet", { at_unix_s: 1, stations: [], totals }));
});

async function firstEvents(base, path, count) {
    const abort = new AbortController();
    const response = await fetch(base + path, { signal: abort.signal });
    assert.equal(response.headers.get("content-type"), "text/event-stream");
    const out = [];
    const reader = new EventReader((kind, text) => out.push([kind, JSON.parse(text)]));
    for await (const bytes of response.body) {
        reader.read(bytes);
        if (out.length >= count) break;
    }
    abort.abort();
    return out;
}

for (const what of Object.keys(gateways)) {
    test(`${what}: fleet, stations and events are as described`, async () => {
        const base = gateways[what].address;
        const fleet = await get(base, "/api/v1/stations");
        conforms("Fleet", fleet);
        for (const { name } of fleet.stations.slice(0, 70)) conforms("Station", await get(base, `/api/v1/stations/${encodeURIComponent(name)}`));
        conforms("events", await get(base, "/api/v1/events"));
        if (fleet.stations.length) conforms("events", await get(base, `/api/v1/events?station=${encodeURIComponent(fleet.stations[0].name)}`));
        conforms("Problem", await get(base, "/api/v1/stations/no%20such%20station", 404));
        conforms("Problem", await get(base, "/api/v1/live?station=no%20such%20station", 404));
    });

    test(`${what}: live events are as described`, async () => {
        const base = gateways[what].address;
        for (const [kind, data] of await firstEvents(base, "/api/v1/live", 2)) {
            assert.equal(kind, "fleet");
            conforms("Fleet", data);
        }
        const { stations } = await get(base, "/api/v1/stations");
        for (const [kind, data] of stations.length ? await firstEvents(base, `/api/v1/live?station=${encodeURIComponent(stations[0].name)}`, 2) : []) {
            assert.equal(kind, "station");
            conforms("Station", data);
        }
    });

    test(`${what}: pages come with a policy that runs nothing of others`, async () => {
        const base = gateways[what].address;
        for (const path of ["/", "/station/ANY"]) {
            const response = await fetch(base + path);
            assert.equal(response.status, 200);
            assert.equal(response.headers.get("content-security-policy"), policy);
            assert.equal(response.headers.get("x-content-type-options"), "nosniff");
            const page = await response.text();
            assert.doesNotMatch(page, /<script(?![^>]* src="(\.\.\/)?(vendor\/)?[\w.]+\.js")|\son\w+=|\sstyle=|https?:/);
        }
    });
}

const resolved = (part) => (part?.$ref ? api.components.responses[part.$ref.split("/").at(-1)] : part);

/// As it is written here: no client mends the path or the host.
function ask(base, path, headers = {}, body = "") {
    return new Promise((done, failed) => {
        const { hostname: host, port } = new URL(base);
        const asked = request({ host, port, path, headers: { host: `${host}:${port}`, ...headers } }, async (response) => {
            let text = "";
            if (response.headers["content-type"] !== "text/event-stream") for await (const bytes of response) text += bytes;
            else response.destroy();
            done({ status: response.statusCode, headers: response.headers, text });
        });
        asked.on("error", failed).end(body);
    });
}

/// A gateway whose page asks for users.
async function withUsers() {
    const folder = mkdtempSync(join(tmpdir(), "users-"));
    const host = `127.${[0, 0, 0].map(() => 1 + Math.floor(Math.random() * 200)).join(".")}`;
    const users = join(folder, "users");
    assert.equal(spawnSync(gatewayProgram, ["passwd", users, "bob"], { input: "right\n" }).status, 0);
    writeFileSync(
        join(folder, "gateway.toml"),
        `[gateway]\nstate = "${folder}/state"\nengine = "${engineProgram}"\n[caster]\nlisten = "${host}:2101"\nusers = "${users}"\n` +
            `[web]\nlisten = "${host}:8080"\naccess = "users"\n[[station]]\nname = "WAIT"\nsource = "tcp://${host}:9"\n`,
    );
    const gateway = spawn(gatewayProgram, [join(folder, "gateway.toml")], { stdio: "ignore" });
    const address = `http://${host}:8080`;
    for (let i = 0; i < 150 && !(await fetch(`${address}/healthz`).catch(() => null)); ++i) await pause(100);
    const close = async () => {
        const ended = new Promise((ends) => gateway.once("exit", ends));
        if (gateway.exitCode === null && gateway.kill()) await ended;
        rmSync(folder, { recursive: true });
    };
    return { address, close };
}

test("every answer that is no 200 is as described, and each that is described comes", async () => {
    const base = gateways["that runs"].address;
    const { stations } = await get(base, "/api/v1/stations");
    const missing = new Set();
    for (const [path, { get: operation }] of Object.entries(api.paths))
        for (const status of Object.keys(operation.responses)) if (status !== "200" && status !== "503") missing.add(`${path} ${status}`);
    const described = (path, { status, headers, text }) => {
        const answer = resolved(api.paths[path].get.responses[status]);
        assert.ok(answer, `${path}: ${status} is not described`);
        for (const [name, { required }] of Object.entries(answer.headers ?? {})) assert.ok(headers[name.toLowerCase()] || !required, `${path}: ${status} without ${name}`);
        const [type] = Object.keys(answer.content ?? { "": null });
        assert.ok((headers["content-type"] ?? "").startsWith(type), `${path}: ${status} is ${headers["content-type"]}`);
        if (type === "application/json" && status !== 200) conforms("Problem", JSON.parse(text));
        missing.delete(`${path} ${status}`);
    };
    const named = (path) => path.replace("{name}", encodeURIComponent(stations[0].name));
    const long = "x".repeat(9000);
    for (const path of Object.keys(api.paths)) {
        const ok = await ask(base, named(path));
        assert.equal(ok.status, 200, path);
        described(path, ok);
        const cases = [
            [400, named(path), { "content-length": 4 }, "body"],
            [414, `${named(path)}?${long}`],
            [421, named(path), { host: "example.org" }],
            [431, named(path), { long }],
        ];
        if (path.includes("{name}")) cases.push([404, path.replace("{name}", "none")]);
        if (api.paths[path].get.parameters?.[0].in === "query") cases.push([404, `${path}?station=none`]);
        if (ok.headers.etag) cases.push([304, path, { "if-none-match": ok.headers.etag }]);
        for (const [status, ...request] of cases) {
            const answer = await ask(base, ...request);
            assert.equal(answer.status, status, request[0].slice(0, 50));
            described(path, answer);
        }
    }
    const refusing = await withUsers();
    try {
        const wrong = { authorization: `Basic ${Buffer.from("bob:wrong").toString("base64")}` };
        const guarded = Object.keys(api.paths).filter((path) => !path.endsWith("z"));
        for (const path of guarded) described(path, await ask(refusing.address, path.replace("{name}", "WAIT")));
        for (let i = 0; i < 10; ++i) assert.equal((await ask(refusing.address, "/metrics", wrong)).status, 401);
        for (const path of guarded) described(path, await ask(refusing.address, path.replace("{name}", "WAIT"), wrong));
        for (const path of ["/healthz", "/readyz"]) described(path, await ask(refusing.address, path));
    } finally {
        await refusing.close();
    }
    assert.deepEqual([...missing], [], "described, and not seen");
});

test("the gateway serves its description", async () => {
    const served = await ask(gateways["that runs"].address, "/api/v1/openapi.json");
    assert.equal(served.text, readFileSync(file, "utf8"));
});

test("events are read however the network cuts them", () => {
    const stream = ': a comment\nevent: fleet\ndata: {"a":\ndata: "\u00fc"}\n\nid: 4\r\ndata:plain\r\n\r\nevent: none\n\n';
    const bytes = new TextEncoder().encode(stream);
    const expected = [["fleet", '{"a":\n"\u00fc"}'], ["message", "plain"]];
    for (const size of [1, 2, 3, 7, bytes.length]) {
        const got = [];
        const reader = new EventReader((...event) => got.push(event));
        for (let i = 0; i < bytes.length; i += size) reader.read(bytes.subarray(i, i + size));
        assert.deepEqual(got, expected, `pieces of ${size}`);
    }
});
