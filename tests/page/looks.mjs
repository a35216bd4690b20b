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
