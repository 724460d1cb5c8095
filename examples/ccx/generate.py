#!/usr/bin/env python3
"""Makes the CalculiX jobs of this directory anew: meshes, decks, and the solver's results, all compressed.

Needs ccx (calculix-ccx) and gmsh. Lengths are in mm, masses in t, times in s, forces in N.
"""
import gzip
import math
import os
import random
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.join(HERE, "..", "..", "tests", "data", "ccx")
STEEL = "*MATERIAL, NAME=STEEL\n*ELASTIC\n210000., 0.3\n*DENSITY\n7.85e-9\n"
MATRICES = "*STEP\n*FREQUENCY, SOLVER=MATRIXSTORAGE\n*END STEP\n"
# corners, then mid-side nodes, of a 20-node brick on a grid of half elements
BRICK = [(0, 0, 0), (2, 0, 0), (2, 2, 0), (0, 2, 0), (0, 0, 2), (2, 0, 2), (2, 2, 2), (0, 2, 2),
         (1, 0, 0), (2, 1, 0), (1, 2, 0), (0, 1, 0), (1, 0, 2), (2, 1, 2), (1, 2, 2), (0, 1, 2),
         (0, 0, 1), (2, 0, 1), (2, 2, 1), (0, 2, 1)]


def id_lines(ids, width=12):
    return "".join(", ".join(map(str, ids[i:i + width])) + ",\n" for i in range(0, len(ids), width))


def beam(cells, size):
    """Nodes, elements and end sets of a block of C3D20 bricks along x, its axis through the origin."""
    numbers, nodes, elements = {}, [], []

    def node(at):
        if at not in numbers:
            numbers[at] = len(numbers) + 1
            x, y, z = (size[k] * (at[k] / (2 * cells[k]) - (0.5 if k else 0)) for k in range(3))
            nodes.append(f"{numbers[at]}, {x:.10g}, {y:.10g}, {z:.10g}\n")
        return numbers[at]

    for i in range(cells[0]):
        for j in range(cells[1]):
            for k in range(cells[2]):
                ids = [node((2 * i + a, 2 * j + b, 2 * k + c)) for a, b, c in BRICK]
                number = len(elements) + 1
                elements.append(f"{number}, " + ", ".join(map(str, ids[:10])) + ",\n" + ", ".join(map(str, ids[10:])) + "\n")
    ends = [[n for at, n in numbers.items() if at[0] == end] for end in (0, 2 * cells[0])]
    return ("*NODE, NSET=ALL\n" + "".join(nodes) + "*ELEMENT, TYPE=C3D20, ELSET=BEAM\n" + "".join(elements) +
            "*NSET, NSET=ROOT\n" + id_lines(ends[0]) + "*NSET, NSET=TIP\n" + id_lines(ends[1]), len(nodes))


def unit_steps(references):
    """Static steps that move one freedom of one reference node each, then the modes with all of them held."""
    names = [node for pair in references for node in pair]
    held = "".join(f"{name}, 1, 3\n" for name in names)
    steps = ""
    for name in names:
        for component in (1, 2, 3):
            steps += (f"*STEP\n*STATIC\n*BOUNDARY, OP=NEW\n{held}{name}, {component}, {component}, 1.\n"
                      "*NODE FILE, OUTPUT=3D\nU\n*EL FILE\nS\n*NODE PRINT, NSET=REFERENCES\nU, RF\n*END STEP\n")
    return steps + (f"*STEP\n*FREQUENCY\n10\n*BOUNDARY, OP=NEW\n{held}*NODE FILE\nU\n*EL FILE\nS\n*END STEP\n")


def rod_mesh(scratch):
    """The mesh that gmsh makes of rod.geo, as a deck: solid elements and node sets only, numbered from 1."""
    path = os.path.join(scratch, "rod_mesh.inp")
    subprocess.run(["gmsh", "-3", "-v", "1", "-format", "inp", os.path.join(HERE, "rod.geo"), "-o", path], check=True)
    kept, keep = [], False
    for line in open(path):
        word = line.upper().replace(" ", "")
        if line.startswith("*"):
            keep = word.startswith(("*NODE", "*NSET")) or "TYPE=C3D10" in word
            line = line.replace("ELSET=Volume9", "ELSET=STEELROD")
        if keep:
            kept.append(line)
    return "".join(kept)


