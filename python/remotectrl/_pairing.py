"""Pairing reply lines with the commands that caused them.

Every command but the session-ending ones is followed, in the same write, by the sync line
"GUI_SETFILE()", which the server answers with its argument-count error, in order and in every
state. So the lines before that answer are the command's own replies, and a command that has
none succeeded silently. A GUI_SETFILE without two arguments is sent alone: its own reply is the
sync text.

"OK" and "ERROR: ACQUISITION FAILED" are the final line of a running acquisition whenever they
arrive. One that arrives while a START is still waiting for its sync reply is held until that
START's fate is known: if the START was accepted the line is its final line (a short acquisition
can end before the sync reply), if refused it belongs to an earlier client. A final line with no
acquisition of this client pending belongs to an earlier client's START and is dropped with a
warning on the "remotectrl" logger. Every final line of this client is its own, also when a later
START of its own was accepted before an earlier one's final line arrived.

Commands wait in a queue because a caller may give up waiting for one (a time-out): its replies
still arrive later and are then matched to it, not to the next command.
"""

import collections
import enum
import logging
from typing import Deque, List, Optional, Tuple

from . import _wire
from ._syntax import PairingKind

log = logging.getLogger("remotectrl")


class Routed(enum.Enum):
    """What a received line turned out to be, as Pairing.take() reports it."""

    REPLY = "reply"  # a reply to a sent command, or a line no command waits for (dropped)
    FINAL = "final"  # the final line of this client's acquisition
    STRAY = "stray"  # a final line that belongs to an earlier client: dropped


class Command:
    __slots__ = ("kind", "replies", "done", "held_final")

    def __init__(self, kind: PairingKind) -> None:
        self.kind = kind
        self.replies: List[str] = []
        self.done = False
        self.held_final: Optional[str] = None

    def refused(self) -> bool:
        return any(_wire.is_error(reply) for reply in self.replies)


class Pairing:
    def __init__(self) -> None:
        self._queue: Deque[Command] = collections.deque()
        # Accepted STARTs whose final line has not arrived. More than one only in a race: the
        # server can accept a new START just before the previous acquisition sends its final line.
        self._pending = 0
        # The latest final line of this client's acquisitions, once it has arrived and until it is
        # taken.
        self.final: Optional[str] = None

    @property
    def acquisition_pending(self) -> bool:
        return self._pending > 0

    def sent(self, kind: PairingKind) -> Command:
        command = Command(kind)
        self._queue.append(command)
        return command

    def take(self, line: str) -> List[Tuple[Routed, str]]:
        """Routes one received line (without its line feed).

        Returns what the lines it settles turned out to be, in order: none for a START's sync
        reply or for a final line held until that START's fate is known, the held line once it is.
        A line that no command waits for is dropped with a warning.
        """
        routed: List[Tuple[Routed, str]] = []
        if _wire.is_final(line):
            self._take_final(line, routed)
        elif self._queue and line == _wire.SYNC_REPLY:
            self._complete(self._queue.popleft(), line, routed)
        else:
            if self._queue:
                self._queue[0].replies.append(line)
            else:
                log.warning("dropped %r: no command of this client was waiting for a reply", line)
            routed.append((Routed.REPLY, line))
        return routed

    def _take_final(self, line: str, routed: List[Tuple[Routed, str]]) -> None:
        if self._pending > 0:
            self._pending -= 1
            self._final(line, routed)
        elif self._front_start_may_own():
            self._queue[0].held_final = line
        else:
            _drop_stray(line, routed)

    def _front_start_may_own(self) -> bool:
        # Only the oldest unanswered command can be the one the server is working on.
        if not self._queue:
            return False
        front = self._queue[0]
        return front.kind == PairingKind.START and front.held_final is None and not front.refused()

    def _complete(self, command: Command, line: str, routed: List[Tuple[Routed, str]]) -> None:
        if command.kind == PairingKind.SELF_SYNC:
            command.replies.append(line)
            routed.append((Routed.REPLY, line))
        command.done = True
        if command.kind != PairingKind.START:
            return
        if command.refused():
            if command.held_final is not None:
                _drop_stray(command.held_final, routed)
        elif command.held_final is not None:
            self._final(command.held_final, routed)
        else:
            self._pending += 1

    def _final(self, line: str, routed: List[Tuple[Routed, str]]) -> None:
        self.final = line
        routed.append((Routed.FINAL, line))


def _drop_stray(line: str, routed: List[Tuple[Routed, str]]) -> None:
    log.warning(
        "dropped %r: no acquisition of this client was pending, so it ends an earlier client's START",
        line,
    )
    routed.append((Routed.STRAY, line))
