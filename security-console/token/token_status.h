#pragma once

#include <QList>
#include <QSslError>
#include <QString>
#include <QThread>

class QNetworkAccessManager;

// Finds out in which state the inserted key is: first from the key itself (run(), on this
// object's thread), then, for an active key, from the key service after the key has
// authenticated a one-time ticket (on the main thread).
class TokenStatus : public QThread
{
    Q_OBJECT
public:
    explicit TokenStatus(QObject* parent = nullptr);
    ~TokenStatus() override;

    QString atr;
    QString statusText;
    qint32 infoStatus = -1;
    qint32 tokenStatus = -1;
    QString keyType;
    QString keyTitle;
    bool busy = false;
    qint32 networkType = 0;
    QString authMessage;
    qint32 ksResult = 200;
    QNetworkAccessManager* networkManager = nullptr;
    void* guiInstance = nullptr;
    QString ticket;

    // Starts a status query; false (and nothing started) while one is in progress. `busy`
    // is read and written on this object's own thread (the GUI thread) only: it is set here
    // and cleared once the key-reading thread has ended and no key-service stage follows,
    // or when the key-service stage ends (except after a transport failure of the ticket
    // request, which leaves it set on purpose).
    bool startQuery();

    QString strTokenStatus();
    static QString strNetworkType(int type);
    static QString verboseTokenType(QString type);
    static QString verboseTokenPrepersonalization(int status);
    // Key status code of the first key found, or 0.
    static int getStatusFromToken();

    void terminateKSRequest();
    void cleanup();
    void requestTokenStatusFromKS(int code);

signals:
    void infoSCReady();
    void infoKSReady();
    void infoKSCanceled(QString reason);
    void beginKSsession();

public slots:
    void requestKSTicket();
    void requestKSTicket_reply();
    void getTokenStatusFromKS_reply();
    void slotSSLErrors(const QList<QSslError>& errors);

protected:
    void run() override;

private:
    void keyReadFinished();
    void updateBusy();

    bool reading = false;      // the key-reading thread of a query has not ended yet
    bool serviceStage = false; // the key-service stage of a query is under way
};

void tiket_authorization_callback(int code, const char* text, void* context);
