// Where the program keeps its own settings: one file beside the other per-user settings,
// and the file an earlier version wrote taken over once, never lost.
#include "os_platform.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

class TestSettingsPlaces : public QObject
{
    Q_OBJECT

    QTemporaryDir home;

    void writeConf(const QString& dir, bool showAll)
    {
        QSettings(home.path() + "/" + dir + "/Dashboard.conf", QSettings::IniFormat).setValue("showAllPKCS", showAll);
    }
    bool showAllNow()
    {
        const std::unique_ptr<QSettings> settings(OsPlatform::applicationSettings(nullptr));
        return settings->value("showAllPKCS", false).toBool();
    }

private slots:
    void init()
    {
        QVERIFY(home.isValid());
        for (const QString& dir : QDir(home.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            QVERIFY(QDir(home.path() + "/" + dir).removeRecursively());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
    }

    void earlierPlacesTakenOverOnce_data()
    {
        QTest::addColumn<QString>("earlier");
        QTest::addColumn<bool>("current");
        QTest::addColumn<bool>("expected");
        QTest::newRow("no earlier file") << QString() << false << false;
        QTest::newRow("application settings of earlier versions") << "Zorvik" << false << true;
        QTest::newRow("file named after the application's organisation") << "ZORVIK" << false << true;
        QTest::newRow("current file wins") << "Zorvik" << true << false;
    }
    void earlierPlacesTakenOverOnce()
    {
        QFETCH(QString, earlier);
        QFETCH(bool, current);
        QFETCH(bool, expected);
        if (!earlier.isEmpty())
            writeConf(earlier, true);
        if (current)
            writeConf("zorvik", false);
        QCOMPARE(showAllNow(), expected);
        // Kept in the one configuration directory, next to the proxy preferences.
        QVERIFY(QFileInfo::exists(OsPlatform::configDir() + "/Dashboard.conf") || !expected);
        QCOMPARE(OsPlatform::configDir(), home.path() + "/zorvik");
        // Read once: what the earlier file says later is not taken again.
        if (!earlier.isEmpty())
            writeConf(earlier, !expected);
        QCOMPARE(showAllNow(), expected);
        if (!earlier.isEmpty())
            QVERIFY(QFileInfo::exists(home.path() + "/" + earlier + "/Dashboard.conf"));
    }
};

QTEST_GUILESS_MAIN(TestSettingsPlaces)
#include "tst_settings_places.moc"
