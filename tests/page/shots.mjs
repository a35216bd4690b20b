// Pictures of the pages into a folder.
// Usage: node shots.mjs FOLDER [BASE_URL] [PATH...]
import { mkdirSync } from "node:fs";
import { join } from "node:path";
import { openBrowser } from "./browser.mjs";
import { Fleet } from "./fleet.mjs";
import { serve } from "./mock.mjs";

export const looks = [390, 1280].flatMap((width) => ["light", "dark"].map((scheme) => ({ width, scheme })));

export async function dress(page, { width, scheme }) {
    await page.setViewport({ width, height: width < 500 ? 844 : 900, deviceScaleFactor: 1, hasTouch: width < 500, isMobile: width < 500 });
    await page.emulateMediaFeatures([{ name: "prefers-color-scheme", value: scheme }]);
}

if (process.argv[1].endsWith("shots.mjs")) {
    const [folder, base, ...paths] = process.argv.slice(2);
    mkdirSync(folder, { recursive: true });
    const mock = base ? null : await serve({ fleet: new Fleet({ count: 24 }) });
    const { browser, close } = await openBrowser();
    const page = await browser.newPage();
    page.on("console", (m) => console.log("console:", m.text()));
    page.on("pageerror", (e) => console.log("error:", e.stack));
    for (const path of paths.length ? paths : ["/", "/station/BERL"])
        for (const look of process.env.LOOK ? looks.filter((l) => `${l.width}${l.scheme}` === process.env.LOOK) : looks) {
            await dress(page, look);
            await page.goto((base || mock.address) + path);
            await page.waitForSelector("body[data-link=live]");
            await new Promise((r) => setTimeout(r, 700));
            const name = (path.replace(/\W+/g, "-").replace(/^-|-$/g, "") || "fleet") + `-${look.width}-${look.scheme}.png`;
            // all of it in sight, for what draws only what is seen
            const height = await page.evaluate(() => document.documentElement.scrollHeight);
            await page.setViewport({ ...page.viewport(), height: Math.min(height, 6000) });
            await new Promise((r) => setTimeout(r, 400));
            await page.screenshot({ path: join(folder, name), fullPage: true });
            console.log(name);
        }
    await close();
    await mock?.close();
}
