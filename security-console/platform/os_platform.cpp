#include "os_platform.h"

#include "zorvik_build.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QRegularExpression>
#include <QtGlobal>

#include <sys/stat.h>
#include <unistd.h>

namespace {
QString fromEnv(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    QString url = value.isEmpty() ? fallback : value;
    while (url.endsWith('/'))
        url.chop(1);
    return url;
}

QString besideProgram(const char* installed, const char* built)
{
    const QDir dir(QCoreApplication::applicationDirPath());
    const QString installedPath = QDir::cleanPath(dir.absoluteFilePath(installed));
    if (QFileInfo::exists(installedPath))
        return installedPath;
    const QString builtPath = QDir::cleanPath(dir.absoluteFilePath(built));
    return QFileInfo::exists(builtPath) ? builtPath : installedPath;
}

// True when `path` is a real directory (not a link) of this user.
bool isOwnDir(const QString& path)
{
    struct stat st = {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid();
}

// `path` as a directory of this user that no one else can enter: created with mode 0700
// when missing, tightened when it is this user's but looser. False for anyone else's.
bool makePrivateDir(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    ::mkdir(name.constData(), 0700);
    return isOwnDir(path) && ::chmod(name.constData(), 0700) == 0;
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

int readerPollingIntervalMs()
{
    const int normal = 500;
    bool ok = false;
    const int value = qEnvironmentVariableIntValue("ZORVIK_READER_POLL_MS", &ok);
    return ok && value >= 1 && value <= normal ? value : normal;
}

QString configDir()
{
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (base.isEmpty())
        base = QDir::homePath() + "/.config";
    return base + "/zorvik";
}

QString componentPlatform()
{
    return "MacOSX";
}

QString credentialProviderScript(bool enable)
{
    return QCoreApplication::applicationDirPath() +
           (enable ? "\\scripts\\enablezorvikcp.bat" : "\\scripts\\disablezorvikcp.bat");
}

QString cryptokiModulePath()
{
    return besideProgram(ZORVIK_INSTALLED_PKCS11_MODULE, ZORVIK_BUILT_PKCS11_MODULE);
}

QString upgradeScriptPath()
{
    return besideProgram(ZORVIK_UPGRADE_SCRIPT, ZORVIK_UPGRADE_SCRIPT);
}

QString translationsDir()
{
    return besideProgram(ZORVIK_INSTALLED_TRANSLATIONS, ZORVIK_BUILT_TRANSLATIONS);
}

QString runtimeDir()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime) && isOwnDir(runtime) && makePrivateDir(runtime + "/zorvik"))
        return runtime + "/zorvik";
    QString cache = qEnvironmentVariable("XDG_CACHE_HOME");
    if (!QDir::isAbsolutePath(cache))
        cache = QDir::homePath() + "/.cache";
    QDir().mkpath(cache);
    const QString dir = cache + "/zorvik-runtime";
    return makePrivateDir(dir) ? dir : QString();
}

} // namespace OsPlatform
