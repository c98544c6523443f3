// Faults in the middle of an operation, on the bench: the program's own objects with a
// simulated Vantrel in the bench's pcscd, the PKCS#11 module over SoftHSM2 (through a
// backing module with a pause point), and the services simulator.
#include <QtTest>

#include <QMessageBox>

#include <dlfcn.h>

#include <memory>

#include "application_downloader.h"
#include "bench.h"
#include "certificate_storage.h"
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

// The pause point of the backing module (tests/certstore/faulty_backend.cpp).
struct PausePoint
{
    enum Kind { AtWrite = 0, AtFind = 1 };
    void (*arm)(int kind, int nth) = nullptr;
    int (*waitFor)(int ms) = nullptr;
    void (*release)(int asPulled) = nullptr;

    bool resolve()
    {
        void* handle = dlopen(FAULTY_BACKEND, RTLD_NOW | RTLD_NOLOAD);
        if (!handle)
            return false;
        arm = reinterpret_cast<decltype(arm)>(dlsym(handle, "faulty_backend_pause_at"));
        waitFor = reinterpret_cast<decltype(waitFor)>(dlsym(handle, "faulty_backend_wait_for_pause"));
        release = reinterpret_cast<decltype(release)>(dlsym(handle, "faulty_backend_release"));
        dlclose(handle);
        return arm && waitFor && release;
    }
};

// Objects on the token by identifier, as SoftHSM2 itself holds them after a login: "c"
// certificate, "k" private key, "p" public key; "ckp" is a whole entry.
using TokenObjects = QMap<QString, QString>;

QString text(const QStringList& ids, const TokenObjects& objects = {})
{
    QStringList entries;
    for (const QString& id : ids)
        entries << id.left(8) + objects.value(id);
    return entries.join(' ');
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private:
    TokenObjects tokenObjects() const;
    // The identifiers the program lists once the key is back (empty list on "cannot").
    QStringList listedIds();
    SecretPtr pin() const { return shareSecret(SecretBytes::fromText(token_->pin())); }
    // Makes one of the program's requests to the services; true when it got its answer,
    // with what the user is shown in `shown`.
    bool request(const QString& path, QString* shown);

    TestHome home_;
    ServicesSim sim_;
    Bench bench_;
    std::unique_ptr<SoftHsmToken> token_;
    std::unique_ptr<CryptokiStorage> storage_;
    PausePoint pause_;

private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void midOperation_data();
    void midOperation();
    void servicesFaults_data();
    void servicesFaults();
};

TokenObjects TestFaults::tokenObjects() const
{
    QString out;
    if (token_->pkcs11Tool({"--login", "--pin", token_->pin(), "--list-objects"}, &out, false) != 0)
        return {{"pkcs11-tool failed", out}};
    TokenObjects objects;
    QString kind;
    for (const QString& line : out.split('\n')) {
        if (!line.startsWith(' '))
            kind = line.startsWith("Certificate") ? "c" : line.startsWith("Private") ? "k" : "p";
        else if (line.trimmed().startsWith("ID:")) {
            QString& kinds = objects[line.section(':', 1).trimmed()];
            kinds += kind;
            std::sort(kinds.begin(), kinds.end());
        }
    }
    return objects;
}

QStringList TestFaults::listedIds()
{
    QSignalSpy listed(storage_.get(), &CryptokiStorage::certificates);
    QSignalSpy cannot(storage_.get(), &CryptokiStorage::cannotGetCertificates);
    emit storage_->getCertificates();
    if (!QTest::qWaitFor([&] { return listed.count() + cannot.count() > 0; }, 60000))
        return {"no answer"};
    QStringList ids;
    if (!listed.isEmpty()) {
        for (const CryptokiStorageItem& item : listed.first().first().value<QList<CryptokiStorageItem>>())
            ids << item.pkcs11id.toHex();
    }
    ids.removeDuplicates();
    ids.sort();
    return ids;
}

void TestFaults::initTestCase()
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
    storage_ = std::make_unique<CryptokiStorage>();
    QCOMPARE(listedIds().size(), 2);
    QVERIFY(pause_.resolve());
}

