// The main window driven through its slots and widgets, without a smart-card service: the
// presence polling is stopped right after start-up so each case sets the key state itself.
#include "certificate_storage.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "test_support.h"
#include "ui_dashboard_window.h"
#include "zorvik_build.h"
#include "zorvik_proxy.h"

#include <QMessageBox>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QSystemTrayIcon>
#include <QtTest>

#include <memory>

namespace {

// A certificate made for the tests by OpenSSL (CN "Alice Example", issuer CN "Test CA").
QSslCertificate makeCertificate(int days, const QString& cn)
{
    QTemporaryDir dir;
    const QString key = dir.filePath("k.pem");
    const QString crt = dir.filePath("c.pem");
    QProcess p;
    p.start("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", crt, "-days",
                        QString::number(days), "-subj", "/CN=" + cn + "/O=Zorvik Test"});
    p.waitForFinished(60000);
    return QSslCertificate::fromPath(crt).value(0);
}

} // namespace

class TestWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void trayFollowsKeyState_data();
    void trayFollowsKeyState();
    void keyStateActsOnChangesOnly();
    void serviceErrorBoxOnceAndRecovery();
    void cannotGetCertificatesTexts_data();
    void cannotGetCertificatesTexts();
    void certificateRows();
    void keyStatusLabels();
    void removedTabAndHiddenWidgets();
    void proxyWrittenFromAdvancedTab();

private:
    TestHome home;
    std::unique_ptr<DashboardWindow> window;
};

void TestWindow::initTestCase()
{
    Q_INIT_RESOURCE(dashboard);
    home.apply();
    // No smart-card service for these cases.
    qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
}

void TestWindow::init()
{
    ModalSeam::reset();
    ModalSeam::answer(QMessageBox::Cancel); // the service-error box of the first polling round
    window = std::make_unique<DashboardWindow>();
    QTRY_VERIFY(window->scardError);
    window->tokenInfo()->exit();
    window->tokenInfo()->wait();
    window->SCardInterfaceNoError();
    window->show();
    ModalSeam::reset();
}

void TestWindow::cleanup()
{
    window.reset();
}

void TestWindow::trayFollowsKeyState_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("note");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<QString>("tip");
    const QString update = "\nNew version of Zorvik Dashboard is available for download.";
    const QString restart = "\nRestart is required";
    // One row per state, with and without the notes: the icon and tip tables' default and
    // "-update" branches, and the restart note that reuses the update icon.
    QTest::newRow("key") << "key" << "" << ":/Icons/images/tokenicon.png" << "Zorvik: Key available";
    QTest::newRow("reader") << "reader" << "" << ":/Icons/images/tokenicon-orange.png"
                            << "Zorvik: Reader Zorvik Vantrel Reader 00 00 found";
    QTest::newRow("error+update") << "error" << "update" << ":/Icons/images/tokenicon-red-update.png"
                                  << "Zorvik: SmartCard service error" + update;
    QTest::newRow("nothing+update") << "nothing" << "update" << ":/Icons/images/tokenicon-bw-update.png"
                                    << "Zorvik: No token found" + update;
    QTest::newRow("key+restart") << "key" << "restart" << ":/Icons/images/tokenicon-update.png"
                                 << "Zorvik: Key available" + restart;
}

void TestWindow::trayFollowsKeyState()
{
    QFETCH(QString, state);
    QFETCH(QString, note);
    QFETCH(QString, icon);
    QFETCH(QString, tip);
    window->updateAvailable = note == "update";
    if (state == "key")
        window->tokenFound();
    else if (state == "reader")
        window->readersFound({"Zorvik Vantrel Reader 00 00"});
    else if (state == "error")
        window->scardError = true;
    if (note == "restart") {
        window->restartRequested = true;
        // The product name is applied to the note although it has no place for it.
        QTest::ignoreMessage(QtWarningMsg, "QString::arg: Argument missing: Restart is required, Zorvik Dashboard");
    }
    window->updateTrayIcon();
    QCOMPARE(window->trayIconName(), icon);
    QCOMPARE(window->trayIcon()->toolTip(), tip);
    QVERIFY(!QIcon(icon).pixmap(16, 16).isNull());
}

void TestWindow::keyStateActsOnChangesOnly()
{
    QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
    window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
    window->tokenFound();
    QVERIFY(window->tokenPresent);
    QCOMPARE(window->form()->label_info->text(), QString("Click the \"Refresh\" button for current Key status."));
    window->tokenNotFound();
    window->tokenNotFound();
    window->tokenNotFound();
    QCOMPARE(noToken.count(), 1);
    QCOMPARE(window->form()->stackedWidget->currentIndex(), 0);
    QCOMPARE(window->form()->labelCryptokiStatus->text(),
             QString("Please present Vantrel to access the available security certificates."));
    QCOMPARE(window->form()->label_info->text(), QString("No Key present."));
    window->readersFound({"R1", "R2"});
    window->readersFound({"R3"});
    QCOMPARE(window->readerName, QString("R1"));
    QCOMPARE(noToken.count(), 2);
}

