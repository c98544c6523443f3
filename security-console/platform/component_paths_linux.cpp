// The Linux answers: programs from PATH, profiles under the home directory, the module from
// the library directory's pkcs11/ or from beside the running build.
#include "component_paths.h"

#include "os_platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>

namespace {

QString home()
{
    return QDir::homePath();
}

QString onPath(const QStringList& names)
{
    for (const QString& name : names) {
        const QString found = QStandardPaths::findExecutable(name);
        if (!found.isEmpty())
            return found;
    }
    return QString();
}

// Standard output of a short query tool, trimmed; empty when it is missing or fails.
QString ask(const QString& program, const QStringList& args)
{
    if (QStandardPaths::findExecutable(program).isEmpty())
        return QString();
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, args);
    if (!process.waitForFinished(5000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        process.kill();
        process.waitForFinished(1000);
        return QString();
    }
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

// The executable named by a desktop entry's Exec= line (field codes dropped).
QString desktopEntryExecutable(const QString& desktopId)
{
    const QString file = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, desktopId);
    if (file.isEmpty())
        return QString();
    QSettings entry(file, QSettings::IniFormat);
    entry.beginGroup("Desktop Entry");
    // QSettings splits an unquoted value at commas; join the parts back.
    const QVariant value = entry.value("Exec");
    const QString exec = value.type() == QVariant::StringList ? value.toStringList().join(',') : value.toString();
    const QStringList words = QProcess::splitCommand(exec);
    if (words.isEmpty())
        return QString();
    const QString program = words.first();
    return QFileInfo(program).isAbsolute() ? program : QStandardPaths::findExecutable(program);
}

QString chromeUserDataDir()
{
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString chrome = config + "/google-chrome";
    const QString chromium = config + "/chromium";
    if (!QFileInfo(chrome).isDir() && QFileInfo(chromium).isDir())
        return chromium;
    return chrome;
}

} // namespace

namespace ComponentPaths {

QString cryptokiName()
{
    return "libzorvik-cryptoki.so";
}

QString cryptokiPath()
{
    // The installed module (pkcs11/ of the library directory next to the program), else the
    // module of the build the program runs from.
    return OsPlatform::cryptokiModulePath();
}

QString vaultryPath()
{
    const QString found = onPath({"zorvik-vaultry"});
    return found.isEmpty() ? "zorvik-vaultry" : found;
}

QString relayonPath()
{
    return QString();
}

QString launchCommand(const QString& executable)
{
    return QString("\"%1\"").arg(executable);
}

QString modutilPath()
{
    const QString bundled = QCoreApplication::applicationDirPath() + "/nss/modutil";
    if (QFileInfo(bundled).isFile())
        return bundled;
    const QString found = onPath({"modutil"});
    return found.isEmpty() ? bundled : found;
}

QString firefoxPath()
{
    return onPath({"firefox", "firefox-esr"});
}

QString thunderbirdPath()
{
    return onPath({"thunderbird"});
}

QString firefoxProfileRoot()
{
    return home() + QDir::separator() + ".mozilla/firefox";
}

QString thunderbirdProfileRoot()
{
    return home() + QDir::separator() + ".thunderbird";
}

bool openInFirefox(const QString& url, QString* program)
{
    *program = firefoxPath();
    return !program->isEmpty() && QProcess::startDetached(*program, {url});
}

QString chromeApp()
{
    QString desktopId = ask("xdg-settings", {"get", "default-web-browser"});
    if (desktopId.isEmpty())
        desktopId = ask("xdg-mime", {"query", "default", "x-scheme-handler/https"});
    // Several ids may come back, one per line: the first Chrome wins.
    for (const QString& id : desktopId.split('\n', Qt::SkipEmptyParts)) {
        if (id.contains("chrome", Qt::CaseInsensitive))
            return desktopEntryExecutable(id.trimmed());
    }
    return QString();
}

QString chromeExecutable(const QString& app)
{
    return app;
}

QString chromeProfileDir()
{
    return chromeUserDataDir() + "/Default/";
}

QString chromePrefsFile()
{
    return chromeUserDataDir() + "/Default/Preferences";
}

QStringList chromeRunningMarkers()
{
    return {chromeUserDataDir() + "/SingletonLock"};
}

} // namespace ComponentPaths