void TestFaults::cleanupTestCase()
{
    storage_.reset();
    QVERIFY2(!home_.readLog().contains(token_->pin()), "a PIN reached the log");
}

// A case ends with the key in its reader and pcscd running; one that failed halfway may not.
void TestFaults::cleanup()
{
    pause_.arm(PausePoint::AtWrite, 0);
    pause_.release(0);
    if (QTest::currentTestFailed()) {
        bench_.startPcscd();
        bench_.remove(0);
        QVERIFY(bench_.insert(0));
    }
}

// The key pulled, or pcscd stopped, at a step of an import, a removal, a listing or a status
// read. A pulled key is reported to the user as missing; once the key or pcscd is back, the
// program sees the key again by itself, the token holds every entry whole (the one changed
// whole or not at all, nothing else touched) and the listing shows exactly that.
void TestFaults::midOperation_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("step"); // the object written (search started) when the fault comes
    QTest::addColumn<bool>("pull"); // else pcscd stops
    QTest::addColumn<bool>("kept"); // the entry operated on is there in the end
    QTest::newRow("import, key pulled after the PIN") << "import" << 1 << true << false;
    QTest::newRow("import, key pulled after the first object") << "import" << 2 << true << false;
    QTest::newRow("import, key pulled before the last object") << "import" << 3 << true << false;
    QTest::newRow("removal, key pulled after the PIN") << "remove" << 1 << true << true;
    QTest::newRow("removal, key pulled after the first object") << "remove" << 2 << true << false;
    QTest::newRow("removal, key pulled before the last object") << "remove" << 3 << true << false;
    QTest::newRow("import, pcscd stopped") << "import" << 1 << false << true;
    QTest::newRow("removal, pcscd stopped") << "remove" << 1 << false << false;
    QTest::newRow("listing, pcscd stopped") << "list" << 1 << false << false;
    QTest::newRow("key status, pcscd stopped") << "status" << 0 << false << false;
}

void TestFaults::midOperation()
{
    QFETCH(QString, operation);
    QFETCH(int, step);
    QFETCH(bool, pull);
    QFETCH(bool, kept);
    const TestCredential credential = TestCredential::make(QTest::currentDataTag());
    const QString id = credential.moduleId().toHex();
    if (operation == "remove")
        QCOMPARE(token_->load(credential), id);
    TokenObjects expected = tokenObjects();
    if (kept)
        expected[id] = "ckp";
    else
        expected.remove(id);

    QSignalSpy errors(storage_.get(), &CryptokiStorage::error);
    pause_.arm(operation == "list" ? PausePoint::AtFind : PausePoint::AtWrite, step);
    if (operation == "list")
        emit storage_->getCertificates();
    else if (operation == "import")
        storage_->addCertificate(credential.takeKey(), credential.takeCertificate(), pin(), "Faults");
    else if (operation == "remove")
        storage_->removeCertificate(credential.moduleId(), pin());
    QVERIFY(step == 0 || pause_.waitFor(60000));
    QVERIFY(pull ? bench_.remove(0) : bench_.stopPcscd());
    if (operation == "status")
        QCOMPARE(TokenStatus::getStatusFromToken(), 0);
    pause_.release(pull);
    if (pull) {
        QTRY_COMPARE_WITH_TIMEOUT(errors.count(), 1, 30000);
        const QString message = errors.first().first().toString();
        const QString keyMissing = operation == "import" ? QString::number(CKR_TOKEN_NOT_RECOGNIZED)
                                                         : CryptokiErrorString(CKR_TOKEN_NOT_RECOGNIZED);
        QVERIFY2(message.endsWith(keyMissing), qPrintable(message));
    }

    pause_.arm(PausePoint::AtWrite, 0);
    QVERIFY(pull ? bench_.insert(0) : bench_.startPcscd());
    QTRY_COMPARE_WITH_TIMEOUT(TokenStatus::getStatusFromToken(), 7, 10000);
    // Queued behind the operation on the worker thread.
    const QStringList listed = listedIds();
    const TokenObjects objects = tokenObjects();
    QCOMPARE(text(objects.keys(), objects), text(expected.keys(), expected));
    QCOMPARE(text(listed), text(expected.keys()));
}

