#include "os_platform.h"

#include <QDir>
#include <QStandardPaths>
#include <QRegularExpression>
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

QString linuxPlatformName(const QByteArray& osRelease)
{
    QString id = "linux";
    QString versionId;
    for (const QByteArray& rawLine : osRelease.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        const int eq = line.indexOf('=');
        if (line.startsWith('#') || eq <= 0)
            continue;
        QString value = line.mid(eq + 1);
        // Values are shell words: quoted in "..." or '...', with \-escapes inside "...".
        if (value.size() >= 2 && (value.startsWith('"') || value.startsWith('\'')) && value.endsWith(value.at(0))) {
            const bool doubleQuoted = value.startsWith('"');
            value = value.mid(1, value.size() - 2);
            if (doubleQuoted)
                value.replace(QRegularExpression(R"(\\([\\$"`]))"), "\\1");
        }
        const QString key = line.left(eq);
        if (key == "ID" && !value.isEmpty())
            id = value;
        else if (key == "VERSION_ID")
            versionId = value;
    }
    const QString major = versionId.section('.', 0, 0);
    return major.isEmpty() ? "linux." + id : "linux." + id + "." + major;
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
