// Debian's chromium for the tests.

import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import puppeteer from "puppeteer-core";

export async function openBrowser() {
    const folder = mkdtempSync(join(tmpdir(), "page-"));
    const browser = await puppeteer.launch({
        executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
        headless: true,
        userDataDir: folder,
        args: [
            "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
            "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
        ],
    });
    return {
        browser,
        async close() {
            await browser.close();
            rmSync(folder, { recursive: true, force: true, maxRetries: 5 });
        },
    };
}
