#!/usr/bin/python3
# The plain resolution to compare with bench_resolution, with pyatspi as it comes: every shown
# element with a frame of one application, found again from the desktop: the application by its
# process, then the element by its path (the child's index at each level, worked out here
# beforehand), child by child, reading at each level what matching needs: the list of children
# (their count, then each), and of each child its role and name. 10 ms between two resolutions, as
# bench_resolution has. Prints the same table per depth (the steps from the application; depth 0
# the application alone); with the D-Bus call counter preloaded, the messages sent and the waits
# for a reply, and per depth which bus calls those were.
#   pyatspi_resolve.py PID [REPEATS]
import ctypes
import sys
import time

import pyatspi

LEAST_INT = -(2 ** 31)  # both coordinates at it: the toolkits' off-screen extents, no frame


def preloaded(name, restype):
    try:
        function = getattr(ctypes.CDLL(None), name)
    except AttributeError:
        return None
    function.restype = restype
    return function


messages = preloaded("dbusMessageCount", ctypes.c_ulonglong)
waits = preloaded("dbusWaitCount", ctypes.c_ulonglong)
tally = preloaded("dbusCallTally", ctypes.c_size_t)


def call_tally():
    if tally is None:
        return {}
    buffer = ctypes.create_string_buffer(tally(None, 0) + 1)
    tally(buffer, len(buffer))
    counts = {}
    for line in buffer.value.decode().splitlines():
        count, name = line.split(" ", 1)
        counts[name] = int(count)
    return counts


def has_frame(accessible):
    try:
        extents = accessible.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    except NotImplementedError:
        return False
    return not (extents.x == LEAST_INT and extents.y == LEAST_INT)


# The shown elements with a frame below `accessible`, with their paths, depth first.
def collect(accessible, path, found):
    if len(path) > 64:
        return
    for index, child in enumerate(accessible):
        if child is None or not child.getState().contains(pyatspi.STATE_SHOWING):
            continue
        if has_frame(child):
            found.append((path + [index], child))
        collect(child, path + [index], found)


# Like the tool, which keeps nothing from one tick to the next, starts from the desktop.
def find_application(desktop, pid):
    return next((a for a in desktop if a is not None and a.get_process_id() == pid), None)


def resolve(desktop, pid, path):
    current = find_application(desktop, pid)
    for index in path:
        if current is None:
            return None
        children = [current.getChildAtIndex(i) for i in range(current.childCount)]
        for child in children:
            if child is not None:
                child.getRole()
                child.name
        if index >= len(children):
            return None
        current = children[index]
    return current


def count(counter):
    return counter() if counter else 0


def main():
    pid = int(sys.argv[1])
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    desktop = pyatspi.Registry.getDesktop(0)
    application = find_application(desktop, pid)
    elements = []
    collect(application, [], elements)
    # Depth 0: the application alone, what every resolution pays first.
    by_depth = {0: [([], application)]}
    for path, element in elements:
        by_depth.setdefault(len(path), []).append((path, element))

    counted = messages is not None and waits is not None
    print("elements with a frame %d, each resolved %d times" % (len(elements), repeats))
    print("%6s%8s%8s%8s%11s%11s%10s%10s%10s"
          % ("depth", "descr", "found", "failed", "median us", "max us", "AX calls", "D-Bus msg", "waits"))
    breakdowns = []
    for depth in sorted(by_depth):
        descriptions = by_depth[depth]
        times, found, sent, waited = [], 0, 0, 0
        before = call_tally()
        for _ in range(repeats):
            for path, element in descriptions:
                time.sleep(0.01)
                sent_before, waited_before = count(messages), count(waits)
                start = time.perf_counter_ns()
                result = resolve(desktop, pid, path)
                times.append(time.perf_counter_ns() - start)
                sent += count(messages) - sent_before
                waited += count(waits) - waited_before
                found += 1 if result == element else 0
        after = call_tally()
        resolutions = len(times)
        times.sort()
        print("%6d%8d%8d%8d%11.0f%11.0f%10s%10s%10s"
              % (depth, len(descriptions), found, resolutions - found, times[resolutions // 2] / 1000,
                 times[-1] / 1000, "-", "%.1f" % (sent / resolutions) if counted else "-",
                 "%.1f" % (waited / resolutions) if counted else "-"))
        grown = sorted(((after[name] - before.get(name, 0), name) for name in after
                        if after[name] > before.get(name, 0)), reverse=True)
        breakdowns.append("depth %d: %s" % (depth, ", ".join(
            "%s %.1f" % (name, n / resolutions) for n, name in grown)))
    if tally is not None:
        print("per resolution, by bus call:")
        print("\n".join(breakdowns))


main()
