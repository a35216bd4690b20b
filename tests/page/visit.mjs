// A browser before the pages of a gateway, for tests. Pictures go to build/page/.

import assert from "node:assert/strict";
import { mkdirSync, readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { after, afterEach, before, beforeEach, test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import { fileURLToPath } from "node:url";
import { openBrowser } from "./browser.mjs";
import { dress, looks, picture } from "./looks.mjs";

const pictures = fileURLToPath(new URL("../../build/page/", import.meta.url));
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");
export const stationPath = (name) => `/station/${encodeURIComponent(name)}`;

export async function until(what, check, ms = 15000) {
    const end = Date.now() + ms;
    for (;;) {
        let problem;
        try {
            if ((await check()) !== false) return;
            problem = what;
        } catch (error) {
            problem = error;
        }
        if (Date.now() > end) throw problem instanceof Error ? problem : new Error(`not seen: ${what}`);
        await pause(150);
    }
}

/// Each test has a fresh `page`; `begin()` makes the gateway, something with an address and close().
export class Visit {
    gateway = null;
    page = null;
    complaints = []; // of the browser: errors, refusals of the policy

    constructor(begin) {
        let chromium = null;
        before(async () => {
            mkdirSync(pictures, { recursive: true });
            this.gateway = await begin();
            chromium = await openBrowser();
        });
        after(async () => {
            await chromium?.close();
            await this.gateway?.close();
        });
        beforeEach(async () => {
            this.complaints = [];
            this.page = await chromium.browser.newPage();
            this.page.on("console", (message) => ["error", "warn"].includes(message.type()) && this.complaints.push(message.text()));
            this.page.on("pageerror", (error) => this.complaints.push(String(error)));
            this.page.on("dialog", (dialog) => this.complaints.push(`dialog ${dialog.message()}`) && dialog.dismiss());
            await dress(this.page, looks.find((l) => l.width === 1280));
        });
        afterEach(() => this.page.close());
    }

    get = async (path) => (await fetch(this.gateway.address + path)).json();

    async open(path, at = this.gateway.address) {
        await this.page.goto(at + path);
        await this.page.waitForSelector("body[data-link=live]");
    }

    textOf = (selector) => this.page.$eval(selector, (e) => e.textContent);
    focus = (selector) => this.page.$eval(selector, (e) => e.focus()); // also of SVG
    rowsOf = (selector) =>
        this.page.$$eval(selector, (rows) => rows.map((row) => Object.fromEntries([...row.cells].map((c) => [c.className, c.innerText.trim()]))));
    picture = (name, { page = this.page, most } = {}) => picture(page, join(pictures, `${name}.png`), most);
    print = (name, options) => this.page.pdf({ path: join(pictures, `${name}.pdf`), format: "A4", ...options });

    async overflowsNowhere() {
        const { wide, inner } = await this.page.evaluate(() => ({ wide: document.documentElement.scrollWidth, inner: innerWidth }));
        assert.ok(wide <= inner, `${wide} px in ${inner}`);
    }

    async axeFindsNothing(page = this.page) {
        await page.evaluate(axe);
        const { violations, passes } = await page.evaluate(() => window.axe.run(document));
        assert.ok(passes.length > 15, "axe has looked");
        assert.deepEqual(violations.map((v) => `${v.id}: ${v.nodes.map((n) => n.html.slice(0, 150)).join(" | ")}`), []);
    }

    /// Tests of each page (name, and what its path is) at all sizes, in all colours; `ready` waits for what is to be seen.
    looksRight(pages, ready = async () => {}) {
        for (const [name, path] of Object.entries(pages))
            for (const look of looks)
                test(`${name} page, ${look.width} px, ${look.scheme}: nothing overflows, axe finds nothing`, async () => {
                    await ready();
                    await dress(this.page, look);
                    await this.open(path());
                    await this.page.$$eval("details", (all) => all.forEach((d) => (d.open = true)));
                    await pause(500);
                    await this.overflowsNowhere();
                    await this.axeFindsNothing();
                    await this.page.$$eval("details", (all) => all.forEach((d) => (d.open = false)));
                    await this.picture(`${name}-${look.width}-${look.scheme}`);
                    assert.deepEqual(this.complaints, []);
                });
    }
}
