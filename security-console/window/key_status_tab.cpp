// The Key Status tab: starts a status query and shows what TokenStatus found out.
#include "dashboard_window.h"

#include "ui_dashboard_window.h"

#include "log.h"

void DashboardWindow::updateTokenInfo()
{
    Log::print(Log::DEBUG, "slotOpenTokenInfo()");
    if (tokenStatus->busy) {
        Log::print(Log::DEBUG, "Get token status already active");
        return;
    }
    ui->label_info->setText(tr("Gathering status data - please wait."));
    setStatusIndicator(0);
    ui->label_title->clear();
    ui->label_type->clear();
    ui->label_ret_status->setText("obtaining"); // notr
    ui->tabs->setCursor(Qt::WaitCursor);
    tokenStatus->startQuery();
}

void DashboardWindow::infoSCReady()
{
    Log::print(Log::DEBUG, "infoSCReady()");
    ui->label_atr->setText(tokenStatus->atr);
    if (tokenStatus->tokenStatus < 3)
        ui->label_ret_status->setText("Not available"); // notr
    else
        ui->label_ret_status->setText("0x" + QString::number(tokenStatus->infoStatus, 16).toUpper());
    if (tokenStatus->networkType != 1) {
        ui->label_network->setText(TokenStatus::strNetworkType(tokenStatus->networkType));
        if (tokenStatus->networkType > 0)
            ui->label_network_title->setVisible(true);
        else
            ui->label_network->clear();
    }
    ui->label_info->setText(tokenStatus->statusText);
    setStatusIndicator(tokenStatus->tokenStatus);
}

void DashboardWindow::infoKSReady()
{
    if (tokenPresent) {
        DispalyKeyInfo();
        ui->label_info->setText(tokenStatus->statusText);
    }
    ui->tabs->unsetCursor();
}

void DashboardWindow::infoKSCanceled(QString reason)
{
    Log::print(Log::DEBUG, "infoKSCanceled()");
    setStatusIndicator(tokenStatus->tokenStatus);
    if (tokenStatus->tokenStatus == 7) {
        ui->label_info->setText(reason);
        setStatusIndicator(8);
    } else {
        ui->label_info->setText(tokenStatus->strTokenStatus());
    }
    DispalyKeyInfo();
    ui->tabs->unsetCursor();
}

void DashboardWindow::DispalyKeyInfo()
{
    ui->label_type->setStyleSheet(QString());
    ui->label_title->setText(tokenStatus->keyTitle.left(100));
    ui->label_type->setText(tokenStatus->keyType);
    if (tokenStatus->keyType == "Tessaron")
        ui->label_type->setStyleSheet("QLabel { background-color : #aa0033; color: white; }");
    else if (tokenStatus->keyType == "Vantrel")
        ui->label_type->setStyleSheet("QLabel { background-color : #006090; color: white;}");
}

void DashboardWindow::cleanTokenStatus()
{
    if (ui->tabs->currentIndex() == KeyStatusTab)
        tokenStatus->terminateKSRequest();
    ui->label_info->setText(tr("No Key present."));
    setStatusIndicator(0);
    ui->label_title->clear();
    ui->label_type->clear();
    ui->label_type->setStyleSheet(QString());
    ui->label_ret_status->clear();
    ui->label_atr->clear();
    ui->label_network->clear();
    ui->label_network_title->hide();
}
