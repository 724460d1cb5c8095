#!/usr/bin/env python3
"""Draws the layers of the library from the includes of its sources.

usage: docs/draw_layers.py > docs/layers.svg

A box is a folder of zel/src, placed in the lowest row above all that it includes. An arrow leads to an included folder.
Arrows that follow from others are left out: write includes database, but also mechanics, which includes database.
"""
import collections
import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parent.parent / "zel" / "src"
WIDTH, HEIGHT, GAP_X, GAP_Y, MARGIN = 150, 38, 40, 44, 20


def folder_of(path):
    return [part for part in path.parts if part != "zel"][0]


def read_includes():
    """The folders that each folder includes."""
    used = collections.defaultdict(set)
    for source in sorted(SOURCE.rglob("*.[ch]*")):
        here = folder_of(source.relative_to(SOURCE))
        for name in re.findall(r'^#include "([^"/]+)/', source.read_text(), re.M):
            used[here] |= {name} - {here}
        used[here] |= set()
    return {folder: used[folder] for folder in sorted(used)}


def rows_of(used):
    level = {}

    def place(folder, above=()):
        if folder in above:
            raise SystemExit(f"circle of folders: {' -> '.join(above + (folder,))}")
        if folder not in level:
            level[folder] = 1 + max((place(other, above + (folder,)) for other in used[folder]), default=-1)
        return level[folder]

    for folder in used:
        place(folder)
    return level


def reach(used, folder):
    return used[folder].union(*(reach(used, other) for other in used[folder]))


def direct(used, folder):
    return sorted(other for other in used[folder] if not any(other in reach(used, via) for via in used[folder]))


def draw(used):
    level = rows_of(used)
    top = max(level.values())
    rows = [sorted(folder for folder in used if level[folder] == row) for row in range(top + 1)]
    across = max(map(len, rows)) * (WIDTH + GAP_X) - GAP_X + 2 * MARGIN
    down = len(rows) * (HEIGHT + GAP_Y) - GAP_Y + 2 * MARGIN
    left, upper = {}, {}
    for row, folders in enumerate(rows):
        start = (across - len(folders) * (WIDTH + GAP_X) + GAP_X) / 2
        for place, folder in enumerate(folders):
            left[folder] = start + place * (WIDTH + GAP_X)
            upper[folder] = MARGIN + (top - row) * (HEIGHT + GAP_Y)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{across}" height="{down}" viewBox="0 0 {across} {down}" '
           'font-family="sans-serif" text-anchor="middle">',
           '<defs><marker id="head" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" markerHeight="8" orient="auto">'
           '<path d="M0,0 L8,4 L0,8 z" fill="#555"/></marker></defs>',
           f'<rect width="{across}" height="{down}" fill="white"/>']
    for folder in used:
        for other in direct(used, folder):
            x1, y1 = left[folder] + WIDTH / 2, upper[folder] + HEIGHT
            x2, y2 = left[other] + WIDTH / 2, upper[other]
            out.append(f'<path d="M{x1:g},{y1:g} C{x1:g},{y1 + 30:g} {x2:g},{y2 - 30:g} {x2:g},{y2:g}" fill="none" '
                       'stroke="#555" marker-end="url(#head)"/>')
    for folder in used:
        x = left[folder] + WIDTH / 2
        out += [f'<rect x="{left[folder]:g}" y="{upper[folder]:g}" width="{WIDTH}" height="{HEIGHT}" rx="5" '
                'fill="#e8eef7" stroke="#335"/>',
                f'<text x="{x:g}" y="{upper[folder] + 25:g}" font-size="15">{folder}</text>']
    return "\n".join(out + ["</svg>"])


if __name__ == "__main__":
    print(draw(read_includes()))
