// The stored proxy setting end to end without a network: the preferences file, the C
// functions the transport components use, and the Qt proxy the program installs from it.
#include "dashboard_network_manager.h"
#include "mac_roman.h"
#include "preferences_store.h"
#include "test_support.h"
#include "zorvik_proxy.h"

#include <QDir>
#include <QNetworkProxy>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cstring>
#include <memory>

namespace {

const char* const kDomain = "com.zorvik.qvtransport";
char* const kUntouched = reinterpret_cast<char*>(0x1);

// zorvikpc_get_proxy as "code|text|enabled"; on failure the out values must stay untouched.
QByteArray getProxy(int scope)
{
    char* raw = kUntouched;
    unsigned int enabled = 99;
    const int code = zorvikpc_get_proxy(scope, &raw, &enabled);
    const QByteArray text =
        code == 0 ? QByteArray(raw) : QByteArray(raw == kUntouched ? "" : "<out pointer was changed>");
    if (code == 0)
        std::free(raw);
    return QByteArray::number(code) + '|' + text + '|' + QByteArray::number(enabled);
}

// A discovery as "code|host|port" (host and port must share one buffer); the record is released here.
QByteArray discover(int (*fn)(void*, proxy_config*) = proxy_discover)
{
    proxy_config config{kUntouched, kUntouched, 7};
    const QByteArray code = QByteArray::number(fn(nullptr, &config));
    if (code != "0")
        return config.host || config.port ? QByteArray("<record not cleared>") : code;
    const bool oneBuffer = config.port == config.host + std::strlen(config.host) + 1 && config.reserved == 0;
    const QByteArray found = oneBuffer ? code + '|' + QByteArray(config.host) + '|' + QByteArray(config.port)
                                       : QByteArray("<not one buffer>");
    proxy_config_free(&config);
    return found;
}

} // namespace

class TestProxySettings : public QObject
{
    Q_OBJECT

    TestHome home;
    QString prefsFile;

private slots:
    void initTestCase()
    {
        home.apply();
        prefsFile = PreferencesStore(kDomain).filePath();
        QVERIFY(prefsFile.startsWith(home.path() + "/") && prefsFile.endsWith("/zorvik/com.zorvik.qvtransport.ini"));
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
        QTest::addColumn<QByteArray>("read");
        QTest::newRow("euro") << QVariant(QString::fromUtf8("€:1")) << QVariant(true) << QByteArray("0|\xDB:1|1");
        QTest::newRow("no Mac Roman") << QVariant(QString::fromUtf8("¤:80")) << QVariant(true)
                                      << QByteArray("-255||99");
        QTest::newRow("enabled, no address") << QVariant() << QVariant(true) << QByteArray("-255||99");
        QTest::newRow("empty address") << QVariant("") << QVariant(true) << QByteArray("-255||99");
        QTest::newRow("address, no flag") << QVariant("q:8080") << QVariant() << QByteArray("0|q:8080|0");
    }

    void storedValues()
    {
        QFETCH(QVariant, proxy);
        QFETCH(QVariant, enabled);
        QFETCH(QByteArray, read);
        {
            PreferencesStore store(kDomain);
            if (proxy.isValid())
                store.setString("Proxy", proxy.toString());
            if (enabled.isValid())
                store.setBool("ProxyEnabled", enabled.toBool());
            QVERIFY(store.synchronize());
        }
        QCOMPARE(getProxy(0), read);
        if (!read.startsWith("0|")) {
            const ProxyConfig config = DashboardNetworkManager::readProxySettings();
            QVERIFY(config.host.isEmpty() && config.port.isEmpty() && !config.enabled);
            QCOMPARE(discover(), QByteArray("-10"));
        }
    }

