// The stored proxy setting end to end without a network: the preferences file, the C
// functions the transport components use, and the Qt proxy the program installs from it.
#include "dashboard_network_manager.h"
#include "mac_roman.h"
#include "preferences_store.h"
#include "test_support.h"
#include "zorvik_proxy.h"

#include <QDir>
#include <QFile>
#include <QNetworkProxy>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

const char* const kDomain = "com.zorvik.qvtransport";
char* const kUntouched = reinterpret_cast<char*>(0x1);

// zorvikpc_get_proxy as one call; on failure the out values must stay untouched.
struct Stored
{
    int code = 0;
    QByteArray text;
    unsigned int enabled = 99;
};

Stored getProxy(int scope)
{
    Stored s;
    char* raw = kUntouched;
    s.code = zorvikpc_get_proxy(scope, &raw, &s.enabled);
    if (s.code == 0) {
        s.text = raw;
        std::free(raw);
    } else if (raw != kUntouched) {
        s.text = "<out pointer was changed>";
    }
    return s;
}

// A discovery as one call (host and port must share one buffer); the record is released here.
QByteArray discover(int (*fn)(void*, proxy_config*), int* code)
{
    proxy_config config{kUntouched, kUntouched, 7};
    *code = fn(nullptr, &config);
    if (*code != 0)
        return config.host || config.port ? "<record not cleared>" : "";
    const bool oneBuffer = config.port == config.host + std::strlen(config.host) + 1 && config.reserved == 0;
    const QByteArray found = oneBuffer ? QByteArray(config.host) + '|' + QByteArray(config.port) : "<not one buffer>";
    proxy_config_free(&config);
    return found;
}

} // namespace

class TestProxySettings : public QObject
{
    Q_OBJECT

    TestHome home;
    QString prefsFile;

    QString logSince(int mark) const { return home.readLog().mid(mark); }

private slots:
    void initTestCase()
    {
        home.apply();
        prefsFile = PreferencesStore(kDomain).filePath();
        QVERIFY(prefsFile.startsWith(home.path()));
        QVERIFY(prefsFile.endsWith("/zorvik/com.zorvik.qvtransport.ini"));
    }

    void init()
    {
        qunsetenv("ZORVIK_PROXY");
        QFile::remove(prefsFile);
    }

    // Every Mac Roman byte has its own character, and the way back gives the same byte.
    void macRomanIsOneToOne()
    {
        QByteArray all;
        for (int b = 0; b < 256; ++b)
            all.append(static_cast<char>(b));
        const QString text = MacRoman::toUnicode(all);
        QCOMPARE(QSet<QChar>(text.begin(), text.end()).size(), 256);
        QByteArray back;
        QVERIFY(MacRoman::fromUnicode(text, &back));
        QCOMPARE(back, all);
    }

    // What another component stored, as the C functions hand it out: in Mac Roman, refused
    // when a character has none, when "Proxy" is missing or empty; a missing "ProxyEnabled"
    // reads as false. A refused value is no proxy for the Qt side and for discovery either.
    void storedValues_data()
    {
        QTest::addColumn<QVariant>("proxy");
        QTest::addColumn<QVariant>("enabled");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<unsigned int>("enabledRead");
        QTest::newRow("euro") << QVariant(QString::fromUtf8("€:1")) << QVariant(true) << 0 << QByteArray("\xDB:1")
                              << 1u;
        QTest::newRow("old currency sign")
            << QVariant(QString::fromUtf8("¤:80")) << QVariant(true) << -255 << QByteArray() << 99u;
        QTest::newRow("emoji") << QVariant(QString::fromUtf8("\U0001F600:80")) << QVariant(true) << -255 << QByteArray()
                               << 99u;
        QTest::newRow("enabled, no address") << QVariant() << QVariant(true) << -255 << QByteArray() << 99u;
        QTest::newRow("empty address") << QVariant("") << QVariant(true) << -255 << QByteArray() << 99u;
        QTest::newRow("address, no flag") << QVariant("q:8080") << QVariant() << 0 << QByteArray("q:8080") << 0u;
    }

