// The smartphone token through a real pcscd with the bench's phone reader driver.
#include "bench.h"
#include "smartphone_interface.h"
#include "smartphone_token_manager.h"
#include "test_support.h"
#include "vreader.h"

#include <QJsonArray>
#include <QPainter>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

const int kWait = 10000;

#define WAIT_STATUS(status) QTRY_COMPARE_WITH_TIMEOUT(manager->getSmartphoneTokenStatus(), status, kWait)

// The driver's default proxy ticket is fb ff bf 3e 5a 01 7f fe: base64 "+/+/PloBf/4=".
const QString kProxyUri = "zorvikkey://proxy?ticket=-.-.PloBf.4_";

} // namespace

class TestSmartphone : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    std::unique_ptr<SmartphoneTokenManager> manager;
    QTimer poll; // what the front end would do: ask for the status on a timer

    void startManager()
    {
        manager = std::make_unique<SmartphoneTokenManager>();
        connect(&poll, &QTimer::timeout, manager.get(), &SmartphoneTokenManager::getStatus);
        const int before = countLines(home.readLog(), "SmartphoneInterface::connectDevice");
        manager->init();
        poll.start(100);
        // The worker answers once the thread has wired it up.
        QTRY_VERIFY_WITH_TIMEOUT(countLines(home.readLog(), "SmartphoneInterface::connectDevice") > before, kWait);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        home.apply();
    }

    void init() { QVERIFY2(bench.start(), qPrintable(bench.errorText())); }

    void cleanup()
    {
        poll.stop();
        manager.reset();
        QVERIFY2(bench.stop(), qPrintable(bench.errorText()));
    }

    void withoutTheDriverNothingIsFound()
    {
        // A reader whose name only contains the virtual reader's name is not it.
        QVERIFY2(bench.start({"--readers", "Zorvik Vantrel Reader,Old Zorvik Virtual Card Reader"}),
                 qPrintable(bench.errorText()));
        QVERIFY(VReader::getReaders().empty());
        startManager();
        QCOMPARE(manager->getSmartphoneTokenStatus(), 0);
        QCOMPARE(manager->getSmartphoneStatusString(), QString("Smartphone driver not found"));

        QSignalSpy errors(manager.get(), &SmartphoneTokenManager::pairingError);
        emit manager->signalStartPairing();
        QVERIFY(errors.wait(kWait));
    }

    // The link drops for a moment: the handle answers SCARD_W_REMOVED_CARD once, and the reader
    // reconnects and asks again. (The rest of the reader is followed through the manager.)
    void deviceNameAfterALinkDrop()
    {
        std::vector<VReader*> readers = VReader::getReaders();
        QVERIFY(!readers.empty());
        auto reader = std::make_unique<VReader>(*readers.front());
        VReader::freeReaders(readers);
        QVERIFY2(bench.phone({"appear", "--name", "Anna's phone", "--model", "Pixel 7"}),
                 qPrintable(bench.errorText()));
        QCOMPARE(reader->open(), LONG(SCARD_S_SUCCESS));
        QVERIFY2(bench.phone({"fail-once"}), qPrintable(bench.errorText()));
        std::string name, model;
        QCOMPARE(reader->getDeviceName(name, model), LONG(SCARD_S_SUCCESS));
        QCOMPARE(QString::fromStdString(name + "|" + model), QString("Anna's phone|Pixel 7"));
    }

    void statusFollowsThePhone()
    {
        startManager();
        QSignalSpy updates(manager.get(), &SmartphoneTokenManager::statusUpdated);
        WAIT_STATUS(1);
        updates.clear();

        QVERIFY2(bench.phone({"appear", "--name", "Anna's phone"}), qPrintable(bench.errorText()));
        WAIT_STATUS(2);
        QVERIFY(manager->getSmartphoneStatusString().contains("Anna's phone"));

        // Ejecting the virtual card: the phone is no longer connected, until it comes back.
        emit manager->signalEjectToken();
        WAIT_STATUS(1);
        QVERIFY(bench.phoneState().value("ejected").toBool());
        QVERIFY(bench.phone({"appear"}));
        WAIT_STATUS(2);
        QVERIFY(bench.phone({"disappear"}));
        WAIT_STATUS(1);
        // Each change was reported once.
        QCOMPARE(updates.count(), 4);
    }

    // A pairing the user approves with the phone's code, one the phone turns down, and one
    // approved with another code: discovery ends in every case, an error only for the last two.
    void pairing_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::newRow("approved") << "approved";
        QTest::newRow("the phone turns it down") << "refused";
        QTest::newRow("the codes differ") << "wrong code";
    }
    void pairing()
    {
        QFETCH(QString, outcome);
        const bool paired = outcome == "approved";
        startManager();
        WAIT_STATUS(1);
        QSignalSpy confirm(manager.get(), &SmartphoneTokenManager::uiRequestDHConfirmation);
        QSignalSpy errors(manager.get(), &SmartphoneTokenManager::pairingError);
        emit manager->signalStartPairing();
        WAIT_STATUS(3);
        const QJsonArray calls = bench.phoneState().value("calls").toArray();
        QVERIFY(calls.contains(QString("42000905:300")) && calls.contains(QString("42000918:299")));
        QVERIFY(bench.phone({"pair", "--code", "915", "--data", "Anna's phone", "--pending", "0.5"}));
        QVERIFY(confirm.wait(kWait));
        QCOMPARE(confirm.first().mid(0, 2), QVariantList({915, QString("Anna's phone")}));

        if (outcome == "refused")
            QVERIFY(bench.phone({"refuse"}));
        else
            emit manager->signalConfirmPairing(paired ? 915 : 12);
        if (!paired)
            QVERIFY(errors.wait(kWait));
        WAIT_STATUS(1);
        const QJsonObject state = bench.phoneState();
        QVERIFY(!state.value("discovery").toBool());
        QCOMPARE(state.value("paired").toBool(), paired);
        QCOMPARE(errors.count(), paired ? 0 : 1);
        if (paired)
            QCOMPARE(state.value("approved_code").toInt(), 915);
    }

    void proxyTicketAsQrCode()
    {
        startManager();
        QSignalSpy uri(manager.get(), &SmartphoneTokenManager::proxyUri);
        emit manager->getProxy();
        QVERIFY(uri.wait(kWait));
        QCOMPARE(uri.first().at(0).toString(), kProxyUri);

        const QImage qr = manager->drawQRImage(kProxyUri);
        QCOMPARE(qr.size(), QSize(200, 200));
        QCOMPARE(qr.depth(), 1);
        // Shown on a white background, as a label would; a real decoder reads it back.
        QImage shown(240, 240, QImage::Format_RGB32);
        shown.fill(Qt::white);
        QPainter(&shown).drawImage(20, 20, qr);
        const QString file = home.path() + "/qr.png";
        QVERIFY(shown.save(file));
        QProcess zbar;
        zbar.start("zbarimg", {"--raw", "-q", file});
        QVERIFY(zbar.waitForFinished(30000));
        QCOMPARE(QString::fromUtf8(zbar.readAllStandardOutput()).trimmed(), kProxyUri);

        // Too much for any QR code.
        const QImage failed = manager->drawQRImage(QString(4000, 'x'));
        QCOMPARE(failed.size(), QSize(200, 200));
    }
};

QTEST_MAIN(TestSmartphone)
#include "tst_smartphone.moc"
