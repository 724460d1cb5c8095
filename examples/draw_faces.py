#!/usr/bin/env python3
"""Draws the faces of bodies side by side, from what `zel export BODY.zel -o BODY.json` writes.

    draw_faces.py OUT.svg BODY.json...

docs/coarsening.svg is the body of ./demo, whole and after `zel convert --options "coarsen(2)"`, "coarsen(5, 15)" and
"coarsen(10, 15)".
"""
import json
import math
import sys

PANEL, MARGIN, TURN, TILT = 720, 20, math.radians(-20), math.radians(50)
LIGHT = (0.3, 0.4, 0.866)


def seen(x, y, z):
    """A point as the viewer sees it: x to the right, y up, z towards the eye."""
    x, y = x * math.cos(TURN) - y * math.sin(TURN), x * math.sin(TURN) + y * math.cos(TURN)
    return x, y * math.cos(TILT) - z * math.sin(TILT), y * math.sin(TILT) + z * math.cos(TILT)


def normal(points):
    """Unit normal of a polygon (M. E. Newell's sums)."""
    n = [0.0, 0.0, 0.0]
    for p, q in zip(points, points[1:] + points[:1]):
        for a, b, c in ((0, 1, 2), (1, 2, 0), (2, 0, 1)):
            n[a] += (p[b] - q[b]) * (p[c] + q[c])
    length = math.hypot(*n)
    return [v / length for v in n] if length else n


def panel(body, across, lines):
    """Adds the faces that look at the viewer, far ones first; returns the height."""
    at = {node["id"]: seen(*node["xyz"]) for node in body["nodes"]}
    faces = [[at[node] for node in face] for face in body["faces"] if len(face) > 2]
    xs, ys = ([p[axis] for face in faces for p in face] for axis in (0, 1))
    scale = (PANEL - 2 * MARGIN) / (max(xs) - min(xs))
    for face in sorted(faces, key=lambda face: sum(p[2] for p in face) / len(face)):
        n = normal(face)
        if n[2] <= 0.0:
            continue
        shade = int(90 + 165 * max(0.0, sum(a * b for a, b in zip(n, LIGHT))))
        corners = " ".join(f"{across + MARGIN + scale * (p[0] - min(xs)):.0f},{MARGIN + 30 + scale * (max(ys) - p[1]):.0f}"
                           for p in face)
        lines.append(f'<path d="M{corners}z" fill="rgb({shade // 2},{shade * 3 // 4},{shade})"/>')
    lines.append(f'<text x="{across + MARGIN}" y="30">{len(body["faces"])} faces</text>')
    return 2 * MARGIN + 30 + scale * (max(ys) - min(ys))


def main(out, *paths):
    lines, height = [], 0.0
    for number, path in enumerate(paths):
        with open(path, encoding="utf-8") as file:
            height = max(height, panel(json.load(file), number * PANEL, lines))
    with open(out, "w", encoding="utf-8") as svg:
        svg.write(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {len(paths) * PANEL} {height:.0f}">\n'
                  '<g stroke="black" stroke-width="0.8" stroke-linejoin="round" font-size="28">\n' +
                  "\n".join(lines) + "\n</g>\n</svg>\n")


if len(sys.argv) < 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
