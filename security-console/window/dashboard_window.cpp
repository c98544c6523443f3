#include "dashboard_window.h"

#include "ui_dashboard_window.h"

#include "application_installer.h"
#include "certificate_storage.h"
#include "check_updates.h"
#include "dashboard_network_manager.h"
#include "dashboard_token_info.h"
#include "log.h"
#include "log_manager.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "process_helpers.h"
#include "qvtoken.h"
#include "report_error.h"
#include "single_application.h"
#include "sp_components.h"
#include "ticket_sender.h"
#include "worker_threads.h"
#include "zorvik_build.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QMovie>
#include <QProcess>
#include <QScreen>
#include <QSettings>
#include <QTimer>

namespace {

const char* const kVersion = ZORVIK_VERSION;
const char* const kProduct = "Zorvik Dashboard";

struct TrayImages {
    const char* plain;
    const char* withNote;
};
const TrayImages kKeyImages{":/Icons/images/tokenicon.png", ":/Icons/images/tokenicon-update.png"};
const TrayImages kReaderImages{":/Icons/images/tokenicon-orange.png", ":/Icons/images/tokenicon-orange-update.png"};
const TrayImages kErrorImages{":/Icons/images/tokenicon-red.png", ":/Icons/images/tokenicon-red-update.png"};
const TrayImages kNothingImages{":/Icons/images/tokenicon-bw.png", ":/Icons/images/tokenicon-bw-update.png"};

// How long quitting waits, in all, for the workers that are still running.
const int kWorkerStopMs = 5000;

const char* const kNoKeyHint =
    QT_TRANSLATE_NOOP("DashboardWindow", "Please present Vantrel to access the available security certificates.");

QString appMessage(const char* text)
{
    // The callers mark their texts with QT_TRANSLATE_NOOP for lupdate.
    return QCoreApplication::translate("Application messages", text); // notr
}

} // namespace

