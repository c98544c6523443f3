#pragma once

#include <QString>
#include <QStringList>
#include <QThread>

#include <winscard.h>

#include <atomic>

// A PC/SC context that releases itself. `get()` is 0 until established.
class ScardContextHandle
{
public:
    ScardContextHandle() = default;
    ~ScardContextHandle() { release(); }
    ScardContextHandle(const ScardContextHandle&) = delete;
    ScardContextHandle& operator=(const ScardContextHandle&) = delete;

    LONG establish();
    bool isValid() const;
    void release();
    SCARDCONTEXT get() const { return handle; }

private:
    SCARDCONTEXT handle = 0;
};

// Watches the smart-card service twice a second: whether it answers, which readers are
// attached, and whether a key is in any of them. The thread only keeps the 500 ms clock;
// every round runs on the thread that created the object (the GUI thread). The rounds run
// are counted: the log gets the count every 7200 rounds (an hour at 500 ms) and at the end.
class DashboardTokenInfo : public QThread
{
    Q_OBJECT
public:
    explicit DashboardTokenInfo(QObject* parent = nullptr);
    ~DashboardTokenInfo() override;

    // One scan: reader names (the virtual reader left out) and whether a key is present.
    bool getReadersAndTokens(QStringList& readers, bool& tokenPresent);
    void on_noToken();

    int removalAction = 0;
    bool tokenSeen = false;
    void* reserved = nullptr;
    ScardContextHandle context;
    bool scardErrorReported = false;
    int missCount = 0;
    quint64 rounds = 0;

signals:
    void tokenFound();
    void readersFound(const QStringList& readers);
    void noTokenFound();
    void SmartCardError();
    void SmartCardNoError();

public slots:
    void search();

protected:
    void run() override;

private:
    // A round asked of the object's thread and not yet run: the clock asks for no other
    // meanwhile, so a busy or blocked GUI thread gets one round when it is free, not a
    // backlog of them piling up in its event queue.
    std::atomic<bool> roundPending{false};
};

// The name of a key-removal action: 1 "disconnect", 2 "logoff", 3 "disconnectAll".
QString strRemoval(int action);

// A PC/SC result code as the log shows it: signed 32-bit, base 16 (0x8010002E -> -7fefffd2).
QString scardResultText(LONG result);
