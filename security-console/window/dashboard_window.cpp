#include "dashboard_window.h"

#include "single_application.h"
#include "log.h"
#include "log_manager.h"

#include <QApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QTabWidget>

DashboardWindow::DashboardWindow(QWidget* parent) : QMainWindow(parent), logManager(new LogManager(this))
{
    Log::print(Log::DEBUG, "DashboardWindow begin init");
    restartRequested = false;
    QCoreApplication::setOrganizationName("ZORVIK");
    QCoreApplication::setOrganizationDomain("zorvik.com");
    QCoreApplication::setApplicationName("Dashboard");
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setWindowTitle(tr("%2 version %1 %3").arg("3.4.375", "Zorvik Dashboard", ""));
    setCentralWidget(new QTabWidget(this));
    resize(640, 480);
    logRotate();
    Log::print(Log::DEBUG, "DashboardWindow end init");
}

DashboardWindow::~DashboardWindow()
{
    logManager->wait();
}

void DashboardWindow::slotRaise()
{
    Log::print(Log::DEBUG, "Dashboard window raised");
    if (isVisible())
        return;
    Log::print(Log::DEBUG, "Raising Dashboard");
    showWindow();
    slotRefresh();
}

void DashboardWindow::showWindow()
{
    Log::print(Log::DEBUG, "showWindow");
    if (QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->geometry().center() - rect().center());
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void DashboardWindow::slotRefresh()
{
    Log::print(Log::DEBUG, "Dashboard window refreshed");
}

void DashboardWindow::slotExit()
{
    QCoreApplication::quit();
}

void DashboardWindow::slotQuit()
{
    Log::print(Log::DEBUG, "DashboardWindow::slotQuit - wait for service threads");
    if (auto* app = qobject_cast<SingleApplication*>(QCoreApplication::instance()))
        app->detach();
    hide();
    Log::print(Log::DEBUG, "DashboardWindow::slotQuit END");
}

void DashboardWindow::checkForRestart() {}

void DashboardWindow::updateApplications() {}

void DashboardWindow::logRotate()
{
    Log::print(Log::DEBUG, "Starting log rotate manager");
    if (!logManager->isRunning())
        logManager->start();
    else
        Log::print(Log::ERR, "Can't start log rotate manager, process already running");
}