    void storedValues()
    {
        QFETCH(QVariant, proxy);
        QFETCH(QVariant, enabled);
        QFETCH(int, code);
        {
            PreferencesStore store(kDomain);
            if (proxy.isValid())
                store.setString("Proxy", proxy.toString());
            if (enabled.isValid())
                store.setBool("ProxyEnabled", enabled.toBool());
            QVERIFY(store.synchronize());
        }
        const Stored got = getProxy(0);
        QCOMPARE(got.code, code);
        QTEST(got.text, "bytes");
        QTEST(got.enabled, "enabledRead");
        if (code != 0) {
            const ProxyConfig config = DashboardNetworkManager::readProxySettings();
            QVERIFY(config.host.isEmpty() && config.port.isEmpty() && !config.enabled);
            int found = 0;
            QCOMPARE(discover(proxy_discover, &found), QByteArray());
            QCOMPARE(found, -10);
        }
    }

    // How a stored address is split: at the first ":" by the C functions, at every ":" by
    // the Qt side, which takes the first two pieces. Bytes pass as they are (Latin-1 text
    // from the Advanced tab comes back unchanged).
    void addressRules_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<int>("cCode");
        QTest::addColumn<QByteArray>("cFound"); // host|port
        QTest::addColumn<QString>("qtFound");   // host|port, empty when the Qt side has none
        QTest::addColumn<quint16>("installedPort");
        QTest::newRow("host and port") << QByteArray("proxy.lan:3128") << 0 << QByteArray("proxy.lan|3128")
                                       << "proxy.lan|3128" << quint16(3128);
        QTest::newRow("no colon") << QByteArray("proxy.lan") << -10 << QByteArray() << "" << quint16(0);
        QTest::newRow("three pieces") << QByteArray("h:80:x") << 0 << QByteArray("h|80:x") << "h|80" << quint16(80);
        QTest::newRow("blanks kept") << QByteArray(" proxy.lan : 8080") << 0 << QByteArray(" proxy.lan | 8080")
                                     << " proxy.lan | 8080" << quint16(8080);
        QTest::newRow("latin-1") << QString::fromUtf8("häst.example:8080").toLatin1() << 0
                                 << QString::fromUtf8("häst.example|8080").toLatin1()
                                 << QString::fromUtf8("häst.example|8080") << quint16(8080);
    }

    void addressRules()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, qtFound);
        QCOMPARE(zorvikpc_set_proxy(1, stored.constData(), 1), 0);
        int code = 0;
        QTEST(discover(proxy_discover, &code), "cFound");
        QTEST(code, "cCode");

        const int mark = home.readLog().size();
        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.enabled ? config.host + "|" + config.port : QString(), qtFound);
        QCOMPARE(logSince(mark).contains("Cannot read proxy settings"), qtFound.isEmpty());
        DashboardNetworkManager::SetupProxy(config);
        const QNetworkProxy installed = QNetworkProxy::applicationProxy();
        QCOMPARE(installed.type(), qtFound.isEmpty() ? QNetworkProxy::NoProxy : QNetworkProxy::HttpProxy);
        QTEST(installed.port(), "installedPort");
    }

    // Reading accepts scopes 0 and 1, writing only 1; a refused write changes nothing.
    void scopes()
    {
        for (int scope : {0, 2})
            QCOMPARE(zorvikpc_set_proxy(scope, "refused:1", 1), -255);
        QVERIFY(!QFile::exists(prefsFile));
        QCOMPARE(zorvikpc_set_proxy(1, "user:8080", 0), 0);
        for (int scope : {0, 1}) {
            const Stored got = getProxy(scope);
            QCOMPARE(got.code, 0);
            QCOMPARE(got.text, QByteArray("user:8080"));
            QCOMPARE(got.enabled, 0u);
        }
        for (int scope : {2, -1})
            QCOMPARE(getProxy(scope).code, -255);
        QCOMPARE(zorvikpc_set_proxy(1, nullptr, 1), -255);
        QCOMPARE(zorvikpc_get_proxy(0, nullptr, nullptr), -255);
    }

    // ZORVIK_PROXY wins over the stored setting in discovery (unless it has no ":"), while
    // the Qt side follows only the stored setting.
    void discoveryPrecedence_data()
    {
        QTest::addColumn<QVariant>("env");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("found");
        QTest::addColumn<int>("envCode");
        QTest::addColumn<int>("sysCode");
        // the stored setting is "q:8080"
        QTest::newRow("env overrides stored") << QVariant("p:3128") << true << 0 << QByteArray("p|3128") << 0 << 0;
        QTest::newRow("env without colon ignored") << QVariant("p") << true << 0 << QByteArray("q|8080") << -255 << 0;
        QTest::newRow("env despite disabled setting")
            << QVariant("p:3128") << false << 0 << QByteArray("p|3128") << 0 << -255;
        QTest::newRow("stored but disabled") << QVariant() << false << -10 << QByteArray() << -255 << -255;
    }

    void discoveryPrecedence()
    {
        QFETCH(QVariant, env);
        QFETCH(bool, enabled);
        QCOMPARE(zorvikpc_set_proxy(1, "q:8080", enabled), 0);
        if (env.isValid())
            qputenv("ZORVIK_PROXY", env.toByteArray());

        int code = 0;
        QTEST(discover(proxy_discover, &code), "found");
        QTEST(code, "code");
        discover(proxy_discover_env, &code);
        QTEST(code, "envCode");
        discover(proxy_discover_sys, &code);
        QTEST(code, "sysCode");

        // The Qt side: the single manager takes the stored proxy with the default type, and
        // none while it is disabled.
        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.host + ":" + config.port, QString("q:8080"));
        const int mark = home.readLog().size();
        DashboardNetworkManager manager(nullptr);
        manager.UpdateProxy();
        QCOMPARE(manager.proxy().type(), enabled ? QNetworkProxy::DefaultProxy : QNetworkProxy::NoProxy);
        QCOMPARE(manager.proxy().hostName() + ":" + QString::number(manager.proxy().port()),
                 QString(enabled ? "q:8080" : ":0"));
        QCOMPARE(logSince(mark).contains("Created QNetworkAccessManager using proxy q:8080"), enabled);
        proxy_config_free(nullptr);
    }

    // Other keys of the domain survive a write, odd characters round-trip, no temporary file
    // is left, and a reader running beside a writer only ever sees a complete value.
    void preferencesFile()
    {
        QVERIFY(writeFile(prefsFile, "; written by another component\n[com.zorvik.qvtransport]\n"
                                     "TransportTimeout=30\nProxyEnabled = yes\n"));
        QCOMPARE(getProxy(0).code, -255);
        const QByteArray odd = "we=ird;host\\name\t#:80 ";
        QCOMPARE(zorvikpc_set_proxy(1, odd.constData(), 1), 0);
        QCOMPARE(PreferencesStore(kDomain).stringValue("TransportTimeout").value_or("lost"), QString("30"));
        const Stored got = getProxy(1);
        QCOMPARE(got.text, odd);
        QCOMPARE(got.enabled, 1u);
        QCOMPARE(QDir(QFileInfo(prefsFile).absolutePath()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{"com.zorvik.qvtransport.ini"});

        const QByteArray a = QByteArray(6000, 'a') + ":1111";
        const QByteArray b = QByteArray(9000, 'b') + ":2222";
        QCOMPARE(zorvikpc_set_proxy(1, a.constData(), 1), 0);
        std::atomic<bool> done{false};
        std::atomic<int> writeFailures{0};
        std::unique_ptr<QThread> writer(QThread::create([&] {
            for (int i = 0; i < 300; ++i)
                writeFailures += zorvikpc_set_proxy(1, (i % 2 ? a : b).constData(), i % 2) != 0;
            done = true;
        }));
        writer->start();
        QByteArray bad;
        for (int reads = 0; (!done || reads < 50) && bad.isEmpty(); ++reads) {
            const Stored read = getProxy(0);
            if (read.code != 0 || (read.text != a && read.text != b))
                bad = "read " + QByteArray::number(read.code) + ", " + QByteArray::number(read.text.size()) + " bytes";
        }
        QVERIFY(writer->wait(60000));
        QVERIFY2(bad.isEmpty(), bad.constData());
        QCOMPARE(writeFailures.load(), 0);
    }

    // The diagnostic lookup logs what the system would use for the key service.
    void pacLogsSystemProxy()
    {
        qputenv("ZORVIK_KEYSERVICE_URL", "https://ks.bench.example");
        qputenv("https_proxy", "http://10.9.8.7:3128");
        const int mark = home.readLog().size();
        const ProxyConfig config = PAC();
        qunsetenv("https_proxy");
        qunsetenv("ZORVIK_KEYSERVICE_URL");
        QVERIFY(config.host.isEmpty() && config.port.isEmpty() && !config.enabled);
        QVERIFY2(logSince(mark).contains("PAC Proxy: 10.9.8.7:3128"), qPrintable(logSince(mark)));
    }
};

QTEST_GUILESS_MAIN(TestProxySettings)
#include "tst_proxy_settings.moc"
