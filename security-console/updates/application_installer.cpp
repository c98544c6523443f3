#include "application_installer.h"

#include "log.h"
#include "modal_seam.h"
#include "os_platform.h"

#include <QCoreApplication>
#include <QFile>
#include <QMessageBox>

namespace {
QString windowMessage(const char* text)
{
    // The callers mark their texts with QT_TRANSLATE_NOOP for lupdate.
    return QCoreApplication::translate("Window messages", text); // notr
}
} // namespace

ApplicationInstaller::ApplicationInstaller()
{
    connect(&timer, &QTimer::timeout, this, &ApplicationInstaller::terminate);
    connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &ApplicationInstaller::processFinished);
}

bool ApplicationInstaller::install(QWidget* parent, const QString& package)
{
    packagePath = package;
    Log::print(Log::DEBUG, QString("trying to install %1").arg(package));
    QMessageBox box(QMessageBox::Information,
                    windowMessage(QT_TRANSLATE_NOOP("Window messages", "Updating Zorvik Software")),
                    windowMessage(QT_TRANSLATE_NOOP(
                        "Window messages", "The %2 will be closed in order to install the most recent %1 updates."))
                        .arg("Zorvik Security Pack", "Zorvik Dashboard"),
                    QMessageBox::Ok | QMessageBox::Cancel, parent);
    if (ModalSeam::exec(&box) != QMessageBox::Ok) {
        Log::print(Log::DEBUG, "Installation cancelled");
        QFile::remove(package);
        return false;
    }
    executeInstallerCommand(parent, package);
    Log::print(Log::DEBUG, "Closing app");
    QCoreApplication::quit();
    return true;
}

bool ApplicationInstaller::executeInstallerCommand(QWidget* parent, const QString& package)
{
    Q_UNUSED(parent)
    const QString script = OsPlatform::upgradeScriptPath();
    const QString command = "sh \"" + script + "\" \"" + package.trimmed() + "\"";
    Log::print(Log::DEBUG, QString("Installing application: %1").arg(command));
    // The arguments go as they are, so quotes or blanks in the paths need no escaping.
    if (!QProcess::startDetached("sh", {script, package.trimmed()}))
        Log::print(Log::WARNING, "Cannot start the installer");
    return true;
}

void ApplicationInstaller::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    Log::print(Log::DEBUG,
               QString("installation process finished with code %1 and status %2").arg(exitCode).arg(exitStatus));
    QFile::remove(packagePath);
    if (exitStatus != QProcess::NormalExit || exitCode != 0)
        emit installationError();
    else
        emit installed();
}

void ApplicationInstaller::terminate()
{
    Log::print(Log::WARNING, "Application is ternminated due to installation.");
    QCoreApplication::quit();
}
