// The Solutions tab: the Security Pack's applications, the programs it secures and the help
// links. Link commands of its labels arrive at slotApplicationActivated().
#include "dashboard_window.h"

#include "ui_dashboard_window.h"

#include "about_dialog.h"
#include "application_downloader.h"
#include "application_installer.h"
#include "check_updates.h"
#include "component_paths.h"
#include "icon_dialog.h"
#include "log.h"
#include "log_manager.h"
#include "modal_seam.h"
#include "process_helpers.h"
#include "sp_components.h"
#include "support_dialog.h"
#include "ticket_sender.h"
#include "update_dialog.h"
#include "zorvik_build.h"

#include <QApplication>
#include <QDesktopServices>
#include <QIcon>
#include <QMessageBox>
#include <QProcess>
#include <QUrl>

namespace {
const QString kHelpLink = "<a href=\"%1\" style=\"font-size: 12pt; color: #1d86c7; text-decoration: none;\">%2</a>";
const QString kIconLink = "<a href=\"%1\"><img src=\"%2\"/></a>";
const QString kVaultryGuideLink = "https://www.zorvik.com/documentation/ZorvikVaultryMac.pdf";
const QString kRelayonGuideLink = "https://www.zorvik.com/docs/Relayon/";
const QString kProductStr = "Zorvik Security Pack";
} // namespace

void DashboardWindow::updateSolutions()
{
    Log::print(Log::DEBUG, "Updating solutions");
    ui->vaultry_icon->setText(kIconLink.arg("run-Vaultry", ":/Icons/images/storage64.png"));
    ui->vaultry_status->setText(kHelpLink.arg(kVaultryGuideLink, "User Guide")); // notr
    ui->qvradius_icon->setText(kIconLink.arg("run-Relayon", ":/Icons/images/Zorvik64.png"));
    ui->relayon_status->setText(kHelpLink.arg(kRelayonGuideLink, "User Guide")); // notr
    if (!components->openVPNInstalled)
        ui->openvpn_status->setText(kHelpLink.arg("setup-openvpn", "Setup")); // notr
    else
        ui->openvpn_status->setText(kHelpLink.arg("configure-openvpn-cryptoki", "Add a connection")); // notr
}

void DashboardWindow::updateApplications()
{
    components->Update();
}

void DashboardWindow::updateApplicationsFull()
{
    components->thunderbirdCheckRequested = true;
    components->Update();
}

void DashboardWindow::slotApplicationActivated(QString link)
{
    Log::print(Log::DEBUG, "Application Activated = " + link);
    if (link.startsWith("http://") || link.startsWith("https://")) {
        Log::print(Log::DEBUG, "Opening url: " + link);
        QDesktopServices::openUrl(QUrl(link));
    } else if (link.startsWith("run-")) {
        const QString rest = link.mid(4);
        Log::print(Log::DEBUG, "Running app " + rest);
        if (rest == "Vaultry")
            components->runVaultry();
        else if (rest == "Relayon")
            components->runRelayon();
    } else if (link.startsWith("configure-")) {
        const QString rest = link.mid(10);
        Log::print(Log::DEBUG, "Configure app " + rest);
        if (rest == "openvpn-cryptoki") {
            if (!tokenPresent) {
                QMessageBox box(QMessageBox::Warning, tr("Configuring OpenVPN"),
                                tr("Please present your Vantrel to configure OpenVPN."), QMessageBox::Ok, this);
                ModalSeam::exec(&box);
            } else {
                if (!haveCertificateList)
                    updateCertificates();
                components->configureOpenVPN(this);
            }
        }
    } else if (link.startsWith("report-")) {
        Log::print(Log::DEBUG, "Not found app " + link.mid(7));
        QMessageBox box(QMessageBox::Critical, tr("Zorvik Dashboard"),
                        tr("%1 was not installed properly. Do you wish to reinstall %2?").arg(kProductStr, kProductStr),
                        QMessageBox::Yes | QMessageBox::No, this);
        if (ModalSeam::exec(&box) == QMessageBox::Yes)
            repairSP();
    } else if (link.startsWith("setup-")) {
        const QString rest = link.mid(6);
        QString title;
        QString icon;
        QString text;
        if (rest == "mozilla-firefox") {
            title = tr("Zorvik security certificates support for Mozilla Firefox", "Window messages");
            icon = ":/Icons/icons/firefox.png";
            text = tr("<p>You should have Mozilla Firefox installed to enable Zorvik security certificates support."
                      "<p>Please download and install the program here: ",
                      "Window messages") +
                   "<a href=\"https://www.mozilla.org/firefox/\">mozilla.org/firefox</a>";
        } else if (rest == "mozilla-thunderbird") {
            title = tr("Secure email support for Mozilla Thunderbird", "Window messages");
            icon = ":/Icons/icons/thunderbird.png";
            text = tr("<p>You should have Mozilla Thunderbird installed to enable secure email."
                      "<p>Please download and install the program here: ",
                      "Window messages") +
                   "<a href=\"https://www.thunderbird.net/\">thunderbird.net</a>";
        } else if (rest == "openvpn") {
            title = tr("Zorvik support for OpenVPN", "Window messages");
            icon = ":/Icons/icons/openvpn.png";
            text = tr("<p>You should have OpenVPN installed to enable secure VPN."
                      "<p>Please download and install the program here: ",
                      "Window messages") +
                   "<a href=\"https://openvpn.net/index.php/open-source/downloads.html\">openvpn.net</a>";
        }
        if (!title.isEmpty()) {
            IconDialog dialog(title, QIcon(icon), text, this);
            ModalSeam::exec(&dialog);
        }
    } else if (link.startsWith("InkfoldLink")) {
        QString program;
        const bool started = ComponentPaths::openInFirefox("https://www.zorvik.com/products/inkfold", &program);
        if (program.isEmpty())
            Log::print(Log::DEBUG, "Unable to find path to Firefox binary");
        else if (started)
            Log::print(Log::DEBUG, "Firefox has been started");
        else
            Log::print(Log::DEBUG, "Failed to start Firefox");
    } else if (link.startsWith("enable-chrome-extension")) {
        QProcess::startDetached(components->getChromePath(), {"https://support.zorvik.com/604.html#chrome"});
    } else if (link.startsWith("install-chrome-extension")) {
        QProcess::startDetached(components->getChromePath(),
                                {QString("https://chrome.google.com/webstore/detail/%1").arg(kChromeExtensionId)});
        hide();
    }
}

