// What the gateway says as it changes (server-sent events), and how old it is.
//
// The stream is read here and not by EventSource, which hides the gateway's comments (nothing
// changed, but it lives) and its reasons to refuse.

const silenceMs = 25e3; // the gateway says something every 10 s
const longestPauseMs = 10e3;

/// EventReader: bytes of a stream of server-sent events to `take(kind, text)`.
/// https://html.spec.whatwg.org/multipage/server-sent-events.html
export class EventReader {
    #decoder = new TextDecoder();
    #rest = "";
    #kind = "";
    #data = [];

    constructor(take) {
        this.take = take;
    }

    read(bytes) {
        const lines = (this.#rest + this.#decoder.decode(bytes, { stream: true })).split(/\r\n|\n|\r(?!$)/);
        this.#rest = lines.pop();
        for (const line of lines) this.#line(line);
    }

    #line(line) {
        if (line === "") {
            if (this.#data.length > 0) this.take(this.#kind || "message", this.#data.join("\n"));
            this.#kind = "";
            this.#data = [];
            return;
        }
        const colon = line.indexOf(":");
        const field = colon < 0 ? line : line.slice(0, colon);
        const value = colon < 0 ? "" : line.slice(colon + 1).replace(/^ /, "");
        if (field === "event") this.#kind = value;
        else if (field === "data") this.#data.push(value);
    }
}

/// Live: holds the connection and mends it. `onData(object, isFirst)` for each event of the kind;
/// `onState()` when `state` ("connecting", "live", "lost") or `problem` changes.
export class Live {
    state = "connecting";
    problem = ""; // why there is no connection
    missing = false; // the gateway has no such station
    retryAt = 0; // performance.now()
    dataAt; // s since 1970 of the gateway's clock, of the newest data
    #offsets = []; // s, clock of the gateway less clock of the browser
    #timer = 0;
    #abort = null;
    #pauseMs = 1e3;

    constructor(address, kind, { onData, onState }) {
        Object.assign(this, { address, kind, onData, onState });
        addEventListener("online", () => this.retry());
        document.addEventListener("visibilitychange", () => document.hidden || this.retry());
        this.#connect();
    }

    // s since 1970 by the gateway's clock. The monotonic clock of the browser carries it on; the
    // event that was under way for the shortest time tells the offset best.
    now() {
        if (this.#offsets.length === 0) return Date.now() / 1e3;
        return performance.now() / 1e3 + Math.max(...this.#offsets);
    }

    retry() {
        if (this.state === "live" || this.#abort) return;
        clearTimeout(this.#timer);
        this.#connect();
    }

    async #connect() {
        const abort = (this.#abort = new AbortController());
        let watchdog = setTimeout(() => abort.abort(), silenceMs);
        let problem = "The gateway closed the connection.";
        this.missing = false;
        try {
            const response = await fetch(this.address, {
                signal: abort.signal,
                cache: "no-store",
                headers: { accept: "text/event-stream" },
            });
            if (!response.ok) {
                this.missing = response.status === 404;
                const { error } = await response.json().catch(() => ({}));
                throw new Error(error ?? `The gateway answers ${response.status}.`);
            }
            let first = true;
            const events = new EventReader((kind, text) => {
                if (kind !== this.kind) return;
                const data = JSON.parse(text);
                if (first) this.#offsets = [];
                this.#offsets = [...this.#offsets.slice(-9), data.at_unix_s - performance.now() / 1e3];
                this.dataAt = data.at_unix_s;
                try {
                    this.onData(data, first);
                } catch (error) {
                    reportError(error); // a fault of the page is none of the connection
                }
                if (first) this.#set("live", "");
                first = false;
                this.#pauseMs = 1e3;
            });
            const reader = response.body.getReader();
            for (;;) {
                const { value, done } = await reader.read();
                clearTimeout(watchdog);
                if (done) break;
                watchdog = setTimeout(() => abort.abort(), silenceMs);
                events.read(value);
            }
        } catch (error) {
            problem = abort.signal.aborted
                ? "The gateway has said nothing for 25 s."
                : error instanceof TypeError
                  ? "The gateway cannot be reached."
                  : error.message;
        }
        clearTimeout(watchdog);
        abort.abort();
        this.#abort = null;
        this.retryAt = performance.now() + this.#pauseMs;
        this.#timer = setTimeout(() => this.#connect(), this.#pauseMs);
        this.#pauseMs = Math.min(2 * this.#pauseMs, longestPauseMs);
        this.#set("lost", problem);
    }

    #set(state, problem) {
        this.state = state;
        this.problem = problem;
        this.onState();
    }
}
