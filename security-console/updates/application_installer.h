#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QTimer>

class QWidget;

// Installs a downloaded Security Pack package: after the user agrees to let the program
// close, it starts "<application dir>/scripts/upgrade.sh <package>" detached and quits, so
// the script can replace the running files and start the new version.
class ApplicationInstaller : public QObject
{
    Q_OBJECT
public:
    ApplicationInstaller();

    bool install(QWidget* parent, const QString& package);
    bool executeInstallerCommand(QWidget* parent, const QString& package);

public slots:
    void terminate();
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);

signals:
    void installed();
    void installationError();

private:
    QTimer timer;
    QProcess process;
    QString packagePath;
};
