// Where the program keeps its own settings: one file beside the other per-user settings,
// and the file an earlier version wrote taken over once, never lost.
#include "os_platform.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

class TestSettingsPlaces : public QObject
{
    Q_OBJECT

private slots:
    void earlierPlacesTakenOverOnce_data()
    {
        QTest::addColumn<QString>("earlier");
        QTest::newRow("application settings of earlier versions") << "Zorvik";
        QTest::newRow("file named after the application's organisation") << "ZORVIK";
    }
    void earlierPlacesTakenOverOnce()
    {
        QFETCH(QString, earlier);
        QTemporaryDir home;
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
        const QString earlierFile = home.path() + "/" + earlier + "/Dashboard.conf";
        const auto showAll = [] {
            return std::unique_ptr<QSettings>(OsPlatform::applicationSettings(nullptr))->value("showAllPKCS", false);
        };
        QCOMPARE(showAll(), QVariant(false));
        QSettings(earlierFile, QSettings::IniFormat).setValue("showAllPKCS", true);
        QCOMPARE(showAll().toBool(), true);
        QVERIFY(QFile::exists(home.path() + "/zorvik/Dashboard.conf"));
        // Taken once: the new file holds from now on, and the earlier one is left as it was.
        QSettings(earlierFile, QSettings::IniFormat).setValue("showAllPKCS", false);
        QCOMPARE(showAll().toBool(), true);
        QVERIFY(QFile::exists(earlierFile));
    }
};

QTEST_GUILESS_MAIN(TestSettingsPlaces)
#include "tst_settings_places.moc"
