// The answers of the OS seam that only macOS gives: the platform names, the release the
// update API knows (from SystemVersion.plist) and its change log, where settings and logs live.
#include "os_platform.h"

#include "log.h"

#include <QDir>
#include <QSettings>
#include <QStringList>

// "." + major + "." + minor of the system version (the patch level is dropped); the value
// as it stands when it has fewer parts.
QString getOSXVersion()
{
    QSettings plist("/System/Library/CoreServices/SystemVersion.plist", QSettings::NativeFormat);
    const QString version = plist.value("ProductVersion", QString()).toString();
    Log::print(Log::DEBUG, QString("ProductVersion =  %1").arg(version));
    const QStringList parts = version.split('.');
    if (parts.size() >= 2)
        return "." + parts.at(0) + "." + parts.at(1);
    return version;
}

namespace OsPlatform {

QString updatePlatformName()
{
    return "osx" + getOSXVersion();
}

QString changeLogPath()
{
    return "/changelogs/pack.osx.txt";
}

QString reportPlatform()
{
    return "Mac OS X";
}

QSettings* applicationSettings(QObject* parent)
{
    return new QSettings("Zorvik", "Dashboard", parent);
}

QString userLogPath()
{
    return QDir::homePath() + QDir::separator() + "Library/Logs/" + "dashboard.log";
}

void prepareWindowlessRun() {}

} // namespace OsPlatform
