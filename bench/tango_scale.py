"""Tango at scale: one RemoteCtrlDS with 100 devices on 50 znhost instances, 5 of them silent.

Usage: /usr/bin/python3 bench/tango_scale.py ZNHOST

Starts 50 znhosts (two simulated devices each) on loopback, stops 5 of them with SIGSTOP (they
take connections into the kernel's queue and never answer), then one device server with a
property file that gives every host's two devices a Timeout of DEVICE_TIMEOUT. It prints rows of
bench/run's table: server start to every device answering State, State read latency, Start on
the 45 answering hosts' first devices to all RUNNING, the server's threads idle and with those
acquisitions running, what a command to a silent host's device costs and what one to an
answering host costs meanwhile, and the State change events received against those expected.

A starting Tango server looks the machine's addresses up by name, so everything runs in a
network namespace where loopback is the only interface: the script starts itself again under
tests/python/isolated when other interfaces exist. Every process it starts is stopped at the end,
whatever fails.
"""

import ctypes
import math
import os
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path[:0] = [os.path.join(REPO, "python"), os.path.join(REPO, "tests", "python")]

from znhost_process import Znhost, free_loopback_port, wait_until  # noqa: E402

HOSTS = 50
SILENT_HOSTS = 5
DEVICES_PER_HOST = 2
HOST_CONFIG = "[Device0]\n[Device1]\n"  # two simulated devices that acquire and succeed
GOOD_DEVICES = range((HOSTS - SILENT_HOSTS) * DEVICES_PER_HOST)
SILENT_DEVICES = range(len(GOOD_DEVICES), HOSTS * DEVICES_PER_HOST)
STARTING = GOOD_DEVICES[::DEVICES_PER_HOST]  # each answering host's first device
DEVICE_TIMEOUT = 1.0  # seconds: the devices' Timeout property
EXPOSURE = 3.0  # seconds: long enough for every acquisition to run while the busy figures are taken
ROUNDS = 2  # of Start on STARTING
STATE_TARGET = 2.0  # seconds from start to every device answering State
SILENT_COMMAND_TARGET = 1.5 * DEVICE_TIMEOUT  # "about Timeout": the link adds nothing of its own
THREADS_TARGET = "<= idle"
SERVER_BOUND = 60.0  # generous bounds on a shared two-core machine
REPLY_BOUND = 15.0
CLIENT_TIMEOUT_MS = 10000  # above DEVICE_TIMEOUT, so that a slow device shows its own time-out
IDLE_READ_ROUNDS = 5
SUBSCRIPTION_SETTLE = 1.0  # a new subscription connects in the background
INSTANCE = "scale"
READY = "Ready to accept request"
NaN = float("nan")  # a figure that could not be taken
PR_SET_PDEATHSIG = 1  # prctl option: a signal for the child when its parent dies
ROW_FORMAT = "%-28s %-20s %10s %-6s %-28s %6s %-9s %s"


def only_loopback():
    return all(name == "lo" for _, name in socket.if_nameindex())


def figure(value):
    """A number as bench/table.cpp writes it: four significant digits or a whole number."""
    if math.isnan(value):
        return "n/a"
    magnitude = abs(value)
    if magnitude >= 1000:
        return "%.0f" % value
    for bound, digits in ((100, 1), (10, 2)):
        if magnitude >= bound:
            return "%.*f" % (digits, value)
    return "%.3f" % value


def row(benchmark, subject, value, unit, detail="", target="", met=None):
    verdict = "" if met is None else ("yes" if met else "NO")
    shown = "%d" % value if isinstance(value, int) else figure(value)
    print(ROW_FORMAT % (benchmark, subject, shown, unit, detail, "", target, verdict), flush=True)


def spread(seconds, scale=1000.0):
    """p50 and maximum of ``seconds``, times ``scale``."""
    return statistics.median(seconds) * scale, max(seconds) * scale


def device_name(index):
    return "%s/remotectrl/%d" % (INSTANCE, index)


