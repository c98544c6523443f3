#pragma once

#include <QString>
#include <QThread>

class QWidget;

// Finds the programs the Security Pack works with and configures them. Its thread body is
// the components updater: one short probing pass per start.
class SP_Components : public QThread
{
    Q_OBJECT
public:
    explicit SP_Components(QObject* parent = nullptr);

    void Update();
    void runVaultry();
    void runRelayon();
    void configureOpenVPN(QWidget* parent);
    QString getChromePath();

    bool openVPNInstalled = false;
    bool thunderbirdCheckRequested = false;

signals:
    void componentsUpdated();
    void ComponentError(QString message);

protected:
    void run() override;
};
