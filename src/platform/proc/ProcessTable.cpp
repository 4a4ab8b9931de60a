// The process table from /proc: one entry per numeric directory, its name from "comm" and its real
// user id from the "Uid:" line of "status", in pid order as /proc itself lists them.

#include "platformProcessTable.h"

#include <QFile>
#include <QMutex>
#include <QMutexLocker>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <limits>
#include <vector>

namespace {

QMutex rootMutex;
std::optional<QString> testRoot;

QString processTableRoot() {
    QMutexLocker locker(&rootMutex);
    return testRoot.value_or(QStringLiteral("/proc"));
}

// The decimal number that begins at *at, before end, if it has digits and is at most max; *at
// moves past its digits.
std::optional<unsigned long long> readNumber(const char** at, const char* end, unsigned long long max) {
    const char* const start = *at;
    unsigned long long value = 0;
    for (; *at < end && **at >= '0' && **at <= '9'; ++*at) {
        value = value * 10 + unsigned(**at - '0');
        if (value > max)
            return std::nullopt;
    }
    if (*at == start)
        return std::nullopt;
    return value;
}

// The pid a directory name stands for; -1 when the name is not a number or too large for a pid.
pid_t pidOfDirectoryName(const char* name) {
    const char* const end = name + std::strlen(name);
    const std::optional<unsigned long long> pid = readNumber(&name, end, INT_MAX);
    return pid && name == end ? pid_t(*pid) : -1;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// The first number of the status file's "Uid:" line (the real user id of the four given there).
std::optional<uid_t> realUserId(const QByteArray& status) {
    // A line feed in front lets the first line be found like every other.
    const QByteArray text = '\n' + status;
    static const QByteArray key("\nUid:");
    const qsizetype keyAt = text.indexOf(key);
    if (keyAt < 0)
        return std::nullopt;
    const char* at = text.constData() + keyAt + key.size();
    const char* const end = text.constData() + text.size();
    while (at < end && isBlank(*at))
        ++at;
    const std::optional<unsigned long long> uid = readNumber(&at, end, std::numeric_limits<uid_t>::max());
    if (!uid || (at < end && !isBlank(*at) && *at != '\n'))
        return std::nullopt;
    return uid_t(*uid);
}

// Reads the entries below root, or returns false with errno set when root cannot be listed.
bool readProcessTable(const QString& root, std::vector<kinfo_proc>* entries) {
    const QByteArray rootPath = QFile::encodeName(root);
    DIR* dir = opendir(rootPath.constData());
    if (!dir)
        return false;
    while (const dirent* item = readdir(dir)) {
        const pid_t pid = pidOfDirectoryName(item->d_name);
        if (pid < 0)
            continue;
        const QString base = root + QLatin1Char('/') + QFile::decodeName(item->d_name) + QLatin1Char('/');
        QFile comm(base + QStringLiteral("comm"));
        QFile status(base + QStringLiteral("status"));
        kinfo_proc entry;
        // A process that ends while it is read loses its files, and with them its place.
        if (!comm.open(QIODevice::ReadOnly) || !status.open(QIODevice::ReadOnly) ||
            !parseProcessEntry(comm.readAll(), status.readAll(), &entry))
            continue;
        entry.kp_proc.p_pid = pid;
        entries->push_back(entry);
    }
    closedir(dir);
    std::sort(entries->begin(), entries->end(),
              [](const kinfo_proc& a, const kinfo_proc& b) { return a.kp_proc.p_pid < b.kp_proc.p_pid; });
    return true;
}

bool isProcessTableName(const int* name, unsigned int namelen) {
    return name && namelen == 3 && name[0] == CTL_KERN && name[1] == KERN_PROC && name[2] == KERN_PROC_ALL;
}

int failWith(int code) {
    errno = code;
    return -1;
}

} // namespace

int sysctl(int* name, unsigned int namelen, void* oldp, size_t* oldlenp, void* newp, size_t /*newlen*/) {
    if (!isProcessTableName(name, namelen))
        return failWith(ENOTSUP);
    if (newp)
        return failWith(EPERM);
    if (!oldlenp)
        return failWith(EINVAL);
    std::vector<kinfo_proc> entries;
    if (!readProcessTable(processTableRoot(), &entries))
        return -1;
    const size_t size = entries.size() * sizeof(kinfo_proc);
    if (oldp) {
        if (size > *oldlenp)
            return failWith(ENOMEM);
        if (size > 0)
            std::memcpy(oldp, entries.data(), size);
    }
    *oldlenp = size;
    return 0;
}

void setProcessTableRootForTesting(std::optional<QString> root) {
    QMutexLocker locker(&rootMutex);
    testRoot = std::move(root);
}

bool parseProcessEntry(const QByteArray& comm, const QByteArray& status, kinfo_proc* entry) {
    // The kernel ends the name with a line feed; a zero inside it ends it too, as in p_comm.
    QByteArray name = comm.endsWith('\n') ? comm.chopped(1) : comm;
    if (const qsizetype zero = name.indexOf('\0'); zero >= 0)
        name.truncate(zero);
    name.truncate(MAXCOMLEN);
    const std::optional<uid_t> uid = realUserId(status);
    if (name.isEmpty() || !uid)
        return false;
    kinfo_proc parsed{};
    std::memcpy(parsed.kp_proc.p_comm, name.constData(), size_t(name.size()));
    parsed.kp_eproc.e_pcred.p_ruid = *uid;
    *entry = parsed;
    return true;
}
