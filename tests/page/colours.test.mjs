// Two systems, or two states, never look alike to anybody, on the pages and in the report.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { contrast, difference, differenceOfLab, parse, seen, sights } from "./colours.mjs";

const read = (path) => readFileSync(new URL(`../../${path}`, import.meta.url), "utf8");

// The colours of a style by name, for light and dark.
function coloursOf(style) {
    const [light, dark] = style.split("@media (prefers-color-scheme: dark)");
    const inRoot = (text) => Object.fromEntries([...text.split("}")[0].matchAll(/--(\w+): (#[0-9a-f]{6})/g)].map((m) => [m[1], m[2]]));
    return { light: inRoot(light), dark: inRoot(dark) };
}

const leastDifference = 12;
const styles = {
    page: { text: read("gateway/web/page/app.css"), groups: [[..."GRECJSI"], ["good", "plain", "warn", "bad"]] },
    report: { text: read("ctl/report/ReportStyle.h"), groups: [[..."GRECJS"], ["good", "bad"]] },
};

test("the difference of colours is that of the published examples", () => {
    // Sharma, Wu and Dalal 2005, table 1: pairs 1, 7, 13, 17, 25.
    const pairs = [
        [[50, 2.6772, -79.7751], [50, 0, -82.7485], 2.0425],
        [[50, 0, 0], [50, -1, 2], 2.3669],
        [[50, -0.001, 2.49], [50, 0.0011, -2.49], 4.7461],
        [[50, 2.5, 0], [73, 25, -18], 27.1492],
        [[60.2574, -34.0099, 36.2677], [60.4626, -34.1751, 39.4387], 1.2644],
    ];
    for (const [a, b, expected] of pairs) assert.ok(Math.abs(differenceOfLab(a, b) - expected) < 1e-4, `${a} ${b}`);
});

for (const [style, { text, groups }] of Object.entries(styles))
    for (const [scheme, colours] of Object.entries(coloursOf(text)))
        test(`${style}, ${scheme}: colours stand out and are told apart by everybody`, () => {
            for (const group of groups) {
                for (const name of group) {
                    assert.ok(colours[name], `no colour ${name}`);
                    const ratio = contrast(parse(colours[name]), parse(colours.page));
                    assert.ok(ratio >= 4.5, `${name} ${colours[name]}: contrast ${ratio.toFixed(2)}`);
                }
                for (const sight of Object.keys(sights))
                    group.forEach((a, i) =>
                        group.slice(i + 1).forEach((b) => {
                            const d = difference(seen(sight, parse(colours[a])), seen(sight, parse(colours[b])));
                            assert.ok(d >= leastDifference, `${sight}: ${a} and ${b} differ by ${d.toFixed(1)}`);
                        }),
                    );
            }
            assert.ok(contrast(parse(colours.soft), parse(colours.page)) >= 4.5, "soft");
            assert.ok(contrast(parse(colours.line), parse(colours.page)) >= 3, "line");
        });

test("page and report show a system in the same colour", () => {
    const [page, report] = [coloursOf(styles.page.text), coloursOf(styles.report.text)];
    for (const scheme of ["light", "dark"])
        for (const system of "GRECJS") assert.equal(report[scheme][system], page[scheme][system], `${scheme} ${system}`);
});
