"""Times queries made through the Python package and through its Tango device server.

rcbench_clients (clients_bench.cpp) starts this with PYTHONPATH naming the source tree's package
and talks to it over standard input and output, one line each way per batch:

    python PORT WARM_UP COUNT SECONDS   Client.gui_is_running(0) against 127.0.0.1:PORT
    tango URL WARM_UP COUNT SECONDS     DeviceProxy(URL).GuiIsRunning()

A batch makes WARM_UP untimed calls, then COUNT timed ones or as many as SECONDS allow, and is
answered with "ok" and every timed call's seconds, or "error" and why there are none. The worker
only makes calls: the servers belong to the driver, which starts and stops them. It ends at the
end of its input.
"""

import os
import sys
import time

from remotectrl import Client

DEVICE = 0
REPLY_TIMEOUT = 5.0

_proxies = {}


def timed_calls(call, warm_up, count, seconds):
    for _ in range(warm_up):
        call()
    latencies = []
    start = time.perf_counter()
    while len(latencies) < count and time.perf_counter() - start <= seconds:
        before = time.perf_counter()
        call()
        latencies.append(time.perf_counter() - before)
    return latencies


def python_batch(port, warm_up, count, seconds):
    with Client("127.0.0.1", int(port), timeout=REPLY_TIMEOUT) as client:
        return timed_calls(lambda: client.gui_is_running(DEVICE), warm_up, count, seconds)


def tango_batch(url, warm_up, count, seconds):
    # Imported here: the driver asks for Tango batches only where a Tango server may run.
    import tango

    if url not in _proxies:
        _proxies[url] = tango.DeviceProxy(url)
        _proxies[url].set_timeout_millis(int(REPLY_TIMEOUT * 1000))
    return timed_calls(_proxies[url].GuiIsRunning, warm_up, count, seconds)


BATCHES = {"python": python_batch, "tango": tango_batch}


def reason(error):
    # Tango's DevFailed keeps its text in the description of its first argument.
    first = error.args[0] if error.args else None
    return " ".join(str(getattr(first, "desc", None) or error).split())


def answer(request):
    subject, target, warm_up, count, seconds = request.split()
    try:
        latencies = BATCHES[subject](target, int(warm_up), int(count), float(seconds))
    except Exception as error:  # a failed batch is a row without figures, not the end of the run
        return "error %s: %s" % (type(error).__name__, reason(error))
    return "ok " + " ".join("%.9f" % latency for latency in latencies)


def main():
    channel = os.fdopen(os.dup(sys.stdout.fileno()), "w")
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())  # what Tango prints must not reach the driver
    for request in sys.stdin:
        channel.write(answer(request) + "\n")
        channel.flush()
    return 0


if __name__ == "__main__":
    sys.exit(main())
