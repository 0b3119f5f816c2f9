"""Exceptions that carry the server's answer."""


class RemoteError(Exception):
    """The server answered with an error (or an answer the command cannot have).

    ``reply`` holds the exact line, e.g. "ERROR: INVALID DEVICE INDEX".
    """

    def __init__(self, reply: str) -> None:
        """Keeps ``reply``, the server's line, as the message and as ``self.reply``."""
        super().__init__(reply)
        self.reply = reply


class AcquisitionFailed(RemoteError):
    """An accepted START ended with "ERROR: ACQUISITION FAILED" (also after stop())."""
