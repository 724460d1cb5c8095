"""What becomes of the library's messages: exceptions, warnings and log records. Nothing is printed."""

import logging
import sys
import threading
import warnings
from collections.abc import Iterator
from contextlib import contextmanager

_INFO, _WARNING, _ERROR = range(3)
_log = logging.getLogger("zel")


class ZelError(RuntimeError):
    """An operation of the library failed. The text has all lines that the library said, one below the other."""

    @property
    def lines(self) -> list[str]:
        """The lines of the text."""
        return str(self).splitlines()


class ZelWarning(UserWarning):
    """The library went on, but has something to say."""


def _level_of_caller() -> int:
    # As warnings.warn counts: how many frames above the one that calls it the first is that is not of this package.
    level = 1
    frame = sys._getframe(1)
    while frame.f_back is not None and frame.f_globals.get("__name__", "").partition(".")[0] == "zel":
        frame = frame.f_back
        level += 1
    return level


_here = threading.local()


@contextmanager
def set_aside(*beginnings: str) -> Iterator[None]:
    """Within it, warnings of this thread that begin so are not given: they are known to mean nothing."""
    _here.aside = beginnings
    try:
        yield
    finally:
        _here.aside = ()


def warn(text: str) -> None:
    """A ZelWarning that points at the line outside of this package which led to it."""
    warnings.warn(ZelWarning(text), stacklevel=_level_of_caller())


def deliver(messages: list[tuple[int, str]], errors_raise: bool = True) -> None:
    """Log, warn and raise, as the severities of a call's messages ask for. Errors may be no more than warnings."""
    errors: list[str] = []
    warned: list[str] = []
    for severity, text in messages:
        text = text.strip("\n")
        if severity == _ERROR and errors_raise:
            errors.append(text)
        elif severity != _INFO and text.startswith(" ") and warned:
            warned[-1] += "\n" + text  # a row of the list that the one before announces
        elif severity != _INFO:
            warned.append(text)
        elif text:
            _log.info("%s", text)
    for text in warned:
        if text.startswith(getattr(_here, "aside", ())):
            continue
        warn(text)
    if errors:
        raise ZelError("\n".join(errors))
