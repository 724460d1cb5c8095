// The bodies in their windows, beside each other under one camera, and the frames that are drawn of them.
import {element, shortText, unitSigns} from "./data.js";
import {modeTitle, Overlay, quantityText} from "./overlay.js";
import {pickNode} from "./picking.js";

// Where the camera stands from the target, and what is up.
export const kViews = {
    isometric: [[1, -1, 0.8], "Isometric"],
    front: [[0, -1, 0], "Front"],
    back: [[0, 1, 0], "Back"],
    left: [[-1, 0, 0], "Left"],
    right: [[1, 0, 0], "Right"],
    top: [[0, -1e-4, 1], "Top"],
    bottom: [[0, -1e-4, -1], "Bottom"]
};

export class Stage
{
    // state: what is shown, as main.js has it. picked(pane, node): called when a node is chosen by a click; hovered likewise.
    constructor(container, bodies, state, listeners)
    {
        this.container = container;
        this.bodies = bodies;
        this.state = state;
        this.listeners = listeners;
        this.statistics = {frames: 0, script: 0};
        this.camera = new THREE.OrthographicCamera(-1, 1, 1, -1, -50, 50);
        this.camera.up.set(0, 0, 1);
        this.panes = bodies.map((body) => this.makePane(body));
        this.controls = new THREE.OrbitControls(this.camera, container);
        this.controls.enableKeys = false;
        this.controls.screenSpacePanning = true;
        this.controls.addEventListener("change", () => this.request());
        this.followPointer();
        this.resize();
        this.look("isometric");
        window.addEventListener("resize", () => this.resize());
        if (window.ResizeObserver)
            new ResizeObserver(() => this.resize()).observe(container);
    }
    makePane(body)
    {
        const drawing = element("canvas", {"aria-hidden": "true"}),
              front = element("canvas", {class: "front", "aria-hidden": "true"});
        const node = element("div", {class: "pane", role: "img"}, drawing, front);
        this.container.append(node);
        const renderer =
            new THREE.WebGLRenderer({canvas: drawing, antialias: true, alpha: true, preserveDrawingBuffer: true});
        renderer.setClearColor(0x000000, 0);
        return {body, node, drawing, front, renderer, units: unitSigns(body.facts.units), picked: -1};
    }
    colours()
    {
        const style = getComputedStyle(document.documentElement), of = (name) => style.getPropertyValue(name).trim();
        return {
            text: of("--text"),
            quiet: of("--quiet"),
            background: of("--stage"),
            accent: of("--accent"),
            mark: of("--mark")
        };
    }
    resize()
    {
        this.ratio = Math.min(window.devicePixelRatio || 1, 2);
        for (const pane of this.panes)
        {
            pane.width = Math.max(1, pane.node.clientWidth);
            pane.height = Math.max(1, pane.node.clientHeight);
            pane.renderer.setPixelRatio(this.ratio);
            pane.renderer.setSize(pane.width, pane.height, false);
            pane.front.width = Math.round(pane.width * this.ratio);
            pane.front.height = Math.round(pane.height * this.ratio);
            pane.body.uniforms.pointSize.value = 6 * this.ratio;
        }
        this.setFrustum();
        this.request();
    }
    // Half the height of what is seen, at zoom 1.
    setFrustum()
    {
        const {width, height} = this.panes[0];
        this.camera.top = this.half || 1.2;
        this.camera.bottom = -this.camera.top;
        this.camera.right = this.camera.top * width / height;
        this.camera.left = -this.camera.right;
        this.camera.updateProjectionMatrix();
    }

    // ---- The camera ----------------------------------------------------------------------------------------------------