DashboardWindow::DashboardWindow(QWidget* parent)
    : QMainWindow(parent), ui(new Ui::DashboardWindow), ticketSender(new TicketSender(this)),
      installer(new ApplicationInstaller), logManager(new LogManager(this)), tokenStatus(new TokenStatus)
{
    Log::print(Log::DEBUG, "DashboardWindow begin init");
    restartRequested = false;

    QCoreApplication::setOrganizationName("ZORVIK");
    QCoreApplication::setOrganizationDomain("zorvik.com");
    QCoreApplication::setApplicationName("Dashboard");

    ui->setupUi(this);
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setWindowTitle(QCoreApplication::translate("Window title", "%2 version %1 %3").arg(kVersion, kProduct, ""));
    setStyleSheet("QMessageBox { messagebox-text-interaction-flags: 5; }");

    // Certificate store.
    cryptokiStorage = new CryptokiStorage(this);
    qRegisterMetaType<QList<CryptokiStorageItem>>("QList<CryptokiStorageItem>");
    connect(cryptokiStorage, &CryptokiStorage::certificates, this, &DashboardWindow::certificateInfo);
    connect(cryptokiStorage, &CryptokiStorage::error, this, &DashboardWindow::certificateError);
    connect(cryptokiStorage, &CryptokiStorage::noTokenFound, this, &DashboardWindow::certificateNoToken);
    connect(cryptokiStorage, &CryptokiStorage::cannotGetCertificates, this,
            &DashboardWindow::slotCannotGetCertificates);
    ui->refresh_cert_icon->hide();
    // The certificate list sits on the tab's own background, not on a grey scroll viewport.
    ui->certsScrollArea->viewport()->setAutoFillBackground(false);
    ui->certsScrollContents->setAutoFillBackground(false);

    // Tray menu.
    trayMenu = new QMenu(this);
    trayMenu->addAction(ui->actionOpenSolutions);
    trayMenu->addAction(ui->actionOpenCertificates);
    trayMenu->addAction(ui->actionOpenTokenInfo);
    trayMenu->addAction(ui->actionOpenAdvanced);
    trayMenu->addSeparator();
    trayMenu->addAction(ui->actionExit);

    loadingMovie = new QMovie(":/Icons/images/proxychannel_loading.gif", QByteArray(), this);
    connect(loadingMovie, &QMovie::error, this, &DashboardWindow::slotMovieError);

    tray = new QSystemTrayIcon(QIcon(kNothingImages.plain), this);
    currentTrayIcon = kNothingImages.plain;
    tray->setContextMenu(trayMenu);
    connect(tray, &QSystemTrayIcon::activated, this, &DashboardWindow::slotTrayActivated);
    connect(tray, &QSystemTrayIcon::messageClicked, this, &DashboardWindow::slotTrayMessageClicked);
    tray->setVisible(true);
    updateTrayIcon();

    // Reader and key presence.
    dashboardTokenInfo = new DashboardTokenInfo(this);
    qRegisterMetaType<QStringList>("QStringList");
    connect(dashboardTokenInfo, &DashboardTokenInfo::noTokenFound, this, &DashboardWindow::tokenNotFound);
    connect(dashboardTokenInfo, &DashboardTokenInfo::readersFound, this, &DashboardWindow::readersFound);
    connect(dashboardTokenInfo, &DashboardTokenInfo::tokenFound, this, &DashboardWindow::tokenFound);
    connect(dashboardTokenInfo, &DashboardTokenInfo::SmartCardError, this, &DashboardWindow::SCardInterfaceError);
    connect(dashboardTokenInfo, &DashboardTokenInfo::SmartCardNoError, this, &DashboardWindow::SCardInterfaceNoError);

    applicationsTimer = new QTimer(this);
    connect(applicationsTimer, &QTimer::timeout, this, &DashboardWindow::updateApplicationsFull);
    connect(applicationsTimer, &QTimer::timeout, this, &DashboardWindow::debugThreads);
    applicationsTimer->setInterval(600000);

    connect(installer, &ApplicationInstaller::installed, this, &DashboardWindow::pspInstalled);
    connect(installer, &ApplicationInstaller::installationError, this, &DashboardWindow::pspInstallationFailed);

    logRotateTimer = new QTimer(this);
    connect(logRotateTimer, &QTimer::timeout, this, &DashboardWindow::logRotate);
    logRotateTimer->setInterval(86400000);
    logRotateTimer->start();
    logRotate();

    ui->helpLayout->setAlignment(Qt::AlignBottom);
    ui->pairingGroup->hide();
    ui->tabs->removeTab(1);
    components = new SP_Components(this);
    connect(components, &SP_Components::componentsUpdated, this, &DashboardWindow::updateSolutions);
    connect(components, &SP_Components::ComponentError, this, &DashboardWindow::slotComponentError);
    applicationsTimer->start();
    components->Update();
    updateSolutions();

    checkUpdates = new Check_Updates(this);
    connect(checkUpdates, &Check_Updates::SPUpdatesChecked, this, &DashboardWindow::slotSPUpdatesChecked);
    updateTimer = new QTimer(this);
    connect(updateTimer, &QTimer::timeout, this, &DashboardWindow::slotCheckSPUpdates);
    updateTimer->setInterval(86400000);
    updateTimer->start();
    checkUpdates->Check(false);

    // Link labels.
    for (QLabel* label : {ui->vaultry_icon, ui->qvradius_icon, ui->openvpn_status})
        connect(label, &QLabel::linkActivated, this, &DashboardWindow::slotApplicationActivated);
    for (QLabel* label : {ui->import_cert_icon, ui->labelCryptokiStatus, ui->import_cert})
        connect(label, &QLabel::linkActivated, this, &DashboardWindow::slotAddCertificate);
    connect(ui->refresh_cert, &QLabel::linkActivated, this, &DashboardWindow::updateCertificates);
    connect(tokenStatus, &TokenStatus::infoSCReady, this, &DashboardWindow::infoSCReady);
    connect(tokenStatus, &TokenStatus::infoKSReady, this, &DashboardWindow::infoKSReady);
    connect(tokenStatus, &TokenStatus::infoKSCanceled, this, &DashboardWindow::infoKSCanceled);
    for (QLabel* label : {ui->tokenStatus_refresh_icon, ui->tokenStatus_refresh})
        connect(label, &QLabel::linkActivated, this, &DashboardWindow::updateTokenInfo);

    // Solutions tab: rows and help entries that have no meaning on this platform.
    for (QWidget* w : std::initializer_list<QWidget*>{ui->qvradius_icon, ui->relayon_status, ui->label_13,
                                                      ui->label_16, ui->openvpn_icon, ui->opnevpn_name,
                                                      ui->openvpn_status, ui->label_secure_with})
        w->hide();
    const QString helpTemplate =
        "<a href=\"%1\" style=\"font-size: 12pt; color: #1d86c7; text-decoration: none;\">%2</a>";
    const QString docs = "https://www.zorvik.com/documentation/";
    ui->fiefox_help->setText(helpTemplate.arg(docs + "ZorvikSecurityFirefox.pdf", "Firefox")); // notr
    ui->tb_help->setText(helpTemplate.arg(docs + "ZorvikSecurityThunderbird/Welcome.htm", "Thunderbird")); // notr
    ui->email_help->setText(helpTemplate.arg(docs + "ZorvikSecurityOutlook/Welcome.htm", "Outlook and OWA")); // notr
    ui->openvpn_help->setText(helpTemplate.arg(docs + "ZorvikSecurityOpenVPN/Welcome.htm ", "OpenVPN")); // notr
    ui->juniper_help->setText(helpTemplate.arg(docs + "ZorvikSecurityJuniperVPN/Welcome.htm", "JuniperVPN")); // notr
    ui->winlogon_help->setText(
        helpTemplate.arg(docs + "ZorvikSecurityWindowsLogon/Welcome.htm", "Windows Logon")); // notr
    ui->sharepoint_help->setText(helpTemplate.arg(docs + "ZorvikSecuritySharePoint/Welcome.htm", "SharePoint")); // notr
    for (QWidget* w : std::initializer_list<QWidget*>{ui->winlogon_help, ui->winlogon_help_icon, ui->email_help,
                                                      ui->email_help_icon, ui->sharepoint_help,
                                                      ui->sharepoint_help_icon})
        w->hide();

    // Advanced tab.
    ui->SSLcheckBox->setChecked(qvtoken_getSsl() != 0);
    for (QWidget* w : std::initializer_list<QWidget*>{ui->label_2, ui->PSWcomboBox})
        w->setVisible(false);
    // The access-code controls are all the "Configuration" group holds: no empty frame.
    ui->groupBox_2->setVisible(!ui->PSWcomboBox->isHidden());
    readAndApplyProxy();
    for (QWidget* w :
         std::initializer_list<QWidget*>{ui->proxyImportIEButton, ui->groupBox_3, ui->groupBox_debug})
        w->setVisible(false);
    settings = OsPlatform::applicationSettings(this);
    ui->showAllPKCSCheckBox->setChecked(settings->value("showAllPKCS", false).toBool());

    // Help menu.
    helpMenu = new QMenu(this);
    helpMenu->addAction(ui->actionDashboard);
    helpMenu->addAction(ui->actionContact_support);
    helpMenu->addAction(ui->actionCheck_for_updates);
    helpMenu->addSeparator();
    helpMenu->addAction(ui->actionAbout);
    ui->helpMenuButton->setMenu(helpMenu);
    connect(ui->actionDashboard, &QAction::triggered, this, &DashboardWindow::slotHelpButton);
    connect(ui->actionContact_support, &QAction::triggered, this, &DashboardWindow::slotSupportButton);
    connect(ui->actionCheck_for_updates, &QAction::triggered, this, &DashboardWindow::slotCheckUpdatesButton);
    connect(ui->actionAbout, &QAction::triggered, this, &DashboardWindow::slotAbout);
    connect(ticketSender, &TicketSender::support_error, this, &DashboardWindow::slotSupportError);
    connect(ticketSender, &TicketSender::support_sent, this, &DashboardWindow::slotSupportSent);

    setStatusIndicator(0);
    // The network line appears only for a key that reports a network other than production.
    ui->label_network_title->hide();
    Log::print(Log::DEBUG, "DashboardWindow end init");
}

