// Elements of the page. Text comes from outside: it is set as text, never read as markup.

const svgNamespace = "http://www.w3.org/2000/svg";

function fill(element, attributes, children) {
    for (const [name, value] of Object.entries(attributes))
        if (value !== undefined && value !== null) element.setAttribute(name, value);
    element.append(...children);
    return element;
}

export const make = (tag, attributes = {}, ...children) =>
    fill(document.createElement(tag), attributes, children);

export const draw = (tag, attributes = {}, ...children) =>
    fill(document.createElementNS(svgNamespace, tag), attributes, children);

export const find = (selector, inside = document) => inside.querySelector(selector);

// What stands already is not touched, so that nothing is laid out again.
export function setText(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

export function setAttribute(element, name, value) {
    if (value === null || value === undefined) {
        if (element.hasAttribute(name)) element.removeAttribute(name);
    } else if (element.getAttribute(name) !== String(value)) element.setAttribute(name, value);
}

export function show(element, shown) {
    if (element.hidden === shown) element.hidden = !shown;
}

// Text of a stream or a rover: it keeps its direction of writing to itself.
export const foreign = (text) => make("bdi", {}, text);

/// Keyed: the children of an element, one for each item of a list. Those that stay are kept, with
/// focus and selection; `create` makes one, `update` brings it up to date.
export class Keyed {
    constructor(parent, create, update) {
        Object.assign(this, { parent, create, update, elements: new Map() });
    }

    set(items, keyOf) {
        const before = this.elements;
        this.elements = new Map();
        let place = this.parent.firstChild;
        for (const item of items) {
            const key = keyOf(item);
            let element = before.get(key);
            before.delete(key);
            if (!element) element = this.create(item);
            this.update(element, item);
            this.elements.set(key, element);
            if (element === place) place = place.nextSibling;
            else this.parent.insertBefore(element, place);
        }
        for (const element of before.values()) element.remove();
    }
}

/// Rows of a table, each an array of texts or elements; the first cell names the row. Texts that
/// stand already are kept.
export function setRows(body, rows) {
    while (body.rows.length > rows.length) body.deleteRow(-1);
    rows.forEach((cells, i) => {
        const row = body.rows[i] ?? body.insertRow();
        while (row.cells.length > cells.length) row.deleteCell(-1);
        cells.forEach((content, j) => {
            let cell = row.cells[j];
            if (!cell)
                cell = row.appendChild(j === 0 ? make("th", { scope: "row" }) : make("td"));
            if (content instanceof Node) {
                if (!cell.firstChild?.isEqualNode?.(content)) cell.replaceChildren(content);
            } else setText(cell, content);
        });
    });
}
