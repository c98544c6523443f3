// Switching the Zorvik extension on in Chrome's preferences, while Chrome is not running.
#include "sp_components.h"

#include "component_paths.h"
#include "log.h"
#include "modal_seam.h"

#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMessageBox>

#include <json/json.h>

const char* const kChromeExtensionId = "kbplnmjcoahdpgfgkbjhfmnbcmmhdjpe";

namespace {
void debug(const QString& text)
{
    Log::print(Log::DEBUG, text);
}

// A running Chrome leaves its marker (a dangling symbolic link on Linux) in the user data
// directory.
bool chromeMarkerPresent()
{
    for (const QString& marker : ComponentPaths::chromeRunningMarkers()) {
        const QFileInfo info(marker);
        if (info.exists() || info.isSymLink())
            return true;
    }
    return false;
}
} // namespace

QString ChromeProfileDir()
{
    return ComponentPaths::chromeProfileDir();
}

QString ChromePrefsFile()
{
    return ComponentPaths::chromePrefsFile();
}

QString SP_Components::ChromeApp()
{
    debug(QString(75, '+'));
    return ComponentPaths::chromeApp();
}

QString SP_Components::getChromePath()
{
    const QString app = ChromeApp();
    return app.isEmpty() ? QString() : ComponentPaths::chromeExecutable(app);
}

QString editCromePrefs()
{
    const QString prefs = ChromePrefsFile();
    const QString backup = prefs + ".d.back";
    if (!QFile::exists(backup)) {
        QFile::copy(prefs, backup);
        debug("backup config file " + backup);
    }
    QFile file(prefs);
    if (!file.open(QIODevice::ReadOnly))
        return "Cannot open chrome preferences file: " + prefs;
    QByteArray bytes = file.readAll();
    file.close();
    // Truncated before the checks below: a failed edit leaves the file empty and the backup
    // holds the previous contents.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return "Cannot write chrome preferences file ";
    const QString outcome = enableExtensionInPrefs(bytes);
    if (outcome == "Chrome extenstion enabled") {
        file.write(bytes);
        file.close();
    }
    return outcome;
}

QString enableExtensionInPrefs(QByteArray& bytes)
{
    const QByteArray key = QString("path\":\"%1").arg(kChromeExtensionId).toLatin1();
    const int i = bytes.indexOf(key);
    const int j = i < 0 ? -1 : bytes.indexOf("state\":", i);
    if (i < 0 || j < 0)
        return "unknown config format";
    const int p = j + 7;
    debug("Chrome config part:");
    const QByteArray part = bytes.mid(i, p + 300);
    const int nul = part.indexOf('\0');
    debug(QString::fromLatin1(nul < 0 ? part : part.left(nul)));
    if (p - i >= 501)
        return "unknown config format";
    if (p < bytes.size() && bytes.at(p) == '0') {
        bytes[p] = '1';
        return "Chrome extenstion enabled";
    }
    return "error enabling chrome extension";
}

bool SP_Components::enableChromeExtension(QWidget* parent)
{
    debug("enableChromeExtension");
    QLockFile lock(ChromeProfileDir() + "/" + "lockfile");
    for (;;) {
        if (!chromeMarkerPresent() && lock.tryLock(1)) {
            const QString outcome = editCromePrefs();
            debug(outcome);
            lock.unlock();
            return outcome == "Chrome extenstion enabled";
        }
        QMessageBox box(QMessageBox::Warning, tr("Zorvik Dashboard"),
                        tr("Google Chrome is running.\nPlease close Google Chrome before continue"),
                        QMessageBox::Ok | QMessageBox::Cancel, parent);
        if (ModalSeam::exec(&box) != QMessageBox::Ok) {
            lock.unlock();
            debug("chrome configuration canceled");
            return false;
        }
    }
}

void printSubkeys(Json::Value& value)
{
    // Only an object has member names; anything else would make jsoncpp throw.
    if (!value.isObject())
        return;
    Json::StyledWriter writer;
    for (const std::string& name : value.getMemberNames())
        debug(QString("%1").arg(QString::fromStdString(writer.write(Json::Value(name)))));
}
