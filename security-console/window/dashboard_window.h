#pragma once

#include <QMainWindow>

class LogManager;

// The one window of the program and the hub that owns and wires every worker.
class DashboardWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit DashboardWindow(QWidget* parent = nullptr);
    ~DashboardWindow() override;

    bool tokenPresent = false;
    bool readerPresent = false;
    bool updateAvailable = false;
    bool scardError = false;
    bool restartRequested = false;

public slots:
    void slotRaise();
    void slotQuit();
    void slotExit();
    void showWindow();
    void slotRefresh();
    void checkForRestart();
    void updateApplications();
    void logRotate();

private:
    LogManager* logManager = nullptr;
};
