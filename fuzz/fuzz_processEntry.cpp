// Arbitrary bytes as the "comm" and "status" files of one /proc entry, split at the first zero
// byte. A parsed entry has a name of 1 to MAXCOMLEN characters, ended by a zero.

#include "platformProcessTable.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype zero = input.indexOf('\0');
    const QByteArray comm = zero < 0 ? input : input.left(zero);
    const QByteArray status = zero < 0 ? QByteArray() : input.mid(zero + 1);
    kinfo_proc entry;
    std::memset(&entry, 0x55, sizeof entry);
    if (!parseProcessEntry(comm, status, &entry))
        return 0;
    const size_t length = strnlen(entry.kp_proc.p_comm, sizeof entry.kp_proc.p_comm);
    if (length == 0 || length > MAXCOMLEN || !comm.startsWith(QByteArray(entry.kp_proc.p_comm)) ||
        !status.contains("Uid:"))
        std::abort();
    return 0;
}
