// URLs. A URL is its absolute text, held as a string so that CFURLGetString can hand it out
// without a copy; QUrl checks and takes apart that text.

#include "CFURL.h"
#include "CFObject_p.h"

#include <QDir>
#include <QUrl>

using CFInternal::kURLTypeID;

namespace {

struct URLBody {
    CFStringRef string;

    ~URLBody() { CFRelease(string); }
};

URLBody* urlBody(CFTypeRef url) {
    return CFInternal::bodyIfType<URLBody>(url, kURLTypeID);
}

CFURLRef makeURL(const QUrl& url) {
    CFStringRef string = CFInternal::createString(url.toString(QUrl::FullyEncoded));
    return static_cast<CFURLRef>(CFRuntime::create<URLBody>(kURLTypeID, string));
}

QUrl qUrl(CFURLRef url) {
    const URLBody* body = urlBody(url);
    return body ? QUrl(CFInternal::stringText(body->string), QUrl::StrictMode) : QUrl();
}

// The path, decoded, without a trailing slash unless it is the root.
QString decodedPath(CFURLRef url) {
    QString path = qUrl(url).path(QUrl::FullyDecoded);
    if (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

Boolean equalURLs(CFTypeRef url1, CFTypeRef url2) {
    return CFEqual(urlBody(url1)->string, urlBody(url2)->string);
}

CFHashCode hashURL(CFTypeRef url) {
    return CFHash(urlBody(url)->string);
}

CFStringRef describeURL(CFTypeRef url) {
    return static_cast<CFStringRef>(CFRetain(urlBody(url)->string));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::urlTypeInfo = {"CFURL", &CFRuntime::destroyBody<URLBody>, equalURLs,
                                                     hashURL, describeURL};

CFTypeID CFURLGetTypeID(void) {
    return kURLTypeID;
}

CFURLRef CFURLCreateWithString(CFAllocatorRef, CFStringRef URLString, CFURLRef baseURL) {
    const QString text = CFInternal::stringText(URLString);
    QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid())
        return nullptr;
    if (baseURL) {
        const QUrl base = qUrl(baseURL);
        if (!base.isValid())
            return nullptr;
        url = base.resolved(url);
    }
    return makeURL(url);
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath, CFURLPathStyle pathStyle,
                                       Boolean isDirectory) {
    QString path = CFInternal::stringText(filePath);
    if (pathStyle != kCFURLPOSIXPathStyle || path.isEmpty())
        return nullptr;
    path = QDir::current().absoluteFilePath(path);
    if (isDirectory && !path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return makeURL(QUrl::fromLocalFile(path));
}

CFStringRef CFURLGetString(CFURLRef anURL) {
    const URLBody* body = urlBody(anURL);
    return body ? body->string : nullptr;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle) {
    if (!urlBody(anURL) || pathStyle != kCFURLPOSIXPathStyle)
        return nullptr;
    return CFInternal::createString(decodedPath(anURL));
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    if (!urlBody(url))
        return nullptr;
    const QString path = decodedPath(url);
    return CFInternal::createString(path == QLatin1String("/") ? path : path.section(QLatin1Char('/'), -1));
}

Boolean CFURLHasDirectoryPath(CFURLRef anURL) {
    return qUrl(anURL).path().endsWith(QLatin1Char('/'));
}