    look(name)
    {
        const from = new THREE.Vector3(...kViews[name][0]).normalize().multiplyScalar(5);
        this.camera.position.copy(this.controls.target).add(from);
        this.controls.update();
        this.fit();
    }
    // All bodies, where they move most, with room for legend and axes.
    fit()
    {
        this.camera.lookAt(this.controls.target);
        this.camera.updateMatrixWorld();
        const right = new THREE.Vector3(), up = new THREE.Vector3(), back = new THREE.Vector3(),
              place = new THREE.Vector3();
        this.camera.matrixWorld.extractBasis(right, up, back);
        const low = [Infinity, Infinity], high = [-Infinity, -Infinity];
        for (const body of this.bodies)
        {
            const most = this.factorOf(body), shown = body.uniforms.factor.value;
            for (const factor of [-most, most])
            {
                body.uniforms.factor.value = factor;
                for (let i = 0; i < body.nodes; ++i)
                {
                    body.drawnPlace(i, place);
                    [place.dot(right), place.dot(up)].forEach((at, c) => {
                        low[c] = Math.min(low[c], at);
                        high[c] = Math.max(high[c], at);
                    });
                }
            }
            body.uniforms.factor.value = shown;
        }
        if (!isFinite(low[0]))
            return;
        const {width, height} = this.panes[0], upright = height > width;
        const left = upright ? 0 : Math.min(90, 0.2 * width),
              top = upright ? Math.min(230, 0.3 * height) : 0;  // legend
        const middle = right.clone().multiplyScalar(0.5 * (low[0] + high[0]));
        middle.addScaledVector(up, 0.5 * (low[1] + high[1])).addScaledVector(back, this.controls.target.dot(back));
        const wide = Math.max(high[0] - low[0], 1e-3), tall = Math.max(high[1] - low[1], 1e-3);
        this.half = 0.5 * Math.max(1.3 * tall * height / (height - top), 1.16 * wide * height / (width - left));
        middle.addScaledVector(right, -left / height * this.half).addScaledVector(up, top / height * this.half);
        this.camera.position.add(middle.clone().sub(this.controls.target));
        this.controls.target.copy(middle);
        this.camera.zoom = 1;
        this.setFrustum();
        this.controls.update();
        this.request();
    }
    // Angles in radians about the upright axis and up or down.
    orbit(around, upwards)
    {
        const offset = this.camera.position.clone().sub(this.controls.target);
        const turned = new THREE.Spherical().setFromVector3(new THREE.Vector3(offset.y, offset.z, offset.x));
        turned.theta += around;
        turned.phi = Math.min(Math.max(turned.phi - upwards, 1e-4), Math.PI - 1e-4);
        const back = new THREE.Vector3().setFromSpherical(turned);
        this.camera.position.copy(this.controls.target).add(new THREE.Vector3(back.z, back.x, back.y));
        this.controls.update();
        this.request();
    }
    pan(right, up)
    {
        const x = new THREE.Vector3(), y = new THREE.Vector3(), z = new THREE.Vector3();
        this.camera.matrixWorld.extractBasis(x, y, z);
        const step = 2 * this.camera.top / this.camera.zoom;
        const by = x.multiplyScalar(right * step).addScaledVector(y, up * step);
        this.camera.position.add(by);
        this.controls.target.add(by);
        this.controls.update();
        this.request();
    }
    zoom(by)
    {
        this.camera.zoom *= by;
        this.camera.updateProjectionMatrix();
        this.request();
    }

    // ---- Frames --------------------------------------------------------------------------------------------------------

