// The process, environment and file helpers with real child programs and real files.
#include "process_helpers.h"
#include "shell_common.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {

TestHome* gHome = nullptr;

// Lines of this process's log that were written after `mark` characters.
QStringList logSince(int mark)
{
    return shell::strippedLines(gHome->readLog().mid(mark));
}

int logMark()
{
    return gHome->readLog().size();
}

} // namespace

class TestProcessHelpers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    // Running programs.
    void programPathWithBlanks_data();
    void programPathWithBlanks();
    void argumentsSplitHonouringQuotes();
    void exitCodesAndOutput();
    void outputIsDiscardedAndInputClosed();
    void noCardsEnvironment_data();
    void noCardsEnvironment();
    void adminCommandsRunNothingElevated();

    // Environment, files, formatting.
    void envVar();
    void checkPaths();
    void hexlifyAndSleep();

private:
    QTemporaryDir tmp;
    QString spacedDir;
    QString tool;

    QString script(const QString& name, const QByteArray& body);
};

QString TestProcessHelpers::script(const QString& name, const QByteArray& body)
{
    const QString path = spacedDir + "/" + name;
    if (!writeFile(path, "#!/bin/sh\n" + body))
        return QString();
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return path;
}

void TestProcessHelpers::initTestCase()
{
    QVERIFY(tmp.isValid());
    spacedDir = tmp.path() + "/My App/bin";
    QVERIFY(QDir().mkpath(spacedDir));
    // Prints each argument on its own line, exits with the code given in $EXIT_WITH.
    tool = script("tool", "for a in \"$@\"; do echo \"[$a]\"; done\nexit ${EXIT_WITH:-0}\n");
    QVERIFY(!tool.isEmpty());
}

void TestProcessHelpers::programPathWithBlanks_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("logged");
    const QString quoted = "\"" + spacedDir + "/tool\"";
    QTest::newRow("bare") << spacedDir + "/tool" << quoted;
    QTest::newRow("surrounding blanks") << "  " + spacedDir + "/tool  " << quoted;
    QTest::newRow("already quoted") << quoted << quoted;
}

void TestProcessHelpers::programPathWithBlanks()
{
    QFETCH(QString, program);
    QFETCH(QString, logged);
    qputenv("EXIT_WITH", "7");
    const int mark = logMark();
    QCOMPARE(executeCommand(program, "  one two  ", false), 7);
    QStringList lines = logSince(mark);
    QVERIFY2(lines.contains("DEBUG dashboard: executeCommand " + logged + " one two"), qPrintable(lines.join('\n')));
    QVERIFY(lines.contains("DEBUG dashboard: done executeCommand " + logged + " exit code 7"));

    const int mark2 = logMark();
    QCOMPARE(executeCommandWithOutput(program, "one two", false), QString("[one]\n[two]\n"));
    lines = logSince(mark2);
    QVERIFY(lines.contains("DEBUG dashboard: executeCommandWithOutput " + logged + " one two"));
    QVERIFY(lines.contains("DEBUG dashboard: done executeCommandWithOutput " + logged + " exit code 7 output size: 12"));
    qunsetenv("EXIT_WITH");
}

void TestProcessHelpers::argumentsSplitHonouringQuotes()
{
    // No shell: quotes group, and shell syntax arrives as plain text.
    QCOMPARE(executeCommandWithOutput(tool, "\"a b\" c $HOME ; | *", false),
             QString("[a b]\n[c]\n[$HOME]\n[;]\n[|]\n[*]\n"));
    QCOMPARE(executeCommandWithOutput(tool, "", false), QString(""));
}

void TestProcessHelpers::exitCodesAndOutput()
{
    QCOMPARE(executeCommand(script("exit-3", "exit 3\n"), "", false), 3);
    // A crash cannot be told from success, by design.
    QCOMPARE(executeCommand(script("crash", "kill -SEGV $$\n"), "", false), 0);
    const QString path = script("nul", "printf 'before\\000after'\n");
    QCOMPARE(executeCommandWithOutput(path, "", false), QString("before"));
    const QString utf8 = script("utf8", "printf 'Z\\303\\274rich\\n'\n");
    QCOMPARE(executeCommandWithOutput(utf8, "", false), QString::fromUtf8("Zürich\n"));

    // A program that cannot be started gives no text at all, and 0 as exit code.
    const QString missing = tmp.path() + "/no such program";
    QVERIFY(executeCommandWithOutput(missing, "", false).isNull());
    QCOMPARE(executeCommand(missing, "x", false), 0);
}

