#pragma once

// Object graphs to and from the bytes of a settings file. A command message to the tool is
// exactly such bytes.

#include <QByteArray>
#include <QString>

class QObject;

// Loads the bytes of a settings file into an existing object. Failures are logged; properties
// whose keys are missing keep their values.
void deserializeObjectFromByteArray(QObject* object, const QByteArray& data);

// A file name in the temporary directory that no other call, process or earlier run can have
// produced.
QString getTemporaryFilePath();
