#include "dashboard_gui.h"
#include "log.h"
#include "os_platform.h"
#include "worker_threads.h"

#include <QDir>
#include <QStyle>

#include <cstdio>
#include <cstdlib>
#include <exception>

int main(int argc, char** argv)
{
    QDir libDir(QString::fromLocal8Bit(argv[0]));
    Log::print(Log::WARNING, "libdir:");
    Log::print(Log::WARNING, libDir.absolutePath());
    QDir pluginDir(libDir);
    pluginDir.cd("../..");
    const QString plugins = QDir(pluginDir.absolutePath() + "/PlugIns").absolutePath();
    Log::print(Log::WARNING, plugins);
    QCoreApplication::addLibraryPath(plugins);

    Q_INIT_RESOURCE(dashboard);

    Log::setLog(OsPlatform::userLogPath(), Log::DEBUG, 3145728);
    qInstallMessageHandler(Log::messageHandler);

    const bool exitCommand = argc >= 2 && QString::fromLocal8Bit(argv[1]) == "--exit";
    if (exitCommand)
        OsPlatform::prepareWindowlessRun();
    int result = 1;
    auto* app = new DashboardGUI(argc, argv);
    try {
        if (app->style()->objectName() != "gtk+")
            initGTK();
        if (exitCommand) {
            result = app->closeApplication();
        } else {
            Log::print(Log::DEBUG, "Prepare to start Dashboard");
            if (app->isAppRunning()) {
                Log::print(Log::WARNING, "ZORVIK Dashboard instance found");
                result = 1;
            } else {
                app->initMainWindow();
                result = app->exec();
            }
        }
    } catch (const std::exception& e) {
        Log::print(Log::ERR, "Main exception:");
        Log::print(Log::ERR, QString::fromLocal8Bit(e.what()));
        result = 1;
    } catch (...) {
        Log::print(Log::ERR, "Main exception: unknown");
        result = 1;
    }
    delete app;
    // A worker that did not stop at quit is still running: end before the static
    // destructors of the libraries it uses.
    if (WorkerThreads::anyLeftRunning()) {
        std::fflush(nullptr);
        std::_Exit(result);
    }
    return result;
}
