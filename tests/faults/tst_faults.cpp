// Faults in the middle of an operation, on the bench: the program's own objects with a
// simulated Vantrel in the bench's pcscd, the PKCS#11 module over SoftHSM2 (through a
// backing module with a pause point), and the services simulator.
#include <QtTest>

#include <QMessageBox>

#include <memory>

#include "application_downloader.h"
#include "bench.h"
#include "certificate_storage.h"
#include "certstore_helpers.h"
#include "check_updates.h"
#include "cryptoki_interface.h"
#include "modal_seam.h"
#include "report_error.h"
#include "services_sim.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "ticket_sender.h"
#include "token_status.h"
#include "zorvik_cryptoki.h"

namespace {

enum PauseAt { AtWrite = 0, AtFind = 1 }; // the pause points of the backing module

// The program's answer to a request, waited for: the first of `signals` to come.
template <typename... Spies>
bool firstOf(int ms, Spies&... spies)
{
    return QTest::qWaitFor([&] { return (spies.count() + ...) > 0; }, ms);
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

    TestHome home_;
    ServicesSim sim_;
    Bench bench_;
    std::unique_ptr<SoftHsmToken> token_;
    std::unique_ptr<CryptokiStorage> storage_;

    // The objects on the token as SoftHSM2 itself holds them after a login, one entry per
    // identifier: its first 8 digits and its kinds ("c" certificate, "k" private key, "p"
    // public key; "ckp" is a whole entry).
    QString tokenObjects() const
    {
        QString out, kind;
        if (token_->pkcs11Tool({"--login", "--pin", token_->pin(), "--list-objects"}, &out, false) != 0)
            return "pkcs11-tool failed: " + out;
        QMap<QString, QString> objects;
        for (const QString& line : out.split('\n')) {
            if (!line.startsWith(' '))
                kind = line.startsWith("Certificate") ? "c" : line.startsWith("Private") ? "k" : "p";
            else if (line.trimmed().startsWith("ID:"))
                objects[line.section(':', 1).trimmed().left(8)] += kind;
        }
        QStringList entries;
        for (auto it = objects.begin(); it != objects.end(); ++it) {
            std::sort(it->begin(), it->end());
            entries << it.key() + *it;
        }
        return entries.join(' ');
    }

    // The identifiers' first 8 digits the program lists (nothing on "cannot").
    QString listedIds()
    {
        QSignalSpy listed(storage_.get(), &CryptokiStorage::certificates);
        QSignalSpy cannot(storage_.get(), &CryptokiStorage::cannotGetCertificates);
        emit storage_->getCertificates();
        if (!firstOf(60000, listed, cannot))
            return "no answer";
        QStringList ids;
        for (const CryptokiStorageItem& item : listed.value(0).value(0).value<QList<CryptokiStorageItem>>())
            ids << item.pkcs11id.toHex().left(8);
        ids.removeDuplicates();
        ids.sort();
        return ids.join(' ');
    }

private slots:
    void initTestCase()
    {
        const QString failed = startServicesAndBench(home_, sim_, bench_);
        QVERIFY2(failed.isEmpty(), qPrintable(failed));
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        token_ = std::make_unique<SoftHsmToken>();
        QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
        token_->apply(false);
        for (const char* name : {"Alice", "Bob"})
            QVERIFY(!token_->load(TestCredential::make(name)).isEmpty());
        qputenv("FAULTY_BACKEND_TARGET", SoftHsmToken::backendPath().toLocal8Bit());
        qputenv("ZORVIK_CRYPTOKI_BACKEND", FAULTY_BACKEND);
        QVERIFY(bench_.insert(0));
        // Asked the moment the storage exists, before its worker may have set up the module.
        storage_ = std::make_unique<CryptokiStorage>();
        QCOMPARE(listedIds().count(' '), 1);
    }

    void cleanupTestCase()
    {
        storage_.reset();
        QVERIFY2(!home_.readLog().contains(token_->pin()), "a PIN reached the log");
    }

    // A case ends with the key in its reader and pcscd running; one that failed halfway may not.
    void cleanup()
    {
        faultyBackend("faulty_backend_pause_at", int(AtWrite), 0);
        faultyBackend("faulty_backend_release", 0);
        if (QTest::currentTestFailed()) {
            bench_.startPcscd();
            bench_.remove(0);
            QVERIFY(bench_.insert(0));
        }
    }

    // The key pulled, or pcscd stopped, at a step of an import, a removal, a listing or a status
    // read. A pulled key is reported to the user as missing; once the key or pcscd is back, the
    // program sees the key again by itself, the token holds every entry whole (the one changed
    // whole or not at all, nothing else touched) and the listing shows exactly that. An import
    // writes the public key, the certificate, then the private key; a removal takes the private
    // key first.
    void midOperation_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("step"); // the object written (search started) when the fault comes
        QTest::addColumn<bool>("pull"); // else pcscd stops
        QTest::addColumn<bool>("kept"); // the entry operated on is there in the end
        QTest::newRow("import, key pulled after the PIN") << "import" << 1 << true << false;
        QTest::newRow("import, key pulled before the last object") << "import" << 3 << true << false;
        QTest::newRow("removal, key pulled after the PIN") << "remove" << 1 << true << true;
        QTest::newRow("removal, key pulled after the private key") << "remove" << 2 << true << false;
        QTest::newRow("import, pcscd stopped") << "import" << 1 << false << true;
        QTest::newRow("removal, pcscd stopped") << "remove" << 1 << false << false;
        QTest::newRow("listing, pcscd stopped") << "list" << 1 << false << false;
        QTest::newRow("key status, pcscd stopped") << "status" << 0 << false << false;
    }

