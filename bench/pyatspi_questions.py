#!/usr/bin/python3
# The plain answers to compare with bench_liveQuestions, with pyatspi as it comes, for every
# element of one application: the ancestors up to the application, each step checked against the
# parent's own list of children (GTK's index in the parent does not always lead back to the child),
# and the window (the ancestor right below the application, or the element itself when it is one).
#   pyatspi_questions.py PID [REPEATS]
import ctypes
import sys
import time

import pyatspi

try:
    counter = ctypes.CDLL(None).dbusCallCount
    counter.restype = ctypes.c_ulonglong
except AttributeError:
    counter = None


# The elements that are shown, as ours lists them.
def collect(accessible, elements, depth=0):
    elements.append(accessible)
    if depth < 64:
        for child in accessible:
            if child is not None and child.getState().contains(pyatspi.STATE_SHOWING):
                collect(child, elements, depth + 1)


def ancestors(accessible):
    chain = []
    while True:
        if accessible.getRole() == pyatspi.ROLE_APPLICATION:
            return True
        parent = accessible.parent
        if parent is None:
            return False
        if not any(child == accessible for child in parent):
            return False
        chain.insert(0, parent)
        accessible = parent


def window(accessible):
    while True:
        parent = accessible.parent
        if parent is None:
            return False
        if parent.getRole() == pyatspi.ROLE_APPLICATION:
            return accessible.getRole() != pyatspi.ROLE_APPLICATION
        accessible = parent


def measure(question, elements, repeats, ask):
    before = counter() if counter else 0
    answered = 0
    start = time.perf_counter()
    for _ in range(repeats):
        for element in elements:
            answered += 1 if ask(element) else 0
    elapsed_us = (time.perf_counter() - start) * 1e6
    calls = len(elements) * repeats
    trips = (counter() - before) / calls if counter else -1
    print("%s calls %d answered %d round-trips/call %.2f us/call %.1f"
          % (question, calls, answered // repeats, trips, elapsed_us / calls))


def main():
    pid = int(sys.argv[1])
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    desktop = pyatspi.Registry.getDesktop(0)
    application = next(a for a in desktop if a is not None and a.get_process_id() == pid)
    elements = []
    collect(application, elements)
    print("elements %d" % len(elements))
    measure("ancestors", elements, repeats, ancestors)
    measure("window", elements, repeats, window)


main()
