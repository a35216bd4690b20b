// Debian's chromium for the tests, and a wire to the gateway that can be cut.

import { mkdtempSync, rmSync } from "node:fs";
import { connect, createServer } from "node:net";
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

/// Wire: carries bytes between the browser and a gateway, until it is cut or stalls.
export class Wire {
    #sockets = new Set();
    #whole = true;

    constructor(to) {
        const { hostname, port } = new URL(to);
        this.server = createServer((here) => {
            if (!this.#whole) return here.destroy();
            const there = connect(Number(port || 80), hostname);
            for (const [socket, other] of [[here, there], [there, here]]) {
                this.#sockets.add(socket);
                socket.on("error", () => other.destroy());
                socket.on("close", () => {
                    this.#sockets.delete(socket);
                    other.destroy();
                });
                socket.pipe(other);
            }
        });
    }

    async open() {
        await new Promise((resolve) => this.server.listen(0, "127.0.0.1", resolve));
        return `http://127.0.0.1:${this.server.address().port}`;
    }

    cut() {
        this.#whole = false;
        for (const socket of this.#sockets) socket.destroy();
    }

    mend() {
        this.#whole = true;
    }

    // Nothing arrives any more, nothing is closed: as behind a router that has forgotten us.
    stall() {
        for (const socket of this.#sockets) socket.unpipe().pause();
    }

    close() {
        this.cut();
        return new Promise((resolve) => this.server.close(resolve));
    }
}
