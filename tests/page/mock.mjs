// A gateway made up: serves the pages and the API of a fleet that does not exist, for looking at and
// for the tests. No dependencies.
// Usage: node mock.mjs [--stations N] [--port N]
import { createServer } from "node:http";
import { readFileSync } from "node:fs";
import { extname, join, normalize } from "node:path";
import { fileURLToPath } from "node:url";
import { Fleet } from "./fleet.mjs";

const pages = fileURLToPath(new URL("../../gateway/web/page", import.meta.url));
const types = {
    ".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
    ".json": "application/json", ".svg": "image/svg+xml",
};
export const policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; " +
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// Serves until `close()`. `fleet` may be replaced while it runs.
export async function serve({ port = 0, fleet }) {
    const mock = { fleet };
    const json = (response, status, value) => {
        response.writeHead(status, { "content-type": "application/json", "cache-control": "no-store" });
        response.end(JSON.stringify(value));
    };

    function live(request, response, name) {
        const next = () => (name === null ? mock.fleet.fleet() : mock.fleet.station(name));
        if (next() === null) return json(response, 404, { error: "no station of this name" });
        response.writeHead(200, { "content-type": "text/event-stream", "cache-control": "no-store" });
        const send = () => response.write(`event: ${name === null ? "fleet" : "station"}\ndata: ${JSON.stringify(next())}\n\n`);
        send();
        const timer = setInterval(send, 1000);
        response.on("close", () => clearInterval(timer));
    }

    const server = createServer((request, response) => {
        response.setHeader("content-security-policy", policy);
        response.setHeader("x-content-type-options", "nosniff");
        response.setHeader("referrer-policy", "no-referrer");
        const url = new URL(request.url, "http://gateway");
        const path = decodeURIComponent(url.pathname);
        if (path === "/api/v1/stations") return json(response, 200, mock.fleet.fleet());
        if (path === "/api/v1/events") return json(response, 200, { events: mock.fleet.events(url.searchParams.get("station")) });
        if (path === "/api/v1/live") return live(request, response, url.searchParams.get("station"));
        const named = path.match(/^\/api\/v1\/stations\/(.+)$/);
        if (named) {
            const station = mock.fleet.station(named[1]);
            return json(response, station ? 200 : 404, station ?? { error: "no station of this name" });
        }
        const file = path === "/" ? "index.html" : path.startsWith("/station/") ? "station.html" : normalize(path);
        try {
            const content = readFileSync(join(pages, file));
            response.writeHead(200, { "content-type": types[extname(file)] ?? "text/plain", "cache-control": "no-cache" });
            response.end(content);
        } catch {
            json(response, 404, { error: "no such path" });
        }
    });
    await new Promise((resolve) => server.listen(port, "127.0.0.1", resolve));
    mock.address = `http://127.0.0.1:${server.address().port}`;
    mock.close = () => {
        server.closeAllConnections();
        return new Promise((resolve) => server.close(resolve));
    };
    return mock;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    const option = (name, otherwise) => {
        const at = process.argv.indexOf(`--${name}`);
        return at < 0 ? otherwise : Number(process.argv[at + 1]);
    };
    const mock = await serve({ port: option("port", 8080), fleet: new Fleet({ count: option("stations", 24) }) });
    console.log(mock.address);
}
