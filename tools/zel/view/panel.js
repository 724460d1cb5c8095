// The controls beside the body: modes, animation, colours, views, the node that was picked.
import {element, numberText, unitSigns} from "./data.js";
import {quantityText} from "./overlay.js";
import {kViews} from "./stage.js";
import {hertzText, pairCells, pairRows} from "./summary.js";

const kDirections = ["X", "Y", "Z", "RX", "RY", "RZ"];

// Percent in whole numbers, below ten with one digit; nothing where there is next to nothing.
function percentText(share)
{
    const percent = 100 * share;
    return !isFinite(percent) ? "" : percent < 0.05 ? "·" : percent < 9.95 ? percent.toFixed(1) : percent.toFixed(0);
}

function modeCells(mode)
{
    const cells = [String(mode.number), hertzText(mode)];
    if (mode.effective_mass)
        cells.push(...mode.effective_mass.map((share) => share === null ? "" : percentText(share)));
    return cells;
}

// The list of modes: rows to choose from by click or arrow keys. chosen(row) is called with {a, b, cosine}.
export class ModeList
{
    constructor(node, bodies, comparison, chosen)
    {
        this.chosen = chosen;
        this.rows =
            comparison ? pairRows(bodies, comparison) : bodies[0].modes.map((_, i) => ({a: i, b: -1, cosine: null}));
        const effective = !comparison && bodies[0].modes.some((mode) => mode.effective_mass);
        const heads =
            comparison ? ["A", "Hz", "B", "Hz", "Δ %", "MAC"] : ["No.", "Hz", ...(effective ? kDirections : [])];
        const body = element("tbody", {});
        this.rows.forEach((row, i) => {
            const mode = bodies[0].modes[row.a];
            const cells = comparison ? pairCells(bodies, row) : modeCells(mode);
            const line = element(
                "tr", {tabindex: "-1", "aria-selected": "false", class: mode && mode.rigid ? "rigid" : ""},
                ...cells.map((cell) => element("td", {}, cell)));
            line.addEventListener("click", () => this.choose(i, true));
            body.append(line);
        });
        this.lines = Array.from(body.children);
        if (effective)
            node.append(element("p", {class: "caption"}, "Effective mass in percent per direction"));
        const caption = element("caption", {class: "unseen"}, "Modes: choose one with the arrow keys");
        node.append(element(
            "div", {class: "scroll"},
            element(
                "table", {class: "modes", role: "grid", "aria-label": "Modes"}, caption,
                element("thead", {}, element("tr", {}, ...heads.map((text) => element("th", {scope: "col"}, text)))),
                body)));
        if (this.rows.length === 0)
            node.replaceChildren(element("p", {class: "quiet"}, "The body has no modes."));
        this.at = -1;
    }
    choose(at, focus)
    {
        if (at < 0 || at >= this.lines.length)
            return;
        if (this.at >= 0)
        {
            this.lines[this.at].setAttribute("aria-selected", "false");
            this.lines[this.at].tabIndex = -1;
        }
        this.at = at;
        const line = this.lines[at];
        line.setAttribute("aria-selected", "true");
        line.tabIndex = 0;
        if (focus)
            line.focus({preventScroll: true});
        const scroll = line.closest(".scroll"), head = 30;
        if (line.offsetTop - head < scroll.scrollTop)
            scroll.scrollTop = line.offsetTop - head;
        else if (line.offsetTop + line.offsetHeight > scroll.scrollTop + scroll.clientHeight)
            scroll.scrollTop = line.offsetTop + line.offsetHeight - scroll.clientHeight;
        this.chosen(this.rows[at]);
    }
}

// The names of what bodies can be coloured by.
export function fillQuantities(select, bodies, chosen)
{
    const names = bodies[0].quantities(), units = unitSigns(bodies[0].facts.units);
    const now = names.includes(chosen) ? chosen : names[0] || "none";
    select.replaceChildren(
        ...names.map((name) => element("option", {value: name}, quantityText(name, units))),
        element("option", {value: "none"}, "Plain"));
    select.value = now;
    return now;
}

export function fillViews(node, look)
{
    for (const name of Object.keys(kViews))
    {
        const button = element("button", {type: "button"}, kViews[name][1]);
        button.addEventListener("click", () => look(name));
        node.append(button);
    }
}

// All that is known of a node in the mode shown, as names and values.
function nodeRows(body, node)
{
    const units = unitSigns(body.facts.units), unit = (text) => text ? " " + text : "";
    const three = (values) => values.map(numberText).join(", ");
    const rows =
        [["Node", String(body.ids[node])], ["Coordinates", three(body.coordinatesOf(node)) + unit(units.length)]];
    if (body.has.shape)
    {
        rows.push(["Displacement", three(body.displacementOf(node)) + unit(units.length)]);
        rows.push(["Magnitude", numberText(body.valueOf("magnitude", node)) + unit(units.length)]);
    }
    if (body.has.rotation && body.turning.has(node))
        rows.push(["Rotation", three(body.rotationOf(node)) + " rad"]);
    for (const name of body.quantities().filter((quantity) => /^str/.test(quantity)))
    {
        const value = body.valueOf(name, node), [title, label] = quantityText(name, units).split(", ");
        rows.push([title, isNaN(value) ? "none here" : numberText(value) + unit(label)]);
    }
    return rows;
}

export function nodeList(body, node)
{
    const rows = nodeRows(body, node).map(([name, value]) => [element("dt", {}, name), element("dd", {}, value)]);
    return element("dl", {}, ...[].concat(...rows));
}

export function fillPicked(node, body, picked, named)
{
    const name = named ? [element("p", {class: "quiet"}, body.facts.name)] : [];
    if (picked < 0)
        node.replaceChildren(element("p", {class: "quiet"}, "Click a node, or find one by its id."));
    else
        node.replaceChildren(...name, nodeList(body, picked));
}
