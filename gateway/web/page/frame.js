// The bar of a page: whether it is connected, the gateway's time, and what is wrong if it is not.

import { find, Keyed, make, setAttribute, setText, show } from "./dom.js";
import { age, alarmNames, day, dayTime, time } from "./format.js";

const tickMs = 250;
const words = { connecting: "connecting", live: "live", lost: "not connected" };

// Addresses beside the scripts: the pages may stand behind a proxy, in a folder of it.
export const address = (path) => new URL(path, import.meta.url).href;
export const stationAddress = (name) => address(`station/${encodeURIComponent(name)}`);

/// Keeps the bar of `live`; `onTick(now)` four times a second, for ages.
export function frame(live, onTick) {
    const link = find("#link");
    const lost = find("#lost");
    const reason = make("span", { role: "alert" });
    const since = make("span");
    const button = make("button", { type: "button" }, "Try now");
    button.addEventListener("click", () => live.retry());
    lost.append(make("p", {}, reason, " ", since), button);

    const tick = () => {
        const now = live.now();
        if (live.state === "live") {
            setText(find("#clock"), `${time(now)} UTC`);
            setAttribute(find("#clock"), "datetime", day(now));
        } else {
            setText(find("#clock"), "");
            const left = Math.ceil((live.retryAt - performance.now()) / 1e3);
            setText(
                since,
                (live.dataAt === undefined ? "" : `They are ${age(now - live.dataAt)} old. `) +
                    (left > 0 ? `Next try in ${left} s.` : "Trying again."),
            );
        }
        onTick(now);
    };
    live.onState = () => {
        document.body.dataset.link = live.state;
        document.body.classList.toggle("old", live.state === "lost" && live.dataAt !== undefined);
        link.className = `link ${live.state}`;
        setText(find("#link-state"), words[live.state]);
        show(lost, live.state === "lost");
        setText(
            reason,
            live.state !== "lost"
                ? ""
                : live.problem + (live.dataAt === undefined ? "" : ` The values below are of ${dayTime(live.dataAt)} UTC.`),
        );
        tick();
    };
    setInterval(tick, tickMs);
    return tick;
}

/// A name and a value with small print under it, in a list of figures.
export function figure(list, name) {
    const value = make("span");
    const small = make("small");
    list.append(make("div", {}, make("dt", {}, name), make("dd", {}, value, small)));
    return {
        value,
        small,
        set(text, under = "") {
            setText(value, text);
            setText(small, under);
        },
    };
}

/// A list of alarms; `create(kind, words, when, alarm)` gives the item with these parts of it.
export function alarmList(parent, create) {
    const list = new Keyed(
        parent,
        (alarm) => {
            const parts = { words: make("span"), when: make("time") };
            const kind = make("span", { class: "alarm" }, alarmNames[alarm.kind] ?? alarm.kind);
            return Object.assign(create(kind, parts.words, parts.when, alarm), parts);
        },
        (item, alarm) => {
            item.alarm = alarm;
            setText(item.words, alarm.text);
            setAttribute(item.when, "datetime", new Date(alarm.since_unix_s * 1e3).toISOString());
        },
    );
    return {
        set: (alarms) => list.set(alarms, (a) => `${a.kind} ${a.station ?? ""}`),
        tick(now) {
            for (const item of parent.children) setText(item.when, `since ${age(now - item.alarm.since_unix_s)}`);
        },
    };
}