void DashboardWindow::slotComponentError(QString message)
{
    Log::print(Log::DEBUG, "ComponentError " + message);
    QMessageBox box(QMessageBox::Critical, tr("%1 message", "Application messages").arg("Zorvik Dashboard"), message,
                    QMessageBox::Ok, this);
    ModalSeam::exec(&box);
}

void DashboardWindow::repairSP()
{
    Log::print(Log::DEBUG, "repairSP ");
    downloadAndInstall(checkUpdates->downloadUrl());
}

void DashboardWindow::downloadAndInstall(const QString& url)
{
    Log::print(Log::DEBUG, "downloadAndInstall " + url);
    if (url.isEmpty())
        return;
    {
        ApplicationDownloader downloader(this);
        if (downloader.download(url, QCoreApplication::translate("Window messages", "Zorvik Software Installation"),
                                QCoreApplication::translate("Window messages", "Downloading Zorvik Security Pack"))) {
            if (!installer->install(this, downloader.downloadedFile()))
                errorBox(this, QCoreApplication::translate(
                                   "Application messages",
                                   "Cannot install %1.Please try again later or contact Zorvik support")
                                   .arg("Zorvik Dashboard"));
        } else {
            errorBox(this, QCoreApplication::translate("Application messages",
                                                       "Cannot download Zorvik Installation Package. Please try "
                                                       "again later or contact Zorvik support"));
        }
    }
    updateSolutions();
}

void DashboardWindow::pspInstalled()
{
    components->Update();
}

void DashboardWindow::pspInstallationFailed()
{
    Log::print(Log::DEBUG, "installation failed");
}

// ---------------------------------------------------------------------------------------
// Updates and support (the help menu of this tab)

void DashboardWindow::slotCheckSPUpdates()
{
    checkUpdates->Check(false);
}

void DashboardWindow::slotCheckUpdatesButton()
{
    checkUpdates->Check(true);
}

void DashboardWindow::slotSPUpdatesChecked(bool interactive)
{
    Log::print(Log::DEBUG, "Checked available SP Upates");
    updateAvailable = checkUpdates->updateAvailable();
    updateTrayIcon();
    if (!interactive)
        return;
    if (!updateAvailable) {
        QMessageBox box(QMessageBox::Information, "Zorvik Dashboard",
                        QCoreApplication::translate("Application messages",
                                                    "You already have the latest version of Zorvik Security Pack "
                                                    "installed."),
                        QMessageBox::Ok, this);
        ModalSeam::exec(&box);
    } else {
        slotAskForUpdateSP();
    }
}

void DashboardWindow::slotAskForUpdateSP()
{
    if (!updateAvailable)
        return;
    UpdateDialog dialog(checkUpdates->version(), checkUpdates->changeLog(), this);
    // One offer at a time: the tray, the About box and a check's result may all ask.
    if (updateDialogOpen)
        return;
    updateDialogOpen = true;
    const QString url = checkUpdates->downloadUrl();
    if (ModalSeam::exec(&dialog) == QDialog::Accepted)
        downloadAndInstall(url);
    updateDialogOpen = false;
}

void DashboardWindow::slotAbout()
{
    AboutDialog dialog(updateAvailable, this);
    if (ModalSeam::exec(&dialog) == AboutDialog::UpdateRequested)
        slotAskForUpdateSP();
}

void DashboardWindow::slotHelpButton()
{
    QDesktopServices::openUrl(QUrl("https://www.zorvik.com/docs/SecurityPack/"));
}

void DashboardWindow::slotSupportButton()
{
    Log::print(Log::DEBUG, "Support button");
    SupportDialog dialog(this, ticketSender);
    if (ModalSeam::exec(&dialog) != QDialog::Accepted)
        return;
    Log::print(Log::DEBUG, "Sending support ticket: " + dialog.description());
    ticketSender->sendTicket(dialog.description(), dialog.email(), dialog.name(), logManager->filesToSend());
}

void DashboardWindow::slotSupportError(QString message)
{
    QApplication::restoreOverrideCursor();
    errorBox(this, message);
}

void DashboardWindow::slotSupportSent(QString message)
{
    QApplication::restoreOverrideCursor();
    QMessageBox box(QMessageBox::Information,
                    QCoreApplication::translate("Application messages", "%1 message").arg("Zorvik Dashboard"), message,
                    QMessageBox::Ok, this);
    ModalSeam::exec(&box);
}
