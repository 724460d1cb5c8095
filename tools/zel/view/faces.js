// Triangles and edges of polygons.

// Area times unit normal (M. E. Newell's sum), so that warped polygons have one too.
function areaVector(ring, xyz)
{
    const sum = [0, 0, 0];
    for (let i = 0; i < ring.length; ++i)
    {
        const a = 3 * ring[i], b = 3 * ring[(i + 1) % ring.length];
        sum[0] += 0.5 * (xyz[a + 1] - xyz[b + 1]) * (xyz[a + 2] + xyz[b + 2]);
        sum[1] += 0.5 * (xyz[a + 2] - xyz[b + 2]) * (xyz[a] + xyz[b]);
        sum[2] += 0.5 * (xyz[a] - xyz[b]) * (xyz[a + 1] + xyz[b + 1]);
    }
    return sum;
}

function dot(a, b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

function unit(a)
{
    const size = Math.hypot(a[0], a[1], a[2]);
    return size > 0 ? [a[0] / size, a[1] / size, a[2] / size] : [0, 0, 0];
}

// Whether the corner i of a ring in the plane can be cut off, and how good a triangle that gives: its area over the square of its
// longest side. Below 0: it cannot.
function earQuality(plane, ring, i)
{
    const n = ring.length, a = plane[ring[(i + n - 1) % n]], b = plane[ring[i]], c = plane[ring[(i + 1) % n]];
    const cross = (p, q, r) => (q[0] - p[0]) * (r[1] - p[1]) - (q[1] - p[1]) * (r[0] - p[0]);
    const area = cross(a, b, c);
    const square = (p, q) => (p[0] - q[0]) ** 2 + (p[1] - q[1]) ** 2;
    const quality = area / Math.max(square(a, b), square(b, c), square(c, a), 1e-300);
    if (!(quality > 1e-9))
        return quality;
    for (const k of ring)
    {
        const p = plane[k];
        if (p !== a && p !== b && p !== c && cross(a, b, p) > 0 && cross(b, c, p) > 0 && cross(c, a, p) > 0)
            return -1;
    }
    return quality;
}

// Cuts ears, the best one first: nodes in the middle of sides keep their triangles. Gives places in the ring.
function cutEars(plane)
{
    const ring = plane.map((_, i) => i), triangles = [];
    while (ring.length > 3)
    {
        let best = 0, bestQuality = -Infinity;
        for (let i = 0; i < ring.length; ++i)
        {
            const quality = earQuality(plane, ring, i);
            if (quality > bestQuality)
            {
                best = i;
                bestQuality = quality;
            }
        }
        const n = ring.length;
        triangles.push([ring[(best + n - 1) % n], ring[best], ring[(best + 1) % n]]);
        ring.splice(best, 1);
    }
    triangles.push(ring);
    return triangles;
}

// Triangles of one polygon, as places in its ring.
function trianglesOf(ring, normal, xyz)
{
    if (ring.length === 3)
        return [[0, 1, 2]];
    const axis = Math.abs(normal[0]) > 0.6 ? [0, 1, 0] : [1, 0, 0];
    const u = unit([
        axis[1] * normal[2] - axis[2] * normal[1], axis[2] * normal[0] - axis[0] * normal[2],
        axis[0] * normal[1] - axis[1] * normal[0]
    ]);
    const v =
        [normal[1] * u[2] - normal[2] * u[1], normal[2] * u[0] - normal[0] * u[2], normal[0] * u[1] - normal[1] * u[0]];
    const plane = Array.from(ring, (node) => {
        const p = xyz.subarray(3 * node, 3 * node + 3);
        return [dot(p, u), dot(p, v)];
    });
    const kMany = 24;  // from here on the cubic cost of choosing the best ear shows
    if (ring.length <= kMany)
        return cutEars(plane);
    return THREE.ShapeUtils.triangulateShape(plane.map((p) => new THREE.Vector2(p[0], p[1])), []);
}

// Edges of all polygons, each once, by the lower of its nodes.
class EdgeTable
{
    constructor(nodes)
    {
        this.first = new Int32Array(nodes).fill(-1);
        this.edges = [];
    }
    // An edge that turns by more than the angle, ends or branches is a feature. Faces that walk along it the same way are
    // not oriented alike: one normal is turned round. Of the two sides of a shell all normals but the sign agree.
    add(a, b, normal)
    {
        const low = Math.min(a, b), high = Math.max(a, b);
        let at = this.first[low];
        while (at >= 0 && this.edges[at].high !== high)
            at = this.edges[at].next;
        if (at < 0)
        {
            this.edges.push({low, high, next: this.first[low], count: 1, up: a < b, normal, least: 1, leastSize: 1});
            this.first[low] = this.edges.length - 1;
            return;
        }
        const edge = this.edges[at];
        const cosine = dot(edge.normal, normal) * (edge.up === (a < b) ? -1 : 1);
        edge.count += 1;
        edge.least = Math.min(edge.least, cosine);
        edge.leastSize = Math.min(edge.leastSize, Math.abs(cosine));
    }
    list(featuresOnly)
    {
        const kCosine = Math.cos(30 * Math.PI / 180), ends = [];
        for (const edge of this.edges)
        {
            const turn = edge.count === 2 ? edge.least : edge.leastSize;
            if (!featuresOnly || edge.count === 1 || turn < kCosine)
                ends.push(edge.low, edge.high);
        }
        return Uint32Array.from(ends);
    }
}

// Corners of the surface: a node, and the normal of the faces that meet there without a crease. A node on an edge has several.
class CornerTable
{
    constructor(nodes)
    {
        this.first = new Int32Array(nodes).fill(-1);
        this.corners = [];
    }
    add(node, area, normal)
    {
        const kCosine = Math.cos(38 * Math.PI / 180);
        let at = this.first[node];
        while (at >= 0 && dot(unit(this.corners[at].sum), normal) < kCosine)
            at = this.corners[at].next;
        if (at < 0)
        {
            this.corners.push({node, sum: area.slice(), next: this.first[node]});
            this.first[node] = this.corners.length - 1;
            return this.first[node];
        }
        for (let c = 0; c < 3; ++c)
            this.corners[at].sum[c] += area[c];
        return at;
    }
    nodes() { return Uint32Array.from(this.corners, (corner) => corner.node); }
    normals()
    {
        const normals = new Float32Array(3 * this.corners.length);
        this.corners.forEach((corner, i) => normals.set(unit(corner.sum), 3 * i));
        return normals;
    }
}

// What is drawn of faces: counts of vertices, and the vertices one behind the other.
export function topologyOf(counts, vertices, xyz)
{
    const nodes = xyz.length / 3;
    const triangles = [], lines = [], points = [], cornerTriangles = [], corners = new CornerTable(nodes),
          table = new EdgeTable(nodes);
    let at = 0;
    for (const count of counts)
    {
        const ring = vertices.subarray(at, at + count);
        at += count;
        if (count === 1)
            points.push(ring[0]);
        else if (count === 2)
            lines.push(ring[0], ring[1]);
        else if (count > 2)
        {
            const area = areaVector(ring, xyz), normal = unit(area);
            const places = Array.from(ring, (node) => corners.add(node, area, normal));
            for (const [a, b, c] of trianglesOf(ring, normal, xyz))
            {
                triangles.push(ring[a], ring[b], ring[c]);
                cornerTriangles.push(places[a], places[b], places[c]);
            }
            for (let i = 0; i < count; ++i)
                table.add(ring[i], ring[(i + 1) % count], normal);
        }
    }
    return {
        triangles: Uint32Array.from(triangles),
        cornerTriangles: Uint32Array.from(cornerTriangles),
        cornerNodes: corners.nodes(),
        cornerNormals: corners.normals(),
        lines: Uint32Array.from(lines),
        points: Uint32Array.from(points),
        edges: table.list(false),
        features: table.list(true)
    };
}
