# SPDX-License-Identifier: MIT
"""The exceptions raised for the library's negative results."""

# What each result code means, as the library's rules state it.
MEANINGS = {
    -1: "general failure (bad file, bad JSON, missing section, empty result, unknown service code, "
        "bus not connected or library not opened)",
    -2: "unknown selector, unsupported protocol, or bad arguments refused by the bus",
    -3: "unknown signal event, option-table failure, or the service is offline",
    -4: "the service did not answer in time (8 s)",
}


class Error(Exception):
    """An operation returned a negative result.

    ``code`` is the int the library returned, ``operation`` the name of the operation (the
    method's name, e.g. ``"get_voting"``). The message names both and says what the code means.
    """

    def __init__(self, operation: str, code: int) -> None:
        meaning = MEANINGS.get(code, "unknown result code")
        super().__init__(f"{operation} failed with {code}: {meaning}")
        self.operation = operation
        self.code = code

    def __reduce__(self):
        return (type(self), (self.operation, self.code))


class Timeout(Error, TimeoutError):
    """The service did not answer in time (code -4): both an Error and a TimeoutError."""


def error_for(operation: str, code: int) -> Error:
    """The exception for a negative result `code` of `operation`."""
    return Timeout(operation, code) if code == -4 else Error(operation, code)