DashboardWindow::~DashboardWindow()
{
    // The workers' threads end before the objects they report to. Quitting never waits
    // without limit: together they get kWorkerStopMs, and one still running then (a slow key,
    // a stalled network exchange) is let go instead of waited for.
    const QDeadlineTimer deadline(kWorkerStopMs);
    for (QThread* thread : std::initializer_list<QThread*>{logManager, checkUpdates, components, ticketSender,
                                                           cryptokiStorage, dashboardTokenInfo})
        WorkerThreads::stop(thread, deadline);
    if (WorkerThreads::stop(tokenStatus, deadline))
        delete tokenStatus;
    if (dashboardTokenInfo->parent() == this)
        delete dashboardTokenInfo;
    dashboardTokenInfo = nullptr;
    delete installer;
    delete ui;
}

// ---------------------------------------------------------------------------------------
// Frame, tray and key state

void DashboardWindow::updateTrayIcon()
{
    const TrayImages* images = &kNothingImages;
    QString tip;
    const bool note = updateAvailable || restartRequested;
    if (!note) {
        if (tokenPresent) {
            images = &kKeyImages;
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: Key available"));
        } else if (readerPresent) {
            images = &kReaderImages;
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: Reader %1 found")).arg(readerName);
        } else if (scardError) {
            images = &kErrorImages;
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: SmartCard service error"));
        } else {
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: No token found"));
        }
    } else {
        // "Restart is required" gets the product name too although it has no place for it
        // (Qt warns "Argument missing"); kept so.
        const QString text =
            updateAvailable
                ? appMessage(QT_TRANSLATE_NOOP("Application messages", "New version of %1 is available for download."))
                      .arg(kProduct)
                : appMessage(QT_TRANSLATE_NOOP("Application messages", "Restart is required")).arg(kProduct);
        if (tokenPresent) {
            images = &kKeyImages;
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: Key available\n%1")).arg(text);
        } else if (readerPresent) {
            images = &kReaderImages;
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: Reader %1 found\n%2"))
                      .arg(readerName, text);
        } else if (scardError) {
            images = &kErrorImages;
            tip =
                appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: SmartCard service error\n%1")).arg(text);
        } else {
            tip = appMessage(QT_TRANSLATE_NOOP("Application messages", "Zorvik: No token found\n%1")).arg(text);
        }
    }
    currentTrayIcon = note ? images->withNote : images->plain;
    tray->setIcon(QIcon(currentTrayIcon));
    tray->setToolTip(tip);
}

