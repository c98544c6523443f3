// The answers of the OS seam that only Linux gives: the platform names, the release the
// update API knows (from os-release) and its change log, where settings and logs live.
#include "os_platform.h"

#include "qvlogger.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>

namespace OsPlatform {

QString updatePlatformName()
{
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            return linuxPlatformName(file.readAll());
    }
    return linuxPlatformName(QByteArray());
}

QString changeLogPath()
{
    return "/changelogs/pack.linux.txt";
}

QString reportPlatform()
{
    return "Linux";
}

QSettings* applicationSettings(QObject* parent)
{
    const QString path = configDir() + "/Dashboard.conf";
    auto* settings = new QSettings(path, QSettings::IniFormat, parent);
    if (QFileInfo::exists(path))
        return settings;
    // Earlier versions let Qt place the file after the organisation's name, in the same
    // configuration home; take their keys over once, and leave their file where it is.
    const QString home = QFileInfo(configDir()).path();
    for (const char* organisation : {"Zorvik", "ZORVIK"}) {
        const QString earlierPath = home + "/" + organisation + "/Dashboard.conf";
        if (!QFileInfo::exists(earlierPath))
            continue;
        const QSettings earlier(earlierPath, QSettings::IniFormat);
        for (const QString& key : earlier.allKeys()) {
            if (!settings->contains(key))
                settings->setValue(key, earlier.value(key));
        }
    }
    settings->sync();
    return settings;
}

QString userLogPath()
{
    const char* path = qvlogger_get_param(QVLOGGER_PARAM_USER_LOG_PATH);
    return path ? QFile::decodeName(path) : QString();
}

void prepareWindowlessRun()
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
}

} // namespace OsPlatform