void TestProcessHelpers::outputIsDiscardedAndInputClosed()
{
    // Far more output than a pipe holds, on both channels, and a read of standard input:
    // the child must neither block on a full pipe nor wait for input.
    const QString noisy = script("noisy", "head -c 4000000 /dev/zero\n"
                                          "head -c 4000000 /dev/zero >&2\n"
                                          "cat > \"$1\"\nexit 4\n");
    const QString got = tmp.path() + "/stdin-was";
    QCOMPARE(executeCommand(noisy, "\"" + got + "\"", false), 4);
    QVERIFY(QFile::exists(got));
    QCOMPARE(QFileInfo(got).size(), 0);

    const QString big = script("big", "head -c 3000000 /dev/zero | tr '\\0' 'x'\nhead -c 100000 /dev/zero >&2\n");
    QCOMPARE(executeCommandWithOutput(big, "", false).size(), 3000000);
}

void TestProcessHelpers::noCardsEnvironment_data()
{
    QTest::addColumn<bool>("noCards");
    QTest::addColumn<QString>("expected");
    QTest::newRow("asked") << true << "cards=1 gui=1 mark=kept\n";
    QTest::newRow("not asked") << false << "cards=unset gui=unset mark=kept\n";
}

void TestProcessHelpers::noCardsEnvironment()
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

void TestProcessHelpers::adminCommandsRunNothingElevated()
{
    const QString flag = tmp.path() + "/admin-ran";
    const QString touch = script("touch-flag", "touch \"$1\"\nexit 9\n");
    QCOMPARE(executeAdminCommand("\"" + touch + "\" \"" + flag + "\""), 0);
    QVERIFY(!QFile::exists(flag));
    QCOMPARE(executeAdminCommandWithOutput(tool, "x"), QString("[x]\n"));
}

void TestProcessHelpers::envVar()
{
    // Unset: a null text and no line; set, even empty: the value and one line.
    qunsetenv("SHELL_TEST_UNSET");
    qputenv("SHELL_TEST_EMPTY", "");
    qputenv("SHELL_TEST_SET", "a value");
    const int mark = logMark();
    QVERIFY(getEnvVar("SHELL_TEST_UNSET").isNull());
    const QString empty = getEnvVar("SHELL_TEST_EMPTY");
    QVERIFY(!empty.isNull() && empty.isEmpty());
    QCOMPARE(getEnvVar("SHELL_TEST_SET"), QString("a value"));
    QCOMPARE(logSince(mark), QStringList({"DEBUG dashboard: getEnvVar SHELL_TEST_EMPTY=",
                                          "DEBUG dashboard: getEnvVar SHELL_TEST_SET=a value"}));
}

void TestProcessHelpers::checkPaths()
{
    const QString file = tmp.path() + "/readable";
    QVERIFY(writeFile(file, "x"));
    // Blanks around a path are not part of it.
    QVERIFY(checkDir("  " + tmp.path() + "  "));
    QVERIFY(!checkDir(file));
    QVERIFY(!checkDir(tmp.path() + "/missing"));
    QVERIFY(::checkFile(" " + file + "\t"));
    QVERIFY(!::checkFile(tmp.path()));
    QVERIFY(!::checkFile(tmp.path() + "/missing"));
    QVERIFY(gHome->readLog().contains("DEBUG dashboard: checking path:  " + tmp.path() + "  \n"));
}

void TestProcessHelpers::hexlifyAndSleep()
{
    QCOMPARE(::hexlify(QByteArray()), QString());
    QCOMPARE(::hexlify(QByteArray(1, '\0')), QString("00"));
    QCOMPARE(::hexlify(QByteArray("\x01\xab\xff", 3)), QString("01:AB:FF"));
    // These must come back: a negative time must not turn into an endless sleep.
    for (int ms : {0, -5, -1000, 1})
        MySleep(ms);
}

SHELL_TEST_MAIN(TestProcessHelpers)

#include "tst_process_helpers.moc"
