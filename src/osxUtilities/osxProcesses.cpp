#include "osxProcesses.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <unistd.h>

int getInfoForAllProcesses(kinfo_proc** list, unsigned int* count, int* error) {
    if (!list || !count)
        return -2;
    if (error)
        *error = 0;
    const auto fail = [error](int result, int code) {
        if (error)
            *error = code;
        return result;
    };
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    // The table may grow between asking its size and reading it: then it is asked for again.
    for (;;) {
        size_t size = 0;
        if (sysctl(name, 3, nullptr, &size, nullptr, 0) == -1)
            return fail(-3, errno);
        void* block = std::malloc(size);
        if (!block)
            return fail(-4, ENOMEM);
        if (sysctl(name, 3, block, &size, nullptr, 0) == 0) {
            *list = static_cast<kinfo_proc*>(block);
            *count = static_cast<unsigned int>(size / sizeof(kinfo_proc));
            return 0;
        }
        std::free(block);
    }
}

namespace {

// The pids of the processes called name (and run by uid, when given), in table order, at most
// limit of them; nullopt when the table cannot be read or is empty.
std::optional<QList<int>> matchingPids(const char* name, std::optional<uid_t> uid, qsizetype limit) {
    kinfo_proc* table = nullptr;
    unsigned int count = 0;
    if (getInfoForAllProcesses(&table, &count, nullptr) != 0)
        return std::nullopt;
    std::optional<QList<int>> pids;
    if (count > 0)
        pids.emplace();
    for (unsigned int i = 0; i < count && pids->size() < limit; ++i) {
        const kinfo_proc& entry = table[i];
        // The platform keeps MAXCOMLEN characters of a name, so a longer name is compared by them.
        if (entry.kp_proc.p_pid > 0 && name && std::strncmp(entry.kp_proc.p_comm, name, MAXCOMLEN) == 0 &&
            (!uid || entry.kp_eproc.e_pcred.p_ruid == *uid))
            pids->append(entry.kp_proc.p_pid);
    }
    std::free(table);
    return pids;
}

int firstMatchingPid(const char* name, std::optional<uid_t> uid) {
    const std::optional<QList<int>> pids = matchingPids(name, uid, 1);
    return pids && !pids->isEmpty() ? pids->first() : -1;
}

void allMatchingPids(QList<int>& pids, const char* name, std::optional<uid_t> uid) {
    if (std::optional<QList<int>> found = matchingPids(name, uid, std::numeric_limits<qsizetype>::max()))
        pids = std::move(*found);
}

} // namespace

int getPIDForProcessName(const char* name) {
    return firstMatchingPid(name, std::nullopt);
}

int getPIDForProcessNameRunByUser(const char* name, unsigned int uid) {
    return firstMatchingPid(name, uid);
}

int getPIDForProcessNameRunByCurrentUser(const char* name) {
    return firstMatchingPid(name, getuid());
}

void getAllPIDsForProcessName(QList<int>& pids, const char* name) {
    allMatchingPids(pids, name, std::nullopt);
}

void getAllPIDsForProcessNameRunByUser(QList<int>& pids, const char* name, unsigned int uid) {
    allMatchingPids(pids, name, uid);
}

void getAllPIDsForProcessNameRunByCurrentUser(QList<int>& pids, const char* name) {
    allMatchingPids(pids, name, getuid());
}
