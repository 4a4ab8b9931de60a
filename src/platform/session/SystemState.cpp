#include "platformSystemState.h"

#include "DisplayPower.h"
#include "Logind.h"

#include <QDebug>

#include <pwd.h>
#include <unistd.h>

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef, uid_t* uid, gid_t* gid) {
    const LogindConsoleUser seatUser = logindConsoleUser();
    if (!seatUser.reachable)
        qDebug().noquote()
            << "Note: systemd-logind cannot be reached; the user of this process counts as the "
               "console user";
    else if (!seatUser.present)
        return nullptr;
    const uid_t user = seatUser.reachable ? seatUser.uid : getuid();
    const passwd* entry = getpwuid(user);
    if (uid)
        *uid = user;
    if (gid)
        *gid = entry ? entry->pw_gid : gid_t(-1);
    const QByteArray name = entry ? QByteArray(entry->pw_name) : QByteArray::number(uint(user));
    return CFStringCreateWithCString(kCFAllocatorDefault, name.constData(), kCFStringEncodingUTF8);
}

IOReturn IOPMAssertionDeclareUserActivity(CFStringRef, IOPMUserActiveType, IOPMAssertionID* assertionID) {
    if (assertionID)
        *assertionID = 0;
    return wakeXDisplay() ? kIOReturnSuccess : kIOReturnNotFound;
}
