// A gateway that runs, with simulated stations and rovers: the programs of a build (KESTRUNE_BUILD,
// else build/release). Texts of one station and one rover are hostile.

import { spawn, spawnSync } from "node:child_process";
import { mkdtempSync, openSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { connect, createServer } from "node:net";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { setTimeout as pause } from "node:timers/promises";
import { fileURLToPath } from "node:url";

const build = resolve(process.env.KESTRUNE_BUILD ?? fileURLToPath(new URL("../../build/release", import.meta.url)));
export const engineProgram = join(build, "src/app/Kestrune");
export const gatewayProgram = join(build, "gateway/app/kestrune-gateway");
export const hostile = {
    receiver: "<script>harmed=1</script>",
    antenna: "<img src=x onerror=harmed=1>",
    agent: 'NTRIP <script>window.harmed="agent"</script>/1.0 <b>bold</b>',
};

// CRC-24Q, RTCM 10403.x 4.2
function crc24(bytes) {
    let crc = 0;
    for (const byte of bytes) {
        crc ^= byte << 16;
        for (let i = 0; i < 8; ++i) crc = (crc << 1) ^ (crc & 0x800000 ? 0x1864cfb : 0);
    }
    return crc;
}

// 1033 instead of another one: station, antenna, its set-up and serial number, receiver, firmware, serial number.
function equipment(original, { antenna, receiver }) {
    const text = (words) => [words.length, ...Buffer.from(words, "latin1")];
    const body = [...original.subarray(3, 6), ...text(antenna), 0, ...text(""), ...text(receiver), ...text("1"), ...text("")];
    const frame = [0xd3, body.length >> 8, body.length & 255, ...body];
    const crc = crc24(frame);
    return Buffer.from([...frame, crc >> 16, (crc >> 8) & 255, crc & 255]);
}

/// Carries the stream of a simulated station, which is then of other equipment; `endsAfterMs`: then
/// it says nothing more, ever.
function between(host, port, from, words, endsAfterMs) {
    const begin = performance.now();
    const server = createServer((gateway) => {
        const station = connect(from, host);
        let held = Buffer.alloc(0);
        station.on("data", (bytes) => {
            held = Buffer.concat([held, bytes]);
            for (let size; held.length >= 6 && held.length >= (size = 6 + (held.readUInt16BE(1) & 1023)); held = held.subarray(size)) {
                const type = held.readUInt16BE(3) >> 4;
                if (type === 1033) gateway.write(equipment(held, words));
                else if (type !== 1007 && type !== 1008) gateway.write(held.subarray(0, size)); // the antenna
            }
        });
        gateway.on("error", () => {}).on("close", () => station.destroy());
        station.on("error", () => {}).on("close", () => endsAfterMs || gateway.destroy());
        if (endsAfterMs) setTimeout(() => station.destroy(), Math.max(0, endsAfterMs - (performance.now() - begin)));
    });
    return new Promise((listens) => server.listen(port, host, () => listens(server)));
}

const gga = (() => {
    const words = "GPGGA,120000.00,3523.0,S,14858.2,E,1,12,0.9,700.0,M,0.0,M,,";
    const sum = [...words].reduce((x, c) => x ^ c.charCodeAt(0), 0);
    return `$${words}*${sum.toString(16).toUpperCase().padStart(2, "0")}\r\n`;
})();

/// A rover that comes again whenever it is sent away.
class Rover {
    constructor(host, mountpoint, { agent = "NTRIP FieldWorks/7.2", user = null, tells = false } = {}) {
        Object.assign(this, { host, mountpoint, agent, user, tells });
        this.#connect();
    }

    #connect() {
        this.socket = connect(2101, this.host, () => {
            const named = this.user ? `Authorization: Basic ${Buffer.from(this.user).toString("base64")}\r\n` : "";
            this.socket.write(`GET /${this.mountpoint} HTTP/1.0\r\nUser-Agent: ${this.agent}\r\n${named}\r\n${this.tells ? gga : ""}`);
        });
        this.socket.on("error", () => {}).on("close", () => (this.timer = setTimeout(() => this.#connect(), 300))).resume();
    }

    close() {
        this.socket.removeAllListeners("close").destroy();
        clearTimeout(this.timer);
    }
}

/// Three stations deliver; one falls silent after a while, one never says a word. `address`: of the page.
export class Running {
    address = "";
    #folder = mkdtempSync(join(tmpdir(), "running-"));
    #host = `127.${[0, 0, 0].map(() => 1 + Math.floor(Math.random() * 200)).join(".")}`; // any of loopback is free
    #parts = []; // what ends with it
    #gateway = null;

    static async begin() {
        const running = new Running();
        try {
            await running.#begin();
        } catch (error) {
            const log = running.log();
            await running.close();
            throw new Error(`${error.message}\n${log}`);
        }
        return running;
    }

    async #begin() {
        const [host, folder] = [this.#host, this.#folder];
        this.address = `http://${host}:8080`;
        for (const [i, site] of ["-35.4,148.98,680", "-35.32,149.01,700", "-42.8,147.43,70", "-29.05,115.35,260"].entries()) {
            const simulator = spawn(join(build, "ctl/kestrunectl"), ["simulate", "--host", host, "--port", String(10001 + i), `--site=${site}`, "--systems", i ? "GREC" : "GRECJ", "--msm", "7", "--noise"], { stdio: "ignore" });
            this.#parts.push(() => simulator.kill());
        }
        for (const server of [await between(host, 10011, 10002, hostile), await between(host, 10012, 10003, { antenna: "TRM59800.00", receiver: "SEPT POLARX5" }, 4000)])
            this.#parts.push(() => server.close());
        const users = join(folder, "users");
        const made = spawnSync(gatewayProgram, ["passwd", users, "bob"], { input: "right\n" });
        if (made.status !== 0) throw new Error(`no user: ${made.stderr}`);
        const station = (name, source, more = "") => `[[station]]\nname = "${name}"\nsource = ${JSON.stringify(source)}\n${more}`;
        writeFileSync(
            join(folder, "gateway.toml"),
            `[gateway]\nstate = "${folder}/state"\nengine = "${engineProgram}"\n` +
                `[web]\nlisten = "${host}:8080"\n[caster]\nlisten = "${host}:2101"\nusers = "${users}"\n` +
                station("CANB", [`tcp://${host}:9`, `tcp://${host}:10001`], 'access = "anyone"\n') +
                station("TIDB", `tcp://${host}:10011`) +
                station("HOB2", `tcp://${host}:10012`, 'access = "anyone"\noffset = [1200, -900, 20]\n') +
                station("YAR3", `tcp://${host}:10004`, 'access = "anyone"\nmountpoint = "YARRAGADEE"\n') +
                station("WAIT", `tcp://${host}:9`),
        );
        await this.start();
        for (const rover of [
            new Rover(host, "CANB", { agent: hostile.agent, tells: true }),
            new Rover(host, "CANB"),
            new Rover(host, "TIDB", { user: "bob:right", tells: true }),
        ])
            this.#parts.push(() => rover.close());
        await this.deliver();
    }

    /// Until stations and rovers are there, and what is measured has been.
    deliver() {
        return this.#until("what stations deliver", async () => {
            const { stations, totals } = await this.get("/api/v1/stations");
            return totals.rovers_count === 3 && ["CANB", "TIDB", "YAR3"].every((name) => stations.find((s) => s.name === name).interval_s);
        }, 30e3);
    }

    async get(path) {
        return (await fetch(this.address + path)).json();
    }

    async #until(what, check, ms) {
        for (const end = Date.now() + ms; !(await check().catch(() => false)); await pause(100))
            if (Date.now() > end) throw new Error(`not seen: ${what}`);
    }

    async start() {
        const log = openSync(join(this.#folder, "log"), "a");
        this.#gateway = spawn(gatewayProgram, [join(this.#folder, "gateway.toml")], { stdio: ["ignore", log, log] });
        await this.#until("the gateway", async () => (await fetch(`${this.address}/healthz`)).ok, 15e3);
    }

    /// It answers nothing any more, and closes nothing.
    stall() {
        this.#gateway.kill("SIGSTOP");
    }

    goOn() {
        this.#gateway.kill("SIGCONT");
    }

    async stop() {
        if (!this.#gateway || this.#gateway.exitCode !== null) return;
        const ended = new Promise((ends) => this.#gateway.once("exit", ends));
        this.goOn();
        this.#gateway.kill();
        await ended;
    }

    log() {
        return readFileSync(join(this.#folder, "log"), "utf8").split("\n").slice(-40).join("\n");
    }

    async close() {
        await this.stop();
        for (const end of this.#parts) end();
        rmSync(this.#folder, { recursive: true, force: true, maxRetries: 5 });
    }
}
