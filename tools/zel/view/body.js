// One body: its arrays, the mode that is shown, the values behind colours, and what the renderer draws of it.
import {readArray} from "./data.js";
import {topologyOf} from "./faces.js";
import {plainMaterial, surfaceMaterial} from "./shaders.js";

const kNothing = -32768;  // among stored values: there is none
const kParts = ["x", "y", "z", "xy", "xz", "yz"];

export class Body
{
    constructor(told, frame, maps)
    {
        this.told = told;
        this.frame = frame;
        this.maps = maps;
        this.facts = told.facts;
        this.modes = told.mode_list;
        this.ids = readArray(told.prefix + "-ids", Int32Array);
        this.xyz = readArray(told.prefix + "-xyz", Float32Array);
        this.nodes = this.ids.length;
        this.mode = -1;
        this.sign = 1;
        const Index = this.nodes <= 65536 ? Uint16Array : Uint32Array;
        const counts = readArray(told.prefix + "-counts", Uint16Array);
        this.topology = topologyOf(counts, readArray(told.prefix + "-vertices", Index), this.xyz);
        this.turning = new Map();
        readArray(told.prefix + "-turning", Int32Array).forEach((node, i) => this.turning.set(node, i));
        this.byId = new Map();
        this.ids.forEach((id, i) => this.byId.set(id, i));
        this.displacement = new Float32Array(3 * this.nodes);  // the largest one has length 1
        this.share = new Float32Array(this.nodes);             // of the colour map, -1: no value
        this.makeScene();
    }

    // ---- Values --------------------------------------------------------------------------------------------------------

    // Values of one kind in the mode shown; null where the file has none.
    stored(name) { return readArray(this.told.prefix + "-mode" + this.mode + "-" + name, Int16Array); }
    step(name) { return this.modes[this.mode][name + "_step"]; }
    choose(mode)
    {
        this.mode = mode;
        const here = mode >= 0 ? this.modes[mode] : {};
        this.has = {
            shape: "displacement_step" in here,
            rotation: "rotation_step" in here,
            stress: "stress_step" in here,
            strain: "strain_step" in here,
            stress_parts: "stress_parts_step" in here,
            strain_parts: "strain_parts_step" in here
        };
        this.motion = this.has.shape ? this.stored("displacement") : new Int16Array(3 * this.nodes);
        this.angles = this.has.rotation ? this.stored("rotation") : null;
        this.tensors = {};
        let square = 0;
        this.largestNode = 0;
        for (let i = 0; i < this.nodes; ++i)
        {
            const x = this.motion[3 * i], y = this.motion[3 * i + 1], z = this.motion[3 * i + 2],
                  size = x * x + y * y + z * z;
            if (size > square)
            {
                square = size;
                this.largestNode = i;
            }
        }
        const size = Math.sqrt(square);
        this.largest = size * (this.has.shape ? this.step("displacement") : 0);
        for (let i = 0; i < this.motion.length; ++i)
            this.displacement[i] = size > 0 ? this.sign * this.motion[i] / size : 0;
        this.upload("displacement");
    }
    displacementOf(node)
    {
        const step = this.has.shape ? this.sign * this.step("displacement") : 0;
        return [0, 1, 2].map((c) => step * this.motion[3 * node + c]);
    }
    rotationOf(node)
    {
        const at = this.angles ? this.turning.get(node) : undefined;
        return at === undefined ? [0, 0, 0] :
                                  [0, 1, 2].map((c) => this.sign * this.step("rotation") * this.angles[3 * at + c]);
    }
    // Of "stress" or "strain", or of one component as in "stress-xy". None: NaN.
    tensorOf(name, node)
    {
        const [kind, part] = name.split("-"), stored = part ? kind + "-parts" : kind;
        if (!(stored in this.tensors))
            this.tensors[stored] = this.stored(stored);
        const value = this.tensors[stored][part ? 6 * node + kParts.indexOf(part) : node];
        if (value === kNothing || value === undefined)
            return NaN;
        return part ? this.sign * value * this.step(kind + "_parts") : value * this.step(kind);
    }
    valueOf(quantity, node)
    {
        const along = ["x", "y", "z"].indexOf(quantity);
        if (along >= 0)
            return this.displacementOf(node)[along];
        if (quantity === "magnitude")
            return Math.hypot(...this.displacementOf(node));
        if (quantity === "rotation")
            return Math.hypot(...this.rotationOf(node));
        return quantity === "none" ? NaN : this.tensorOf(quantity, node);
    }
    coordinatesOf(node)
    {
        return [0, 1, 2].map((c) => this.frame.origin[c] + this.frame.radius * this.xyz[3 * node + c]);
    }

