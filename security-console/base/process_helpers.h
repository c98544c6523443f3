#pragma once

#include <QByteArray>
#include <QSslCertificate>
#include <QString>

class QWidget;

// Process, environment and file helpers shared by the whole program. They keep no state.

bool isSessionActive();
bool checkFile(const QString& path);
bool checkDir(const QString& path);
QString hexlify(const QByteArray& data);
void MySleep(int ms);
QString getEnvVar(QString name);
QString getPlatform();
int errorBox(QWidget* parent, QString text);
bool isCertValid(QSslCertificate cert);

// Runs `program args` (split by blanks, double quotes honoured, no shell), discards its
// output and returns its exit code; 0 when it could not be started or crashed. With
// noCards the child is told not to touch cards nor show dialogs.
int executeCommand(const QString& program, const QString& args, bool noCards);
// As executeCommand, returning standard output up to its first NUL byte; a null text when
// the program could not be run.
QString executeCommandWithOutput(QString program, QString args, bool noCards);
// No elevation on this platform: runs nothing and reports 0.
int executeAdminCommand(QString command);
QString executeAdminCommandWithOutput(const QString& program, const QString& args);
