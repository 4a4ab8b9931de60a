#!/usr/bin/python3
# The plain walk to compare with bench_liveWalk: the same role, name and extents of every element of
# one application, with pyatspi as it comes.
#   pyatspi_walk.py PID [REPEATS]
import sys
import time

import pyatspi


def walk(accessible, totals, depth=0):
    accessible.getRole()
    accessible.name
    try:
        accessible.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    except NotImplementedError:
        pass
    totals[0] += 1
    totals[1] += 3
    if depth > 64:
        return
    for child in accessible:
        if child is not None:
            walk(child, totals, depth + 1)


def main():
    pid = int(sys.argv[1])
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    desktop = pyatspi.Registry.getDesktop(0)
    application = next(a for a in desktop if a is not None and a.get_process_id() == pid)
    totals = [0, 0]
    start = time.perf_counter()
    for _ in range(repeats):
        walk(application, totals)
    elapsed_us = (time.perf_counter() - start) * 1e6
    print("elements %d reads %d us/read %.1f" % (totals[0] // repeats, totals[1], elapsed_us / totals[1]))


main()
