// libzorvik-cryptoki loaded by the programs that use PKCS#11 modules: NSS (modutil,
// certutil), OpenVPN and OpenSC's pkcs11-tool, over a private SoftHSM2 token. Signing, a
// missing backend and the token without a card are covered in-process.
#include <QtTest>

#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"

namespace {

struct Run
{
    int exitCode = -1;
    QString output;
};

Run run(const QString& program, const QStringList& args, const QProcessEnvironment& env)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    Run r;
    if (!p.waitForStarted(10000) || !p.waitForFinished(120000)) {
        p.kill();
        r.output = program + " did not run: " + p.errorString();
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.output = QString::fromLocal8Bit(p.readAll());
    return r;
}

// The probe's "name=value" lines.
QMap<QString, QString> probeAnswers(const Run& r)
{
    QMap<QString, QString> answers;
    for (const QString& line : r.output.split('\n')) {
        const int eq = line.indexOf('=');
        if (eq > 0)
            answers[line.left(eq)] = line.mid(eq + 1);
    }
    return answers;
}

} // namespace

class TestCryptokiTools : public QObject
{
    Q_OBJECT

private:
    QProcessEnvironment env() const { return token_->environment(true); }

    static constexpr const char* kPin = "97531864";
    TestHome home_;
    std::unique_ptr<SoftHsmToken> token_;
    TestCredential alice_, bob_;
    QString aliceId_, bobId_;

private slots:
    void initTestCase();
    void cleanupTestCase();
    void pkcs11ToolLists();
    void openvpnShowsTheCertificates();
    void nssAddsAndListsTheModule();
    void pinLockHoldsAcrossProcesses();
    void setGidProgramIgnoresTheUsersEnvironment_data();
    void setGidProgramIgnoresTheUsersEnvironment();
};

void TestCryptokiTools::initTestCase()
{
    QVERIFY(home_.isValid());
    home_.apply();
    // No pcscd for these programs: a socket where nothing listens.
    qputenv("PCSCLITE_CSOCK_NAME", (home_.path() + "/no-pcscd.comm").toLocal8Bit());
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    token_ = std::make_unique<SoftHsmToken>("Vantrel", kPin);
    QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
    TestCredential::Options o;
    o.commonName = "Alice Tools";
    o.organizations = QStringList{"Zorvik Test"};
    alice_ = TestCredential::make(o);
    o.commonName = "Bob Tools";
    bob_ = TestCredential::make(o);
    aliceId_ = token_->load(alice_, "Alice");
    bobId_ = token_->load(bob_, "Bob");
    QVERIFY(!aliceId_.isEmpty() && !bobId_.isEmpty());
    QCOMPARE(aliceId_.toLatin1(), alice_.moduleId().toHex());
}

void TestCryptokiTools::cleanupTestCase()
{
    QVERIFY2(!home_.readLog().contains(kPin), "a PIN reached the log");
}

void TestCryptokiTools::pkcs11ToolLists()
{
    QString out;
    QCOMPARE(token_->pkcs11Tool({"--list-slots"}, &out), 0);
    QVERIFY2(out.contains("Zorvik Vantrel") && out.contains("token label        : Vantrel"), qPrintable(out));

    // Without a login: both certificates and both public keys, under the shared identifiers.
    QCOMPARE(token_->pkcs11Tool({"--list-objects"}, &out), 0);
    QCOMPARE(out.count("Certificate Object; type = X.509 cert"), 2);
    QCOMPARE(out.count("Public Key Object; RSA 2048 bits"), 2);
    QVERIFY2(out.contains("subject:    DN: CN=Alice Tools, O=Zorvik Test"), qPrintable(out));
    QCOMPARE(out.count("ID:         " + aliceId_), 2);
    QCOMPARE(out.count("ID:         " + bobId_), 2);
    QVERIFY(!out.contains("Private Key Object"));

    // With a login the private keys appear.
    QCOMPARE(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out), 0);
    QCOMPARE(out.count("Private Key Object; RSA"), 2);

}

void TestCryptokiTools::openvpnShowsTheCertificates()
{
    const Run r = run("openvpn", {"--show-pkcs11-ids", SoftHsmToken::modulePath()}, env());
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    QVERIFY2(r.output.contains("DN:             CN=Alice Tools, O=Zorvik Test"), qPrintable(r.output));
    QVERIFY2(r.output.contains("DN:             CN=Bob Tools, O=Zorvik Test"), qPrintable(r.output));
    // The identifier OpenVPN keeps in its configuration names our token and the key's ID.
    QVERIFY2(r.output.contains(QRegularExpression("Serialized id:\\s+Zorvik/Vantrel/[0-9a-f]+/Vantrel/" + aliceId_,
                                                  QRegularExpression::CaseInsensitiveOption)),
             qPrintable(r.output));
}