void TestWindow::serviceErrorBoxOnceAndRecovery()
{
    ModalSeam::answer(QMessageBox::Cancel);
    window->tokenFound();
    window->slotCannotGetCertificates(3, 161);
    QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
    window->SCardInterfaceError();
    window->SCardInterfaceError();
    QCOMPARE(ModalSeam::seen().size(), 1);
    QVERIFY(ModalSeam::seen().first().contains("SmartCard Service error. Please restore your SmartCard service"));
    QVERIFY(!window->tokenPresent);
    QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-red.png"));
    // The no-key steps run without the no-key hint and without noToken().
    QCOMPARE(window->form()->stackedWidget->currentIndex(), 0);
    QCOMPARE(window->form()->labelCryptokiStatus->text(), QString("Incorrect PIN."));
    QCOMPARE(noToken.count(), 0);
    window->SCardInterfaceNoError();
    QVERIFY(!window->scardError);
    QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw.png"));
}

void TestWindow::cannotGetCertificatesTexts_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");
    // Not the whole table: a mapped status, the default branches of each code, the vendor
    // status that is negative as an int, and the import link.
    QTest::newRow("1/2") << 1 << 2 << "Key is not initialized. Connect your Vantrel";
    QTest::newRow("1/7 unmapped") << 1 << 7 << "Unknown cryptoki error 1";
    QTest::newRow("3/161") << 3 << 161 << "Incorrect PIN.";
    QTest::newRow("3/vendor1") << 3 << int(0x80000001u) << "Key was disabled by user.";
    QTest::newRow("3/other") << 3 << 48 << "Please present Vantrel to access the available security certificates.";
    QTest::newRow("4") << 4 << 0
                       << "<b>No certificates on your keyset.</b><br/><br/><br/><a href='import'>Click here to import "
                          "a certificate.</a>";
    QTest::newRow("9") << 9 << 0 << "Unknown cryptoki error 9";
}

void TestWindow::cannotGetCertificatesTexts()
{
    QFETCH(int, code);
    QFETCH(int, status);
    QFETCH(QString, text);
    window->form()->stackedWidget->setCurrentIndex(1);
    window->slotCannotGetCertificates(code, status);
    QCOMPARE(window->form()->stackedWidget->currentIndex(), 0);
    QCOMPARE(window->form()->labelCryptokiStatus->text(), text);
}

void TestWindow::certificateRows()
{
    CryptokiStorageItem valid;
    valid.type = CryptokiStorageItem::Certificate;
    valid.certificate = makeCertificate(400, "Alice Example");
    valid.label = "alice";
    CryptokiStorageItem soon = valid;
    soon.certificate = makeCertificate(14, "Soon Expiring");
    CryptokiStorageItem pair;
    pair.type = CryptokiStorageItem::RsaKeyPair;
    pair.label = "alice key";
    pair.modulus = QByteArray(1, '\0') + QByteArray(256, '\xC3');
    CryptokiStorageItem empty;
    empty.type = CryptokiStorageItem::Empty;

    window->tokenFound();
    window->form()->showAllPKCSCheckBox->setChecked(false);
    window->certificateInfo({pair, valid, empty, soon});
    QCOMPARE(window->form()->stackedWidget->currentIndex(), 2);
    // Only certificates by default; their links carry the index in the whole list.
    QVERIFY(!window->findChild<QLabel*>("certNameLabel0"));
    auto* name = window->findChild<QLabel*>("certNameLabel1");
    QVERIFY(name);
    QVERIFY(name->text().contains("href=\"cert-details-1\">Alice Example</a>"));
    QVERIFY(window->findChild<QLabel*>("issuedByLabel1")->text().contains(">Alice Example</a>"));
    QVERIFY(window->findChild<QLabel*>("expireDateLabel1")->text().startsWith("<span style=\"font-size: 10pt\">"));
    QVERIFY(window->findChild<QLabel*>("expireDateLabel3")->text().startsWith("<span style=\"color: #bb0000"));
    QCOMPARE(window->findChild<QLabel*>("certRemoveLabel3")->text(),
             QString("<a href='3'><img src=':/Icons/images/small-trash.png'/></a>"));

    window->form()->showAllPKCSCheckBox->setChecked(true);
    window->certificateInfo({pair, valid, empty, soon});
    QVERIFY(window->findChild<QLabel*>("certNameLabel0")->text().contains(">alice key</a>"));
    QVERIFY(window->findChild<QLabel*>("issuedByLabel0")->text().contains("RSA Keypair (2048 bit)"));
    QCOMPARE(window->findChild<QLabel*>("expireDateLabel0")->text(), QString("<span style=\"font-size: 10pt\">N/A</span>"));
    QCOMPARE(window->findChild<QLabel*>("certNameLabel2")->text(),
             QString("<span style=\"font-size: 10pt\">Empty container</span>"));
    // The earlier rows are gone, not stacked under the new ones.
    QCOMPARE(window->findChildren<QLabel*>(QRegularExpression("^certNameLabel\\d+$")).size(), 4);
}

