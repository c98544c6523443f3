// Registration of the Zorvik PKCS#11 module in the NSS databases of the Firefox and
// Thunderbird default profiles, through NSS modutil.
#include "sp_components.h"

#include "component_paths.h"
#include "log.h"
#include "process_helpers.h"

#include <QDir>

namespace {

const QString kModuleName = "Zorvik PKCS#11 Module";

void debug(const QString& text)
{
    Log::print(Log::DEBUG, text);
}

QString executableIfPresent(const QString& path)
{
    return checkFile(path) ? path : QString();
}

bool listContains(const QStringList& lines, const QString& fragment)
{
    for (const QString& line : lines) {
        if (line.contains(fragment))
            return true;
    }
    return false;
}

} // namespace

QString SP_Components::getFirefoxPath()
{
    return executableIfPresent(ComponentPaths::firefoxPath());
}

QString SP_Components::getTBPath()
{
    return executableIfPresent(ComponentPaths::thunderbirdPath());
}

bool SP_Components::isFirefoxInstalled()
{
    return !getFirefoxPath().isEmpty();
}

bool SP_Components::isThunderbirdInstalled()
{
    return !getTBPath().isEmpty();
}

bool SP_Components::isFirefoxRunning()
{
    return listContains(getProcessList(), "firefox");
}

bool SP_Components::isTBRunning()
{
    return listContains(getProcessList(), "thunderbird");
}

namespace {
// The directory of "Profile0" in the root's profiles.ini: relative to the root, or absolute.
QString defaultProfile(SP_Components& components, const QString& root)
{
    const QString ini = root + QDir::separator() + "profiles.ini";
    const QString rel = components.readKeyfromINI(ini, "Profile0/Path");
    if (rel.isEmpty())
        return QString();
    const QString candidate = root + QDir::separator() + rel;
    if (checkDir(candidate))
        return candidate;
    return checkDir(rel) ? rel : QString();
}
} // namespace

QString SP_Components::getFirefoxConfigPath()
{
    return defaultProfile(*this, ComponentPaths::firefoxProfileRoot());
}

QString SP_Components::getTBConfigPath()
{
    return defaultProfile(*this, ComponentPaths::thunderbirdProfileRoot());
}

bool SP_Components::isCryptokiInstalled(const QString& profile, const QString& who)
{
    if (profile.isEmpty()) {
        debug(who == "isCryptokiFFInstalled" ? "Cannot find firefox config" : "Cannot find Thunderbird config");
        return false;
    }
    if (modutilPath.isEmpty()) {
        debug("Cannot find modutil");
        return false;
    }
    const QString output = executeCommandWithOutput(modutilPath, "-dbdir \"" + profile + "\" -list", true);
    const bool listed = modutilListsLibrary(output, getCryptokiName());
    debug(who + (listed ? " - True" : " - False"));
    return listed;
}

bool SP_Components::modutilListsLibrary(const QString& output, const QString& library)
{
    for (const QString& line : output.split("\n")) {
        if (line.contains(library) && line.contains("library name:"))
            return true;
    }
    return false;
}

bool SP_Components::isCryptokiFFInstalled()
{
    return isCryptokiInstalled(getFirefoxConfigPath(), "isCryptokiFFInstalled");
}

bool SP_Components::isCryptokiTBInstalled()
{
    return isCryptokiInstalled(getTBConfigPath(), "isCryptokiTBInstalled");
}

// Steps common to both programs once the profile is known and the module is not listed.
bool SP_Components::registerCryptoki(const QString& profile, const QString& lib, bool logCommand)
{
    if (lib.isEmpty()) {
        debug("updateCryptokiConfig: Cannot find cryptoki");
        return false;
    }
    if (modutilPath.isEmpty()) {
        debug("updateCryptokiConfig: Cannot find modutil");
        return false;
    }
    const QString args = "-force -dbdir \"" + profile + "\" -add \"" + kModuleName + "\" -libfile \"" + lib + "\"";
    if (logCommand)
        debug(modutilPath + args);
    const int code = executeCommand(modutilPath, args, true);
    if (code != 0) {
        const QString message = QString("Cannot configure library, modutil returns error: %1").arg(code);
        debug(message);
        emit ComponentError(message);
        return false;
    }
    if (!isCryptokiInstalled(profile, logCommand ? "isCryptokiFFInstalled" : "isCryptokiTBInstalled")) {
        debug("Cannot configure library");
        emit ComponentError("Cannot configure library");
        return false;
    }
    return true;
}

bool SP_Components::updateCryptokiFFConfig()
{
    if (isCryptokiFFInstalled())
        return true;
    const QString profile = getFirefoxConfigPath();
    if (profile.isEmpty()) {
        debug("Firefox profile not found");
        return false;
    }
    return registerCryptoki(profile, Cryptoki64Path(), true);
}

bool SP_Components::updateCryptokiTBConfig()
{
    debug("updateCryptokiTBConfig");
    if (isCryptokiTBInstalled())
        return true;
    const QString profile = getTBConfigPath();
    if (profile.isEmpty()) {
        debug("Thunderbird profile not found");
        return false;
    }
    return registerCryptoki(profile, CryptokiPath(), false);
}
