#pragma once

// Application bundles under Foundation's name, as far as the services need them: a bundle is a
// directory, and its identifier is CFBundleIdentifier of its Info.plist (Contents/Info.plist, or
// Info.plist at the top of a flat bundle), an XML property list. Its resources lie in
// Contents/Resources, or at the top of a flat bundle. A Linux application is an executable file:
// as a bundle, its identifier is the id of its desktop entry, else its file name (the live
// desktop's bundle identifiers, docs/platform-atspi.md), and it has no resources.

#include "NSImage.h"

#include <QString>

#include <memory>

class NSBundle {
public:
    // Null when there is no directory or executable file at the path. The caller owns the bundle.
    static std::unique_ptr<NSBundle> bundleWithPath(const QString& path);

    QString bundlePath() const { return path; }
    // Empty when a directory bundle has no Info.plist or no identifier in it.
    QString bundleIdentifier() const;
    // The image resource of this name, looked for in Contents/Resources, then at the top of the
    // bundle. In each place the candidates are <name> itself (a name may carry its extension),
    // then <name>.png, then <name>.<extension> for every format Qt reads, in Qt's order; the
    // first file found is the resource. Null when there is none or it is no readable image, and
    // for an empty name or one with a "/", which would lead out of the resources. The caller owns
    // the image.
    std::unique_ptr<NSImage> imageForResource(const QString& name) const;

private:
    explicit NSBundle(const QString& path) : path(path) {}

    const QString path;
};
