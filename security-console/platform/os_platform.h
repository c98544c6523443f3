#pragma once

#include <QString>

class QObject;
class QSettings;

// The program's one seam to the operating system: everything whose answer differs
// between macOS and Linux is asked here.
namespace OsPlatform {

// The Macintosh version code (1 = Mac OS 9 ... 10 = 10.8, later systems higher); 0 on
// systems that are not macOS.
int macVersionCode();

// This operating-system release as the update API names it: "linux." + ID + "." + the
// major part of VERSION_ID from os-release on Linux (e.g. "linux.debian.12"), "osx" +
// ".<major>.<minor>" of the system version on macOS (e.g. "osx.10.12").
QString updatePlatformName();
// The Linux name for the text of an os-release file. A missing ID counts as "linux", as
// os-release defines it; a missing VERSION_ID (rolling releases) leaves the version out.
QString linuxPlatformName(const QByteArray& osRelease);
// Path of the Security Pack change log on the change-log host (changeLogUrl()).
QString changeLogPath();

// Service addresses, without a trailing slash. Production defaults, overridable for the
// bench and the tests by ZORVIK_KEYSERVICE_URL, ZORVIK_UPDATE_URL, ZORVIK_CHANGELOG_URL
// and ZORVIK_SUPPORT_URL.
QString keyServiceUrl();
QString updateApiUrl();
QString changeLogUrl();
QString supportUrl();
// A fixed public web address, used only to ask the system how it would reach the web
// (proxy diagnostics); nothing is sent to it.
QString proxyTestUrl();
// Extra trusted CA certificates (PEM) for HTTPS, from ZORVIK_EXTRA_CA; empty when unset.
QString extraCaFile();

// The clock of the reader and key polling, in milliseconds: 500. Benchmarks and tests run
// it faster through ZORVIK_READER_POLL_MS (1 to 500); other values leave the default.
int readerPollingIntervalMs();

// The platform name a critical error report carries: "Mac OS X" on macOS, "Linux" here.
QString reportPlatform();

// Per-user configuration directory of the Zorvik software.
QString configDir();
// The program's own settings ("showAllPKCS"), of organisation "Zorvik" and application
// "Dashboard": the system's preferences on macOS; on Linux the file "Dashboard.conf" in
// configDir(), next to every other per-user setting. Settings that an earlier version
// kept elsewhere are taken over once, while the file is still missing.
QSettings* applicationSettings(QObject* parent);

// The log file main() names to the logger: the user's "Library/Logs" on macOS, the
// logger library's user log on Linux (empty when the logger keeps none).
QString userLogPath();

// Called before the application object of a run that opens no window ("--exit"). On Linux
// such a run may come from a terminal or a script without a display: Qt is then given its
// windowless platform instead of aborting for want of a display. macOS always has one.
void prepareWindowlessRun();

// The platform name the components updater compares (getPlatform()). The component logic
// knows the maker's names only, so every system this program builds for answers as macOS.
QString componentPlatform();
// The script that turns the credential provider on or off: the maker's other platform's
// script beside the program, which nothing here can run (see executeAdminCommand).
QString credentialProviderScript(bool enable);

// The program's own files, found relative to the program: where the package installs them,
// else where the build tree has them. A file found in neither place is answered with its
// installed path, so messages name where it was expected.
// The PKCS#11 module, as other programs (modutil, openvpn, p11-kit) load it.
QString cryptokiModulePath();
// The Security Pack's upgrade script.
QString upgradeScriptPath();
// The compiled translations (zorvik-dashboard_<locale>.qm).
QString translationsDir();

// A directory only this user can reach, for the program's run-time files (the
// single-instance channel): "zorvik" in $XDG_RUNTIME_DIR when that is a directory of the
// user's own, else $XDG_CACHE_HOME (~/.cache)/zorvik-runtime. Created with mode 0700; an
// empty text when no such directory can be had (one that another user owns is never used).
QString runtimeDir();

} // namespace OsPlatform
