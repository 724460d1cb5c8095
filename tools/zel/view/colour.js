// Colour maps, in which equal steps of a value look equal: viridis (N. Smith and S. van der Walt, 2015) for sizes, and a diverging
// one (K. Moreland, Proc. 5th International Symposium on Visual Computing, 2009) for values with a sign.

const kViridis = [
    [68, 1, 84], [72, 36, 117], [65, 68, 135], [53, 95, 141], [42, 120, 142], [33, 145, 140], [34, 168, 132],
    [68, 191, 112], [122, 209, 81], [189, 223, 38], [253, 231, 37]
];
const kCoolWarm = [
    [59, 76, 192], [98, 130, 234], [141, 176, 254], [184, 208, 249], [221, 221, 221], [245, 196, 173], [244, 154, 123],
    [222, 96, 77], [180, 4, 38]
];

// The colour of a share from 0 to 1, as three numbers from 0 to 255.
function colourOf(share, signed)
{
    const knots = signed ? kCoolWarm : kViridis;
    const at = Math.min(Math.max(share, 0), 1) * (knots.length - 1);
    const knot = Math.min(Math.floor(at), knots.length - 2);
    return knots[knot].map((low, c) => low + (at - knot) * (knots[knot + 1][c] - low));
}

export function cssColour(share, signed)
{
    return "rgb(" + colourOf(share, signed).map(Math.round).join(", ") + ")";
}

// A texture of 256 colours.
export function colourTexture(signed)
{
    const kColours = 256;
    const bytes = new Uint8Array(3 * kColours);
    for (let i = 0; i < kColours; ++i)
        bytes.set(colourOf(i / (kColours - 1), signed).map(Math.round), 3 * i);
    const texture = new THREE.DataTexture(bytes, kColours, 1, THREE.RGBFormat);
    texture.minFilter = texture.magFilter = THREE.LinearFilter;
    texture.needsUpdate = true;
    return texture;
}