bool TestFaults::request(const QString& path, QString* shown)
{
    constexpr int kAnswerMs = 60000;
    if (path.startsWith("/a/")) {
        TokenStatus status;
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        if (!status.startQuery() || !QTest::qWaitFor([&] { return ready.count() + cancelled.count() > 0; }, kAnswerMs))
            return false;
        *shown = cancelled.isEmpty() ? status.statusText : cancelled.first().first().toString();
        return cancelled.isEmpty();
    }
    if (path == "/api/version.txt") {
        Check_Updates check;
        QSignalSpy checked(&check, &Check_Updates::SPUpdatesChecked);
        check.Check(false);
        if (!checked.wait(kAnswerMs) || !check.wait(kAnswerMs))
            return false;
        return check.updateAvailable();
    }
    if (path.startsWith("/changelogs/")) {
        Check_Updates check;
        check.getSPReadme();
        *shown = check.changeLog();
        return !shown->isEmpty();
    }
    if (path.startsWith("/packages/")) {
        ModalSeam::reset();
        ModalSeam::answer(ModalSeam::ShowIt);
        ModalSeam::answer(QMessageBox::Ok);
        ApplicationDownloader downloader(nullptr);
        const bool done = downloader.download(sim_.httpsUrl() + "/packages/faults.deb", "Download", "Faults");
        *shown = ModalSeam::seen().mid(1).join('\n');
        return done && QFileInfo(downloader.downloadedFile()).size() == 100000;
    }
    if (path == "/api/report.json") {
        TicketSender sender;
        QSignalSpy sent(&sender, &TicketSender::support_sent);
        QSignalSpy failed(&sender, &TicketSender::support_error);
        sender.setRequest("Faults on the bench", QString(), QString(), {});
        sender.start();
        if (!QTest::qWaitFor([&] { return sent.count() + failed.count() > 0; }, kAnswerMs) || !sender.wait(kAnswerMs))
            return false;
        *shown = (sent.isEmpty() ? failed : sent).first().first().toString();
        return !sent.isEmpty();
    }
    // The error report does not look at the answer: it only has to come back.
    reportError("Faults on the bench");
    return !sim_.requests(path).isEmpty();
}

// The services drop the connection, answer slowly or cut their answer short, for each request
// the program makes: it comes back every time, a slow answer is still taken, a broken one is
// never taken as an answer (no half change log, no half package left in Downloads), and where
// the user waits for it, they are told.
void TestFaults::servicesFaults_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("userWaits");
    const QList<QPair<QString, bool>> requests = {
        {"/a/get-ticket/", true}, {"/a/view.json", true},     {"/api/version.txt", false},
        {"/changelogs/*", false}, {"/packages/*", true},      {"/api/report.json", true},
        {"/api/report", false}};
    for (const auto& [path, userWaits] : requests) {
        for (const char* fault : {"drop", "slow", "truncated"})
            QTest::addRow("%s, %s", qPrintable(path), fault) << path << QString(fault) << userWaits;
    }
    // A service that takes the request and never answers does not hold up the next checks.
    QTest::newRow("/api/version.txt, stalled") << "/api/version.txt" << "stalled" << false;
}

void TestFaults::servicesFaults()
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

    QString shown;
    const bool answered = request(path.chopped(path.endsWith('*')), &shown);
    QVERIFY2(sim_.requests().size() > 0, "no request made");
    QCOMPARE(answered, fault == "slow" || path == "/api/report");
    if (fault == "stalled")
        QVERIFY(home_.readLog().contains("Web: request given up, no answer in time"));
    if (!answered) {
        if (userWaits)
            QVERIFY2(!shown.isEmpty(), "the user is told nothing");
        else
            QVERIFY2(shown.isEmpty(), qPrintable(shown));
        QVERIFY(QDir(downloads).isEmpty());
    }
}

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
