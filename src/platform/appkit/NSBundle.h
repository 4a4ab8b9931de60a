#pragma once

// Application bundles under Foundation's name, as far as the services need them: a bundle is a
// directory, and its identifier is CFBundleIdentifier of its Info.plist (Contents/Info.plist, or
// Info.plist at the top of a flat bundle), an XML property list.

#include <QString>

#include <memory>

class NSBundle {
public:
    // Null when there is no directory at the path. The caller owns the bundle.
    static std::unique_ptr<NSBundle> bundleWithPath(const QString& path);

    QString bundlePath() const { return path; }
    // Empty when the bundle has no Info.plist or no identifier in it.
    QString bundleIdentifier() const;

private:
    explicit NSBundle(const QString& path) : path(path) {}

    const QString path;
};
