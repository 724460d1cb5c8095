// The second tab: what the command's info and check tell, charts, and the comparison of two bodies.
import {assuranceMap, frequencyChart} from "./charts.js";
import {cssColour} from "./colour.js";
import {element, numberText, shortText, unitSigns} from "./data.js";

export function table(heads, rows, attributes)
{
    const head = element("tr", {}, ...heads.map((text) => element("th", {scope: "col"}, text)));
    return element(
        "table", attributes || {}, element("thead", {}, head),
        element(
            "tbody", {}, ...rows.map((cells) => element("tr", {}, ...cells.map((cell) => element("td", {}, cell))))));
}

function section(title, ...content)
{
    return element("section", {class: "card"}, element("h3", {}, title), ...content);
}

// Names and values of what a body is.
export function factRows(facts)
{
    const units = unitSigns(facts.units), withUnit = (value, unit) => numberText(value) + (unit ? " " + unit : "");
    const three = (values, unit) => values.map(numberText).join(", ") + (unit ? " " + unit : "");
    const moment = units.mass && units.length ? units.mass + " " + units.length + "²" : "";
    return [
        ["Title", facts.title || "–"], ["Date", facts.date || "–"],
        [
            "Format",
            "version " + facts.version.toFixed(1) + ", " + (facts.portable ? "portable (XDR)" : "native") + ", " +
                (facts.double_precision ? "double" : "single") + " precision"
        ],
        ["Units", facts.units.every((unit) => unit === "") ? "none" : facts.units.join(", ").toLowerCase()],
        ["Nodes", facts.nodes], ["Faces", facts.faces],
        ["Modes", facts.modes + (facts.coupled_modes ? ", coupled" : "")], ["Interface nodes", facts.interface_nodes],
        ["Mass", withUnit(facts.mass, units.mass)], ["Centre of mass", three(facts.center_of_mass, units.length)],
        ["Principal inertias", three(facts.principal_inertias, moment)]
    ].map(([name, value]) => [name, String(value)]);
}

function factTable(facts)
{
    return element(
        "table", {class: "facts"},
        element(
            "tbody", {},
            ...factRows(facts).map(
                ([name, value]) => element("tr", {}, element("th", {scope: "row"}, name), element("td", {}, value)))));
}

function checkList(checks)
{
    const rows = checks.map(
        (check) =>
            [element("span", {class: check.holds ? "verdict okay" : "verdict bad"}, check.holds ? "Okay" : "CHECK!"),
             check.name, check.text]);
    return table(["Verdict", "Check", "Figures"], rows, {class: "checks"});
}

function frequencyTable(facts)
{
    const rows = facts.frequencies.map((one) => [String(one.mode), one.rigid ? "rigid body" : numberText(one.hertz)]);
    return element(
        "details", {}, element("summary", {}, "Frequencies as numbers"),
        table([facts.coupled_modes ? "Free" : "Mode", "Hz"], rows, {class: "numbers"}));
}

// What the colours of a map mean.
function mapKey()
{
    const stops = [0, 1, 2, 3, 4, 5, 6, 7, 8].map((i) => cssColour(i / 8, false)).join(", ");
    const bar = element("span", {class: "bar-key"});
    bar.style.background = "linear-gradient(90deg, " + stops + ")";
    return element("p", {class: "quiet key"}, "0 ", bar, " 1");
}

// The largest squared cosine off the diagonal.
function largestOff(body)
{
    const n = body.told.mapped_modes;
    let largest = {square: -1};
    for (let i = 0; i < n; ++i)
        for (let j = 0; j < i; ++j)
        {
            const cosine = body.told.cosines[i * n + j] || 0;
            if (cosine * cosine > largest.square)
                largest = {square: cosine * cosine, a: body.modes[j].number, b: body.modes[i].number};
        }
    return largest.square < 0 ? "" :
                                "Largest value off the diagonal: " + largest.square.toFixed(3) + ", modes " +
            largest.a + " and " + largest.b + ".";
}

