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
import logging

from . import _syntax

log = logging.getLogger("remotectrl")

# What a received line turned out to be, as Pairing.take() reports it.
REPLY = "reply"  # a reply to a sent command
FINAL = "final"  # the final line of this client's acquisition
STRAY = "stray"  # a final line that belongs to an earlier client: dropped


class Command:
    __slots__ = ("kind", "replies", "done", "held_final")

    def __init__(self, kind):
        self.kind = kind
        self.replies = []
        self.done = False
        self.held_final = None

    def refused(self):
        return any(reply.startswith("ERROR: ") for reply in self.replies)


class Pairing:
    def __init__(self):
        self._queue = collections.deque()
        # Accepted STARTs whose final line has not arrived. More than one only in a race: the
        # server can accept a new START just before the previous acquisition sends its final line.
        self._pending = 0
        # The latest final line of this client's acquisitions, once it has arrived and until it is
        # taken.
        self.final = None

    @property
    def acquisition_pending(self):
        return self._pending > 0

    def sent(self, kind):
        command = Command(kind)
        self._queue.append(command)
        return command

    def take(self, line):
        """Routes one received line (without its line feed).

        Returns what the lines it settles turned out to be, in order, as (REPLY, FINAL or STRAY,
        line) pairs: none for a START's sync reply or for a final line held until that START's
        fate is known, the held line once it is.
        """
        routed = []
        if line in _syntax.FINAL_REPLIES:
            self._take_final(line, routed)
        elif self._queue and line == _syntax.SYNC_REPLY:
            self._complete(self._queue.popleft(), line, routed)
        else:
            if self._queue:
                self._queue[0].replies.append(line)
            else:
                log.warning("dropped %r: no command of this client was waiting for a reply", line)
            routed.append((REPLY, line))
        return routed

    def _take_final(self, line, routed):
        if self._pending > 0:
            self._pending -= 1
            self._final(line, routed)
        elif self._front_start_may_own():
            self._queue[0].held_final = line
        else:
            _drop_stray(line, routed)

    def _front_start_may_own(self):
        # Only the oldest unanswered command can be the one the server is working on.
        if not self._queue:
            return False
        front = self._queue[0]
        return front.kind == _syntax.START and front.held_final is None and not front.refused()

    def _complete(self, command, line, routed):
        if command.kind == _syntax.SELF_SYNC:
            command.replies.append(line)
            routed.append((REPLY, line))
        command.done = True
        if command.kind != _syntax.START:
            return
        if command.refused():
            if command.held_final is not None:
                _drop_stray(command.held_final, routed)
        elif command.held_final is not None:
            self._final(command.held_final, routed)
        else:
            self._pending += 1

    def _final(self, line, routed):
        self.final = line
        routed.append((FINAL, line))


def _drop_stray(line, routed):
    log.warning(
        "dropped %r: no acquisition of this client was pending, so it ends an earlier client's START",
        line,
    )
    routed.append((STRAY, line))
