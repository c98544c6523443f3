// The process, environment, file and settings helpers with real child programs and real files.
#include "os_platform.h"
#include "process_helpers.h"
#include "shell_common.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

TestHome* gHome = nullptr;

} // namespace

class TestProcessHelpers : public QObject
{
    Q_OBJECT

    QTemporaryDir tmp;
    QString spacedDir;
    QString tool;

    QString script(const QString& name, const QByteArray& body)
    {
        const QString path = spacedDir + "/" + name;
        if (!writeFile(path, "#!/bin/sh\n" + body))
            return QString();
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        return path;
    }
    // This process's log lines written after `mark` characters.
    static QStringList logSince(int mark) { return shell::strippedLines(gHome->readLog().mid(mark)); }

private slots:
    void initTestCase()
    {
        spacedDir = tmp.path() + "/My App/bin";
        QVERIFY(QDir().mkpath(spacedDir));
        // Prints each argument on its own line, exits with the code given in $EXIT_WITH.
        tool = script("tool", "for a in \"$@\"; do echo \"[$a]\"; done\nexit ${EXIT_WITH:-0}\n");
        QVERIFY(!tool.isEmpty());
    }

    void programPathWithBlanks_data()
    {
        QTest::addColumn<QString>("program");
        const QString quoted = "\"" + spacedDir + "/tool\"";
        QTest::newRow("bare") << spacedDir + "/tool";
        QTest::newRow("surrounding blanks") << "  " + spacedDir + "/tool  ";
        QTest::newRow("already quoted") << quoted;
    }
    void programPathWithBlanks()
    {
        QFETCH(QString, program);
        const QString logged = "\"" + spacedDir + "/tool\"";
        qputenv("EXIT_WITH", "7");
        const int mark = gHome->readLog().size();
        QCOMPARE(executeCommand(program, "  one two  ", false), 7);
        QCOMPARE(executeCommandWithOutput(program, "one two", false), QString("[one]\n[two]\n"));
        qunsetenv("EXIT_WITH");
        QCOMPARE(logSince(mark), QStringList({"DEBUG dashboard: executeCommand " + logged + " one two",
                                              "DEBUG dashboard: done executeCommand " + logged + " exit code 7",
                                              "DEBUG dashboard: executeCommandWithOutput " + logged + " one two",
                                              "DEBUG dashboard: done executeCommandWithOutput " + logged +
                                                  " exit code 7 output size: 12"}));
    }

    void argumentsExitCodesAndOutput()
    {
        // No shell: quotes group, and shell syntax arrives as plain text.
        QCOMPARE(executeCommandWithOutput(tool, "\"a b\" c $HOME ; | *", false),
                 QString("[a b]\n[c]\n[$HOME]\n[;]\n[|]\n[*]\n"));
        QCOMPARE(executeCommandWithOutput(tool, "", false), QString(""));
        QCOMPARE(executeCommand(script("exit-3", "exit 3\n"), "", false), 3);
        // A crash cannot be told from success, by design.
        QCOMPARE(executeCommand(script("crash", "kill -SEGV $$\n"), "", false), 0);
        QCOMPARE(executeCommandWithOutput(script("nul", "printf 'before\\000after'\n"), "", false), QString("before"));
        QCOMPARE(executeCommandWithOutput(script("utf8", "printf 'Z\\303\\274rich\\n'\n"), "", false),
                 QString::fromUtf8("Zürich\n"));
        // A program that cannot be started gives no text at all, and 0 as exit code.
        const QString missing = tmp.path() + "/no such program";
        QVERIFY(executeCommandWithOutput(missing, "", false).isNull());
        QCOMPARE(executeCommand(missing, "x", false), 0);
    }

    void outputIsDiscardedAndInputClosed()
    {
        // Far more output than a pipe holds, on both channels, and a read of standard input:
        // the child must neither block on a full pipe nor wait for input.
        const QString noisy = script("noisy", "head -c 4000000 /dev/zero\nhead -c 4000000 /dev/zero >&2\n"
                                              "cat > \"$1\"\nexit 4\n");
        const QString got = tmp.path() + "/stdin-was";
        QCOMPARE(executeCommand(noisy, "\"" + got + "\"", false), 4);
        QVERIFY(QFile::exists(got) && QFileInfo(got).size() == 0);
        const QString big = script("big", "head -c 3000000 /dev/zero | tr '\\0' 'x'\nhead -c 100000 /dev/zero >&2\n");
        QCOMPARE(executeCommandWithOutput(big, "", false).size(), 3000000);
    }