function assuranceSection(body)
{
    const modes = body.modes.slice(0, body.told.mapped_modes);
    if (modes.length === 0)
        return section("Modal assurance", element("p", {class: "quiet"}, "The body has no mode shapes."));
    const left = body.modes.length - modes.length;
    return section(
        "Modal assurance of the set",
        assuranceMap(body.told.cosines, modes, modes, "Modal assurance criterion of the modes", "Mode", "Mode"),
        mapKey(),
        element(
            "p", {class: "quiet"},
            largestOff(body) + (left > 0 ? " The last " + left + " modes are not in the map." : "")));
}

function bodySummary(body)
{
    const {facts} = body, failed = facts.checks.filter((check) => !check.holds).length;
    const blocks = facts.blocks.map((block) => [String(block.number), block.name, block.bytes.toLocaleString("en")]);
    const verdict = failed ? failed + " of " + facts.checks.length + " checks failed" :
                             "All " + facts.checks.length + " checks hold";
    return element(
        "article", {class: "summary"}, element("h2", {}, facts.name),
        section("Body", factTable(facts), ...body.told.left_out.map((text) => element("p", {class: "note"}, text))),
        section("Checks", element("p", {class: failed ? "bad" : "okay"}, verdict), checkList(facts.checks)),
        section("Frequencies", frequencyChart(facts.frequencies), frequencyTable(facts)), assuranceSection(body),
        section("Blocks of the file", table(["No.", "Block", "Bytes"], blocks, {class: "numbers"})));
}

// Modes of both bodies beside each other, and what differs; then those that have no partner.
export function pairRows(bodies, comparison)
{
    const [a, b] = bodies, takenA = new Map(), takenB = new Set();
    comparison.pairs.forEach((pair) => {
        takenA.set(pair.a, pair);
        takenB.add(pair.b);
    });
    const rows = a.modes.map((mode, i) => {
        const pair = takenA.get(i), other = pair ? b.modes[pair.b] : null;
        const comparable = other && !mode.rigid && !other.rigid && mode.hertz && other.hertz !== null;
        return {
            a: i,
            b: pair ? pair.b : -1,
            cosine: pair ? pair.cosine : null,
            percent: comparable ? 100 * (other.hertz - mode.hertz) / mode.hertz : null
        };
    });
    b.modes.forEach((_, i) => takenB.has(i) || rows.push({a: -1, b: i, cosine: null, percent: null}));
    return rows;
}

export function hertzText(mode)
{
    return !mode ? "–" : mode.rigid ? "rigid" : mode.hertz === null ? "coupled" : shortText(mode.hertz);
}

export function pairCells(bodies, row)
{
    const a = bodies[0].modes[row.a], b = bodies[1].modes[row.b];
    const percent =
        row.percent === null ? "–" : (row.percent > 0 ? "+" : "") + row.percent.toFixed(2).replace("-", "−");
    return [
        a ? String(a.number) : "–", hertzText(a), b ? String(b.number) : "–", hertzText(b), percent,
        row.cosine === null ? "–" : (row.cosine ** 2).toFixed(3)
    ];
}

function comparisonSummary(bodies, comparison)
{
    const names = bodies.map((body) => body.facts.name);
    const rows = pairRows(bodies, comparison).map((row) => pairCells(bodies, row));
    const [a, b] = [bodies[0].modes.slice(0, comparison.rows), bodies[1].modes.slice(0, comparison.columns)];
    const compared = comparison.common_nodes > 0 && a.length > 0 && b.length > 0;
    return element(
        "article", {class: "summary wide"}, element("h2", {}, names.join(" against ")),
        section(
            "Modes in pairs",
            element(
                "p", {class: "quiet"},
                compared ? "Paired by modal assurance over " + comparison.common_nodes + " nodes of both." :
                           "Nothing is compared: the bodies have no nodes with mode shapes in common."),
            table(["A", "Hz", "B", "Hz", "Difference, %", "MAC"], rows, {class: "numbers pairs"})),
        ...(compared ? [section(
                           "Modal assurance between the sets",
                           assuranceMap(
                               comparison.cosines, a, b, "Modal assurance criterion between both sets",
                               "A: " + names[0], "B: " + names[1]),
                           mapKey())] :
                       []));
}

export function fillSummary(container, bodies, comparison)
{
    if (comparison)
        container.append(comparisonSummary(bodies, comparison));
    for (const body of bodies)
        container.append(bodySummary(body));
    container.classList.toggle("two", bodies.length === 2);
}
