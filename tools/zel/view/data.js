// What the page was given: JSON, and arrays in base64, each in an element of its own.

// The JSON that tells of the bodies.
export function readTold()
{
    return JSON.parse(document.getElementById("told").textContent);
}

// An array by its name, as little-endian values of a type; empty where there is none.
export function readArray(name, Type)
{
    const element = document.getElementById(name);
    const text = atob(element ? element.textContent : "");
    const bytes = new Uint8Array(text.length);
    for (let i = 0; i < bytes.length; ++i)
        bytes[i] = text.charCodeAt(i);
    return new Type(bytes.buffer);
}

const kUnitSigns = {
    MEGAGRAM: "t",
    KILOGRAM: "kg",
    GRAM: "g",
    MILLIGRAM: "mg",
    MICROGRAM: "µg",
    NANOGRAM: "ng",
    POUND_MASS: "lb",
    SLUG: "slug",
    SLINCH: "slinch",
    KNEWTON: "kN",
    NEWTON: "N",
    MILLINEWTON: "mN",
    MICRONEWTON: "µN",
    POUND_FORCE: "lbf",
    KILOGRAM_FORCE: "kgf",
    KILOMETER: "km",
    METER: "m",
    CENTIMETER: "cm",
    MILLIMETER: "mm",
    MICROMETER: "µm",
    INCH: "in",
    FOOT: "ft",
    YARD: "yd",
    MILE: "mi",
    SECOND: "s",
    MILLISECOND: "ms",
    MINUTE: "min",
    HOUR: "h"
};

// Signs of mass, length, time and force; empty texts of a body without units.
export function unitSigns(units)
{
    const signs = units.map((label) => kUnitSigns[label] || label.toLowerCase().replace("_", " "));
    return {mass: signs[0], length: signs[1], time: signs[2], force: signs[3]};
}

// Six digits, as the command prints them.
export function numberText(value)
{
    if (value === null || value === undefined || !isFinite(value))
        return "–";
    const text = Number(value.toPrecision(6)).toString();
    return text.replace("e+", "e").replace("-", "−");
}

// Four digits for columns, and six of numbers that would lose whole units.
export function shortText(value)
{
    if (value === null || value === undefined || !isFinite(value))
        return "–";
    const size = Math.abs(value);
    const text = size !== 0 && (size < 1e-3 || size >= 1e6) ? value.toExponential(2).replace("e+", "e") :
                                                              Number(value.toPrecision(size < 1e4 ? 4 : 6)).toString();
    return text.replace("-", "−");
}

// An element with attributes and children; texts are never taken for markup.
export function element(name, attributes, ...children)
{
    const made = document.createElement(name);
    for (const key of Object.keys(attributes || {}))
        made.setAttribute(key, attributes[key]);
    for (const child of children)
        made.append(child);
    return made;
}

export function svgElement(name, attributes, ...children)
{
    const made = document.createElementNS("http://www.w3.org/2000/svg", name);
    for (const key of Object.keys(attributes || {}))
        made.setAttribute(key, attributes[key]);
    for (const child of children)
        made.append(child);
    return made;
}
