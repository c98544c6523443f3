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
#include <QNetworkProxyFactory>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

const char* const kDomain = "com.zorvik.qvtransport";

struct FreeDeleter
{
    void operator()(char* p) const { std::free(p); }
};
using CString = std::unique_ptr<char, FreeDeleter>;

// zorvikpc_get_proxy as one call: code, text, enabled.
struct Stored
{
    int code = 0;
    QByteArray text;
    unsigned int enabled = 99;
};

Stored getProxy(int scope)
{
    Stored s;
    char* raw = reinterpret_cast<char*>(0x1); // must stay untouched on failure
    s.code = zorvikpc_get_proxy(scope, &raw, &s.enabled);
    if (s.code == 0) {
        CString owned(raw);
        s.text = QByteArray(owned.get());
    } else if (raw != reinterpret_cast<char*>(0x1)) {
        s.text = "<out pointer was changed>";
    }
    return s;
}

// A discovery as one call; the record is released here.
struct Found
{
    int code = 0;
    QByteArray host;
    QByteArray port;
};

Found discover(int (*fn)(void*, proxy_config*))
{
    proxy_config config{reinterpret_cast<char*>(0x1), reinterpret_cast<char*>(0x1), 7};
    Found f;
    f.code = fn(nullptr, &config);
    if (f.code == 0) {
        f.host = config.host;
        f.port = config.port;
        // One buffer: port lies behind host's terminating NUL.
        if (config.port != config.host + std::strlen(config.host) + 1 || config.reserved != 0)
            f.host = "<not one buffer>";
        proxy_config_free(&config);
    } else if (config.host || config.port) {
        f.host = "<record not cleared>";
    }
    return f;
}

