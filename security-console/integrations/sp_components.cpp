#include "sp_components.h"

#include "component_paths.h"
#include "log.h"
#include "process_helpers.h"

#include <QProcess>
#include <QSettings>
#include <QWidget>

namespace {
void debug(const QString& text)
{
    Log::print(Log::DEBUG, text);
}
} // namespace

SP_Components::SP_Components(QWidget* window_) : QThread(window_), platform(getPlatform()), window(window_) {}

void SP_Components::Update()
{
    debug("SP_Components::Update()");
    if (isRunning()) {
        debug("Cannot start Components Updater. Already running!");
        return;
    }
    debug("Starting Components Updater.");
    start(QThread::InheritPriority);
}

void SP_Components::run()
{
    if (modutilPath.isEmpty())
        modutilPath = getModutilPath();
    if (thunderbirdCheckRequested) {
        if (!isThunderbirdInstalled()) {
            thunderbirdState = 0;
        } else {
            thunderbirdState = 1;
            if (isCryptokiTBInstalled() || updateCryptokiTBConfig())
                thunderbirdState = 2;
        }
        thunderbirdCheckRequested = false;
    }
    openVPNInstalled = isOpenVPNInstalled();
    if (!openVPNInstalled)
        debug("OpenVpn not found");
    vaultryInstalled = isVaultryInstalled();
    if (!vaultryInstalled)
        debug("Vaultry not found");
    cryptokiFound = !CryptokiPath().isEmpty();
    chromeFound = !getChromePath().isEmpty();
    debug("Components Updater Finished");
    emit componentsUpdated();
}

QString SP_Components::CryptokiPath()
{
    const QString path = ComponentPaths::cryptokiPath();
    if (checkFile(path))
        return path;
    debug(QString("Cannot find cryptoki library: %1").arg(path));
    return QString();
}

QString SP_Components::getCryptokiName()
{
    return ComponentPaths::cryptokiName();
}

QString SP_Components::Cryptoki64Path()
{
    return QString();
}

QString SP_Components::getVaultryPath()
{
    debug("SP_Components::getVaultryPath()");
    const QString path = ComponentPaths::vaultryPath();
    if (checkFile(path))
        return path;
    debug("Vaultry not found. Path=" + path);
    return QString();
}

bool SP_Components::isVaultryInstalled()
{
    return !getVaultryPath().isEmpty();
}

QString SP_Components::getRelayonPath()
{
    debug("SP_Components::getRelayonPath()");
    const QString path = ComponentPaths::relayonPath();
    if (!path.isEmpty() && checkFile(path))
        return path;
    debug("Relayon not found. Path=" + path);
    return QString();
}

namespace {
void launch(const QString& command)
{
    QStringList words = QProcess::splitCommand(command);
    if (words.isEmpty())
        return;
    const QString program = words.takeFirst();
    QProcess::startDetached(program, words);
}
} // namespace

void SP_Components::runVaultry()
{
    launch(ComponentPaths::launchCommand(getVaultryPath()));
}

void SP_Components::runRelayon()
{
    launch(ComponentPaths::launchCommand(getRelayonPath()));
}

QString SP_Components::GetPFDir(const QString& platform_)
{
    const QString dir = getEnvVar(platform_ == "Windows" ? "ProgramFiles" : "ProgramFiles(x86)");
    if (dir.isEmpty()) {
        debug("Cannot find Program File enviroment variable");
        return QString();
    }
    return dir;
}

QStringList SP_Components::listRegistry(const QString& path)
{
    QSettings settings(path, QSettings::NativeFormat);
    debug(QString("List registry %1").arg(path));
    return settings.childGroups();
}

QString SP_Components::readKeyfromINI(const QString& file, const QString& key)
{
    QSettings settings(file, QSettings::IniFormat);
    if (!settings.contains(key))
        return QString();
    return settings.value(key).toString();
}

QStringList SP_Components::getProcessList()
{
    return executeCommandWithOutput("ps", "ax", false).split("\n");
}

QString SP_Components::ReadVal(QString key, QString text)
{
    const int p = text.indexOf(key);
    if (p < 0)
        return QString();
    // The length is the comma's position in the whole text, not its distance from the key.
    const int c = text.indexOf(",", p);
    return text.mid(p, c);
}

QString SP_Components::getModutilPath()
{
    const QString path = ComponentPaths::modutilPath();
    if (checkFile(path)) {
        debug("Modutil: " + path);
        return path;
    }
    Log::print(Log::ERR, "Cannot find modutil:" + path);
    return QString();
}
