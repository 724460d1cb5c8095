// Puts the page together: what is shown, and what keys and controls do with it.
import {Body} from "./body.js";
import {colourTexture} from "./colour.js";
import {element, readTold} from "./data.js";
import {modeTitle} from "./overlay.js";
import {fillPicked, fillQuantities, fillViews, ModeList, nodeList} from "./panel.js";
import {Stage} from "./stage.js";
import {factRows, fillSummary, hertzText, table} from "./summary.js";

const byId = (id) => document.getElementById(id);

class Page
{
    constructor(told)
    {
        this.told = told;
        const maps = [colourTexture(false), colourTexture(true)], frame = {origin: told.origin, radius: told.radius};
        this.bodies = told.bodies.map((body) => new Body(body, frame, maps));
        const still = window.matchMedia("(prefers-reduced-motion: reduce)").matches;
        this.state = {
            amplitude: 0.1,
            phase: 0,
            speed: 0.5,
            playing: !still && !told.picture,
            shading: true,
            edges: true,
            mesh: false,
            markers: true,
            outline: false,
            quantity: "magnitude"
        };
        this.started = false;
        this.list = new ModeList(byId("modes"), this.bodies, told.comparison, (row) => this.choose(row));
        this.choose({a: -1, b: -1, cosine: null});  // of a body without modes it stays so
        this.list.choose(this.firstRow(), false);
        fillSummary(byId("summary"), this.bodies, told.comparison);
        for (const name of ["body", "summary"])
            byId(name + "_tab").addEventListener("click", () => this.open(name));
        this.stage = new Stage(byId("stage"), this.bodies, this.state, {
            picked: (pane, node) => this.pick(pane, node),
            hovered: (pane, node, event) => this.hover(pane, node, event),
            phase: () => this.showPhase()
        });
        this.started = true;
        this.connect();
        this.showState();
        this.stage.describe();
    }
    // The mode that was asked for, else the first one that deforms the body.
    firstRow()
    {
        const modeOf = (row) => this.bodies[0].modes[row.a];
        const asked = this.list.rows.findIndex((row) => modeOf(row) && modeOf(row).number === this.told.first_mode);
        const flexible = this.list.rows.findIndex((row) => modeOf(row) && !modeOf(row).rigid);
        return asked >= 0 ? asked : Math.max(0, flexible);
    }

    // ---- What is shown -------------------------------------------------------------------------------------------------

    // Of two bodies the second one has the sign that makes it move as the first one does.
    choose(row)
    {
        const indexes = [row.a, row.b];
        this.bodies.forEach((body, i) => {
            body.sign = i === 1 && row.cosine < 0 ? -1 : 1;
            body.choose(indexes[i]);
        });
        this.state.quantity = fillQuantities(byId("quantity"), this.bodies, this.state.quantity);
        this.colour();
        byId("title").textContent = this.told.bodies.map((body) => body.facts.name).join(" · ");
        if (this.started)
            this.showPicked();
    }
    colour()
    {
        this.bodies.forEach((body) => {
            const known = this.state.quantity === "none" || body.quantities().includes(this.state.quantity);
            body.colourBy(known ? this.state.quantity : "none");
        });
        if (this.started)
        {
            this.stage.describe();
            this.stage.request();
        }
    }
    play(playing)
    {
        this.state.playing = playing;
        this.showState();
        this.stage.request();
    }
    set(name, value)
    {
        this.state[name] = value;
        this.showState();
        this.stage.request();
    }
    showState()
    {
        const {state} = this;
        byId("play").textContent = state.playing ? "Pause" : "Play";
        byId("play").setAttribute("aria-pressed", String(state.playing));
        byId("speed").value = state.speed;
        byId("amplitude").value = 100 * state.amplitude;
        byId("speed_text").textContent = state.speed.toFixed(2) + " /s";
        byId("amplitude_text").textContent = (100 * state.amplitude).toFixed(0) + " %";
        for (const name of ["outline", "edges", "mesh", "markers", "shading"])
            byId(name).checked = state[name];
        this.showPhase();
    }
    showPhase()
    {
        const degrees = Math.round(360 * this.state.phase) % 360;
        if (degrees === this.degrees)
            return;
        this.degrees = degrees;
        byId("phase").value = degrees;
        byId("phase_text").textContent = degrees + "°";
    }

