// Numbers as an operator reads them.

import assert from "node:assert/strict";
import { test } from "node:test";
import * as format from "../../gateway/web/page/format.js";

test("nothing is older than its age says", () => {
    const cases = [[0, "0 s"], [0.01, "1 s"], [1, "1 s"], [98.2, "99 s"], [101, "2 min"], [121, "3 min"], [5401, "2 h"], [7201, "3 h"], [172801, "3 d"], [-2, "0 s"], [undefined, "\u2013"]];
    for (const [seconds, words] of cases) assert.equal(format.age(seconds), words, `${seconds}`);
});

test("numbers keep their size and sign", () => {
    assert.equal(format.grouped(9999), "9999");
    assert.equal(format.grouped(1234567), "1\u202f234\u202f567");
    assert.deepEqual([9999, 10000, 999499, 999500, 5e13].map(format.bytes), ["9999 B", "10.0 kB", "999 kB", "1.0 MB", "50.0 TB"]);
    assert.deepEqual([0.00999, 0.0123, 0.25, 12.3456].map(format.milliseconds), ["9.99 ms", "12.3 ms", "250 ms", "12\u202f346 ms"]);
    assert.equal(format.fixed(-3.14159, 2), "\u22123.14");
    assert.equal(format.place({ latitude_deg: -35.5, longitude_deg: -70.25, height_m: -3.5 }, 8), "35.50000000\u00b0\u202fS, 70.25000000\u00b0\u202fW, \u22123.50 m");
});

test("distances are those of the sphere", () => {
    const at = (latitude_deg, longitude_deg) => ({ latitude_deg, longitude_deg });
    assert.ok(Math.abs(format.metresBetween(at(0, 0), at(1, 0)) - 111195) < 1);
    assert.ok(Math.abs(format.metresBetween(at(60, 179.5), at(60, -179.5)) - 55597) < 3);
});
