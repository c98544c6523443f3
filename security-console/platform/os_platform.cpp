#include "os_platform.h"

#include <QDir>
#include <QStandardPaths>
#include <QtGlobal>

namespace {
QString fromEnv(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    QString url = value.isEmpty() ? fallback : value;
    while (url.endsWith('/'))
        url.chop(1);
    return url;
}
} // namespace

namespace OsPlatform {

int macVersionCode()
{
#ifdef Q_OS_MACOS
    return QSysInfo::MacintoshVersion;
#else
    return 0;
#endif
}

QString keyServiceUrl()
{
    return fromEnv("ZORVIK_KEYSERVICE_URL", "https://ks.zorvik.com");
}

QString updateApiUrl()
{
    return fromEnv("ZORVIK_UPDATE_URL", "https://update.zorvik.com");
}

QString changeLogUrl()
{
    return fromEnv("ZORVIK_CHANGELOG_URL", "https://www.zorvik.com");
}

QString supportUrl()
{
    return fromEnv("ZORVIK_SUPPORT_URL", "https://support.zorvik.com");
}

QString proxyTestUrl()
{
    return "https://www.zorvik.com/";
}

QString extraCaFile()
{
    return qEnvironmentVariable("ZORVIK_EXTRA_CA");
}

QString configDir()
{
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (base.isEmpty())
        base = QDir::homePath() + "/.config";
    return base + "/zorvik";
}

} // namespace OsPlatform
