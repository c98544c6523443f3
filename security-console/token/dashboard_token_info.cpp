#include "dashboard_token_info.h"

#include "log.h"
#include "os_platform.h"

#include <reader_names.h>

#include <QTimer>

#include <cstring>

namespace {
const char* const kVirtualReader = "Zorvik Virtual Card Reader";
const int kReaderNamesSize = 1024;
const int kMaxReaders = 10;
const DWORD kStatusTimeoutMs = 1000;
const quint64 kRoundsPerLogLine = 7200;
} // namespace

LONG ScardContextHandle::establish()
{
    release();
    SCARDCONTEXT h = 0;
    const LONG rv = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &h);
    if (rv == SCARD_S_SUCCESS)
        handle = h;
    return rv;
}

bool ScardContextHandle::isValid() const
{
    return handle != 0 && SCardIsValidContext(handle) == SCARD_S_SUCCESS;
}

void ScardContextHandle::release()
{
    if (handle != 0) {
        SCardReleaseContext(handle);
        handle = 0;
    }
}

QString strRemoval(int action)
{
    switch (action) {
    case 1:
        return "disconnect";
    case 2:
        return "logoff";
    case 3:
        return "disconnectAll";
    default:
        return QString();
    }
}

QString scardResultText(LONG result)
{
    // pcsc-lite's LONG is 64 bits wide here; the codes are 32-bit values. Qt prints a
    // negative number in base 16 as its unsigned 64-bit pattern, so the sign goes by hand.
    const qint64 code = static_cast<qint32>(static_cast<quint32>(result));
    return code < 0 ? "-" + QString::number(-code, 16) : QString::number(code, 16);
}

DashboardTokenInfo::DashboardTokenInfo(QObject* parent) : QThread(parent)
{
    start();
}

DashboardTokenInfo::~DashboardTokenInfo()
{
    if (isRunning()) {
        exit(0);
        wait();
    }
    if (context.isValid())
        context.release();
    Log::print(Log::DEBUG, QString("Reader polling stopped after %1 rounds").arg(rounds));
}

void DashboardTokenInfo::run()
{
    // The timer lives in this thread; its rounds are delivered to the object's own thread.
    auto* timer = new QTimer();
    connect(timer, &QTimer::timeout, timer, [this] {
        if (!roundPending.exchange(true))
            QMetaObject::invokeMethod(this, &DashboardTokenInfo::search, Qt::QueuedConnection);
    });
    timer->start(OsPlatform::readerPollingIntervalMs());
    exec();
    delete timer;
}

bool DashboardTokenInfo::getReadersAndTokens(QStringList& readers, bool& tokenPresent)
{
    static char readerNames[kReaderNamesSize];

    tokenPresent = false;
    readers.clear();

    if (context.isValid())
        context.release();
    LONG rv = context.establish();
    if (rv != SCARD_S_SUCCESS) {
        Log::print(Log::DEBUG, QString("Cannot establish scard context, result %1").arg(scardResultText(rv)));
        return false;
    }

    DWORD readerNamesLen = kReaderNamesSize;
    rv = SCardListReaders(context.get(), nullptr, readerNames, &readerNamesLen);
    if (rv != SCARD_S_SUCCESS || readerNamesLen == 0) {
        Log::print(Log::DEBUG, QString("Cannot list readers, status=%1, readerNamesLen=%2")
                                   .arg(scardResultText(rv))
                                   .arg(static_cast<qulonglong>(readerNamesLen)));
        return false;
    }

    std::vector<std::string> names =
        zorvik_platform::readerNames(readerNames, qMin<size_t>(readerNamesLen, kReaderNamesSize));
    if (names.size() > static_cast<size_t>(kMaxReaders))
        names.resize(kMaxReaders);
    for (const std::string& rawName : names) {
        const QString name = QString::fromStdString(rawName);
        // The smartphone's virtual reader is examined but never shown as a reader.
        if (name.indexOf(kVirtualReader) != 0)
            readers.append(name);

        if (!tokenPresent) {
            SCARD_READERSTATE state;
            std::memset(&state, 0, sizeof state);
            state.szReader = rawName.c_str();
            state.pvUserData = nullptr;
            state.dwCurrentState = SCARD_STATE_UNAWARE;
            state.dwEventState = SCARD_STATE_UNKNOWN;
            state.cbAtr = 0;
            rv = SCardGetStatusChange(context.get(), kStatusTimeoutMs, &state, 1);
            if (rv != SCARD_S_SUCCESS) {
                Log::print(Log::DEBUG, QString("Cannot get reader %1 status %2").arg(name, scardResultText(rv)));
            } else if (state.dwEventState & SCARD_STATE_PRESENT) {
                tokenPresent = true;
            }
        }
    }
    return true;
}

void DashboardTokenInfo::search()
{
    roundPending = false;
    if (++rounds % kRoundsPerLogLine == 0)
        Log::print(Log::DEBUG, QString("Reader polling: %1 rounds").arg(rounds));
    QStringList readers;
    bool tokenPresent = false;
    if (getReadersAndTokens(readers, tokenPresent)) {
        if (scardErrorReported) {
            scardErrorReported = false;
            emit SmartCardNoError();
        }
    } else {
        Log::print(Log::DEBUG, "Cannot get readers info");
        if (!scardErrorReported) {
            scardErrorReported = true;
            emit SmartCardError();
        }
    }

    if (tokenPresent) {
        missCount = 0;
        tokenSeen = true;
        emit tokenFound();
    } else if (!readers.isEmpty()) {
        emit readersFound(readers);
        if (tokenSeen && removalAction != 0)
            on_noToken();
    } else {
        emit noTokenFound();
        if (tokenSeen && removalAction != 0)
            on_noToken();
    }
}

void DashboardTokenInfo::on_noToken()
{
    Log::print(Log::DEBUG, "on_noToken ");
}
