#pragma once

// The process table as BSD's sysctl gives it: the real call on Apple systems; elsewhere
// proc/ProcessTable.cpp, which answers the one question the system asks (CTL_KERN, KERN_PROC,
// KERN_PROC_ALL) from /proc with the fields the system reads: the pid, the command name and the
// real user id.
//
// The command name is what the kernel keeps of a process's name: 16 characters on macOS
// (MAXCOMLEN), 15 on Linux (/proc/PID/comm, TASK_COMM_LEN less its terminating zero), always
// followed by a zero in p_comm.

#ifdef __APPLE__
#include <sys/sysctl.h>
#include <sys/types.h>
#else
#include <QString>

#include <cstddef>
#include <optional>
#include <sys/types.h>

#define MAXCOMLEN 15

enum { CTL_KERN = 1 };
enum { KERN_PROC = 14 };
enum { KERN_PROC_ALL = 0 };

struct extern_proc {
    pid_t p_pid;
    char p_comm[MAXCOMLEN + 1];
};

struct pcred {
    uid_t p_ruid;
};

struct eproc {
    struct pcred e_pcred;
};

struct kinfo_proc {
    struct extern_proc kp_proc;
    struct eproc kp_eproc;
};

// Only {CTL_KERN, KERN_PROC, KERN_PROC_ALL} is answered; any other name fails with ENOTSUP,
// setting a value (newp) with EPERM, and a null oldlenp with EINVAL. With oldp null, *oldlenp
// becomes the size that the table needs now. Otherwise the table is written to oldp and *oldlenp
// becomes its size; when it does not fit in *oldlenp bytes the call fails with ENOMEM, as the
// table may have grown since the size was asked. The entries come in pid order, as /proc lists
// them; only its numeric entries are processes, and one that ends while it is read is left out.
// Failures return -1 with errno set; a /proc that cannot be listed fails with the errno of
// opening it.
int sysctl(int* name, unsigned int namelen, void* oldp, size_t* oldlenp, void* newp, size_t newlen);

// Reads another directory in place of /proc; nullopt goes back to /proc.
void setProcessTableRootForTesting(std::optional<QString> root);

// The parts of one /proc/PID entry that the table holds, parsed from the contents of its "comm"
// and "status" files. False when either lacks what is needed (an empty name, no "Uid:" line
// with a real user id); the name is cut to MAXCOMLEN characters. The pid is the caller's to set,
// from the entry's directory name; entry is written only on success.
bool parseProcessEntry(const QByteArray& comm, const QByteArray& status, kinfo_proc* entry);
#endif