def solve(name, deck, scratch, results, target=HERE):
    """Runs ccx on the deck and keeps it and the named results here, compressed, without a time in them."""
    with open(os.path.join(scratch, name + ".inp"), "w") as file:
        file.write(deck)
    environment = dict(os.environ, OPENBLAS_NUM_THREADS="1", OMP_NUM_THREADS="1")
    subprocess.run(["ccx", name], cwd=scratch, env=environment, check=True, stdout=subprocess.DEVNULL)
    for suffix in ["inp"] + results:
        with open(os.path.join(scratch, f"{name}.{suffix}"), "rb") as source:
            data = source.read()
        with open(os.path.join(target, f"{name}.{suffix}.gz"), "wb") as file:
            with gzip.GzipFile("", "wb", 9, file, 0) as packed:
                packed.write(data)
        print(f"{name}.{suffix}: {len(data)} bytes", file=sys.stderr)


def small_jobs(scratch, heading, section):
    """A short beam with a lumped mass for the tests: free, and with its ends tied by the solver in both ways."""
    mesh, count = beam((3, 1, 1), (60., 20., 10.))
    model = (mesh + STEEL + section.format("BEAM") + "*ELEMENT, TYPE=MASS, ELSET=LUMP\n1000, 13\n*MASS, ELSET=LUMP\n2.e-5\n")
    solve("small", heading.format("Short beam") + model + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
    ties = (f"*NODE\n{count + 1}, 0.\n{count + 2}, 60.\n*RIGID BODY, NSET=ROOT, REF NODE={count + 1}\n"
            "*SURFACE, NAME=TIPFACE\n3, S4\n"
            f"*COUPLING, REF NODE={count + 2}, SURFACE=TIPFACE, CONSTRAINT NAME=TIP\n*KINEMATIC\n1, 3\n")
    solve("small_tied", heading.format("Short beam, tied") + model + ties + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
    solve("plate", heading.format("Plate 200 x 40 x 5 mm of S8R shells") + plate((10, 2), (200., 40.)) + STEEL +
          "*SHELL SECTION, ELSET=PLATE, MATERIAL=STEEL\n5.\n*STEP\n*FREQUENCY\n8\n*NODE FILE, OUTPUT=2D\nU\n*END STEP\n",
          scratch, ["frd"], TESTS)
    strip = (heading.format("Strip 200 x 20 x 4 mm of S8R shells") + plate((8, 2), (200., 20.)) +
             "*NSET, NSET=ROOT\n1, 2, 3, 4, 5\n" + STEEL + "*SHELL SECTION, ELSET=PLATE, MATERIAL=STEEL\n4.\n")
    solve("strip", strip + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
    solve("strip_layers", strip + "*STEP\n*FREQUENCY\n10\n*NODE FILE, OUTPUT=3D\nU\n*EL FILE\nS\n*END STEP\n", scratch,
          ["frd"], TESTS)
    cube = "*NODE\n" + "".join(f"{k + 1}, {10 * ((k + 1) // 2 % 2)}, {10 * (k // 2 % 2)}, {10 * (k // 4)}\n" for k in range(8))
    solve("incompatible", heading.format("One brick with incompatible modes") + cube +
          "*ELEMENT, TYPE=C3D8I, ELSET=CUBE\n1, 1, 2, 3, 4, 5, 6, 7, 8\n" + STEEL + section.format("CUBE") + MATRICES, scratch,
          ["dof", "sti", "mas"], TESTS)


def bricks(cells, size, kind):
    """Nodes and eight-node bricks of a block."""
    def number(i, j, k):
        return 1 + i + (cells[0] + 1) * (j + (cells[1] + 1) * k)

    grid = [(i, j, k) for k in range(cells[2] + 1) for j in range(cells[1] + 1) for i in range(cells[0] + 1)]
    elements = [[number(i, j, k), number(i + 1, j, k), number(i + 1, j + 1, k), number(i, j + 1, k), number(i, j, k + 1),
                 number(i + 1, j, k + 1), number(i + 1, j + 1, k + 1), number(i, j + 1, k + 1)]
                for k in range(cells[2]) for j in range(cells[1]) for i in range(cells[0])]
    return ("*NODE\n" + "".join(f"{number(*at)}, " + ", ".join(f"{s * a / n:.10g}" for s, a, n in zip(size, at, cells)) + "\n"
                                for at in grid) + f"*ELEMENT, TYPE={kind}, ELSET=BAR\n" +
            "".join(f"{e + 1}, " + ", ".join(map(str, ids)) + "\n" for e, ids in enumerate(elements)))


def hard_jobs(scratch, heading, section):
    """Models for which a first answer is wrong: two steps, few results, few digits, coarse quadrature, dependent nodes."""
    mesh, _ = beam((3, 1, 1), (60., 20., 10.))
    model = mesh + STEEL + section.format("BEAM")
    modes = "*STEP\n*FREQUENCY\n8\n{}*NODE FILE{}\nU\n*END STEP\n"
    solve("two_steps", heading.format("Free and clamped modes") + model + modes.format("", "") +
          modes.format("*BOUNDARY\nROOT, 1, 3\n", ""), scratch, ["frd"], TESTS)
    solve("some_nodes", heading.format("Modes of one end only") + model + modes.format("", ", NSET=ROOT"), scratch, ["frd"],
          TESTS)
    thin = plate((3, 3), (229., 229.)).replace("S8R", "S8")
    solve("thin", heading.format("Thin sheet") + thin + STEEL + "*SHELL SECTION, ELSET=PLATE, MATERIAL=STEEL\n0.0762\n" +
          MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
    reduced = heading.format("Bar of 60 x 12 x 7, mass at one point") + bricks((6, 3, 2), (60., 12., 7.), "C3D8R")
    reduced += STEEL + section.format("BAR")
    solve("one_point", reduced + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
    solve("one_point_modes", reduced + modes.format("", ""), scratch, ["frd"], TESTS)
    tube = [line.split(", ") for line in plate((2, 6), (1., 1.)).splitlines()]
    wrapped, in_nodes = [], False
    for line in tube:
        in_nodes = line[0] == "*NODE" or in_nodes and not line[0].startswith("*")
        if in_nodes and len(line) == 3:
            angle = math.pi * float(line[2])
            line = [line[0], f"{40 * float(line[1]):.10g}", f"{20 * math.cos(angle):.12g}", f"{20 * math.sin(angle):.12g}"]
        wrapped.append(", ".join(line))
    solve("half_tube", heading.format("Half a tube, 40 long, radius 20, 2 thick") + "\n".join(wrapped) + "\n" + STEEL +
          "*SHELL SECTION, ELSET=PLATE, MATERIAL=STEEL\n2.\n" + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)


def shifted(mesh, number, at, name):
    """A mesh of bricks() with all numbers higher by `number`, moved by `at`, its elements in a set of another name."""
    lines, in_nodes = [], True
    for line in mesh.splitlines():
        in_nodes = line.startswith("*NODE") or in_nodes and not line.startswith("*")
        fields = line.replace("ELSET=BAR", "ELSET=" + name).split(", ")
        if not line.startswith("*"):
            fields[:1 if in_nodes else None] = [str(int(f) + number) for f in fields[:1 if in_nodes else None]]
            fields[1:] = [f"{float(f) + a:.10g}" for f, a in zip(fields[1:], at)] if in_nodes else fields[1:]
        lines.append(", ".join(fields) + "\n")
    return "".join(lines)


def joined_jobs(scratch, heading, section):
    """Slender bars in two pieces, joined by springs, by equations between nodes with axes of their own, and by a tie of faces
    that do not match; each solved for its matrices and for its modes."""
    left = bricks((6, 1, 1), (60., 7., 5.), "C3D8I")
    model = left + STEEL + section.format("BAR") + section.format("FAR")
    apart = shifted(left, 100, (70., 0., 0.), "FAR")
    springs = [(7, 101), (14, 108), (21, 115), (28, 122), (7, 108), (14, 101), (21, 101), (28, 108), (7, 115), (21, 122)]
    sprung = ("*ELEMENT, TYPE=SPRINGA, ELSET=AXIAL\n" + "".join(f"{1000 + i}, {a}, {b}\n" for i, (a, b) in enumerate(springs)) +
              "*SPRING, ELSET=AXIAL\n\n20000.\n*ELEMENT, TYPE=SPRING2, ELSET=ALONG\n2000, 14, 108\n*SPRING, ELSET=ALONG\n1, 1\n500.\n"
              "*ELEMENT, TYPE=MASS, ELSET=LUMP\n3000, 3\n*MASS, ELSET=LUMP\n2.e-6\n"
              "*ELEMENT, TYPE=DASHPOTA, ELSET=DAMPER\n4000, 28, 101\n*DASHPOT, ELSET=DAMPER\n\n0.25\n")
    fine = shifted(bricks((6, 2, 1), (60., 7., 5.), "C3D8I"), 100, (60., 0., 0.), "FAR")
    pairs = [(101, (7,)), (108, (7, 14)), (115, (14,)), (122, (21,)), (129, (21, 28)), (136, (28,))]
    terms = [f"{1 + len(to)}\n{node}, {c}, 1., " + ", ".join(f"{m}, {c}, {-1. / len(to)}" for m in to) + "\n"
             for node, to in pairs for c in (1, 2, 3)]
    axes = ("*NSET, NSET=JOINT\n7, 14, 21, 28, 101, 108, 115, 122, 129, 136\n"
            "*TRANSFORM, NSET=JOINT, TYPE=R\n0.8, 0.6, 0.1, -0.6, 0.8, 0.\n"
            "*NSET, NSET=OUTER\n1, 8\n*TRANSFORM, NSET=OUTER, TYPE=C\n0., 3., 20., 1., 3., 20.\n")
    coarse, _ = beam((2, 1, 1), (60., 7., 5.))
    coarse = "".join(line + "\n" for line in coarse.split("*NSET")[0].replace("ELSET=BEAM", "ELSET=BAR").splitlines())
    other = shifted(bricks((3, 2, 3), (60., 7., 5.), "C3D8"), 100, (60., -3.5, -2.5), "FAR")
    tie = "*SURFACE, NAME=COARSE\n2, S4\n*SURFACE, NAME=FINE\n" + "".join(f"{101 + 3 * i}, S6\n" for i in range(6))
    for name, deck in (("sprung", apart + model + sprung),
                       ("hanging", fine + model + axes + "*EQUATION\n" + "".join(terms)),
                       ("tied_faces", coarse + other + STEEL + section.format("BAR") + section.format("FAR") + tie +
                        "*TIE, NAME=JOINT\nFINE, COARSE\n")):
        solve(name, heading.format(name) + deck + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
        solve(name + "_modes", heading.format(name) + deck + "*STEP\n*FREQUENCY\n12\n*NODE FILE\nU\n*END STEP\n", scratch,
              ["frd", "dat"], TESTS)


def expanded_jobs(scratch, heading):
    """Beams along a skew line, a frame of beams that branches, and a sheet of two thicknesses that is folded at a right angle."""
    def deck(kind, nodes, elements, section):
        return ("*NODE\n" + "".join(f"{i}, " + ", ".join(f"{x:.10g}" for x in at) + "\n" for i, at in nodes.items()) +
                f"*ELEMENT, TYPE={kind}, ELSET=ALL\n" +
                "".join(f"{e + 1}, " + ", ".join(map(str, ids)) + "\n" for e, ids in enumerate(elements)) + STEEL + section)

    rect = "*BEAM SECTION, ELSET=ALL, MATERIAL=STEEL, SECTION=RECT\n4., 2.5\n0.3, 0.1, 1.\n"
    skew = {2 * i + 3: (9.6 * i + 1, 4.32 * i, 5.76 * i) for i in range(7)}
    frame = {9: (0, 0, 0), 2: (20, 0, 0), 7: (40, 0, 0), 4: (40, 20, 0), 5: (40, 40, 0), 6: (40, 20, 20), 3: (40, 40, 20),
             8: (40, 40, 40), 1: (60, 0, 0), 10: (80, 0, 0)}
    sheet, numbers = [], {}
    for i, j in ((i, j) for i in range(2) for j in range(2)):
        for part in (lambda u, v: (u, v, 0.), lambda u, v: (10., v, u)):
            ring = [(0, 0), (2, 0), (2, 2), (0, 2), (1, 0), (2, 1), (1, 2), (0, 1)]
            sheet.append([numbers.setdefault(part(5. * i + 2.5 * a, 7. * j + 3.5 * b), len(numbers) + 1) for a, b in ring])
    fold = ("*ELSET, ELSET=UP\n2, 4, 6, 8\n*SHELL SECTION, ELSET=ALL, MATERIAL=STEEL\n1.\n"
            "*SHELL SECTION, ELSET=UP, MATERIAL=STEEL\n1.4\n")
    for name, text in (("skew_beam", deck("B31", skew, [(i, i + 2) for i in range(3, 15, 2)], rect)),
                       ("frame", deck("B32R", frame, [(9, 2, 7), (7, 4, 5), (5, 3, 8), (7, 1, 10)], rect)),
                       ("fold", deck("S8R", {n: at for at, n in numbers.items()}, sheet, fold))):
        solve(name, heading.format(name) + text + MATRICES, scratch, ["dof", "sti", "mas"], TESTS)
        solve(name + "_modes", heading.format(name) + text + "*STEP\n*FREQUENCY\n12\n*NODE FILE, OUTPUT=3D\nU\n*END STEP\n",
              scratch, ["frd", "dat"], TESTS)


def kept_jobs(scratch):
    """Trusses, shells and beams on solids, a laminate: decks that were written by hand, and are solved again as they stand."""
    for name in ("stiffened", "hung", "laminate"):
        for job, kinds in ((name, ["dof", "sti", "mas"]), (name + "_modes", ["frd", "dat"])):
            with gzip.open(os.path.join(TESTS, job + ".inp.gz"), "rt") as file:
                solve(job, file.read(), scratch, kinds, TESTS)


def plate(cells, size):
    """Nodes and S8R elements of a rectangle in the plane z = 0."""
    corners = [(0, 0), (2, 0), (2, 2), (0, 2), (1, 0), (2, 1), (1, 2), (0, 1)]
    grid = [(i, j) for i in range(2 * cells[0] + 1) for j in range(2 * cells[1] + 1) if not (i % 2 and j % 2)]
    number = {at: k + 1 for k, at in enumerate(grid)}
    elements = [[number[2 * i + a, 2 * j + b] for a, b in corners] for i in range(cells[0]) for j in range(cells[1])]
    return ("*NODE\n" + "".join(f"{number[i, j]}, {size[0] * i / (2 * cells[0]):.10g}, {size[1] * j / (2 * cells[1]):.10g}\n"
                                for i, j in grid) + "*ELEMENT, TYPE=S8R, ELSET=PLATE\n" +
            "".join(f"{k + 1}, " + ", ".join(map(str, ids)) + "\n" for k, ids in enumerate(elements)))


def patches(scratch, heading):
    """Pairs of crooked elements of each type, of two materials, whose nodes are all moved at random: stress of known displacement."""
    corner = [(0, 0, 0), (2, 0, 0), (2, 2, 0), (0, 2, 0), (0, 0, 2), (2, 0, 2), (2, 2, 2), (0, 2, 2)]
    bricks, edges = [list(range(8))], [(a, b) for a, b in zip([0, 1, 2, 3, 4, 5, 6, 7] + [0, 1, 2, 3],
                                                            [1, 2, 3, 0, 5, 6, 7, 4] + [4, 5, 6, 7])]
    wedges, sides = [[0, 1, 2, 4, 5, 6], [0, 2, 3, 4, 6, 7]], [(0, 1), (1, 2), (2, 0), (3, 4), (4, 5), (5, 3), (0, 3), (1, 4), (2, 5)]
    tets, ribs = [[1, 2, 0, 5], [2, 3, 0, 7]], [(0, 1), (1, 2), (2, 0), (0, 3), (1, 3), (2, 3)]
    types = {"C3D4": (tets, []), "C3D6": (wedges, []), "C3D8": (bricks, []), "C3D8R": (bricks, []), "C3D10": (tets, ribs),
             "C3D15": (wedges, sides), "C3D20": (bricks, edges), "C3D20R": (bricks, edges)}
    rng, numbers, nodes, moves, elements, sets = random.Random(7), {}, "", "", "", ([], [])

    def node(at):
        nonlocal nodes, moves
        if at not in numbers:
            numbers[at] = len(numbers) + 1
            nodes += f"{numbers[at]}, " + ", ".join(f"{c + rng.uniform(-0.15, 0.15):.5f}" for c in at) + "\n"
            moves += "".join(f"{numbers[at]}, {c}, {c}, {rng.uniform(-1, 1) * 1e-3:.6f}\n" for c in (1, 2, 3))
        return numbers[at]

    for row, (kind, (pieces, middles)) in enumerate(types.items()):
        elements += f"*ELEMENT, TYPE={kind}\n"
        for half in (0, 1):
            for piece in pieces:
                at = [(corner[k][0] + 2 * half, corner[k][1], corner[k][2] + 4 * row) for k in piece]
                at += [tuple((p + q) // 2 for p, q in zip(at[a], at[b])) for a, b in middles]
                sets[half].append(sum(map(len, sets)) + 1)
                elements += id_lines([sets[half][-1]] + [node(a) for a in at], 16)
    free = len(numbers) + 1
    nodes += f"{free}, 9.\n{free + 1}, 9., 1.\n{free + 2}, 9., 0., 1.\n{free + 3}, 10.\n"
    elements += f"*ELEMENT, TYPE=C3D4\n999, {free}, {free + 1}, {free + 2}, {free + 3}\n"
    deck = "*NODE\n" + nodes + elements.replace(",\n*", "\n*") + "*ELSET, ELSET=STEELS\n999,\n" + id_lines(sets[0])
    deck += "*ELSET, ELSET=WOODS\n" + id_lines(sets[1]) + STEEL + "*ORIENTATION, NAME=GRAIN\n1., 2., .5, -1., 1., .3\n3, 25.\n"
    deck += ("*MATERIAL, NAME=WOOD\n*ELASTIC, TYPE=ENGINEERING CONSTANTS\n100000., 50000., 30000., .25, .2, .3, 20000., 15000.,\n"
             "12000.\n*DENSITY\n7.e-10\n*SOLID SECTION, ELSET=STEELS, MATERIAL=STEEL\n"
             "*SOLID SECTION, ELSET=WOODS, MATERIAL=WOOD, ORIENTATION=GRAIN\n")
    held = "".join(f"{free + k}, 1, 3\n" for k in range(3))
    solve("patches", heading.format("Two elements of each type") + deck + "*STEP\n*STATIC\n*BOUNDARY\n" + held + moves +
          f"*CLOAD\n{free + 3}, 1, 1.\n*NODE FILE\nU\n*EL FILE\nS\n*END STEP\n", scratch, ["frd"], TESTS)


def main():
    heading = "*HEADING\n{}\n"
    section = "*SOLID SECTION, ELSET={}, MATERIAL=STEEL\n"
    with tempfile.TemporaryDirectory() as scratch:
        small_jobs(scratch, heading, section)
        hard_jobs(scratch, heading, section)
        joined_jobs(scratch, heading, section)
        patches(scratch, heading)
        expanded_jobs(scratch, heading)
        kept_jobs(scratch)
        mesh, count = beam((20, 2, 2), (1000., 40., 20.))
        model = mesh + STEEL + section.format("BEAM")
        title = heading.format("Steel beam 1000 x 40 x 20 mm of C3D20 bricks")
        solve("cantilever", title + model + MATRICES, scratch, ["dof", "sti", "mas"])
        free = "*STEP\n*FREQUENCY\n16\n*NODE FILE\nU\n*EL FILE\nS\n*END STEP\n"
        solve("free_beam", title + model + free, scratch, ["frd", "dat"])
        ends = [(count + 1, count + 2), (count + 3, count + 4)]
        ties = (f"*NODE\n{count + 1}, 0.\n{count + 2}, 0.\n{count + 3}, 1000.\n{count + 4}, 1000.\n"
                f"*NSET, NSET=REFERENCES\n" + id_lines([n for pair in ends for n in pair]) +
                "".join(f"*RIGID BODY, NSET={s}, REF NODE={a}, ROT NODE={b}\n" for s, (a, b) in zip(("ROOT", "TIP"), ends)))
        solve("tied_beam", title + mesh + ties + STEEL + section.format("BEAM") + unit_steps(ends), scratch, ["frd", "dat"])
        solve("rod", heading.format("Connecting rod") + rod_mesh(scratch) + STEEL + section.format("STEELROD") + MATRICES,
              scratch, ["dof", "sti", "mas"])


if __name__ == "__main__":
    main()
