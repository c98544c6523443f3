// The upgrade script run for real against packages built with dpkg-deb: what it accepts,
// the install command line it runs as root (pkexec, sudo and the installer are stood in
// for), its log, and the dashboard it starts afterwards. It runs from the test's program
// directory, laid out as an installed one (see CMakeLists.txt).
#include "test_package.h"

#include <QTemporaryDir>
#include <QtTest>

class TestUpgradeScript : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void installs_data();
    void installs();

private:
    QString read(const QString& name) const;

    QTemporaryDir dir;
    QString machineArch;
};

void TestUpgradeScript::initTestCase()
{
    QVERIFY(dir.isValid());
    QProcess arch;
    arch.start("dpkg", {"--print-architecture"});
    QVERIFY(arch.waitForFinished());
    machineArch = QString::fromUtf8(arch.readAllStandardOutput()).trimmed();
    // pkexec and sudo, as the script finds them on the PATH.
    QDir().mkpath(dir.path() + "/bin");
    for (const char* name : {"pkexec", "sudo"})
        QVERIFY(QFile::link(UPDATES_STAND_IN_ELEVATE, dir.path() + "/bin/" + name));
}

void TestUpgradeScript::init()
{
    for (const char* name : {"record", "started", "logs", "Down loads"}) {
        QFile::remove(dir.filePath(name));
        QDir(dir.filePath(name)).removeRecursively();
    }
    QDir().mkpath(dir.filePath("Down loads"));
}

QString TestUpgradeScript::read(const QString& name) const
{
    QFile file(dir.filePath(name));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void TestUpgradeScript::installs_data()
{
    QTest::addColumn<QString>("package");  // name:arch of the package built, "text", "missing" or "none"
    QTest::addColumn<QStringList>("env");  // NAME=value for the script
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("elevation"); // how the install ran as root; empty: it did not
    QTest::addColumn<QString>("logLine");
    QTest::addColumn<bool>("packageKept");

    const QString installed = "INFO upgrade: Installed zorvik-dashboard 3.4.376";
    const QString refused = "ERROR upgrade: ";
    const QString otherArch = machineArch == "arm64" ? "amd64" : "arm64";
    QTest::newRow("desktop session: pkexec")
        << "zorvik-dashboard:all" << QStringList{"DISPLAY=:99"} << 0 << "pkexec" << installed << false;
    QTest::newRow("no desktop: sudo") << "zorvik-dashboard:" + machineArch << QStringList{} << 0 << "sudo"
                                      << installed << false;
    QTest::newRow("no desktop, password helper")
        << "zorvik-dashboard:all" << QStringList{"SUDO_ASKPASS=/usr/bin/ssh-askpass"} << 0 << "sudo -A" << installed
        << false;
    QTest::newRow("installer named by ZORVIK_UPGRADE_ELEVATE")
        << "zorvik-dashboard:all"
        << QStringList{"DISPLAY=:99", QString("ZORVIK_UPGRADE_ELEVATE=%1 --as root").arg(UPDATES_STAND_IN_ELEVATE)}
        << 0 << "run-as-root --as root" << installed << false;
    QTest::newRow("install fails") << "zorvik-dashboard:all" << QStringList{"ZORVIK_TEST_ELEVATE_STATUS=100"} << 1
                                   << "sudo" << refused + "Installation failed with code 100" << true;
    QTest::newRow("another program's package")
        << "other-tool:all" << QStringList{} << 2 << "" << "holds \"other-tool\", not zorvik-dashboard" << true;
    QTest::newRow("another architecture") << "zorvik-dashboard:" + otherArch << QStringList{} << 2 << ""
                                          << "is built for " + otherArch + ", this machine is " + machineArch << true;
    QTest::newRow("not a package") << "text" << QStringList{} << 2 << "" << "is not a Debian package" << true;
    QTest::newRow("missing file") << "missing" << QStringList{} << 2 << "" << refused + "Cannot read the package"
                                  << false;
    QTest::newRow("no argument") << "none" << QStringList{} << 2 << "" << refused + "No package given" << false;
}

void TestUpgradeScript::installs()
{
    QFETCH(QString, package);
    QFETCH(QStringList, env);
    QFETCH(int, exitCode);
    QFETCH(QString, elevation);
    QFETCH(QString, logLine);
    QFETCH(bool, packageKept);

    // The package sits in a folder whose name has a blank, and is named relative to it.
    const QString folder = dir.filePath("Down loads");
    QString file = folder + "/zorvik-dashboard_3.4.376_all.deb";
    if (package.contains(':')) {
        file = makeDebianPackage(folder, package.section(':', 0, 0), "3.4.376", package.section(':', 1));
        QVERIFY(!file.isEmpty());
    } else if (package == "text") {
        QFile text(file);
        QVERIFY(text.open(QIODevice::WriteOnly));
        text.write("not a package\n");
    }
    QByteArray packageBytes;
    if (QFile f(file); f.open(QIODevice::ReadOnly))
        packageBytes = f.readAll();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SUDO_ASKPASS", "ZORVIK_UPGRADE_ELEVATE"})
        environment.remove(name);
    environment.insert("PATH", dir.filePath("bin") + ":" + environment.value("PATH"));
    environment.insert("ZORVIK_LOG_DIR", dir.filePath("logs"));
    environment.insert("ZORVIK_TEST_RECORD", dir.filePath("record"));
    environment.insert("ZORVIK_TEST_STARTED", dir.filePath("started"));
    for (const QString& pair : env)
        environment.insert(pair.section('=', 0, 0), pair.section('=', 1));

    QProcess script;
    script.setProcessEnvironment(environment);
    script.setWorkingDirectory(folder);
    const QString scriptPath = QCoreApplication::applicationDirPath() + "/scripts/upgrade.sh";
    script.start("sh", package == "none" ? QStringList{scriptPath} : QStringList{scriptPath, QFileInfo(file).fileName()});
    QVERIFY(script.waitForFinished(60000));
    QCOMPARE(script.exitCode(), exitCode);

    const QString log = read("logs/upgrade.log");
    QVERIFY2(log.contains(logLine), qPrintable(log));
    const QStringList record = read("record").split('\n');
    if (elevation.isEmpty()) {
        QCOMPARE(read("record"), QString());
    } else {
        QCOMPARE(record.value(0), elevation + " env DEBIAN_FRONTEND=noninteractive apt-get install -y --reinstall -o "
                                              "Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold " +
                                      file);
        QCOMPARE(record.value(1),
                 QString(QCryptographicHash::hash(packageBytes, QCryptographicHash::Sha256).toHex()));
    }
    QCOMPARE(QFile::exists(file), packageKept);
    // Installed or not, the user gets a dashboard back.
    QTRY_COMPARE_WITH_TIMEOUT(read("started"), QString("started \n"), 10000);
}

QTEST_GUILESS_MAIN(TestUpgradeScript)
#include "tst_upgrade_script.moc"