    // What the mode shown can be coloured by.
    quantities()
    {
        const list = ["magnitude", "x", "y", "z"];
        if (this.has.rotation)
            list.push("rotation");
        for (const kind of ["stress", "strain"])
        {
            if (this.has[kind])
                list.push(kind);
            if (this.has[kind + "_parts"])
                kParts.forEach((part) => list.push(kind + "-" + part));
        }
        return this.has.shape ? list : list.slice(4);
    }
    // Colours by a quantity: from 0 to its largest value, or between the largest sizes where it has a sign.
    colourBy(quantity)
    {
        const signed = ["x", "y", "z"].includes(quantity) || quantity.includes("-");
        const values = new Float64Array(this.nodes);
        let high = 0;
        for (let i = 0; i < this.nodes; ++i)
        {
            values[i] = this.valueOf(quantity, i);
            if (Math.abs(values[i]) > high)
                high = Math.abs(values[i]);
        }
        this.range = {quantity, signed, low: signed ? -high : 0, high};
        const span = high - this.range.low;
        for (let i = 0; i < this.nodes; ++i)
            this.share[i] = isNaN(values[i]) ? -1 : span > 0 ? (values[i] - this.range.low) / span : signed ? 0.5 : 0;
        this.upload("share");
        this.uniforms.map.value = this.maps[signed ? 1 : 0];
    }

    // ---- The scene -----------------------------------------------------------------------------------------------------

    makeScene()
    {
        const {cornerTriangles, cornerNodes, cornerNormals, lines, edges, features} = this.topology;
        let {points} = this.topology;
        if (cornerTriangles.length + lines.length + points.length === 0)
            points = Uint32Array.from(this.ids, (_, i) => i);
        const attribute = (array, size) => new THREE.BufferAttribute(array, size);
        this.atNodes = {
            position: attribute(this.xyz, 3),
            displacement: attribute(this.displacement, 3),
            share: attribute(this.share, 1)
        };
        const corners = cornerNodes.length;
        this.atCorners = {
            position: attribute(new Float32Array(3 * corners), 3),
            displacement: attribute(new Float32Array(3 * corners), 3),
            share: attribute(new Float32Array(corners), 1),
            rest: attribute(cornerNormals, 3)
        };
        this.upload("position");
        this.uniforms = {
            factor: {value: 0},
            map: {value: this.maps[0]},
            plain: {value: new THREE.Color(0x9aa4b2)},
            lit: {value: 1},
            pointSize: {value: 5}
        };
        this.scene = new THREE.Scene();
        this.surface = this.add(THREE.Mesh, cornerTriangles, surfaceMaterial(this.uniforms), this.atCorners);
        this.lines = this.add(THREE.LineSegments, lines, this.plain({}, false));
        this.points = this.add(THREE.Points, points, this.plain({round: 1}, false));
        this.edges = this.add(THREE.LineSegments, edges, this.plain({opacity: 0.22, noMap: true}, true));
        this.features = this.add(THREE.LineSegments, features, this.plain({opacity: 0.75, noMap: true}, true));
        const outline = features.length > 0 ? features : lines;
        this.outline =
            this.add(THREE.LineSegments, outline, this.plain({opacity: 0.45, noMap: true, still: true}, true));
    }
    // Hands values of the nodes to the renderer, once for what is chosen.
    upload(name)
    {
        const {array, itemSize} = this.atNodes[name], spread = this.atCorners[name].array;
        this.topology.cornerNodes.forEach((node, corner) => {
            for (let c = 0; c < itemSize; ++c)
                spread[itemSize * corner + c] = array[itemSize * node + c];
        });
        this.atNodes[name].needsUpdate = this.atCorners[name].needsUpdate = true;
    }
    // A material of lines or points that shares the uniforms which change.
    plain({round = 0, opacity = 1, noMap = false, still = false}, transparent)
    {
        const uniforms = Object.assign({}, this.uniforms, {opacity: {value: opacity}, round: {value: round}});
        if (still)
            uniforms.factor = {value: 0};
        const material = plainMaterial(uniforms, transparent);
        if (noMap)
        {
            uniforms.plain = {value: new THREE.Color(0x222222)};
            material.defines = {NO_MAP: 1};
        }
        return material;
    }
    add(Kind, index, material, attributes = this.atNodes)
    {
        const geometry = new THREE.BufferGeometry();
        for (const name of Object.keys(attributes))
            geometry.setAttribute(name, attributes[name]);
        geometry.setIndex(new THREE.BufferAttribute(index, 1));
        const object = new Kind(geometry, material);
        object.frustumCulled = false;  // the shader moves it
        object.visible = index.length > 0;
        if (index.length > 0)
            this.scene.add(object);
        return object;
    }
    // Places of the nodes as they are drawn.
    drawnPlace(node, place)
    {
        const factor = this.uniforms.factor.value;
        return place.set(
            this.xyz[3 * node] + factor * this.displacement[3 * node],
            this.xyz[3 * node + 1] + factor * this.displacement[3 * node + 1],
            this.xyz[3 * node + 2] + factor * this.displacement[3 * node + 2]);
    }
}
