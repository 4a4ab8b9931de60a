#pragma once

// Icons for Qt made of the platform's images: every size in two pixmaps, for ordinary and for
// high-resolution screens.

#include "appkit/NSImage.h"

#include <QIcon>
#include <QList>
#include <QString>

#include <optional>

// The largest size, in points, that an icon is made in: its high-resolution pixmap of 8192 by
// 8192 pixels takes the 256 MB to which Qt limits an image it reads.
inline constexpr int kLargestIconSize = 4096;

// For each size, in the order given: a pixmap at scale 1, then one at scale 2, each the image
// drawn at size times scale pixels square and carrying its scale as device pixel ratio. A size
// below 1 or above kLargestIconSize is skipped with a log line. Null for a null image. Pixmaps
// need a GUI application: without one the icon is null, with a log line.
QIcon convertNSImageToQIcon(const NSImage* image, const QList<int>& sizes);

// The system's generic icon of this name (the image resource of the bundle at
// genericIconBundlePath()) in these sizes, as convertNSImageToQIcon makes them. An icon of one
// transparent pixel when the bundle or the resource is missing.
QIcon retrieveMacOSGenericIconWithName(const QString& name, const QList<int>& sizes);

// "/System/Library/CoreServices/CoreTypes.bundle", where the system keeps its generic icons.
QString genericIconBundlePath();
// Takes the generic icons from the bundle at this path instead. Nullopt goes back to the system's.
void setGenericIconBundlePathForTesting(std::optional<QString> path);