    // ---- Nodes ---------------------------------------------------------------------------------------------------------

    pick(pane, node)
    {
        this.shown = pane;
        const id = node < 0 ? undefined : pane.body.ids[node];  // the other body has it marked, too
        this.stage.panes.forEach((other) => {
            const there = other.body.byId.get(id);
            other.picked = other === pane ? node : there === undefined ? -1 : there;
        });
        this.showPicked();
        this.stage.request();
    }
    showPicked()
    {
        const pane = this.shown || this.stage.panes[0];
        fillPicked(byId("picked"), pane.body, pane.picked, this.bodies.length > 1);
    }
    find(text)
    {
        const id = Number(text);
        const pane = this.stage.panes.find((one) => one.body.byId.has(id));
        if (text !== "" && pane)
            return this.pick(pane, pane.body.byId.get(id));
        this.shown = null;
        this.stage.panes.forEach((one) => one.picked = -1);
        byId("picked").replaceChildren(element("p", {class: "bad"}, "No node " + text + " is shown."));
        return this.stage.request();
    }
    hover(pane, node, event)
    {
        const tip = byId("tip");
        tip.hidden = node < 0;
        if (node < 0)
            return;
        tip.replaceChildren(nodeList(pane.body, node));
        tip.style.left = Math.min(event.clientX + 14, window.innerWidth - tip.offsetWidth - 8) + "px";
        tip.style.top = Math.min(event.clientY + 16, window.innerHeight - tip.offsetHeight - 8) + "px";
    }

    // ---- Controls ------------------------------------------------------------------------------------------------------

    connect()
    {
        const {stage} = this,
              slide = (id, then) => byId(id).addEventListener("input", (event) => then(Number(event.target.value)));
        byId("play").addEventListener("click", () => this.play(!this.state.playing));
        slide("phase", (degrees) => {
            this.state.playing = false;
            this.set("phase", degrees / 360);
        });
        slide("speed", (speed) => this.set("speed", speed));
        slide("amplitude", (percent) => this.set("amplitude", percent / 100));
        for (const name of ["outline", "edges", "mesh", "markers", "shading"])
            byId(name).addEventListener("change", (event) => this.set(name, event.target.checked));
        byId("quantity").addEventListener("change", (event) => {
            this.state.quantity = event.target.value;
            this.colour();
        });
        fillViews(byId("views"), (name) => stage.look(name));
        byId("fit").addEventListener("click", () => stage.fit());
        byId("find").addEventListener("submit", (event) => {
            event.preventDefault();
            this.find(byId("node").value.trim());
        });
        byId("save").addEventListener("click", () => this.save());
        byId("print").addEventListener("click", () => window.print());
        document.addEventListener("keydown", (event) => this.key(event));
        window.addEventListener("beforeprint", () => this.fillSheet());
        window.matchMedia("(prefers-color-scheme: dark)").addListener(() => {
            stage.theme = null;
            stage.request();
        });
        this.showPicked();
    }
    open(name)
    {
        for (const one of ["body", "summary"])
        {
            byId(one + "_tab").setAttribute("aria-selected", String(one === name));
            byId(one + "_tab").tabIndex = one === name ? 0 : -1;
            byId(one + "_view").hidden = one !== name;
        }
        if (name === "body" && this.stage)
            this.stage.resize();
    }
    key(event)
    {
        const inField = event.target.closest("input, select, textarea"), {stage, list} = this, key = event.key;
        const onTab = event.target.closest("[role=tab]");
        if (onTab && (key === "ArrowLeft" || key === "ArrowRight"))
        {
            const other = onTab.id === "body_tab" ? "summary" : "body";
            this.open(other);
            byId(other + "_tab").focus();
            return;
        }
        if (inField || event.ctrlKey || event.metaKey || event.altKey || byId("body_view").hidden)
            return;
        const kTurn = Math.PI / 24, kShift = 0.04;
        const views = ["isometric", "front", "back", "left", "right", "top", "bottom"];
        const actions = {
            ArrowUp: () => list.choose(list.at - 1, true),
            ArrowDown: () => list.choose(list.at + 1, true),
            Home: () => list.choose(0, true),
            End: () => list.choose(list.lines.length - 1, true),
            ArrowLeft: () => this.set("phase", (this.state.phase + 1 - 1 / 24) % 1),
            ArrowRight: () => this.set("phase", (this.state.phase + 1 / 24) % 1),
            "+": () => stage.zoom(1.2),
            "=": () => stage.zoom(1.2),
            "-": () => stage.zoom(1 / 1.2),
            f: () => stage.fit(),
            w: () => stage.pan(0, -kShift),
            s: () => stage.pan(0, kShift),
            a: () => stage.pan(kShift, 0),
            d: () => stage.pan(-kShift, 0),
            o: () => this.set("outline", !this.state.outline),
            m: () => this.set("mesh", !this.state.mesh)
        };
        const turns = {
            ArrowLeft: () => stage.orbit(-kTurn, 0),
            ArrowRight: () => stage.orbit(kTurn, 0),
            ArrowUp: () => stage.orbit(0, kTurn),
            ArrowDown: () => stage.orbit(0, -kTurn)
        };
        views.forEach((name, i) => actions[i] = () => stage.look(name));
        if (!event.target.closest("button, summary, [role=tab]"))
            actions[" "] = () => this.play(!this.state.playing);
        const action = event.shiftKey && turns[key] ? turns[key] : actions[key.length === 1 ? key.toLowerCase() : key];
        if (!action)
            return;
        event.preventDefault();
        action();
    }

