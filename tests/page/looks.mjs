// How the tests look at a page: its sizes and colours, pictures, and what it costs the browser.

import { setTimeout as pause } from "node:timers/promises";

export const looks = [390, 1280].flatMap((width) => ["light", "dark"].map((scheme) => ({ width, scheme })));

export async function dress(page, { width, scheme }) {
    const phone = width < 500;
    await page.setViewport({ width, height: phone ? 844 : 900, deviceScaleFactor: 1, hasTouch: phone, isMobile: phone });
    await page.emulateMediaFeatures([{ name: "prefers-color-scheme", value: scheme }]);
}

/// All of the page in sight, for what draws only what is seen.
export async function picture(page, path, most = 6000) {
    const before = page.viewport();
    const height = await page.evaluate(() => document.documentElement.scrollHeight);
    await page.setViewport({ ...before, height: Math.min(height, most) });
    await pause(400);
    await page.screenshot({ path });
    await page.setViewport(before);
}

/// Processor time of the page's main thread, ms: of all its tasks a second, and of the longest. Not by
/// the clock: other programs of the machine do not count.
export async function spend(page, ms, act = () => pause(ms)) {
    const session = await page.createCDPSession();
    const events = [];
    session.on("Tracing.dataCollected", ({ value }) => events.push(...value));
    const complete = new Promise((resolve) => session.once("Tracing.tracingComplete", resolve));
    await session.send("Tracing.start", { traceConfig: { includedCategories: ["toplevel", "devtools.timeline", "disabled-by-default-devtools.timeline"] } });
    const from = performance.now();
    await act();
    await session.send("Tracing.end");
    const seconds = (performance.now() - from) / 1e3;
    await complete;
    await session.detach();
    const main = events.find((e) => e.name === "thread_name" && e.args.name === "CrRendererMain" && events.some((x) => x.pid === e.pid && x.name === "UpdateLayerTree"));
    const names = events.filter((e) => e.name === "thread_name" && e.args.name === "CrRendererMain").map((e) => `${e.pid}/${e.tid}`);
    const busiest = main ? [`${main.pid}/${main.tid}`] : names;
    const tasks = events.filter((e) => e.ph === "X" && /RunTask$/.test(e.name) && e.tdur !== undefined && busiest.includes(`${e.pid}/${e.tid}`));
    const costs = tasks.map((e) => e.tdur / 1e3);
    return { tasks: tasks.length, perSecondMs: costs.reduce((a, b) => a + b, 0) / seconds, longestMs: Math.max(0, ...costs) };
}

/// What the page of very many stations costs a browser: until it is painted, of an update, of scrolling.
export async function costOfFleet(page, address) {
    await page.evaluateOnNewDocument(() => {
        new MutationObserver((_, observer) => {
            if (!document.querySelector("#rows tr:not(.gap)")) return;
            observer.disconnect();
            requestAnimationFrame(() => setTimeout(() => (window.rowsAt = performance.now())));
        }).observe(document, { childList: true, subtree: true });
    });
    await page.goto(address);
    await page.waitForFunction(() => window.rowsAt !== undefined);
    const rowsAt = await page.evaluate(() => window.rowsAt);
    const first = await page.evaluate(() => performance.getEntriesByName("first-contentful-paint")[0].startTime);
    await pause(2000);
    const still = await spend(page, 8000);
    const scrolled = await spend(page, 4000, async () => {
        for (let i = 0; i < 40; ++i) {
            await page.mouse.wheel({ deltaY: i < 30 ? 900 : -900 });
            await pause(60);
            const row = () => document.elementFromPoint(innerWidth / 2, innerHeight - 60)?.closest("tr");
            const hole = await page.evaluate(`(${row})()?.className !== "" && document.querySelector("#rows").getBoundingClientRect().top < 0`);
            if (hole) await page.waitForFunction(`(${row})()?.className === ""`, { timeout: 1000 });
        }
    });
    const rows = await page.$$eval("#rows tr:not(.gap)", (all) => all.length);
    const ms = (value) => `${value.toFixed(1)} ms`;
    return {
        tasks: still.tasks,
        rows,
        firstPaintMs: first,
        longestUpdateMs: still.longestMs,
        told: [
            `first paint ${ms(first)}, first rows ${ms(rowsAt)}`,
            `updates: ${ms(still.perSecondMs)} of the main thread a second, longest task ${ms(still.longestMs)}`,
            `scrolling: longest task ${ms(scrolled.longestMs)}; ${rows} rows stand`,
        ],
    };
}
