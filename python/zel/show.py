"""A body on one screen, as text and as a table for notebooks."""

from __future__ import annotations

import html
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from .reading import Readable

_FREQUENCIES_SHOWN = 30


def _head(body: Readable) -> list[tuple[str, str]]:
    facts = body._facts()
    encoding = "portable (XDR)" if body.portable else "native"
    precision = "double" if body.double_precision else "single"

    def vector(values: list[float]) -> str:
        return "  ".join(f"{value:.6g}" for value in values)

    return [
        ("title", body.header.title),
        ("version", f"{body.version:.1f}, {encoding}, {precision} precision"),
        ("units", ", ".join(body.units)),
        ("nodes", str(len(body.nodes))),
        ("modes", str(len(body.modes))),
        ("faces", str(len(body.faces.offsets) - 1)),
        ("interface_nodes", str(len(body.interface_nodes))),
        ("mass", f"{facts.mass:.6g}"),
        ("center_of_mass", vector(facts.center)),
        ("principal_inertias", vector(facts.principal_inertias)),
    ]


def _frequencies(body: Readable) -> list[tuple[str, str]]:
    rows = body._facts().frequencies
    shown = [(str(mode), "rigid body" if rigid else f"{hertz:.6g}") for mode, hertz, rigid in rows[:_FREQUENCIES_SHOWN]]
    if len(rows) > _FREQUENCIES_SHOWN:
        shown.append(("...", f"{len(rows) - len(shown)} more"))
    return shown


def as_text(body: Readable) -> str:
    """The lines that `zel info` prints of a file."""
    facts = body._facts()
    lines = [f"  {name:<18} {value}" for name, value in _head(body)]
    if facts.coupled:
        lines += ["", "  The modes are coupled by generalized matrices; so the body vibrates freely:"]
    lines += ["", f"  {'free' if facts.coupled else 'mode':>6}  {'frequency, Hz':>14}"]
    lines += [f"  {mode:>6}  {hertz:>14}" for mode, hertz in _frequencies(body)]
    if facts.coupled and not facts.frequencies:
        lines.append("  none: the generalized mass is not positive")
    lines += ["", f"  {'block':<32} {'bytes':>14}"]
    lines += [f"  {number:>2} {name:<29} {size:>14}" for number, name, size in facts.blocks]
    return "\n".join(lines)


def as_html(body: Readable) -> str:
    """The same without the blocks, as a table."""
    rows = _head(body)
    rows += [(f"{'free' if body._facts().coupled else 'mode'} {mode}, Hz", hertz) for mode, hertz in _frequencies(body)]
    cells = "".join(f"<tr><th>{html.escape(name)}</th><td>{html.escape(value)}</td></tr>" for name, value in rows)
    return f"<table>{cells}</table>"