    void midOperation()
    {
        QFETCH(QString, operation);
        QFETCH(int, step);
        QFETCH(bool, pull);
        QFETCH(bool, kept);
        const TestCredential credential = TestCredential::make(QTest::currentDataTag());
        const QString id = credential.moduleId().toHex().left(8);
        if (operation == "remove")
            QVERIFY(!token_->load(credential).isEmpty());
        QStringList expected = tokenObjects().split(' ');
        expected.removeAll(id + "ckp");
        if (kept)
            expected << id + "ckp";
        expected.sort();
        const SecretPtr pin = shareSecret(SecretBytes::fromText(token_->pin()));

        QSignalSpy errors(storage_.get(), &CryptokiStorage::error);
        faultyBackend("faulty_backend_pause_at", int(operation == "list" ? AtFind : AtWrite), step);
        if (operation == "list")
            emit storage_->getCertificates();
        else if (operation == "import")
            storage_->addCertificate(credential.takeKey(), credential.takeCertificate(), pin, "Faults");
        else if (operation == "remove")
            storage_->removeCertificate(credential.moduleId(), pin);
        QVERIFY(step == 0 || faultyBackend("faulty_backend_wait_for_pause", 60000) == 1);
        QVERIFY(pull ? bench_.remove(0) : bench_.stopPcscd());
        if (operation == "status")
            QCOMPARE(TokenStatus::getStatusFromToken(), 0);
        faultyBackend("faulty_backend_release", int(pull));
        if (pull) {
            QTRY_COMPARE_WITH_TIMEOUT(errors.count(), 1, 30000);
            const QString message = errors.first().first().toString();
            const QString keyMissing = operation == "import" ? QString::number(CKR_TOKEN_NOT_RECOGNIZED)
                                                             : CryptokiErrorString(CKR_TOKEN_NOT_RECOGNIZED);
            QVERIFY2(message.endsWith(keyMissing), qPrintable(message));
        }

        faultyBackend("faulty_backend_pause_at", int(AtWrite), 0);
        QVERIFY(pull ? bench_.insert(0) : bench_.startPcscd());
        QTRY_COMPARE_WITH_TIMEOUT(TokenStatus::getStatusFromToken(), 7, 10000);
        const QString listed = listedIds(); // queued behind the operation on the worker thread
        QCOMPARE(tokenObjects(), expected.join(' '));
        for (QString& entry : expected)
            entry.truncate(8);
        QCOMPARE(listed, expected.join(' '));
    }

