// Arbitrary bytes as a desktop entry file of the live desktop's applications. An entry either has
// no program, or a program that is a plain file name, never a path.

#include "atspi/LiveProcesses.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DesktopEntry entry;
    QString program;
    const bool found =
        parseDesktopEntry(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)), &entry, &program);
    if (found != !program.isEmpty() || program.contains(QLatin1Char('/')))
        std::abort();
    return 0;
}