void storeRaw(const QVariant& proxy, const QVariant& enabled)
{
    PreferencesStore store(kDomain);
    if (proxy.isValid())
        store.setString("Proxy", proxy.toString());
    if (enabled.isValid())
        store.setBool("ProxyEnabled", enabled.toBool());
    QVERIFY(store.synchronize());
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
        qunsetenv("ZORVIK_PROXY");
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

    // What another component stored is handed out in Mac Roman, or refused when a
    // character has no Mac Roman byte.
    void storedTextInMacRoman_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("o slash") << QString::fromUtf8("prøxy:80") << 0 << QByteArray("pr\xBFxy:80");
        QTest::newRow("euro") << QString::fromUtf8("€:1") << 0 << QByteArray("\xDB:1");
        QTest::newRow("apple logo") << QString(QChar(0xF8FF)) + ":1" << 0 << QByteArray("\xF0:1");
        QTest::newRow("old currency sign") << QString::fromUtf8("¤:80") << -255 << QByteArray();
        QTest::newRow("emoji") << QString::fromUtf8("\U0001F600:80") << -255 << QByteArray();
    }

    void storedTextInMacRoman()
    {
        QFETCH(QString, stored);
        QFETCH(int, code);
        QFETCH(QByteArray, bytes);
        storeRaw(stored, true);
        const Stored got = getProxy(0);
        QCOMPARE(got.code, code);
        QCOMPARE(got.text, bytes);
        if (code != 0)
            QCOMPARE(got.enabled, 99u); // nothing stored on failure
    }

    // Latin-1 text from the Advanced tab survives the Mac Roman round trip.
    void latin1RoundTrip()
    {
        const QByteArray latin1 = QString::fromUtf8("häst.example:8080").toLatin1();
        QCOMPARE(zorvikpc_set_proxy(1, latin1.constData(), 1), 0);
        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.host, QString::fromUtf8("häst.example"));
        QCOMPARE(config.port, QString("8080"));
    }

    // How a stored address is split: at the first ":" by the C functions, at every ":" by
    // the Qt side, which takes the first two pieces.
    void addressRules_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<int>("cCode");
        QTest::addColumn<QByteArray>("cHost");
        QTest::addColumn<QByteArray>("cPort");
        QTest::addColumn<bool>("qtOk");
        QTest::addColumn<QString>("qtHost");
        QTest::addColumn<QString>("qtPort");
        QTest::addColumn<quint16>("installedPort");
        // stored, C code, C host, C port, Qt enabled, Qt host, Qt port, installed port
        QTest::newRow("host and port") << QByteArray("proxy.lan:3128") << 0 << QByteArray("proxy.lan")
                                       << QByteArray("3128") << true << "proxy.lan" << "3128" << quint16(3128);
        QTest::newRow("no colon") << QByteArray("proxy.lan") << -10 << QByteArray() << QByteArray() << false << ""
                                  << "" << quint16(0);
        QTest::newRow("three pieces") << QByteArray("h:80:x") << 0 << QByteArray("h") << QByteArray("80:x") << true
                                      << "h" << "80" << quint16(80);
        QTest::newRow("port not a number") << QByteArray("proxy.lan:abc") << 0 << QByteArray("proxy.lan")
                                           << QByteArray("abc") << true << "proxy.lan" << "abc" << quint16(0);
        QTest::newRow("blanks kept") << QByteArray(" proxy.lan : 8080") << 0 << QByteArray(" proxy.lan ")
                                     << QByteArray(" 8080") << true << " proxy.lan " << " 8080" << quint16(8080);
        QTest::newRow("empty") << QByteArray("") << -10 << QByteArray() << QByteArray() << false << "" << ""
                               << quint16(0);
    }

    void addressRules()
    {
        QFETCH(QByteArray, stored);
        QFETCH(int, cCode);
        QFETCH(QByteArray, cHost);
        QFETCH(QByteArray, cPort);
        QFETCH(bool, qtOk);
        QFETCH(QString, qtHost);
        QFETCH(QString, qtPort);
        QFETCH(quint16, installedPort);

        QCOMPARE(zorvikpc_set_proxy(1, stored.constData(), 1), 0);
        const Found found = discover(proxy_discover);
        QCOMPARE(found.code, cCode);
        QCOMPARE(found.host, cHost);
        QCOMPARE(found.port, cPort);

        QByteArray copy = stored;
        char* host = nullptr;
        char* port = nullptr;
        QCOMPARE(parse_proxy_addr(copy.data(), &host, &port), stored.contains(':') ? 0 : -1);

        const int mark = home.readLog().size();
        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.host, qtHost);
        QCOMPARE(config.port, qtPort);
        QCOMPARE(config.enabled, qtOk);
        QCOMPARE(logSince(mark).contains("Cannot read proxy settings"), !qtOk);

        DashboardNetworkManager::SetupProxy(config);
        const QNetworkProxy installed = QNetworkProxy::applicationProxy();
        QCOMPARE(installed.type(), qtOk ? QNetworkProxy::HttpProxy : QNetworkProxy::NoProxy);
        QCOMPARE(installed.port(), installedPort);
    }

    // Reading accepts scopes 0 and 1, writing only 1; a refused write changes nothing.
    void scopes()
    {
        for (int scope : {0, 2, -1, 255}) {
            QCOMPARE(zorvikpc_set_proxy(scope, "refused:1", 1), -255);
            QVERIFY2(!QFile::exists(prefsFile), qPrintable(QString("scope %1 wrote").arg(scope)));
        }
        QCOMPARE(zorvikpc_set_proxy(1, "user:8080", 0), 0);
        QCOMPARE(zorvikpc_set_proxy(2, "system:1", 1), -255);
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

    // The stored values as the preferences hold them; a missing "Proxy" is no proxy even
    // when enabled, a missing "ProxyEnabled" reads as false.
    void missingValues_data()
    {
        QTest::addColumn<QVariant>("proxy");
        QTest::addColumn<QVariant>("enabled");
        QTest::addColumn<int>("code");
        QTest::addColumn<unsigned int>("enabledRead");
        QTest::newRow("enabled, no address") << QVariant() << QVariant(true) << -255 << 99u;
        QTest::newRow("empty address") << QVariant("") << QVariant(true) << -255 << 99u;
        QTest::newRow("address, no flag") << QVariant("q:8080") << QVariant() << 0 << 0u;
    }

    void missingValues()
    {
        QFETCH(QVariant, proxy);
        QFETCH(QVariant, enabled);
        QFETCH(int, code);
        QFETCH(unsigned int, enabledRead);
        storeRaw(proxy, enabled);
        const Stored got = getProxy(0);
        QCOMPARE(got.code, code);
        QCOMPARE(got.enabled, enabledRead);
        if (code != 0) {
            const ProxyConfig config = DashboardNetworkManager::readProxySettings();
            QVERIFY(config.host.isEmpty() && config.port.isEmpty() && !config.enabled);
            QCOMPARE(discover(proxy_discover).code, -10);
        }
    }

    // ZORVIK_PROXY wins over the stored setting in discovery (unless it has no ":"), while
    // the Qt side follows only the stored setting.
    void discoveryPrecedence_data()
    {
        QTest::addColumn<QVariant>("env");
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("host");
        QTest::addColumn<QByteArray>("port");
        QTest::addColumn<int>("envCode");
        QTest::addColumn<int>("sysCode");
        // env, stored, enabled; then proxy_discover's code, host, port; the env and stored lookups' codes
        QTest::newRow("env overrides stored") << QVariant("p:3128") << QByteArray("q:8080") << true << 0
                                              << QByteArray("p") << QByteArray("3128") << 0 << 0;
        QTest::newRow("env without colon ignored") << QVariant("p") << QByteArray("q:8080") << true << 0
                                                   << QByteArray("q") << QByteArray("8080") << -255 << 0;
        QTest::newRow("empty env ignored") << QVariant("") << QByteArray("q:8080") << true << 0 << QByteArray("q")
                                           << QByteArray("8080") << -255 << 0;
        QTest::newRow("env despite disabled setting") << QVariant("p:3128") << QByteArray("q:8080") << false << 0
                                                      << QByteArray("p") << QByteArray("3128") << 0 << -255;
        QTest::newRow("stored but disabled") << QVariant() << QByteArray("q:8080") << false << -10 << QByteArray()
                                             << QByteArray() << -255 << -255;
    }

    void discoveryPrecedence()
    {
        QFETCH(QVariant, env);
        QFETCH(QByteArray, stored);
        QFETCH(bool, enabled);
        QFETCH(int, code);
        QFETCH(QByteArray, host);
        QFETCH(QByteArray, port);
        QFETCH(int, envCode);
        QFETCH(int, sysCode);

        QCOMPARE(zorvikpc_set_proxy(1, stored.constData(), enabled), 0);
        if (env.isValid())
            qputenv("ZORVIK_PROXY", env.toByteArray());

        const Found found = discover(proxy_discover);
        QCOMPARE(found.code, code);
        QCOMPARE(found.host, host);
        QCOMPARE(found.port, port);
        QCOMPARE(discover(proxy_discover_env).code, envCode);
        QCOMPARE(discover(proxy_discover_sys).code, sysCode);

        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.enabled, enabled && stored.contains(':'));
        if (stored.contains(':'))
            QCOMPARE(config.host + ":" + config.port, QString::fromLatin1(stored));
        DashboardNetworkManager::SetupProxy(config);
        QCOMPARE(QNetworkProxy::applicationProxy().hostName(), config.enabled ? QString("q") : QString());

        proxy_config_free(nullptr);
        proxy_config empty{nullptr, nullptr, 0};
        proxy_config_free(&empty);
    }

    // The single manager takes the stored proxy with the default type, and none while it
    // is disabled; the installed one carries no credentials.
    void installedProxy()
    {
        QCOMPARE(zorvikpc_set_proxy(1, "q:8080", 0), 0);
        DashboardNetworkManager manager(nullptr);
        manager.UpdateProxy();
        QCOMPARE(manager.proxy().type(), QNetworkProxy::NoProxy);

        const int mark = home.readLog().size();
        QCOMPARE(zorvikpc_set_proxy(1, "q:8080", 1), 0);
        manager.UpdateProxy();
        QCOMPARE(manager.proxy().type(), QNetworkProxy::DefaultProxy);
        QCOMPARE(manager.proxy().hostName() + ":" + QString::number(manager.proxy().port()), QString("q:8080"));
        QVERIFY(logSince(mark).contains("Created QNetworkAccessManager using proxy q:8080"));
        DashboardNetworkManager::SetupProxy(DashboardNetworkManager::readProxySettings());
        const QNetworkProxy installed = QNetworkProxy::applicationProxy();
        QVERIFY(installed.user().isEmpty() && installed.password().isEmpty());
        DashboardNetworkManager::SetupProxy(ProxyConfig());
    }

    // Other keys of the domain survive a write, odd characters round-trip, and a reader
    // running beside a writer only ever sees a complete value.
    void preferencesFile()
    {
        QDir().mkpath(QFileInfo(prefsFile).absolutePath());
        {
            QFile f(prefsFile);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("; written by another component\n[com.zorvik.qvtransport]\nTransportTimeout=30\n"
                    "ProxyEnabled = yes\n");
        }
        QCOMPARE(getProxy(0).code, -255);
        const QByteArray odd = "we=ird;host\\name\t#:80 ";
        QCOMPARE(zorvikpc_set_proxy(1, odd.constData(), 1), 0);
        QCOMPARE(PreferencesStore(kDomain).stringValue("TransportTimeout").value_or("lost"), QString("30"));
        const Stored got = getProxy(1);
        QCOMPARE(got.text, odd);
        QCOMPARE(got.enabled, 1u);
        QCOMPARE(QDir(QFileInfo(prefsFile).absolutePath()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{"com.zorvik.qvtransport.ini"});
    }

    void concurrentReaderSeesWholeValues()
    {
        const QByteArray a = QByteArray(6000, 'a') + ":1111";
        const QByteArray b = QByteArray(9000, 'b') + ":2222";
        QCOMPARE(zorvikpc_set_proxy(1, a.constData(), 1), 0);
        std::atomic<bool> done{false};
        std::atomic<int> writeFailures{0};
        std::unique_ptr<QThread> writer(QThread::create([&] {
            for (int i = 0; i < 300; ++i) {
                if (zorvikpc_set_proxy(1, (i % 2 ? a : b).constData(), i % 2) != 0)
                    ++writeFailures;
            }
            done = true;
        }));
        writer->start();
        int reads = 0;
        QByteArray bad;
        while ((!done || reads < 50) && bad.isEmpty()) {
            const Stored got = getProxy(0);
            if (got.code != 0)
                bad = "read failed with " + QByteArray::number(got.code);
            else if (got.text != a && got.text != b)
                bad = "partial value of " + QByteArray::number(got.text.size()) + " bytes";
            ++reads;
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
