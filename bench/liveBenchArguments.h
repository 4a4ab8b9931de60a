#pragma once

// The arguments of the live desktop benchmarks: PID [REPEATS].

#include <QStringList>

#include <sys/types.h>

#include <cstdio>

// False, with the usage printed, when the pid or the count is not a positive number.
inline bool readLiveBenchArguments(const QStringList& arguments, int defaultRepeats, pid_t& pid,
                                   int& repeats) {
    bool ok = false;
    pid = arguments.value(1).toInt(&ok);
    repeats = arguments.size() > 2 ? arguments.at(2).toInt() : defaultRepeats;
    if (ok && pid > 0 && repeats > 0)
        return true;
    std::fprintf(stderr, "usage: %s PID [REPEATS]\n", qPrintable(arguments.value(0)));
    return false;
}
