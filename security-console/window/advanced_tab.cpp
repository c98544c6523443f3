// The Advanced tab: the token library's SSL switch, the proxy setting, and the options
// that are hidden on this platform (access codes, credential provider, show all objects).
#include "dashboard_window.h"

#include "ui_dashboard_window.h"

#include "dashboard_network_manager.h"
#include "log.h"
#include "os_platform.h"
#include "process_helpers.h"
#include "zorvik_proxy.h"
#include "qvtoken.h"
#include "qvtoken_gui.h"

#include <QSettings>

void DashboardWindow::readAndApplyProxy()
{
    const ProxyConfig config = DashboardNetworkManager::readProxySettings();
    displayProxy(config);
    DashboardNetworkManager::SetupProxy(config);
}

void DashboardWindow::slotSSLToogle(bool checked)
{
    Log::print(Log::DEBUG, QString("SSL STATE %1").arg(checked ? 1 : 0));
    qvtoken_setSsl(checked);
}

void DashboardWindow::displayProxy(ProxyConfig config)
{
    ui->proxyAddressLineEdit->setText(config.host);
    ui->proxyPortLineEdit->setText(QString("%1").arg(config.port));
    ui->useProxyCheckBox->setCheckState(config.enabled ? Qt::Checked : Qt::Unchecked);
    ui->proxyAddressLineEdit->setEnabled(config.enabled);
    ui->proxyPortLineEdit->setEnabled(config.enabled);
}

void DashboardWindow::slotProxyToogle(bool checked)
{
    ui->proxyAddressLineEdit->setEnabled(checked);
    ui->proxyPortLineEdit->setEnabled(checked);
    slotProxyEditFinished();
}

void DashboardWindow::slotProxyEditFinished()
{
    writeProxySettings();
    DashboardNetworkManager::SetupProxy(DashboardNetworkManager::readProxySettings());
}

void DashboardWindow::writeProxySettings()
{
    const QString proxy = QString("%1:%2").arg(ui->proxyAddressLineEdit->text(), ui->proxyPortLineEdit->text());
    const int enabled = ui->useProxyCheckBox->checkState();
    Log::print(Log::DEBUG, tr("Writing proxy settings:%1").arg(proxy));
    const QByteArray latin = proxy.toLatin1();
    int result = zorvikpc_set_proxy(1, latin.constData(), enabled);
    if (result != 0)
        Log::print(Log::DEBUG, tr("Error writing user proxy settings %1 code=%2").arg(proxy).arg(result));
    result = zorvikpc_set_proxy(2, latin.constData(), enabled);
    if (result != 0)
        Log::print(Log::DEBUG, tr("Error writing system proxy settings %1 code=%2").arg(proxy).arg(result));
}

void DashboardWindow::slotProxyImportIE() {}

void DashboardWindow::initPSWoption()
{
    ui->PSWcomboBox->clear();
    for (const char* text : {QT_TR_NOOP("System Default"), QT_TR_NOOP("Allow"), QT_TR_NOOP("Disallow")})
        ui->PSWcomboBox->addItem(QIcon(), tr(text), 0); // notr: marked above
}

void DashboardWindow::readPSWoption()
{
    int value = 0;
    int index = 0;
    if (qvtoken_gui_get_data(nullptr, 8, &value, sizeof value) == 0)
        index = value != 0 ? 1 : 2;
    int systemValue = 0;
    const bool systemRead = qvtoken_gui_get_data(nullptr, 9, &systemValue, sizeof systemValue) == 0;
    const QString label =
        tr("System default") + ((systemRead && systemValue != 0) ? tr(" (Allow)") : tr(" (Disallow)"));
    ui->PSWcomboBox->setItemText(0, label);
    ui->PSWcomboBox->setCurrentIndex(index);
}

void DashboardWindow::slotPSWoptionChanged(int index)
{
    if (index == -1)
        return;
    int value = index;
    if (index == 0)
        value = 2;
    else if (index == 1)
        value = 1;
    else if (index == 2)
        value = 0;
    qvtoken_gui_set_data(nullptr, 8, &value, sizeof value);
}

void DashboardWindow::initScremoveoption() {}

void DashboardWindow::readScremoveoption() {}

void DashboardWindow::slotScremoveoptionChanged(int index)
{
    Q_UNUSED(index)
}

void DashboardWindow::readSCMDoptions() {}

void DashboardWindow::slotZORVIKCPcheckBoxToogle(bool checked)
{
    if (checked == credentialProviderState)
        return;
    const QString script = OsPlatform::credentialProviderScript(checked);
    // Without elevation on this platform the runner reports failure (0), so the box snaps back.
    if (executeAdminCommand(QString("\"%1\"").arg(script)) != 0)
        credentialProviderState = checked;
    else
        ui->ZORVIKCPcheckBox->setChecked(credentialProviderState);
}

void DashboardWindow::slotShowAllPKCSCheckBoxToogle(bool checked)
{
    settings->setValue("showAllPKCS", checked);
}