void DashboardWindow::tokenFound()
{
    if (tokenPresent)
        return;
    tokenPresent = true;
    readerPresent = false;
    Log::print(Log::DEBUG, "token found!");
    updateTrayIcon();
    if (ui->tabs->currentIndex() == CertificatesTab)
        updateCertificates();
    if (ui->tabs->currentIndex() == KeyStatusTab && isVisible())
        updateTokenInfo();
    enableTokenButtons(true);
    ui->label_info->setText(tr("Click the \"Refresh\" button for current Key status."));
    setStatusIndicator(0);
}

void DashboardWindow::readersFound(const QStringList& readers)
{
    if (readerPresent)
        return;
    Log::print(Log::DEBUG, "reader found");
    readerName = readers.value(0);
    tokenPresent = false;
    readerPresent = true;
    commonNoKeySteps(true);
}

void DashboardWindow::tokenNotFound()
{
    if (!tokenPresent && !readerPresent)
        return;
    Log::print(Log::DEBUG, "no token");
    tokenPresent = false;
    readerPresent = false;
    commonNoKeySteps(true);
}

void DashboardWindow::commonNoKeySteps(bool withHintAndSignal)
{
    updateTrayIcon();
    ui->stackedWidget->setCurrentIndex(0);
    certificateCount = 0;
    haveCertificateList = false;
    ui->stackedWidget->unsetCursor();
    enableTokenButtons(false);
    cleanTokenStatus();
    if (!withHintAndSignal)
        return;
    ui->labelCryptokiStatus->setText(tr(kNoKeyHint));
    emit noToken();
}

void DashboardWindow::setStatusIndicator(int code)
{
    const char* image = code == 0 ? "new.png" : code == 7 ? "ok.png" : "update.png";
    ui->tokenStatus_icon->setText(QString("<a><img src=':/Icons/images/%1'/></a>").arg(image));
}

