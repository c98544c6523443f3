#pragma once

#include <QObject>
#include <QString>

class QWidget;

// Runs the Security Pack upgrade script of a downloaded package.
class ApplicationInstaller : public QObject
{
    Q_OBJECT
public:
    ApplicationInstaller();

    bool install(QWidget* parent, const QString& package);

signals:
    void installed();
    void installationError();
};
