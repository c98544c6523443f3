// The macOS answers: fixed application bundles under /Applications and /Library, profiles
// under ~/Library, Chrome found through Launch Services, applications started by open -a.
#include "component_paths.h"

#include <CoreServices/CoreServices.h>

#include <QCoreApplication>
#include <QDir>
#include <QProcess>

namespace {

QString fromCF(CFStringRef text)
{
    if (!text)
        return QString();
    const CFIndex length = CFStringGetLength(text);
    QString result(int(length), Qt::Uninitialized);
    CFStringGetCharacters(text, CFRangeMake(0, length), reinterpret_cast<UniChar*>(result.data()));
    return result;
}

QString appPathForBundleId(CFStringRef bundleId)
{
    QString path;
    CFArrayRef urls = LSCopyApplicationURLsForBundleIdentifier(bundleId, nullptr);
    if (urls && CFArrayGetCount(urls) > 0) {
        auto url = static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls, 0));
        CFStringRef text = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
        path = fromCF(text);
        if (text)
            CFRelease(text);
    }
    if (urls)
        CFRelease(urls);
    return path;
}

} // namespace

namespace ComponentPaths {

QString cryptokiName()
{
    return "libzorvik-cryptoki.dylib";
}

QString cryptokiPath()
{
    return "/Library/Zorvik/lib/libzorvik-cryptoki.dylib";
}

QString vaultryPath()
{
    return "/Applications/Zorvik Vaultry.app/Contents/MacOS/Zorvik Vaultry";
}

QString relayonPath()
{
    return QString();
}

QString launchCommand(const QString& executable)
{
    return "/usr/bin/open -a " + QString("\"%1\"").arg(executable);
}

QString modutilPath()
{
    return QCoreApplication::applicationDirPath() + "/nss/modutil";
}

QString firefoxPath()
{
    return "/Applications/Firefox.app/Contents/MacOS/firefox";
}

QString thunderbirdPath()
{
    return "/Applications/Thunderbird.app/Contents/MacOS/thunderbird";
}

QString firefoxProfileRoot()
{
    return QDir::homePath() + QDir::separator() + "Library//Application Support//Firefox";
}

QString thunderbirdProfileRoot()
{
    return QDir::homePath() + QDir::separator() + "Library//Thunderbird";
}

bool openInFirefox(const QString& url, QString* program)
{
    *program = "/usr/bin/open";
    return QProcess::startDetached(*program, {"-a", "Firefox", url});
}

QString chromeApp()
{
    QString path;
    CFArrayRef handlers = LSCopyAllHandlersForURLScheme(CFSTR("https"));
    if (!handlers)
        return path;
    for (CFIndex i = 0; i < CFArrayGetCount(handlers); ++i) {
        auto id = static_cast<CFStringRef>(CFArrayGetValueAtIndex(handlers, i));
        if (fromCF(id).contains("chrome", Qt::CaseInsensitive)) {
            path = appPathForBundleId(id);
            break;
        }
    }
    CFRelease(handlers);
    return path;
}

QString chromeExecutable(const QString& app)
{
    return app + "/Contents/MacOS/Google Chrome";
}

QString chromeProfileDir()
{
    return QDir::homePath() + QDir::separator() + "Library/Application Support/Google/Chrome/Default/";
}

QString chromePrefsFile()
{
    return QDir::homePath() + QDir::separator() + "Library/Application Support/Google/Chrome/Default/Preferences";
}

QStringList chromeRunningMarkers()
{
    return {};
}

} // namespace ComponentPaths
