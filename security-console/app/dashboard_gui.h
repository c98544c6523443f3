#pragma once

#include "single_application.h"
#include "system_configuration.h"

#include <QMap>
#include <QString>
#include <QStringList>

class DashboardWindow;

// The application object: start and finish banners, the command line, the one main
// window, and modal dialogs that worker threads ask for by queued invocation.
class DashboardGUI : public SingleApplication
{
    Q_OBJECT
public:
    static const char* const appVersion;
    static const char* const productName;

    DashboardGUI(int& argc, char** argv);
    ~DashboardGUI() override;

    bool hasArg(QString arg);
    void initMainWindow();
    DashboardWindow* window() const { return mainWindow; }
    const QStringList& args() const { return arguments; }

signals:
    void messageClosed();
    void infoClosed(int result);
    void openVPNDialogClosed(bool, QString name, QString address, QString port, QString, QString cert);

public slots:
    void showMessage(const QString& title, const QString& text);
    void showInfo(const QString& title, const QString& text, const QString& label, bool saveAs);
    void runOpenVPNDialog(const QString& openvpn_path, const QString& default_name, const QString& default_port,
                          const QMap<QString, QString>& certs);

private:
    DashboardWindow* mainWindow = nullptr;
    QStringList arguments;
};

void initGTK();
