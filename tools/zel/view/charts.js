// Charts as SVG: frequencies as bars, and maps of squared cosines.
import {cssColour} from "./colour.js";
import {numberText, svgElement} from "./data.js";

// The least of 1, 2, 2.5 and 5 times a power of ten that gives at most five steps.
function roundStep(high)
{
    const power = 10 ** Math.floor(Math.log10(high / 5));
    return [1, 2, 2.5, 5, 10].find((step) => step * power * 5 >= high * (1 - 1e-9)) * power;
}

function text(content, x, y, anchor, more)
{
    return svgElement("text", Object.assign({x, y, "text-anchor": anchor}, more || {}), content);
}

// frequencies: {mode, hertz, rigid}; those of the rigid body have no height, as their frequency is rounding.
export function frequencyChart(frequencies)
{
    const kWidth = 720, kHeight = 260, kLeft = 64, kBottom = 34, kTop = 14;
    const chart = svgElement("svg", {
        viewBox: "0 0 " + kWidth + " " + kHeight,
        class: "chart",
        role: "img",
        "aria-label": "Frequencies of " + frequencies.length + " modes in hertz"
    });
    const high = Math.max(0, ...frequencies.map((one) => one.rigid ? 0 : one.hertz));
    if (frequencies.length === 0 || !(high > 0))
    {
        chart.append(text("No frequencies above zero", kWidth / 2, kHeight / 2, "middle"));
        return chart;
    }
    const step = roundStep(high), top = Math.ceil(high / step - 1e-9) * step, tall = kHeight - kTop - kBottom;
    const yOf = (hertz) => kTop + tall * (1 - hertz / top);
    for (let i = 0; i * step <= top * (1 + 1e-9); ++i)
    {
        chart.append(svgElement("line", {x1: kLeft, x2: kWidth, y1: yOf(i * step), y2: yOf(i * step), class: "grid"}));
        chart.append(text(numberText(i * step), kLeft - 8, yOf(i * step) + 4, "end"));
    }
    chart.append(text("Hz", kLeft - 8, kHeight - kBottom + 20, "end"));
    const slot = (kWidth - kLeft) / frequencies.length, every = Math.ceil(24 / slot);
    frequencies.forEach((one, i) => {
        const x = kLeft + slot * i + 0.15 * slot, y = one.rigid ? yOf(0) - 2 : yOf(Math.max(0, one.hertz));
        const bar = svgElement("rect", {
            x,
            y,
            width: 0.7 * slot,
            height: Math.max(yOf(0) - y, 0),
            class: one.rigid ? "rigid bar" : "bar",
            rx: Math.min(2, 0.2 * slot),
            "data-mode": one.mode,
            "data-hertz": one.rigid ? 0 : one.hertz
        });
        bar.append(svgElement(
            "title", {}, "Mode " + one.mode + ": " + (one.rigid ? "rigid body" : numberText(one.hertz) + " Hz")));
        chart.append(bar);
        if (i % every === 0)
            chart.append(text(String(one.mode), x + 0.35 * slot, kHeight - kBottom + 20, "middle"));
    });
    return chart;
}

// A map of cosines, squared: rows and columns are modes.
export function assuranceMap(cosines, rows, columns, label, rowName, columnName)
{
    const kCell = 10, kLeft = 46, kTop = 10, kBottom = 40;
    const width = kLeft + columns.length * kCell + 10, height = kTop + rows.length * kCell + kBottom;
    const chart =
        svgElement("svg", {viewBox: "0 0 " + width + " " + height, class: "map", role: "img", "aria-label": label});
    chart.style.maxWidth = Math.min(520, Math.max(260, 22 * columns.length)) + "px";
    const size = {"font-size": Math.max(4.5, Math.min(9, width / 40))};
    chart.append(svgElement(
        "rect",
        {x: kLeft, y: kTop, width: columns.length * kCell, height: rows.length * kCell, fill: cssColour(0, false)}));
    rows.forEach((row, i) => columns.forEach((column, j) => {
        const cosine = cosines[i * columns.length + j], square = cosine === null ? 0 : cosine * cosine;
        const kVisible = 0.002;
        if (square < kVisible && columns.length > 40)
            return;
        const cell = svgElement("rect", {
            x: kLeft + j * kCell,
            y: kTop + i * kCell,
            width: kCell + 0.3,
            height: kCell + 0.3,
            fill: cssColour(square, false),
            "data-row": row.number,
            "data-column": column.number,
            "data-assurance": square.toFixed(4)
        });
        cell.append(svgElement(
            "title", {},
            rowName + " " + row.number + ", " + columnName + " " + column.number + ": " + square.toFixed(3)));
        chart.append(cell);
    }));
    const everyRow = Math.ceil(rows.length / 24), everyColumn = Math.ceil(columns.length / 24);
    rows.forEach(
        (row, i) =>
            i % everyRow || chart.append(text(String(row.number), kLeft - 4, kTop + (i + 0.75) * kCell, "end", size)));
    columns.forEach((column, j) => {
        if (j % everyColumn === 0)
            chart.append(text(String(column.number), kLeft + (j + 0.5) * kCell, height - kBottom + 12, "middle", size));
    });
    chart.append(text(columnName, kLeft + columns.length * kCell / 2, height - kBottom + 26, "middle", size));
    const middle = kTop + rows.length * kCell / 2;
    chart.append(text(rowName, 9, middle, "middle", Object.assign({transform: "rotate(-90 9 " + middle + ")"}, size)));
    return chart;
}