    // What the displacements of a body are multiplied by at the largest amplitude, in the lengths of the scene.
    factorOf(body) { return this.state.amplitude * body.told.size / body.frame.radius; }
    request()
    {
        if (!this.requested)
            this.requested = requestAnimationFrame((now) => this.frame(now));
    }
    frame(now)
    {
        this.requested = 0;
        const started = performance.now(), state = this.state;
        if (state.playing)
        {
            state.phase = (state.phase + (this.last ? (now - this.last) / 1000 * state.speed : 0)) % 1;
            this.listeners.phase();
        }
        this.last = state.playing ? now : 0;
        for (const pane of this.panes)
            this.draw(pane);
        this.statistics.frames += 1;
        this.statistics.first = this.statistics.first || performance.now();  // since the page began to load
        this.statistics.script += performance.now() - started;
        if (state.playing)
            this.request();
    }
    draw(pane)
    {
        const {body, renderer} = pane, {state} = this;
        body.uniforms.factor.value = this.factorOf(body) * Math.cos(2 * Math.PI * state.phase);
        body.uniforms.lit.value = state.shading ? 1 : 0;
        body.edges.visible = state.mesh;
        body.features.visible = state.edges;
        body.outline.visible = state.outline;
        this.theme = this.theme || this.colours();
        body.outline.material.uniforms.plain.value.set(this.theme.quiet);
        renderer.render(body.scene, this.camera);
        const context = pane.front.getContext("2d");
        context.setTransform(this.ratio, 0, 0, this.ratio, 0, 0);
        context.clearRect(0, 0, pane.width, pane.height);
        this.drawFront(pane, context);
    }
    drawFront(pane, context)
    {
        const overlay = new Overlay(context, pane.width, pane.height, this.theme);
        const {body, units} = pane;
        overlay.title(body.facts.name, body.modes[body.mode]);
        overlay.legend(body, units);
        overlay.scaleBar(0.5 * pane.height / this.camera.top * this.camera.zoom / body.frame.radius, units);
        overlay.axes(this.camera);
        const mark = (node, label, colour, filled) => {
            const [x, y] = this.windowPlace(pane, node);
            overlay.marker(x, y, label, colour, filled);
        };
        const kMostMarkers = 60;  // more names cover the body
        if (this.state.markers)
            body.told.interface.slice(0, kMostMarkers)
                .forEach((node) => mark(node, String(body.ids[node]), this.theme.mark, false));
        if (pane.picked >= 0)
            mark(pane.picked, String(body.ids[pane.picked]), this.theme.accent, true);
    }
    windowPlace(pane, node)
    {
        const place = pane.body.drawnPlace(node, this.place || (this.place = new THREE.Vector3())).project(this.camera);
        return [0.5 * pane.width * (1 + place.x), 0.5 * pane.height * (1 - place.y)];
    }
    // What a person who does not see is told.
    describe()
    {
        for (const {body, node, units} of this.panes)
        {
            const {quantity, low, high} = body.range;
            const colour = quantity === "none" ?
                "" :
                ". Colours: " + quantityText(quantity, units) + ", from " + shortText(low) + " to " + shortText(high);
            node.setAttribute("aria-label", body.facts.name + ". " + modeTitle(body.modes[body.mode]) + colour);
        }
    }
    // All windows as one picture.
    picture()
    {
        const wide = this.panes.reduce((sum, pane) => sum + pane.front.width, 0);
        const canvas = element("canvas", {width: wide, height: this.panes[0].front.height}),
              context = canvas.getContext("2d");
        context.fillStyle = this.colours().background;
        context.fillRect(0, 0, canvas.width, canvas.height);
        let left = 0;
        for (const pane of this.panes)
        {
            this.draw(pane);
            context.drawImage(pane.drawing, left, 0);
            context.drawImage(pane.front, left, 0);
            left += pane.front.width;
        }
        return canvas;
    }

    // ---- The pointer ---------------------------------------------------------------------------------------------------

    pickAt(pane, event)
    {
        const box = pane.node.getBoundingClientRect();
        return pickNode(
            pane.body, this.camera, pane.width, pane.height, event.clientX - box.left, event.clientY - box.top);
    }
    followPointer()
    {
        const kClick = 5;  // pixels that a hand moves while it clicks
        let down = null;
        for (const pane of this.panes)
        {
            pane.node.addEventListener("pointerdown", (event) => {
                down = [event.clientX, event.clientY];
                this.endHover(pane);
            });
            pane.node.addEventListener("pointerup", (event) => {
                if (down && Math.hypot(event.clientX - down[0], event.clientY - down[1]) < kClick && event.button === 0)
                    this.listeners.picked(pane, this.pickAt(pane, event));
                down = null;
            });
            pane.node.addEventListener("pointermove", (event) => {
                if (event.pointerType === "mouse" && event.buttons === 0)
                    this.hover(pane, event);
            });
            pane.node.addEventListener("pointerleave", () => this.endHover(pane));
        }
    }
    // With the search that waits: it would find the node where the pointer was.
    endHover(pane)
    {
        clearTimeout(this.waiting);
        this.waiting = 0;
        this.listeners.hovered(pane, -1);
    }
    // At most one search in so many milliseconds.
    hover(pane, event)
    {
        const kPause = 60;
        if (this.waiting)
            return;
        this.waiting = setTimeout(() => {
            this.waiting = 0;
            this.listeners.hovered(pane, this.pickAt(pane, event), event);
        }, kPause);
    }
}
