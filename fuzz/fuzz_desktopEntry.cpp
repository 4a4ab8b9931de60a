// Arbitrary bytes as a desktop entry file of the installed applications. An entry that stands for
// an application has a program; a program is a plain file name, never a path.

#include "appkit/DesktopEntries.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DesktopEntry entry;
    const bool found =
        parseDesktopEntry(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)), &entry);
    if ((found && entry.program.isEmpty()) || entry.program.contains(QLatin1Char('/')))
        std::abort();
    return 0;
}
