"""Exceptions of the package."""


class EsforecastError(Exception):
    """A run that could not go on: bad options, a series that can't be
    modelled, a method that failed. The message is the one the command line
    prints; ``status`` is the exit status the command line would give (1 for
    bad options or input, 3 when the module can't be loaded, 4 when a method
    answered with a failure code)."""

    def __init__(self, message, status=1):
        super().__init__(message)
        self.status = status


class SeriesFailedWarning(UserWarning):
    """Some series of a batch could not be forecast; their reasons are in the
    result's status frame."""