    // How a stored address is split: at the first ":" by the C functions, at every ":" by
    // the Qt side, which takes the first two pieces. Latin-1 bytes pass as they are.
    void addressRules_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("cFound");
        QTest::addColumn<QString>("qtFound"); // host|port, empty when the Qt side has none
        QTest::newRow("host and port") << QByteArray("proxy.lan:3128") << QByteArray("0|proxy.lan|3128")
                                       << "proxy.lan|3128";
        QTest::newRow("no colon") << QByteArray("proxy.lan") << QByteArray("-10") << "";
        QTest::newRow("three pieces") << QByteArray("h:80:x") << QByteArray("0|h|80:x") << "h|80";
        QTest::newRow("latin-1") << QByteArray("h\xE4st:8080") << QByteArray("0|h\xE4st|8080")
                                 << QString::fromUtf8("häst|8080");
    }

    void addressRules()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, qtFound);
        QCOMPARE(zorvikpc_set_proxy(1, stored.constData(), 1), 0);
        QTEST(discover(), "cFound");
        const ProxyConfig config = DashboardNetworkManager::readProxySettings();
        QCOMPARE(config.enabled ? config.host + "|" + config.port : QString(), qtFound);
        DashboardNetworkManager::SetupProxy(config);
        const QNetworkProxy installed = QNetworkProxy::applicationProxy();
        QCOMPARE(installed.type(), qtFound.isEmpty() ? QNetworkProxy::NoProxy : QNetworkProxy::HttpProxy);
        QCOMPARE(installed.port(), qtFound.section('|', 1).toUShort());
    }

    // Reading accepts scopes 0 and 1, writing only 1; a refused write changes nothing.
    void scopes()
    {
        for (int scope : {0, 2})
            QCOMPARE(zorvikpc_set_proxy(scope, "refused:1", 1), -255);
        QVERIFY(!QFile::exists(prefsFile));
        QCOMPARE(zorvikpc_set_proxy(1, "user:8080", 0), 0);
        QCOMPARE(getProxy(0) + getProxy(1), QByteArray("0|user:8080|00|user:8080|0"));
        QCOMPARE(getProxy(2) + getProxy(-1), QByteArray("-255||99-255||99"));
        QCOMPARE(zorvikpc_set_proxy(1, nullptr, 1), -255);
        QCOMPARE(zorvikpc_get_proxy(0, nullptr, nullptr), -255);
    }

    // ZORVIK_PROXY wins over the stored setting in discovery (unless it has no ":"), while
    // the Qt side follows only the stored setting, "q:8080" here.
    void discoveryPrecedence_data()
    {
        QTest::addColumn<QVariant>("env");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<QByteArray>("found"); // discovery, then from the environment, then the stored one
        QTest::newRow("env overrides stored") << QVariant("p:3128") << true << QByteArray("0|p|3128 0 0");
        QTest::newRow("env without colon ignored") << QVariant("p") << true << QByteArray("0|q|8080 -255 0");
        QTest::newRow("env despite disabled setting") << QVariant("p:3128") << false << QByteArray("0|p|3128 0 -255");
        QTest::newRow("stored but disabled") << QVariant() << false << QByteArray("-10 -255 -255");
    }

    void discoveryPrecedence()
    {
        QFETCH(QVariant, env);
        QFETCH(bool, enabled);
        QCOMPARE(zorvikpc_set_proxy(1, "q:8080", enabled), 0);
        if (env.isValid())
            qputenv("ZORVIK_PROXY", env.toByteArray());
        QTEST(discover() + ' ' + discover(proxy_discover_env).split('|').first() + ' ' +
                  discover(proxy_discover_sys).split('|').first(),
              "found");
        // The single manager takes the stored proxy with the default type, and none while disabled.
        DashboardNetworkManager manager(nullptr);
        manager.UpdateProxy();
        QCOMPARE(manager.proxy().type(), enabled ? QNetworkProxy::DefaultProxy : QNetworkProxy::NoProxy);
        QCOMPARE(manager.proxy().hostName() + ":" + QString::number(manager.proxy().port()),
                 QString(enabled ? "q:8080" : ":0"));
        proxy_config_free(nullptr);
    }

    // Other keys of the domain survive a write, odd characters round-trip, no temporary file
    // is left, and a reader running beside a writer only ever sees a complete value.
    void preferencesFile()
    {
        QVERIFY(writeFile(prefsFile, "; written by another component\n[com.zorvik.qvtransport]\n"
                                     "TransportTimeout=30\nProxyEnabled = yes\n"));
        QCOMPARE(getProxy(0), QByteArray("-255||99"));
        const QByteArray odd = "we=ird;host\\name\t#:80 ";
        QCOMPARE(zorvikpc_set_proxy(1, odd.constData(), 1), 0);
        QCOMPARE(PreferencesStore(kDomain).stringValue("TransportTimeout").value_or("lost"), QString("30"));
        QCOMPARE(getProxy(1), "0|" + odd + "|1");
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
            const QByteArray read = getProxy(0);
            const QByteArray text = read.left(read.lastIndexOf('|'));
            if (text != "0|" + a && text != "0|" + b)
                bad = "read " + read.left(40) + "..., " + QByteArray::number(read.size()) + " bytes";
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
        const ProxyConfig config = PAC();
        qunsetenv("https_proxy");
        QVERIFY(config.host.isEmpty() && config.port.isEmpty() && !config.enabled);
        QVERIFY(home.readLog().contains("PAC Proxy: 10.9.8.7:3128"));
    }
};

QTEST_GUILESS_MAIN(TestProxySettings)
#include "tst_proxy_settings.moc"