void TestCryptokiTools::nssAddsAndListsTheModule()
{
    const QString db = "sql:" + home_.path() + "/nssdb";
    QDir().mkpath(home_.path() + "/nssdb");
    QCOMPARE(run("certutil", {"-N", "-d", db, "--empty-password"}, env()).exitCode, 0);
    const Run add = run(
        "modutil", {"-dbdir", db, "-add", "Zorvik Cryptoki", "-libfile", SoftHsmToken::modulePath(), "-force"}, env());
    QVERIFY2(add.exitCode == 0 && add.output.contains("added to database"), qPrintable(add.output));
    const Run list = run("modutil", {"-dbdir", db, "-list"}, env());
    QVERIFY2(list.exitCode == 0, qPrintable(list.output));
    // The dashboard decides "registered" from a line with both the file name and "library name:".
    bool registered = false;
    for (const QString& line : list.output.split('\n'))
        registered = registered || (line.contains("library name:") && line.contains("libzorvik-cryptoki.so"));
    QVERIFY2(registered, qPrintable(list.output));
    QVERIFY2(list.output.contains("slot: Zorvik Vantrel") && list.output.contains("token: Vantrel"),
             qPrintable(list.output));
    // NSS reads the certificates through it: nickname "<token>:<label>".
    const Run certs = run("certutil", {"-L", "-d", db, "-h", "all"}, env());
    QVERIFY2(certs.exitCode == 0, qPrintable(certs.output));
    QVERIFY2(certs.output.contains("Vantrel:Alice") && certs.output.contains("Vantrel:Bob"), qPrintable(certs.output));
}

void TestCryptokiTools::pinLockHoldsAcrossProcesses()
{
    // Three wrong PINs, each in a process of its own, lock the PIN for the next process.
    QString out;
    for (int i = 0; i < 3; ++i) {
        QVERIFY(token_->pkcs11Tool({"--login", "--pin", "00000000", "--list-objects"}, &out) != 0);
        QVERIFY2(out.contains("CKR_PIN_INVALID"), qPrintable(out));
    }
    QVERIFY(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out) != 0);
    QVERIFY2(out.contains("CKR_PIN_LOCKED"), qPrintable(out));
    QCOMPARE(token_->pkcs11Tool({"--list-token-slots"}, &out), 0);
    QVERIFY2(out.contains("user PIN locked"), qPrintable(out));
    // SoftHSM2 itself never locked: the right PIN still works on it directly.
    QCOMPARE(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out, false), 0);
}

void TestCryptokiTools::setGidProgramIgnoresTheUsersEnvironment_data()
{
    QTest::addColumn<QString>("namedBy");
    QTest::newRow("backend variable") << "ZORVIK_CRYPTOKI_BACKEND";
    QTest::newRow("configuration variable") << "ZORVIK_CRYPTOKI_CONF";
    QTest::newRow("per-user configuration") << "XDG_CONFIG_HOME";
}

// The module inside a set-gid program (a root OpenVPN, a PAM stack) takes no code and no
// paths from the user who started it: SoftHSM2 named in the user's environment is loaded by
// a plain run of the probe, never by its set-gid copy, which logs to the system log only.
void TestCryptokiTools::setGidProgramIgnoresTheUsersEnvironment()
{
    QFETCH(QString, namedBy);
    if (::geteuid() != 0)
        QSKIP("making a set-gid program of another group needs root");
    const QString probe = home_.path() + "/setgid/cryptoki_env_probe";
    if (!QFile::exists(probe)) {
        QVERIFY(QDir().mkpath(home_.path() + "/setgid"));
        QVERIFY(QFile::copy(CRYPTOKI_ENV_PROBE, probe));
        QCOMPARE(::chown(QFile::encodeName(probe).constData(), 0, 65534), 0);
        QCOMPARE(::chmod(QFile::encodeName(probe).constData(), 02755), 0);
    }
    QProcessEnvironment e = env();
    const QString conf = home_.path() + "/named-backend.conf";
    const QString userConf = e.value("XDG_CONFIG_HOME") + "/zorvik/cryptoki.conf";
    QFile file(namedBy == "XDG_CONFIG_HOME" ? userConf : conf);
    QVERIFY(QDir().mkpath(QFileInfo(file).path()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("backend = " + SoftHsmToken::backendPath().toUtf8() + "\n");
    file.close();
    if (namedBy != "ZORVIK_CRYPTOKI_BACKEND")
        e.remove("ZORVIK_CRYPTOKI_BACKEND");
    if (namedBy == "ZORVIK_CRYPTOKI_CONF")
        e.insert("ZORVIK_CRYPTOKI_CONF", conf);

    const QMap<QString, QString> plain = probeAnswers(run(CRYPTOKI_ENV_PROBE, {}, e));
    // Its own mount namespace keeps the set-gid run's system log off the machine's /var/log.
    const Run r = run("unshare", {"--mount", "--propagation", "private", "sh", "-c",
                                  "mount -t tmpfs tmpfs /var/log && exec \"$0\"", probe},
                      e);
    const QMap<QString, QString> setGid = probeAnswers(r);
    QFile::remove(userConf);
    QCOMPARE(plain.value("softhsm"), QString("1"));
    QCOMPARE(plain.value("tokens"), QString("1"));
    QCOMPARE(plain.value("user_log"), home_.userLog());
    if (!setGid.contains("softhsm") && (r.output.startsWith("unshare:") || r.output.startsWith("mount:")))
        QSKIP(qPrintable("no private mount namespace here: " + r.output));
    QVERIFY2(setGid.contains("softhsm"), qPrintable(r.output));
    QCOMPARE(setGid.value("softhsm"), QString("0"));
    QCOMPARE(setGid.value("tokens"), QString("0"));
    QCOMPARE(setGid.value("user_log"), QString());
    QCOMPARE(setGid.value("system_log"), QString("/var/log/zorvik/dashboard.log"));
}

QTEST_GUILESS_MAIN(TestCryptokiTools)
#include "tst_cryptoki_tools.moc"
