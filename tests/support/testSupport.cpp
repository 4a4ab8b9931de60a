#include "testSupport.h"

#include <QDir>
#include <QFile>

#include <cstdlib>

PrivateTempDir::PrivateTempDir() {
    // Unix socket paths are limited to about 100 bytes: stay short even under a deep TMPDIR.
    QByteArray base = qgetenv("TMPDIR");
    if (base.isEmpty() || base.size() > 40)
        base = "/tmp";
    QByteArray templ = base + "/uiet-XXXXXX";
    if (!mkdtemp(templ.data()))
        qFatal("cannot create a private temporary directory below %s", base.constData());
    dir = QFile::decodeName(templ);
    qputenv("TMPDIR", templ);
}

PrivateTempDir::~PrivateTempDir() {
    QDir(dir).removeRecursively();
}