void TestWindow::keyStatusLabels()
{
    window->tokenFound();
    TokenStatus& status = window->tokenStatusWorker();
    status.atr = "3B 8F 80 ";
    status.tokenStatus = 4;
    status.infoStatus = 0x9abc;
    status.networkType = 3;
    status.statusText = "<b>Blank Vantrel</b>";
    status.keyType = "Vantrel";
    status.keyTitle = QString(150, 'x');
    window->infoSCReady();
    QCOMPARE(window->form()->label_ret_status->text(), QString("0x9ABC"));
    QVERIFY(window->form()->tokenStatus_icon->text().contains("update.png"));
    window->infoKSCanceled(QString());
    QCOMPARE(window->form()->label_type->text(), QString("Vantrel"));
    QCOMPARE(window->form()->label_title->text().size(), 100);

    // An active key whose key-service stage failed: the reason and the "update" icon.
    status.tokenStatus = 7;
    status.keyType = "Tessaron";
    window->infoKSCanceled("Key service error");
    QCOMPARE(window->form()->label_info->text(), QString("Key service error"));
    QVERIFY(window->form()->tokenStatus_icon->text().contains("update.png"));
    QCOMPARE(window->form()->label_type->styleSheet(), QString("QLabel { background-color : #aa0033; color: white; }"));

    // A key-service answer after the key was pulled leaves the cleared labels alone.
    window->tokenNotFound();
    status.keyTitle = "Office";
    window->infoKSReady();
    QCOMPARE(window->form()->label_title->text(), QString());
}

void TestWindow::removedTabAndHiddenWidgets()
{
    QCOMPARE(window->form()->tabs->count(), 4);
    QCOMPARE(window->form()->tabs->tabText(DashboardWindow::AdvancedTab), QString("Advanced"));
    QCOMPARE(window->windowTitle(), QString("Zorvik Dashboard version %1 ").arg(ZORVIK_VERSION));
    for (QWidget* hidden : std::initializer_list<QWidget*>{window->form()->label_2, window->form()->PSWcomboBox,
                                                           window->form()->proxyImportIEButton,
                                                           window->form()->groupBox_3, window->form()->groupBox_debug})
        QVERIFY2(hidden->isHidden(), qPrintable(hidden->objectName()));
    QVERIFY(window->form()->qvradius_icon->isHidden() && window->form()->sharepoint_help->isHidden());

    // The smartphone front end is not reachable: pairing group hidden, no manager; opening
    // it lands on the Certificates tab.
    QVERIFY(window->form()->pairingGroup->isHidden());
    for (QObject* child : window->findChildren<QObject*>())
        QVERIFY(!child->inherits("SmartphoneTokenManager"));
    window->slotOpenSmartphoneToken();
    QCOMPARE(window->form()->tabs->currentIndex(), int(DashboardWindow::CertificatesTab));
}

void TestWindow::proxyWrittenFromAdvancedTab()
{
    window->form()->tabs->setCurrentIndex(DashboardWindow::AdvancedTab);
    QApplication::setActiveWindow(window.get());
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    QTest::mouseClick(window->form()->useProxyCheckBox, Qt::LeftButton, {}, QPoint(8, 8));
    QVERIFY(window->form()->useProxyCheckBox->isChecked());
    QVERIFY(window->form()->proxyAddressLineEdit->isEnabled());
    window->form()->proxyAddressLineEdit->setFocus();
    QTest::keyClicks(window->form()->proxyAddressLineEdit, "127.0.0.1");
    QTest::keyClick(window->form()->proxyAddressLineEdit, Qt::Key_Tab);
    QTest::keyClicks(window->form()->proxyPortLineEdit, "3128");
    QTest::keyClick(window->form()->proxyPortLineEdit, Qt::Key_Tab);
    char* stored = nullptr;
    unsigned int enabled = 0;
    QCOMPARE(zorvikpc_get_proxy(1, &stored, &enabled), 0);
    QCOMPARE(QString::fromLatin1(stored), QString("127.0.0.1:3128"));
    QCOMPARE(enabled, 1u);
    free(stored);
    const QString log = home.readLog();
    QVERIFY(log.contains("Writing proxy settings:127.0.0.1:3128"));
    QVERIFY(log.contains("Error writing system proxy settings 127.0.0.1:3128 code=-255"));
    QCOMPARE(QNetworkProxy::applicationProxy().type(), QNetworkProxy::HttpProxy);
    QCOMPARE(QNetworkProxy::applicationProxy().port(), quint16(3128));

    window->form()->useProxyCheckBox->setChecked(false);
    QVERIFY(!window->form()->proxyAddressLineEdit->isEnabled());
    QCOMPARE(QNetworkProxy::applicationProxy().type(), QNetworkProxy::NoProxy);
    // Host and port stay stored while the proxy is off.
    window->slotRefresh();
    QCOMPARE(window->form()->proxyAddressLineEdit->text(), QString("127.0.0.1"));
    QCOMPARE(window->form()->proxyPortLineEdit->text(), QString("3128"));
    QVERIFY(!window->form()->useProxyCheckBox->isChecked());
}

QTEST_MAIN(TestWindow)
#include "test_window.moc"
