#pragma once

#include "cryptoki_storage_item.h"
#include "proxy_config.h"
#include "token_status.h"

#include <QImageReader>
#include <QList>
#include <QMainWindow>
#include <QPointer>
#include <QSystemTrayIcon>

class ApplicationInstaller;
class Check_Updates;
class CryptokiStorage;
class DashboardTokenInfo;
class LogManager;
class QLabel;
class QMenu;
class QMovie;
class QSettings;
class QTimer;
class SP_Components;
class TicketSender;

namespace Ui {
class DashboardWindow;
}

// The one window of the program and the hub that owns and wires every worker: the tray
// icon, the tabs (Solutions, Certificates, Key Status, Advanced) and the key state.
class DashboardWindow : public QMainWindow
{
    Q_OBJECT
public:
    // Run-time tab indices (the smartphone tab is removed at start-up).
    enum Tab { SolutionsTab = 0, CertificatesTab = 1, KeyStatusTab = 2, AdvancedTab = 3 };

    explicit DashboardWindow(QWidget* parent = nullptr);
    ~DashboardWindow() override;

    bool tokenPresent = false;
    bool readerPresent = false;
    bool updateAvailable = false;
    bool scardError = false;
    bool restartRequested = false;
    QString readerName;

    // The update checker, for the tests.
    Check_Updates* updateChecker() const { return checkUpdates; }

    // Read access for tests and the tray.
    Ui::DashboardWindow* form() const { return ui; }
    QSystemTrayIcon* trayIcon() const { return tray; }
    QString trayIconName() const { return currentTrayIcon; }
    TokenStatus& tokenStatusWorker() { return *tokenStatus; }
    CryptokiStorage* certificateStorage() const { return cryptokiStorage; }
    DashboardTokenInfo* tokenInfo() const { return dashboardTokenInfo; }
    const QList<CryptokiStorageItem>& certificateList() const { return certificateItems; }
    SP_Components* componentsUpdater() const { return components; }

signals:
    void noToken();

public slots:
    // Frame and tray
    void updateTrayIcon();
    void logRotate();
    void slotQuit();
    void showWindow();
    void slotRaise();
    void slotRefresh();
    void slotTabChanged(int index);
    void slotExit();
    void slotTrayActivated(QSystemTrayIcon::ActivationReason reason);
    void slotTrayMessageClicked();
    void tokenFound();
    void tokenNotFound();
    void readersFound(const QStringList& readers);
    void setStatusIndicator(int code);
    void enableTokenButtons(bool enabled);
    void SCardInterfaceError();
    void SCardInterfaceNoError();
    void slotRequestRestart();
    void checkForRestart();
    void debugThreads();
    void slotMovieError(QImageReader::ImageReaderError error);
    void slotOpenCertificates();
    void slotOpenTokenInfo();
    void slotOpenSolutions();
    void slotOpenAdvanced();

    // Key Status tab
    void updateTokenInfo();
    void infoSCReady();
    void infoKSReady();
    void infoKSCanceled(QString reason);
    void DispalyKeyInfo();
    void cleanTokenStatus();

    // Certificates tab
    void updateCertificates();
    void certificateInfo(QList<CryptokiStorageItem> list);
    void certificateError(QString message, int page);
    void certificateNoToken();
    void slotCannotGetCertificates(int code, int tokenStatus);
    void slotCertificateActivated(QString link);
    void slotAddCertificate();
    void slotCertificateDelete(QString link);

    // Solutions tab
    void updateSolutions();
    void updateApplications();
    void updateApplicationsFull();
    void slotApplicationActivated(QString link);
    void slotComponentError(QString message);
    void repairSP();
    void downloadAndInstall(const QString& url);
    void pspInstalled();
    void pspInstallationFailed();

    // Advanced tab
    void slotSSLToogle(bool checked);
    void slotProxyToogle(bool checked);
    void slotProxyEditFinished();
    void writeProxySettings();
    void displayProxy(ProxyConfig config);
    void slotProxyImportIE();
    void initPSWoption();
    void readPSWoption();
    void slotPSWoptionChanged(int index);
    void initScremoveoption();
    void readScremoveoption();
    void slotScremoveoptionChanged(int index);
    void readSCMDoptions();
    void slotZORVIKCPcheckBoxToogle(bool checked);
    void slotShowAllPKCSCheckBoxToogle(bool checked);

    // Updates and support
    void slotCheckSPUpdates();
    void slotCheckUpdatesButton();
    void slotSPUpdatesChecked(bool interactive);
    void slotAskForUpdateSP();
    void slotAbout();
    void slotHelpButton();
    void slotSupportButton();
    void slotSupportError(QString message);
    void slotSupportSent(QString message);

    // Smartphone tab (removed on this platform; kept callable)
    void updateSmartphoneTab();
    void slotOpenSmartphoneToken();
    void leaveSmartphoneTab();
    void slotSmartphoneAction();
    void slotStopDevice();
    void slotDHConfirmation(int code, QString data);
    void slotSmartphoneUpdate();
    void slotQRCodeResult(QString uri);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void commonNoKeySteps(bool withHintAndSignal);
    void requestListing();
    void clearCertificateRows();
    void assertion(bool condition, int line);
    void readAndApplyProxy();

    Ui::DashboardWindow* ui = nullptr;
    TicketSender* ticketSender = nullptr;
    ApplicationInstaller* installer = nullptr;
    LogManager* logManager = nullptr;
    // Not a Qt child: a query still reading the key at quit is let go rather than destroyed.
    TokenStatus* tokenStatus = nullptr;
    CryptokiStorage* cryptokiStorage = nullptr;
    QMenu* trayMenu = nullptr;
    QMenu* helpMenu = nullptr;
    QMovie* loadingMovie = nullptr;
    QSystemTrayIcon* tray = nullptr;
    DashboardTokenInfo* dashboardTokenInfo = nullptr;
    QTimer* applicationsTimer = nullptr;
    QTimer* logRotateTimer = nullptr;
    SP_Components* components = nullptr;
    Check_Updates* checkUpdates = nullptr;
    QTimer* updateTimer = nullptr;
    QSettings* settings = nullptr;

    QString currentTrayIcon;
    int currentTab = 0;
    QList<CryptokiStorageItem> certificateItems;
    int certificateCount = 0;
    bool haveCertificateList = false;
    QList<QLabel*> certificateRows;
    // Rows replaced while a row's own link handler was still running, and how deep that runs.
    QList<QLabel*> retiredCertificateRows;
    int certificateRowHandlers = 0;
    bool credentialProviderState = false;

    // Updates: set while the Update dialog (and the download it starts) runs.
    bool updateDialogOpen = false;
};
