// Which node is under a point of the window.

// Places of all nodes in a window, as x, y in pixels and depth.
function projected(body, camera, width, height)
{
    const m = new THREE.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse).elements;
    const factor = body.uniforms.factor.value, {xyz, displacement} = body;
    const places = new Float32Array(xyz.length);
    for (let i = 0; i < xyz.length; i += 3)
    {
        const x = xyz[i] + factor * displacement[i], y = xyz[i + 1] + factor * displacement[i + 1],
              z = xyz[i + 2] + factor * displacement[i + 2];
        places[i] = 0.5 * width * (1 + m[0] * x + m[4] * y + m[8] * z + m[12]);
        places[i + 1] = 0.5 * height * (1 - m[1] * x - m[5] * y - m[9] * z - m[13]);
        places[i + 2] = m[2] * x + m[6] * y + m[10] * z + m[14];
    }
    return places;
}

// The corner of the front-most triangle under the point that is nearest to it; -1: there is no triangle.
function nodeOfSurface(triangles, places, x, y)
{
    let front = Infinity, found = -1;
    for (let t = 0; t < triangles.length; t += 3)
    {
        const a = 3 * triangles[t], b = 3 * triangles[t + 1], c = 3 * triangles[t + 2];
        const ab = (places[b] - places[a]) * (y - places[a + 1]) - (places[b + 1] - places[a + 1]) * (x - places[a]);
        const bc = (places[c] - places[b]) * (y - places[b + 1]) - (places[c + 1] - places[b + 1]) * (x - places[b]);
        const ca = (places[a] - places[c]) * (y - places[c + 1]) - (places[a + 1] - places[c + 1]) * (x - places[c]);
        if (!((ab >= 0 && bc >= 0 && ca >= 0) || (ab <= 0 && bc <= 0 && ca <= 0)) || ab + bc + ca === 0)
            continue;
        const depth = (bc * places[a + 2] + ca * places[b + 2] + ab * places[c + 2]) / (ab + bc + ca);
        if (depth < front)
        {
            front = depth;
            found = t;
        }
    }
    return found < 0 ? -1 : nearestOf(triangles.subarray(found, found + 3), places, x, y, Infinity);
}

// The nearest of some nodes within a distance; -1: none.
function nearestOf(nodes, places, x, y, within)
{
    let best = within, found = -1;
    for (const node of nodes)
    {
        const distance = Math.hypot(places[3 * node] - x, places[3 * node + 1] - y);
        if (distance < best)
        {
            best = distance;
            found = node;
        }
    }
    return found;
}

// A node by a point of the window: of the surface in front, else one that is near. -1: none.
export function pickNode(body, camera, width, height, x, y)
{
    const kNear = 14;  // pixels
    const places = projected(body, camera, width, height);
    const marked = nearestOf(body.told.interface, places, x, y, kNear / 2);
    if (marked >= 0)
        return marked;
    const node = nodeOfSurface(body.topology.triangles, places, x, y);
    return node >= 0 ? node : nearestOf(body.ids.keys(), places, x, y, kNear);
}