def property_file(path, ports):
    """Two devices per host port, indexes 0 and 1, each with DEVICE_TIMEOUT."""
    names = [device_name(index) for index in range(len(ports) * DEVICES_PER_HOST)]
    lines = ["RemoteCtrlDS/%s/DEVICE/RemoteCtrl: %s" % (INSTANCE, ", ".join('"%s"' % name for name in names))]
    for index, name in enumerate(names):
        lines += ["%s->Port: %d" % (name, ports[index // DEVICES_PER_HOST]),
                  "%s->DeviceIndex: %d" % (name, index % DEVICES_PER_HOST),
                  "%s->Timeout: %g" % (name, DEVICE_TIMEOUT)]
    with open(path, "w") as out:
        out.write("\n".join(lines) + "\n")


def die_with_parent():
    # In a session of its own the server escapes a kill of this script's process group; a server
    # left running would keep its port and its fifty connections.
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def exit_on_signal(number, frame):
    raise SystemExit(128 + number)  # so that every process is stopped on the way out


class Server:
    """RemoteCtrlDS in a process group of its own, its output in FOLDER/server.out."""

    def __init__(self, folder, ports):
        self.folder, self.port = folder, free_loopback_port()
        self.output = os.path.join(folder, "server.out")
        property_file(os.path.join(folder, "scale.db"), ports)
        self.process = None

    def start(self):
        command = [sys.executable, "-m", "remotectrl.tango", INSTANCE, "-file=" + os.path.join(self.folder, "scale.db"),
                   "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % self.port]
        environment = dict(os.environ, PYTHONPATH=os.path.join(REPO, "python"), PYTHONDONTWRITEBYTECODE="1")
        with open(self.output, "w") as out:
            self.process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, cwd=self.folder,
                                            env=environment, start_new_session=True, preexec_fn=die_with_parent)

    def ready(self):
        with open(self.output, errors="replace") as source:
            return READY in source.read()

    def threads(self):
        with open("/proc/%d/status" % self.process.pid) as status:
            return next(int(line.split()[1]) for line in status if line.startswith("Threads:"))

    def url(self, index):
        return "tango://127.0.0.1:%d/%s#dbase=no" % (self.port, device_name(index))

    def stop(self):
        if self.process is None:
            return
        for sent, bound in ((signal.SIGTERM, REPLY_BOUND), (signal.SIGKILL, REPLY_BOUND)):
            try:
                os.killpg(self.process.pid, sent)
                self.process.wait(bound)
                break
            except (ProcessLookupError, subprocess.TimeoutExpired):
                continue
        self.process = None


class Events:
    """State change events of every device, with the moment each arrived."""

    def __init__(self):
        self.lock = threading.Lock()
        self.heard = []  # (device index, state, monotonic seconds)

    def listener(self, index):
        def push(event):
            if not event.err:
                with self.lock:
                    self.heard.append((index, event.attr_value.value, time.monotonic()))
        return push

    def since(self, moment, state=None):
        """The events from ``moment`` on; only those of ``state`` when one is given."""
        with self.lock:
            return [event for event in self.heard if event[2] >= moment and state in (None, event[1])]

    def devices(self, moment, state):
        """The devices that reported ``state`` from ``moment`` on."""
        return {event[0] for event in self.since(moment, state)}


def timed(call):
    """Seconds that call() took, and the exception it raised, if any."""
    before = time.perf_counter()
    try:
        call()
    except Exception as error:  # a refused command is a figure here, not a failure of the run
        return time.perf_counter() - before, error
    return time.perf_counter() - before, None


def await_every_state(proxies, started):
    """Seconds from ``started`` until every device has answered State, and the states then."""
    states = {}
    deadline = started + SERVER_BOUND
    while len(states) < len(proxies) and time.monotonic() < deadline:
        for index, proxy in enumerate(proxies):
            if index not in states:
                try:
                    states[index] = proxy.state()
                except Exception:  # not exported yet
                    pass
    if len(states) < len(proxies):
        raise RuntimeError("%d devices do not answer State within %g s" % (len(proxies) - len(states), SERVER_BOUND))
    return time.monotonic() - started, states


def state_reads(proxies, rounds):
    """Seconds of every State and every Status read, ``rounds`` times over ``proxies``."""
    return [timed(read)[0] for _ in range(rounds) for proxy in proxies for read in (proxy.state, proxy.status)]


def all_at_once(proxies, command):
    """Sends ``command`` to every proxy before waiting for any reply, as a scan program would."""
    requests = [(proxy, proxy.command_inout_asynch(command)) for proxy in proxies]
    for proxy, request in requests:
        proxy.command_inout_reply(request, CLIENT_TIMEOUT_MS)


def start_server(server, tango):
    """Starts the server; the start rows. Returns a proxy per device."""
    started = time.monotonic()
    server.start()
    if not wait_until(server.ready, SERVER_BOUND):
        raise RuntimeError("the server did not start:\n" + open(server.output, errors="replace").read()[-2000:])
    to_ready = time.monotonic() - started
    proxies = [tango.DeviceProxy(server.url(index)) for index in range(HOSTS * DEVICES_PER_HOST)]
    to_states, states = await_every_state(proxies, started)
    unknown = sum(state == tango.DevState.UNKNOWN for state in states.values())
    all_on = wait_until(lambda: all(proxies[index].state() == tango.DevState.ON for index in GOOD_DEVICES),
                        REPLY_BOUND)
    to_on = time.monotonic() - started if all_on else NaN
    benchmark = "Tango start, %d dev %d hosts" % (len(proxies), HOSTS)
    row(benchmark, "to Ready", to_ready, "s", "spawn to \"%s\"" % READY)
    row(benchmark, "to State from all", to_states, "s", "%d UNKNOWN, %d silent" % (unknown, len(SILENT_DEVICES)),
        "< %s s" % figure(STATE_TARGET), to_states < STATE_TARGET and unknown == len(SILENT_DEVICES))
    row(benchmark, "to %d devices ON" % len(GOOD_DEVICES), to_on, "s", "the answering hosts' devices")
    for proxy in proxies:
        proxy.set_timeout_millis(CLIENT_TIMEOUT_MS)
    return proxies


def idle_state_reads(proxies):
    for subject, indexes in (("answering hosts", GOOD_DEVICES), ("silent hosts", SILENT_DEVICES)):
        reads = state_reads([proxies[index] for index in indexes], IDLE_READ_ROUNDS)
        p50, peak = spread(reads)
        row("Tango State+Status, idle", subject, p50, "ms", "max %s ms, %d reads" % (figure(peak), len(reads)))


def one_by_one(proxies, command):
    for proxy in proxies:
        proxy.command_inout(command)


def start_round(send, starting, events, tango):
    """Start on every device of STARTING, sent by ``send``; when that began, the seconds to every
    Start accepted and to the last RUNNING event."""
    began = time.monotonic()
    send(starting, "Start")
    accepted = time.monotonic() - began
    all_running = wait_until(lambda: events.devices(began, tango.DevState.RUNNING) >= set(STARTING), REPLY_BOUND)
    last_running = max(event[2] for event in events.since(began, tango.DevState.RUNNING)) if all_running else NaN
    return began, accepted, last_running - began


def await_end(events, began, tango):
    return wait_until(lambda: events.devices(began, tango.DevState.ON) >= set(STARTING), EXPOSURE + REPLY_BOUND)


def start_all(server, proxies, tango, events):
    """Two rounds of Start on STARTING; commands while the silent hosts hang during the first.
    Returns when the first began and whether every acquisition of both ended."""
    starting = [proxies[index] for index in STARTING]
    cold_threads = server.threads()
    for proxy in starting:
        proxy.write_attributes([("Count", 1), ("ExposureTime", EXPOSURE)])
    began, accepted, to_running = start_round(all_at_once, starting, events, tango)
    benchmark = "Tango start-all, %d devices" % len(starting)
    row(benchmark, "all accepted", accepted, "s", "asynchronous Start on each")
    row(benchmark, "all RUNNING", to_running, "s", "last RUNNING event")
    commands_while_hosts_hang(proxies)
    ended = await_end(events, began, tango)
    # The ORB serves requests on a pool of threads that grows with the requests in flight (the
    # burst of Starts above) and keeps them: the second round sends its Starts one by one, so that
    # the pool holds still and the counts show the device server's own threads.
    idle_threads = server.threads()
    again, _, _ = start_round(one_by_one, starting, events, tango)
    busy_threads = server.threads()
    ended = await_end(events, again, tango) and ended
    row("Tango server threads", "%d acquisitions" % len(starting), busy_threads, "thr",
        "idle %d; %d before 1st burst" % (idle_threads, cold_threads), THREADS_TARGET,
        busy_threads <= idle_threads)
    return began, ended


def count_events(events, began, ended, tango):
    seen = events.since(began)
    acquisition_events = sum(event[0] in STARTING and event[1] in (tango.DevState.RUNNING, tango.DevState.ON)
                             for event in seen)
    expected = 2 * ROUNDS * len(STARTING)
    others = sum(event[0] not in STARTING for event in seen)
    row("Tango State change events", "RUNNING and ON", acquisition_events, "events",
        "%d expected; %d others" % (expected, others), "= %d" % expected, ended and acquisition_events == expected)


def measure(server, silent_hosts, tango):
    proxies = start_server(server, tango)
    idle_state_reads(proxies)
    events = Events()
    subscriptions = [(proxy, proxy.subscribe_event("State", tango.EventType.CHANGE_EVENT, events.listener(index)))
                     for index, proxy in enumerate(proxies)]
    try:
        time.sleep(SUBSCRIPTION_SETTLE)
        began, ended = start_all(server, proxies, tango, events)
        count_events(events, began, ended, tango)
        resume(silent_hosts, proxies, tango)
    finally:
        for proxy, subscription in subscriptions:
            try:
                proxy.unsubscribe_event(subscription)
            except Exception:  # the server may be gone already; it is stopped next
                pass


def resume(silent_hosts, proxies, tango):
    """Lets the silent hosts run again: their devices must turn ON without a command."""
    resumed = time.monotonic()
    for host in silent_hosts:
        os.kill(host.process.pid, signal.SIGCONT)
    all_on = wait_until(lambda: all(proxies[index].state() == tango.DevState.ON for index in SILENT_DEVICES),
                        REPLY_BOUND)
    row("Tango silent hosts resumed", "to %d devices ON" % len(SILENT_DEVICES),
        time.monotonic() - resumed if all_on else NaN, "s", "SIGCONT to ON, no command")


def commands_while_hosts_hang(proxies):
    """GuiIsRunning on every silent host's device at once; meanwhile State on every device and
    GuiIsRunning on five answering hosts' second devices, whose first ones acquire."""
    silent = [None] * len(SILENT_DEVICES)

    def ask(slot, index):
        silent[slot] = timed(proxies[index].GuiIsRunning)

    askers = [threading.Thread(target=ask, args=(slot, index)) for slot, index in enumerate(SILENT_DEVICES)]
    for asker in askers:
        asker.start()
    reads, commands = [], []
    while any(asker.is_alive() for asker in askers):
        reads += state_reads(proxies, 1)
        commands += [timed(proxies[index].GuiIsRunning)[0] for index in GOOD_DEVICES[1:10:DEVICES_PER_HOST]]
    for asker in askers:
        asker.join(REPLY_BOUND)
    durations = [taken for taken, _ in silent]
    answered = sum(error is None for _, error in silent)  # a silent host must not seem to answer
    p50, peak = spread(reads)
    row("Tango State+Status, busy", "all 100 devices", p50, "ms", "max %s ms, %d reads" % (figure(peak), len(reads)))
    p50, peak = spread(durations, 1.0)
    row("Tango command, silent host", "GuiIsRunning x %d" % len(durations), p50, "s",
        "max %s s; Timeout %g s" % (figure(peak), DEVICE_TIMEOUT), "< %s s" % figure(SILENT_COMMAND_TARGET),
        peak < SILENT_COMMAND_TARGET and answered == 0)
    p50, peak = spread(commands)
    row("Tango command, answering", "GuiIsRunning", p50, "ms",
        "max %s ms, %d meanwhile" % (figure(peak), len(commands)))


def main():
    if len(sys.argv) != 2:
        print(__doc__.split("\n\n")[1], file=sys.stderr)
        return 2
    if not only_loopback():
        isolated = os.path.join(REPO, "tests", "python", "isolated")
        if subprocess.run([isolated, "true"], stderr=subprocess.DEVNULL).returncode != 0:
            print("(Tango scale benchmark not run: no network namespace of its own, see tests/python/isolated)")
            return 0
        os.execv(isolated, [isolated, sys.executable, *sys.argv])
    try:
        import tango
    except ImportError as missing:
        print("(Tango scale benchmark not run: PyTango is missing (%s), see tools/install-deps)" % missing)
        return 0
    os.environ["REMOTECTRL_ZNHOST"] = sys.argv[1]
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, exit_on_signal)
    hosts = []
    with tempfile.TemporaryDirectory(prefix="rcbench-tango-") as folder:
        server = None
        try:
            for _ in range(HOSTS):
                hosts.append(Znhost(HOST_CONFIG))
                hosts[-1].start()
            for host in hosts[HOSTS - SILENT_HOSTS:]:
                os.kill(host.process.pid, signal.SIGSTOP)
            server = Server(folder, [host.port for host in hosts])
            measure(server, hosts[HOSTS - SILENT_HOSTS:], tango)
        finally:
            if server is not None:
                server.stop()
            for host in hosts:
                if host.process is not None:
                    os.kill(host.process.pid, signal.SIGCONT)
                host.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
