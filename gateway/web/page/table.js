// A table of very many rows: only those in sight exist, so that an update costs the same with ten
// stations and with a thousand.

import { make, setAttribute } from "./dom.js";

const beyond = 10; // rows kept above and below those in sight

/// `columns`: {key, head, first ("up" or "down": the direction of the first click), value(item),
/// create(cell, item) to parts, update(parts, item, now)}. All rows have the height --row of the style.
export class LongTable {
    items = [];
    sort = { key: "", down: false };
    #rows = new Map(); // by key of the item
    #all = false; // for the printer

    constructor(table, { columns, keyOf, onSort }) {
        Object.assign(this, { table, columns, keyOf });
        this.body = table.tBodies[0];
        this.gaps = [this.#gap(), this.#gap()];
        this.body.append(...this.gaps);
        this.heads = columns.map((column) => {
            const button = make("button", { type: "button" }, column.head);
            button.addEventListener("click", () => {
                const same = this.sort.key === column.key;
                onSort({ key: column.key, down: same ? !this.sort.down : column.first === "down" });
            });
            return make("th", { scope: "col", role: "columnheader", class: column.key }, button);
        });
        table.tHead.rows[0].append(...this.heads);
        this.now = () => 0;
        let waiting = false;
        const later = () => {
            if (waiting) return;
            waiting = true;
            requestAnimationFrame(() => {
                waiting = false;
                this.render();
            });
        };
        addEventListener("scroll", later, { passive: true });
        addEventListener("resize", later);
        addEventListener("beforeprint", () => this.#print(true));
        addEventListener("afterprint", () => this.#print(false));
    }

    #gap() {
        return make("tr", { class: "gap", "aria-hidden": "true" }, make("td", { colspan: this.columns.length }));
    }

    #print(all) {
        this.#all = all;
        this.render();
    }

    compare() {
        const { value } = this.columns.find((c) => c.key === this.sort.key) ?? this.columns[0];
        const sign = this.sort.down ? -1 : 1;
        return (a, b) => {
            const [x, y] = [value(a), value(b)];
            if (x === undefined || y === undefined) return (x === undefined) - (y === undefined);
            if (x !== y) return x < y ? -sign : sign;
            return this.keyOf(a) < this.keyOf(b) ? -1 : 1;
        };
    }

    // While somebody points at a row or stands in it the order holds.
    get held() {
        return this.body.matches(":hover") || this.body.contains(document.activeElement);
    }

    set(items) {
        this.items = items;
        this.heads.forEach((head, i) =>
            setAttribute(
                head,
                "aria-sort",
                this.columns[i].key === this.sort.key ? (this.sort.down ? "descending" : "ascending") : null,
            ),
        );
        setAttribute(this.table, "aria-rowcount", items.length + 1);
        this.render();
    }

    render() {
        const height = parseFloat(getComputedStyle(this.table).getPropertyValue("--row"));
        const top = this.body.getBoundingClientRect().top;
        const clamp = (row) => Math.min(this.items.length, Math.max(0, row));
        const from = this.#all ? 0 : clamp(Math.floor(-top / height) - beyond);
        const to = this.#all ? this.items.length : clamp(Math.ceil((innerHeight - top) / height) + beyond);
        const before = this.#rows;
        this.#rows = new Map();
        const now = this.now();
        let place = this.gaps[0].nextSibling;
        for (let i = from; i < to; ++i) {
            const item = this.items[i];
            const key = this.keyOf(item);
            const row = before.get(key) ?? this.#create(item);
            before.delete(key);
            this.#rows.set(key, row);
            if (row.element === place) place = place.nextSibling;
            else this.body.insertBefore(row.element, place);
            setAttribute(row.element, "aria-rowindex", i + 2);
            this.#update(row, item, now);
        }
        for (const row of before.values()) row.element.remove();
        const gapHeights = [from * height, (this.items.length - to) * height];
        this.gaps.forEach((gap, i) => {
            gap.hidden = gapHeights[i] === 0;
            gap.style.height = `${gapHeights[i]}px`;
        });
    }

    // Ages go on without news.
    tick(now) {
        for (const row of this.#rows.values()) this.#update(row, row.item, now);
    }

    #create(item) {
        const element = make("tr", { role: "row" });
        const parts = this.columns.map((column, i) => {
            const cell = make(i === 0 ? "th" : "td", {
                class: column.key,
                role: i === 0 ? "rowheader" : "cell",
                ...(i === 0 ? { scope: "row" } : {}),
            });
            element.append(cell);
            return column.create(cell, item);
        });
        return { element, parts, item };
    }

    #update(row, item, now) {
        row.item = item;
        this.columns.forEach((column, i) => column.update(row.parts[i], item, now));
    }
}
