// Makes the files of others that the pages contain, from the packages that package.json names: the
// charts as they are, the coastlines as two SVG paths in hundredths of a degree, y down.
// Usage: node vendor.mjs FOLDER
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { dirname, join } from "node:path";
import { mesh } from "topojson-client";
import { presimplify, simplify } from "topojson-simplify";

const folder = process.argv[2];
const packageFolder = (name) => dirname(createRequire(import.meta.url).resolve(`${name}/package.json`));

// Corners that span less than this much (degrees squared) are left out.
const detail = 0.02;

function path(file, object, filter) {
    const topology = simplify(presimplify(JSON.parse(readFileSync(file))), detail);
    let out = "";
    for (const line of mesh(topology, topology.objects[object], filter).coordinates) {
        // a line that crosses the 180th meridian goes on beyond it
        let turn = 0;
        const points = line.map(([longitude, latitude], i) => {
            const jump = i ? longitude - line[i - 1][0] : 0;
            if (Math.abs(jump) > 180 && latitude > -85) turn -= 360 * Math.sign(jump);
            return [longitude + turn, latitude];
        });
        const middle = points.reduce((sum, [longitude]) => sum + longitude, 0) / points.length;
        const back = 360 * Math.round(middle / 360);
        let before = null;
        for (const [longitude, latitude] of points) {
            const at = [Math.round((longitude - back) * 100), Math.round(-latitude * 100)];
            if (!before) out += `M${at[0]} ${at[1]}`;
            else if (at[0] !== before[0] || at[1] !== before[1])
                out += `l${at[0] - before[0]} ${at[1] - before[1]}`.replace(" -", "-");
            before = at;
        }
    }
    return out;
}

mkdirSync(folder, { recursive: true });
const charts = packageFolder("uplot");
copyFileSync(join(charts, "dist/uPlot.iife.min.js"), join(folder, "uPlot.iife.min.js"));
copyFileSync(join(charts, "dist/uPlot.min.css"), join(folder, "uPlot.min.css"));
copyFileSync(join(charts, "LICENSE"), join(folder, "uPlot.LICENSE"));
const world = packageFolder("world-atlas");
copyFileSync(join(world, "LICENSE"), join(folder, "world-atlas.LICENSE"));
writeFileSync(
    join(folder, "land.json"),
    JSON.stringify({
        land: path(join(world, "land-50m.json"), "land"),
        borders: path(join(world, "countries-50m.json"), "countries", (a, b) => a !== b),
    }) + "\n",
);
