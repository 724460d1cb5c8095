// What stands in front of the body, drawn on a canvas of its own: title, legend, scale bar, axes, names of interface nodes and the
// node that was picked. The same drawing goes into pictures.
import {cssColour} from "./colour.js";
import {numberText, shortText} from "./data.js";

const kFont = "ui-sans-serif, system-ui, -apple-system, 'Segoe UI', Roboto, 'Noto Sans', 'DejaVu Sans', sans-serif";

// What a quantity is called, and its unit.
export function quantityText(quantity, units)
{
    const length = units.length ? ", " + units.length : "";
    const pressure = units.force && units.length ? ", " + units.force + "/" + units.length + "²" : "";
    const names = {
        magnitude: "Displacement" + length,
        x: "Displacement along x" + length,
        y: "Displacement along y" + length,
        z: "Displacement along z" + length,
        rotation: "Rotation, rad",
        stress: "Von Mises stress" + pressure,
        strain: "Von Mises strain"
    };
    const [kind, part] = quantity.split("-");
    return part ? (kind === "stress" ? "Stress " + part + pressure : "Strain " + part) : names[quantity];
}

// "Mode 7 · 123.4 Hz"
export function modeTitle(mode)
{
    if (!mode)
        return "No mode";
    const frequency = mode.rigid ? "rigid body" :
        mode.hertz === null      ? "coupled with others" :
                                   numberText(mode.hertz) + " Hz";
    return "Mode " + mode.number + " · " + frequency;
}

// The longest of 1, 2 and 5 times a power of ten below a length.
function roundLength(most)
{
    const power = 10 ** Math.floor(Math.log10(most));
    return [5, 2, 1].find((step) => step * power <= most) * power;
}

export class Overlay
{
    // colours: text, quiet, background, accent
    constructor(context, width, height, colours)
    {
        this.context = context;
        this.width = width;
        this.height = height;
        this.colours = colours;
    }
    text(text, x, y, {size = 12, weight = 400, align = "left", colour = this.colours.text, halo = true} = {})
    {
        const context = this.context;
        context.font = weight + " " + size + "px " + kFont;
        context.textAlign = align;
        context.textBaseline = "alphabetic";
        if (halo)
        {
            context.lineJoin = "round";
            context.lineWidth = 3;
            context.strokeStyle = this.colours.background;
            context.strokeText(text, x, y);
        }
        context.fillStyle = colour;
        context.fillText(text, x, y);
    }
    title(name, mode)
    {
        this.text(modeTitle(mode), 18, 30, {size: 16, weight: 600});
        this.text(name, 18, 49, {colour: this.colours.quiet});
    }
    legend(body, units)
    {
        const {quantity, signed, low, high} = body.range;
        if (quantity === "none")
            return;
        const context = this.context, kWidth = 12, kTop = 92;
        const tall = Math.max(60, Math.min(190, 0.25 * this.height)), left = 18;
        this.text(quantityText(quantity, units), left, kTop - 14, {weight: 600});
        for (let i = 0; i < tall; ++i)
        {
            context.fillStyle = cssColour(1 - i / (tall - 1), signed);
            context.fillRect(left, kTop + i, kWidth, 1.5);
        }
        this.text("at modal coordinate 1", left, kTop + tall + 20, {size: 11, colour: this.colours.quiet});
        const kTicks = 4;
        for (let i = 0; i <= kTicks; ++i)
        {
            const y = kTop + tall * (1 - i / kTicks);
            context.fillStyle = this.colours.quiet;
            context.fillRect(left + kWidth, y - 0.5, 4, 1);
            this.text(shortText(low + (high - low) * i / kTicks), left + kWidth + 9, y + 4, {size: 11});
        }
    }
    // pixels: of one unit of length
    scaleBar(pixels, units)
    {
        const length = roundLength(Math.min(130, 0.3 * this.width) / pixels), wide = length * pixels;
        if (!isFinite(wide) || !(wide > 0))
            return;
        const context = this.context, right = this.width - 20, y = this.height - 22;
        context.strokeStyle = this.colours.text;
        context.lineWidth = 1.25;
        context.beginPath();
        context.moveTo(right - wide, y - 5);
        context.lineTo(right - wide, y);
        context.lineTo(right, y);
        context.lineTo(right, y - 5);
        context.stroke();
        this.text(
            numberText(length) + (units.length ? " " + units.length : ""), right - wide / 2, y - 8,
            {size: 11, align: "center"});
    }
    axes(camera)
    {
        const context = this.context, kLong = 30, x0 = 52, y0 = this.height - 52;
        const inverse = camera.quaternion.clone().inverse();
        const ends = [["x", "#d2453c", [1, 0, 0]], ["y", "#3a9a4b", [0, 1, 0]], ["z", "#3b74d4", [0, 0, 1]]].map(
            ([name, colour, axis]) => ({name, colour, to: new THREE.Vector3(...axis).applyQuaternion(inverse)}));
        ends.sort((a, b) => a.to.z - b.to.z);
        for (const {name, colour, to} of ends)
        {
            context.strokeStyle = colour;
            context.lineWidth = 2;
            context.beginPath();
            context.moveTo(x0, y0);
            context.lineTo(x0 + kLong * to.x, y0 - kLong * to.y);
            context.stroke();
            if (Math.hypot(to.x, to.y) > 0.15)
                this.text(
                    name, x0 + (kLong + 10) * to.x, y0 - (kLong + 10) * to.y + 4,
                    {weight: 600, align: "center", colour});
        }
    }
    marker(x, y, label, colour, filled)
    {
        const context = this.context;
        context.beginPath();
        context.arc(x, y, 5, 0, 2 * Math.PI);
        context.fillStyle = filled ? colour : this.colours.background;
        context.fill();
        context.lineWidth = 2;
        context.strokeStyle = filled ? this.colours.background : colour;
        context.stroke();
        const atEdge = x + 18 + 8 * label.length > this.width;  // there the name goes to the left
        this.text(
            label, atEdge ? x - 10 : x + 10, y - 8, {size: 11, weight: 600, colour, align: atEdge ? "right" : "left"});
    }
}
