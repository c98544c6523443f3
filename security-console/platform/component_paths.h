#pragma once

#include <QString>
#include <QStringList>

// Where the programs the Security Pack works with live on this system, and how they are
// started. The answers are candidates: callers check that the files exist.
namespace ComponentPaths {

// The Zorvik PKCS#11 module: its file name and where it is looked for.
QString cryptokiName();
QString cryptokiPath();
// The Vaultry and Relayon executables (empty when the system has none).
QString vaultryPath();
QString relayonPath();
// Program and arguments that start an application given by its executable path.
QString launchCommand(const QString& executable);
// The NSS tool that registers security modules.
QString modutilPath();
// The Firefox and Thunderbird executables and their profile roots (holding profiles.ini).
QString firefoxPath();
QString thunderbirdPath();
QString firefoxProfileRoot();
QString thunderbirdProfileRoot();
// Starts Firefox detached on `url`; the executable used goes to `program` (empty when none).
bool openInFirefox(const QString& url, QString* program);

// Google Chrome: the application the desktop uses for web links when it is Chrome, its
// executable, its default profile directory, preferences file and the files that tell the
// browser is running (besides the lock we take on the profile).
QString chromeApp();
QString chromeExecutable(const QString& app);
QString chromeProfileDir();
QString chromePrefsFile();
QStringList chromeRunningMarkers();

} // namespace ComponentPaths
