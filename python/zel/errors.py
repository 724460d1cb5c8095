"""What becomes of the library's messages: exceptions, warnings and log records. Nothing is printed."""

import logging
import sys
import warnings

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


def deliver(messages: list[tuple[int, str]]) -> None:
    """Log, warn and raise, as the severities of a call's messages ask for."""
    errors = []
    for severity, text in messages:
        text = text.strip("\n")
        if severity == _ERROR:
            errors.append(text)
        elif severity == _WARNING:
            warnings.warn(ZelWarning(text), stacklevel=_level_of_caller())
        elif text:
            _log.info("%s", text)
    if errors:
        raise ZelError("\n".join(errors))
