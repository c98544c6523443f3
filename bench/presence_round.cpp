// DashboardTokenInfo::search() rounds, called back to back on this thread.
//   presence_round ROUNDS   prints "rounds=N wall_us=W cpu_us=C present=P"
#include "dashboard_token_info.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>

static double cpuUs()
{
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1e6 + ru.ru_utime.tv_usec + ru.ru_stime.tv_usec;
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 400;
    DashboardTokenInfo info;
    int present = 0;
    int failed = 0;
    QObject::connect(&info, &DashboardTokenInfo::tokenFound, &info, [&] { present = 1; });
    QObject::connect(&info, &DashboardTokenInfo::readersFound, &info, [&] { present = 0; });
    QObject::connect(&info, &DashboardTokenInfo::SmartCardError, &info, [&] { failed = 1; });
    // The clock's own rounds are queued to this thread and never delivered here: no event
    // loop runs while measuring.
    for (int i = 0; i < 5 && rounds > 0; ++i)
        info.search();
    QElapsedTimer wall;
    const double c0 = cpuUs();
    wall.start();
    for (int i = 0; i < rounds; ++i)
        info.search();
    const double w = wall.nsecsElapsed() / 1e3;
    const double c1 = cpuUs();
    std::printf("rounds=%d wall_us=%.0f cpu_us=%.0f present=%d\n", rounds, w, c1 - c0, failed ? -1 : present);
    return failed ? 1 : 0;
}