    void noCardsEnvironment_data()
    {
        QTest::addColumn<bool>("noCards");
        QTest::addColumn<QString>("expected");
        QTest::newRow("asked") << true << "cards=1 gui=1 mark=kept\n";
        QTest::newRow("not asked") << false << "cards=unset gui=unset mark=kept\n";
    }
    void noCardsEnvironment()
    {
        QFETCH(bool, noCards);
        QFETCH(QString, expected);
        qunsetenv("ZORVIK_CRYPTOKI_NO_CARDS");
        qunsetenv("ZORVIK_CRYPTOKI_NO_GUI");
        qputenv("SHELL_TEST_MARK", "kept");
        const QString env = script("env", "echo \"cards=${ZORVIK_CRYPTOKI_NO_CARDS-unset} "
                                          "gui=${ZORVIK_CRYPTOKI_NO_GUI-unset} mark=${SHELL_TEST_MARK-unset}\"\n"
                                          "[ \"${ZORVIK_CRYPTOKI_NO_CARDS-}\" = 1 ] && exit 10\nexit 20\n");
        QCOMPARE(executeCommandWithOutput(env, "", noCards), expected);
        QCOMPARE(executeCommand(env, "", noCards), noCards ? 10 : 20);
        QCOMPARE(executeAdminCommandWithOutput(env, ""), QString("cards=unset gui=unset mark=kept\n"));
        // This process's own environment is untouched.
        QVERIFY(!qEnvironmentVariableIsSet("ZORVIK_CRYPTOKI_NO_CARDS"));
    }

    void adminCommandsRunNothingElevated()
    {
        const QString flag = tmp.path() + "/admin-ran";
        QCOMPARE(executeAdminCommand("\"" + script("touch-flag", "touch \"$1\"\nexit 9\n") + "\" \"" + flag + "\""), 0);
        QVERIFY(!QFile::exists(flag));
    }

    void envVarPathsHexlifyAndSleep()
    {
        // Unset: a null text and no line; set, even empty: the value and one line.
        qunsetenv("SHELL_TEST_UNSET");
        qputenv("SHELL_TEST_EMPTY", "");
        qputenv("SHELL_TEST_SET", "a value");
        const int mark = gHome->readLog().size();
        QVERIFY(getEnvVar("SHELL_TEST_UNSET").isNull());
        const QString empty = getEnvVar("SHELL_TEST_EMPTY");
        QVERIFY(!empty.isNull() && empty.isEmpty());
        QCOMPARE(getEnvVar("SHELL_TEST_SET"), QString("a value"));
        QCOMPARE(logSince(mark), QStringList({"DEBUG dashboard: getEnvVar SHELL_TEST_EMPTY=",
                                              "DEBUG dashboard: getEnvVar SHELL_TEST_SET=a value"}));

        // Blanks around a path are not part of it.
        const QString file = tmp.path() + "/readable";
        QVERIFY(writeFile(file, "x"));
        QVERIFY(checkDir("  " + tmp.path() + "  "));
        QVERIFY(!checkDir(file) && !checkDir(tmp.path() + "/missing"));
        QVERIFY(::checkFile(" " + file + "\t"));
        QVERIFY(!::checkFile(tmp.path()) && !::checkFile(tmp.path() + "/missing"));
        QVERIFY(gHome->readLog().contains("DEBUG dashboard: checking path:  " + tmp.path() + "  \n"));

        QCOMPARE(::hexlify(QByteArray()), QString());
        QCOMPARE(::hexlify(QByteArray("\x00\xab\xff", 3)), QString("00:AB:FF"));
        // These must come back: a negative time must not turn into an endless sleep.
        for (int ms : {0, -5, -1000, 1})
            MySleep(ms);
    }

    // The program's settings: one file beside the other per-user settings, and the file an
    // earlier version wrote taken over once, never lost.
    void earlierSettingsTakenOverOnce_data()
    {
        QTest::addColumn<QString>("earlier");
        QTest::newRow("application settings of earlier versions") << "Zorvik";
        QTest::newRow("file named after the application's organisation") << "ZORVIK";
    }
    void earlierSettingsTakenOverOnce()
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

SHELL_TEST_MAIN(TestProcessHelpers)

#include "tst_process_helpers.moc"