    // ---- Pictures ------------------------------------------------------------------------------------------------------

    save()
    {
        const mode = this.bodies[0].modes[this.bodies[0].mode];
        const name = this.bodies[0].facts.name.replace(/\.[^.]*$/, "") + (mode ? "_mode" + mode.number : "") + ".png";
        this.stage.picture().toBlob((blob) => {
            const link = element("a", {href: URL.createObjectURL(blob), download: name});
            document.body.append(link);
            link.click();
            link.remove();
        });
    }
    // One sheet of paper: the picture, what the body is, and its modes.
    fillSheet()
    {
        const kMostRows = 20;
        const image = element("img", {src: this.stage.picture().toDataURL("image/png"), alt: ""});
        const columns = this.bodies.map((body) => {
            const rows = body.modes.slice(0, kMostRows).map((mode) => [String(mode.number), hertzText(mode)]);
            const more = body.modes.length > kMostRows ?
                [element("p", {}, "and " + (body.modes.length - kMostRows) + " more modes")] :
                [];
            return element(
                "div", {}, element("h2", {}, body.facts.name + ", " + modeTitle(body.modes[body.mode])),
                element(
                    "div", {class: "columns"}, table(["", ""], factRows(body.facts), {class: "facts"}),
                    element("div", {}, table(["Mode", "Hz"], rows, {class: "numbers"}), ...more)));
        });
        byId("sheet").replaceChildren(
            image, element("div", {class: this.bodies.length > 1 ? "columns" : ""}, ...columns));
    }
}

function start()
{
    const told = readTold();
    document.body.classList.toggle("picture", told.picture);
    document.title = told.bodies.map((body) => body.facts.name).join(" and ");
    const notes = [...new Set([].concat(...told.bodies.map((body) => body.left_out)))];
    byId("left_out").replaceChildren(...notes.map((text) => element("p", {class: "note"}, text)));
    for (const body of told.bodies.filter((one) => one.moves && one.still_nodes > 0))
        byId("left_out")
            .append(element(
                "p", {class: "note"},
                body.still_nodes + " nodes of " + body.facts.name + " have no mode shapes and stand still."));
    try
    {
        window.page = new Page(told);
    }
    catch (problem)
    {
        byId("failed").hidden = false;
        byId("failed").append(element("p", {}, String(problem.message || problem)));
    }
}
start();
