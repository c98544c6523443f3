#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>

class QWidget;

namespace Json {
class Value;
}

// One certificate the PKCS#11 module offers to OpenVPN.
struct VPNCert
{
    QString commonName;
    QString serial;
    QString serializedId;
    QString email;
};

// Finds the programs the Security Pack works with and configures them. Its thread body is
// the components updater: one short probing pass per start, which stores what it found in
// the public fields and then emits componentsUpdated().
class SP_Components : public QThread
{
    Q_OBJECT
public:
    // `window` is the owning window: parent of the dialogs and of this object.
    explicit SP_Components(QWidget* window);

    // Fields read by the window after componentsUpdated(). The initial values are the state
    // shown before the first pass ends. The window may read them (and ask for the Thunderbird
    // check) while a later pass is writing them on this thread: atomic.
    QString platform;
    std::atomic<bool> openVPNInstalled{false};
    std::atomic<bool> vaultryInstalled{true};
    std::atomic<int> firefoxState{0};
    std::atomic<int> thunderbirdState{0}; // 0 not installed, 1 installed, 2 module registered
    std::atomic<bool> chromeFound{false};
    std::atomic<bool> cryptokiFound{true};
    bool openVPNMark = false;
    std::atomic<bool> thunderbirdCheckRequested{true};
    QWidget* window = nullptr;
    QString modutilPath;

    void Update();

    // Components and their paths; an empty text means "not found".
    QString CryptokiPath();
    QString getCryptokiName();
    QString Cryptoki64Path();
    QString getVaultryPath();
    bool isVaultryInstalled();
    QString getRelayonPath();
    void runVaultry();
    void runRelayon();
    QString GetPFDir(const QString& platform);
    QStringList listRegistry(const QString& path);
    QString readKeyfromINI(const QString& file, const QString& key);
    QStringList getProcessList();
    static QString ReadVal(QString key, QString text);
    QString getModutilPath();

    // Mozilla
    QString getFirefoxPath();
    QString getTBPath();
    bool isFirefoxInstalled();
    bool isThunderbirdInstalled();
    bool isFirefoxRunning();
    bool isTBRunning();
    QString getFirefoxConfigPath();
    QString getTBConfigPath();
    bool isCryptokiFFInstalled();
    bool isCryptokiTBInstalled();
    bool updateCryptokiFFConfig();
    bool updateCryptokiTBConfig();
    // Whether `modutil -list` output names a module whose library file name holds `library`.
    static bool modutilListsLibrary(const QString& output, const QString& library);

    // Chrome
    QString ChromeApp();
    QString getChromePath();
    bool enableChromeExtension(QWidget* parent);

    // OpenVPN
    QString OpenVPNExe();
    bool isOpenVPNInstalled();
    QString OpenVPNConfig();
    static VPNCert ReadCert(QString block);
    // The certificates `openvpn --show-pkcs11-ids` lists for the module, display text to
    // serialized id; empty when none.
    QMap<QString, QString> openVPNCertificates(const QString& exe, const QString& lib);
    // The same from the output of `openvpn --show-pkcs11-ids`.
    static QMap<QString, QString> certificatesInPkcs11Ids(const QString& output);
    // The client configuration for the module `lib` and the chosen certificate and server.
    QString openVPNConfigText(const QString& lib, const QString& certId, const QString& ca, const QString& address,
                              const QString& port);
    void configureOpenVPN(QWidget* parent);
    void openVPNInstall(QWidget* parent);

signals:
    void componentsUpdated();
    void ComponentError(QString message);

protected:
    void run() override;

private:
    bool isCryptokiInstalled(const QString& profile, const QString& who);
    bool registerCryptoki(const QString& profile, const QString& lib, bool logCommand);
};

// Chrome's preferences, edited in place: switches the Zorvik extension on.
QString ChromeProfileDir();
QString ChromePrefsFile();
QString editCromePrefs();
// The edit itself, on the file's bytes: switches the extension's state from 0 to 1. Returns
// the outcome as editCromePrefs does; `prefs` is changed only when the outcome is
// "Chrome extenstion enabled".
QString enableExtensionInPrefs(QByteArray& prefs);
void printSubkeys(Json::Value& value);
// The extension's store identifier.
extern const char* const kChromeExtensionId;