void DashboardWindow::enableTokenButtons(bool enabled)
{
    const QString linkStyle = "style=\"color: #1d86c7; text-decoration: none; font-size: 11pt\"";
    if (enabled) {
        ui->import_cert_icon->setText("<a href='import'><img src=':/Icons/images/import_cert.png'/></a>");
        ui->import_cert->setText(QString("<a %1 href='import'>%2</a>").arg(linkStyle, tr("Import a new certificate")));
        ui->refresh_cert_icon->setText("<a href='refresh'><img src=':/Icons/images/refresh.png'/></a>");
        ui->refresh_cert->setText(QString("<a %1 href='refresh'>%2</a>").arg(linkStyle, tr("Refresh")));
    } else {
        const QString grey = "<span style=\"color: #999999; font-size: 11pt\">%1</span>";
        ui->import_cert_icon->setText("<a href=''><img src=':/Icons/images/import_cert-gray.png'/></a>");
        ui->import_cert->setText(grey.arg(tr("Import a new certificate")));
        ui->refresh_cert_icon->setText("<a href=''><img src=':/Icons/images/refresh-gray.png'/></a>");
        ui->refresh_cert->setText(grey.arg(tr("Refresh")));
    }
}

void DashboardWindow::SCardInterfaceError()
{
    if (scardError)
        return;
    Log::print(Log::DEBUG, "SmartCard Interface Error");
    tokenPresent = false;
    readerPresent = false;
    scardError = true;
    commonNoKeySteps(false);

    QMessageBox box(QMessageBox::Information,
                    appMessage(QT_TRANSLATE_NOOP("Application messages", "%1 message")).arg(kProduct),
                    appMessage(QT_TRANSLATE_NOOP("Application messages",
                                                 "SmartCard Service error. Please restore your SmartCard service and "
                                                 "then press ok to restart %1"))
                        .arg(kProduct),
                    QMessageBox::Ok | QMessageBox::Cancel, this);
    if (ModalSeam::exec(&box) != QMessageBox::Ok)
        return;
    Log::print(Log::DEBUG, "Restarting Dashboard... Quit");
    QCoreApplication::quit();
    Log::print(Log::DEBUG, "Restarting Dashboard... Start");
    const QStringList args = QCoreApplication::arguments();
    QProcess::startDetached(args.value(0), args);
    Log::print(Log::DEBUG, "Restarting Dashboard... Complete");
}

void DashboardWindow::SCardInterfaceNoError()
{
    if (!scardError)
        return;
    Log::print(Log::DEBUG, "SmartCard Interface Recovered from Error");
    scardError = false;
    updateTrayIcon();
}

void DashboardWindow::slotRequestRestart()
{
    tray->showMessage(appMessage(QT_TRANSLATE_NOOP("Application messages", "%1 message")).arg(kProduct),
                      appMessage(QT_TRANSLATE_NOOP(
                                     "Application messages",
                                     "%1 has been installed. \nPlease restart your computer to enable all features."))
                          .arg(kProduct),
                      QSystemTrayIcon::Warning, 30000);
}

void DashboardWindow::checkForRestart() {}

void DashboardWindow::slotRefresh()
{
    Log::print(Log::DEBUG, "Dashboard window refreshed");
    const int index = ui->tabs->currentIndex();
    if (index == SolutionsTab) {
        components->Update();
        updateSolutions();
    }
    if (index == CertificatesTab)
        updateSmartphoneTab();
    if (index == CertificatesTab)
        updateCertificates();
    if (index == KeyStatusTab)
        updateTokenInfo();
    if (index == AdvancedTab)
        readAndApplyProxy();
}

void DashboardWindow::slotRaise()
{
    Log::print(Log::DEBUG, "Dashboard window raised");
    if (isVisible())
        return;
    Log::print(Log::DEBUG, "Raising Dashboard");
    showWindow();
    slotRefresh();
}

