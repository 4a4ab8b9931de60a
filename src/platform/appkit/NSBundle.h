#pragma once

// Application bundles under Foundation's name, as far as the services need them: a bundle is a
// directory, and its identifier is CFBundleIdentifier of its Info.plist (Contents/Info.plist, or
// Info.plist at the top of a flat bundle), an XML property list. Its resources lie in
// Contents/Resources, or at the top of a flat bundle. A Linux application is a desktop entry
// (appkit/DesktopEntries.h) or an executable file. An entry's identifier is its id, and its info
// dictionary holds the id, its Name as CFBundleName and its program as CFBundleExecutable. An
// executable file's identifier is the id of the entry of its program, else its file name (the
// live desktop's bundle identifiers, docs/platform-atspi.md); its info dictionary is that entry's,
// with the file's name as CFBundleExecutable. Neither has resources.

#include "NSImage.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

class NSBundle {
public:
    // Null when there is no directory, desktop entry or executable file at the path. The caller
    // owns the bundle.
    static std::unique_ptr<NSBundle> bundleWithPath(const QString& path);
    // The running program's own bundle: its executable file.
    static NSBundle* mainBundle();

    QString bundlePath() const { return path; }
    // Empty when a directory bundle has no Info.plist or no identifier in it.
    QString bundleIdentifier() const;
    // A string value of the info dictionary; empty when there is none.
    QString objectForInfoDictionaryKey(const QString& key) const;
    // The folder of the bundle's resources: Contents/Resources, else Resources (a framework),
    // else the bundle's own folder (a flat bundle). Empty for an application that is a file.
    QString resourcePath() const;
    // The names, without ".lproj", of the language folders among the resources.
    QStringList localizations() const;
    // The folders of private frameworks, shared frameworks and built-in plug-ins: Contents/
    // Frameworks, Contents/SharedFrameworks and Contents/PlugIns (without Contents/ in a bundle
    // that has none). They need not exist; empty for an application that is a file.
    QUrl privateFrameworksURL() const;
    QUrl sharedFrameworksURL() const;
    QUrl builtInPlugInsURL() const;

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
