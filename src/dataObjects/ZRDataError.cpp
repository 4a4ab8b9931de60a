#include "ZRDataError.h"

#include <QDebug>
#include <QObject>

QString dataErrorName(ZRDataError error) {
    switch (error) {
    case ZRDataError::NoError:
        return QObject::tr("No error");
    case ZRDataError::UnknownError:
        return QObject::tr("Unknown error");
    case ZRDataError::AccessDenied:
        return QObject::tr("Access is denied");
    case ZRDataError::InvalidFormat:
        return QObject::tr("Invalid format");
    case ZRDataError::InvalidData:
        return QObject::tr("Invalid data");
    case ZRDataError::FileNotFound:
        return QObject::tr("File not found");
    case ZRDataError::NoConnection:
        return QObject::tr("No connection");
    case ZRDataError::IOError:
        return QObject::tr("IO error");
    }
    qWarning() << "Warning: tried to get name of unknown ZRDataError value:" << int(error);
    return QObject::tr("Undefined error");
}

ZRDataError qtFileErrorToZRDataError(QFileDevice::FileError error) {
    switch (error) {
    case QFileDevice::NoError:
        return ZRDataError::NoError;
    case QFileDevice::ReadError:
    case QFileDevice::WriteError:
    case QFileDevice::OpenError:
    case QFileDevice::PermissionsError:
        return ZRDataError::AccessDenied;
    case QFileDevice::CopyError:
        return static_cast<ZRDataError>(8);
    case QFileDevice::FatalError:
    case QFileDevice::ResourceError:
    case QFileDevice::AbortError:
    case QFileDevice::TimeOutError:
    case QFileDevice::UnspecifiedError:
    case QFileDevice::RemoveError:
    case QFileDevice::RenameError:
    case QFileDevice::PositionError:
    case QFileDevice::ResizeError:
        break;
    }
    return ZRDataError::UnknownError;
}
