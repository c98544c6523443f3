#pragma once

#include <QString>
#include <QStringList>
#include <QThread>

#include <winscard.h>

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
// every round runs on the thread that created the object (the GUI thread).
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
};

// The name of a key-removal action: 1 "disconnect", 2 "logoff", 3 "disconnectAll".
QString strRemoval(int action);

// A PC/SC result code as the log shows it: signed 32-bit, base 16 (0x8010002E -> -7fefffd2).
QString scardResultText(LONG result);
