// The description of the API is valid, and the answers are as it says.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import { fileURLToPath } from "node:url";
import { Validator } from "@seriousme/openapi-schema-validator";
import Ajv2020 from "ajv/dist/2020.js";
import { parse } from "yaml";
import { Fleet } from "./fleet.mjs";
import { policy, serve } from "./mock.mjs";
import { Running } from "./running.mjs";
import { EventReader } from "../../gateway/web/page/live.js";

const file = fileURLToPath(new URL("../../gateway/web/openapi.yaml", import.meta.url));
const api = parse(readFileSync(file, "utf8"));
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