    // The services drop the connection, answer slowly or cut their answer short, for each request
    // the program makes: it comes back every time, a slow answer is still taken, a broken one is
    // never taken as an answer (no half change log, no half package left in Downloads), and where
    // the user waits for it, they are told.
    void servicesFaults_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<bool>("userWaits");
        const QList<QPair<QString, bool>> requests = {
            {"/a/get-ticket/", true}, {"/a/view.json", true},     {"/api/version.txt", false},
            {"/changelogs/*", false}, {"/packages/*", true},      {"/api/report.json", true},
            {"/api/report", false}};
        for (const auto& [path, userWaits] : requests)
            for (const char* fault : {"drop", "slow", "truncated"})
                QTest::addRow("%s, %s", qPrintable(path), fault) << path << QString(fault) << userWaits;
        // A service that takes the request and never answers does not hold up the next checks.
        QTest::newRow("/api/version.txt, stalled") << "/api/version.txt" << "stalled" << false;
    }

    void servicesFaults()
    {
        QFETCH(QString, path);
        QFETCH(QString, fault);
        QFETCH(bool, userWaits);
        QVERIFY(sim_.reset());
        QVERIFY(sim_.configure({{"versions", QJsonObject{{"pack", "99.0.0;{base}/packages/faults.deb"}}},
                                {"package", QJsonObject{{"size", 100000}}}}));
        // A dropped connection is dropped again on the retry; a slow, stalled or short answer
        // comes once.
        QJsonObject script{{"path", path}, {"route", true}, {"times", 1}};
        if (fault == "drop")
            script = {{"path", path}, {"close", true}};
        else if (fault == "truncated")
            script["fail_after"] = 1;
        else
            script["delay"] = fault == "slow" ? 2 : 600;
        QVERIFY(sim_.script(script));
        const QString downloads = ApplicationDownloader::downloadFolder();
        QDir(downloads).removeRecursively();

        // One of the program's requests: whether it got its answer, and what the user is shown.
        constexpr int kAnswerMs = 60000;
        bool answered = false;
        QString shown;
        if (path.startsWith("/a/")) {
            TokenStatus status;
            QSignalSpy ready(&status, &TokenStatus::infoKSReady);
            QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
            QVERIFY(status.startQuery() && firstOf(kAnswerMs, ready, cancelled));
            answered = cancelled.isEmpty();
            shown = answered ? status.statusText : cancelled.first().first().toString();
        } else if (path == "/api/version.txt") {
            Check_Updates check;
            QSignalSpy checked(&check, &Check_Updates::SPUpdatesChecked);
            check.Check(false);
            QVERIFY(checked.wait(kAnswerMs) && check.wait(kAnswerMs));
            answered = check.updateAvailable();
        } else if (path.startsWith("/changelogs/")) {
            Check_Updates check;
            check.getSPReadme();
            shown = check.changeLog();
            answered = !shown.isEmpty();
        } else if (path.startsWith("/packages/")) {
            ModalSeam::reset();
            ModalSeam::answer(ModalSeam::ShowIt);
            ModalSeam::answer(QMessageBox::Ok);
            ApplicationDownloader downloader(nullptr);
            answered = downloader.download(sim_.httpsUrl() + "/packages/faults.deb", "Download", "Faults") &&
                       QFileInfo(downloader.downloadedFile()).size() == 100000;
            shown = ModalSeam::seen().mid(1).join('\n');
        } else if (path == "/api/report.json") {
            TicketSender sender;
            QSignalSpy sent(&sender, &TicketSender::support_sent);
            QSignalSpy failed(&sender, &TicketSender::support_error);
            sender.setRequest("Faults on the bench", QString(), QString(), {});
            sender.start();
            // Read once the sender's thread has ended: the spies are written from that thread.
            QVERIFY(sender.wait(kAnswerMs) && sent.count() + failed.count() > 0);
            answered = !sent.isEmpty();
            shown = (answered ? sent : failed).first().first().toString();
        } else {
            reportError("Faults on the bench"); // it does not look at the answer: it only has to come back
            answered = !sim_.requests(path).isEmpty();
        }
        QVERIFY2(sim_.requests().size() > 0, "no request made");
        QCOMPARE(answered, fault == "slow" || path == "/api/report");
        if (fault == "stalled")
            QVERIFY(home_.readLog().contains("Web: request given up, no answer in time"));
        if (!answered) {
            QVERIFY2(userWaits != shown.isEmpty(), userWaits ? "the user is told nothing" : qPrintable(shown));
            QVERIFY(QDir(downloads).isEmpty());
        }
    }
};

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