void DashboardWindow::showWindow()
{
    Log::print(Log::DEBUG, "showWindow");
    if (QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void DashboardWindow::slotTabChanged(int index)
{
    if (currentTab == KeyStatusTab)
        tokenStatus->terminateKSRequest();
    currentTab = index;
    switch (ui->tabs->currentIndex()) {
    case SolutionsTab:
        components->Update();
        updateSolutions();
        break;
    case CertificatesTab:
        updateSmartphoneTab();
        updateCertificates();
        break;
    case KeyStatusTab:
        updateTokenInfo();
        break;
    case AdvancedTab:
        readAndApplyProxy();
        break;
    default:
        break;
    }
}

void DashboardWindow::closeEvent(QCloseEvent* event)
{
    Log::print(Log::DEBUG, "Close Event+");
    if (ui->tabs->currentIndex() == KeyStatusTab)
        tokenStatus->terminateKSRequest();
    QMainWindow::closeEvent(event);
    Log::print(Log::DEBUG, "Close Event end");
}

void DashboardWindow::slotExit()
{
    QCoreApplication::quit();
}

void DashboardWindow::slotQuit()
{
    Log::print(Log::DEBUG, "DashboardWindow::slotQuit - wait for service threads");
    if (auto* app = qobject_cast<SingleApplication*>(QCoreApplication::instance()))
        app->detach();
    hide();
    checkUpdates->wait(10000);
    components->wait(10000);
    Log::print(Log::DEBUG, "DashboardWindow::slotQuit END");
}

void DashboardWindow::slotTrayActivated(QSystemTrayIcon::ActivationReason reason)
{
    Q_UNUSED(reason)
    if (isVisible() || !updateAvailable)
        return;
    slotAskForUpdateSP();
}

void DashboardWindow::slotTrayMessageClicked() {}

void DashboardWindow::logRotate()
{
    Log::print(Log::DEBUG, "Starting log rotate manager");
    if (!logManager->isRunning())
        logManager->start();
    else
        Log::print(Log::ERR, "Can't start log rotate manager, process already running");
}

void DashboardWindow::debugThreads()
{
    const QDir tasks(QString("/proc/%1/task").arg(QCoreApplication::applicationPid()));
    const int count = tasks.exists() ? tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot).size() : 0;
    Log::print(Log::DEBUG, QString("Thread count %1").arg(count));
}

void DashboardWindow::slotMovieError(QImageReader::ImageReaderError error)
{
    Log::print(Log::DEBUG, QString("MovieError QImageReader::ImageReaderError %1").arg(error));
    QStringList formats;
    for (const QByteArray& f : QImageReader::supportedImageFormats())
        formats << QString::fromLatin1(f);
    Log::print(Log::DEBUG, "supportedImageFormats: " + formats.join(' '));
}

void DashboardWindow::slotOpenCertificates()
{
    // Shown first: a listing is only asked for while the window is on screen, and from the
    // tray the window is usually hidden.
    showWindow();
    if (ui->tabs->currentIndex() != CertificatesTab)
        ui->tabs->setCurrentIndex(CertificatesTab);
    else
        updateCertificates();
}

void DashboardWindow::slotOpenTokenInfo()
{
    if (ui->tabs->currentIndex() != KeyStatusTab)
        ui->tabs->setCurrentIndex(KeyStatusTab);
    updateTokenInfo();
    showWindow();
}

void DashboardWindow::slotOpenSolutions()
{
    Log::print(Log::DEBUG, "slotOpenSolutions");
    if (ui->tabs->currentIndex() == SolutionsTab) {
        components->Update();
        updateSolutions();
    } else {
        ui->tabs->setCurrentIndex(SolutionsTab);
    }
    showWindow();
}

void DashboardWindow::slotOpenAdvanced()
{
    if (ui->tabs->currentIndex() != AdvancedTab)
        ui->tabs->setCurrentIndex(AdvancedTab);
    showWindow();
}

void DashboardWindow::assertion(bool condition, int line)
{
    if (!condition)
        criticalMessage(QString("ASSERTION FAILED AT %1:%2").arg("security-console/dashboard_window").arg(line));
}

// The smartphone front end: its tab is removed and its pairing group hidden, and no
// SmartphoneTokenManager is created, so these slots are reachable but do next to nothing.
void DashboardWindow::updateSmartphoneTab()
{
    Log::print(Log::DEBUG, "updateSmartphoneTab");
}

void DashboardWindow::slotOpenSmartphoneToken()
{
    Log::print(Log::DEBUG, "slotOpenSmartphoneToken");
    if (ui->tabs->currentIndex() != CertificatesTab)
        ui->tabs->setCurrentIndex(CertificatesTab);
    showWindow();
    updateSmartphoneTab();
}

void DashboardWindow::leaveSmartphoneTab() {}
void DashboardWindow::slotSmartphoneAction() {}
void DashboardWindow::slotStopDevice() {}
void DashboardWindow::slotDHConfirmation(int, QString) {}
void DashboardWindow::slotSmartphoneUpdate() {}
void DashboardWindow::slotQRCodeResult(QString) {}
