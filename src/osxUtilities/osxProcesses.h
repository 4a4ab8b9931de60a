#pragma once

// Processes by name, over the platform's process table (sysctl's KERN_PROC_ALL).

#include "platformProcessTable.h"

#include <QList>

// The whole table. list and count must not be null (else -2); error, when not null, gets 0 or
// the errno of a failure. 0 on success, with *list a block that the caller frees with free() and
// *count the number of entries in it; -3 when the size cannot be asked, -4 when the block cannot
// be allocated. The table is read again, at its new size, as long as it grows between the two
// calls.
int getInfoForAllProcesses(kinfo_proc** list, unsigned int* count, int* error);

// A process matches when its pid is above 0 and its command name equals name over the length
// that the platform keeps (MAXCOMLEN): a longer name finds the process by the part the platform
// kept. The variants by user also compare the real user id. When the table cannot be read or is
// empty, the single-pid functions return -1 and the list functions leave pids as it was.
int getPIDForProcessName(const char* name);
int getPIDForProcessNameRunByUser(const char* name, unsigned int uid);
int getPIDForProcessNameRunByCurrentUser(const char* name);
void getAllPIDsForProcessName(QList<int>& pids, const char* name);
void getAllPIDsForProcessNameRunByUser(QList<int>& pids, const char* name, unsigned int uid);
void getAllPIDsForProcessNameRunByCurrentUser(QList<int>& pids, const char* name);
