#pragma once

// The verbs of ui-element-ctl, the command-line peer that speaks to the UI element tool the way
// Ostrik Conductor does. Each returns the process exit status.

#include "ctlSupport.h"
#include "inspectorCommands.h"

#include <QString>
#include <QStringList>

// The line printed for one state report.
QString stateReportLine(quint64 id, bool found);

// Listens under the report id and prints one line per report until terminated.
int runReports();

// Sends the bytes of `filePath` as one command and tells whether "ack" came back.
int runSend(const QString& filePath, int timeoutMilliseconds);

// Sends a start command for the UIElementCollection saved in `collectionFilePath` (a settings
// file as serializeObjectToByteArray writes it for a collection), to be watched under `id`.
int runWatch(const QString& id, const QString& collectionFilePath, int timeoutMilliseconds);

// Sends a stop command for `id`.
int runStop(const QString& id, int timeoutMilliseconds);

// Prints the element tree of the running applications, or of the one whose pid or bundle id is
// `application` when that is not empty. With a desktop file in the options, the virtual desktop of that
// fixture file is read instead of the live desktop.
int runTree(const InspectorOptions& options, const QString& application);

// Parses the arguments (without the program name) and runs the verb.
int runCtl(const QStringList& arguments);
