#pragma once

// Outcome of a data store operation, as reported by serializers.

#include <QFileDevice>
#include <QString>

enum class ZRDataError : int {
    NoError = 0,
    UnknownError = 1,
    AccessDenied = 2,
    InvalidFormat = 3,
    InvalidData = 4,
    FileNotFound = 5,
    NoConnection = 6,
    IOError = 7,
};

// The translated text of the error; any value outside the named range is logged and reported as
// an undefined error.
QString dataErrorName(ZRDataError error);

// Maps a file error onto the data errors. CopyError lands on 8, one past the named range; stored
// data and peers have always seen it that way, so it stays.
ZRDataError qtFileErrorToZRDataError(QFileDevice::FileError error);
