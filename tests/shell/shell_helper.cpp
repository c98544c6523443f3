// A small child process for the shell tests. It runs in the environment the test gives it,
// so the logger's path rules and the abort of the message handler can be seen from outside.
//
//   shell_helper params                  prints the logger's parameters 3, 4 and 7
//   shell_helper lines <n> <tag>         logs "<tag> <i>" for i = 0 .. n-1 through Log::print
//   shell_helper component <name> <text> logs <text> as component <name> and as the dashboard,
//                                        prints the two return codes
//   shell_helper messages                routes Qt messages into the log, ends with a qInfo
#include "log.h"
#include "qvlogger.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int usage()
{
    std::fprintf(stderr, "usage: shell_helper params | lines <n> <tag> | component <name> <text> | messages\n");
    return 2;
}

void printParam(const char* name, int param)
{
    const char* value = qvlogger_get_param(param);
    std::printf("%s=%s\n", name, value ? value : "(null)");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage();
    const QByteArray mode = argv[1];

    if (mode == "params") {
        printParam("user", QVLOGGER_PARAM_USER_LOG_PATH);
        printParam("system", QVLOGGER_PARAM_SYSTEM_LOG_PATH);
        printParam("other", 7);
        return 0;
    }
    if (mode == "lines" && argc == 4) {
        const int n = std::atoi(argv[2]);
        const QString tag = QString::fromLocal8Bit(argv[3]);
        for (int i = 0; i < n; ++i)
            Log::print(Log::DEBUG, QString("%1 %2").arg(tag).arg(i));
        return 0;
    }
    if (mode == "component" && argc == 4) {
        const int own = qvlogger_log(QVLOGGER_NOTICE, argv[2], "%s", argv[3]);
        const int dashboard = qvlogger_logw(QVLOGGER_NOTICE, "dashboard", L"%s", argv[3]);
        std::printf("component=%d dashboard=%d\n", own, dashboard);
        return 0;
    }
    if (mode == "messages") {
        qInstallMessageHandler(Log::messageHandler);
        qDebug("debug line %d", 1);
        qWarning("warning line %d", 2);
        qCritical("critical line %d", 3);
        qInfo("info line %d", 4);
        // Never reached: an informational message ends the process.
        Log::print(Log::DEBUG, "still running after qInfo");
        return 0;
    }
    return usage();
}
