#pragma once

#include <QImage>
#include <QString>
#include <QThread>

// The smartphone token: a thread whose event loop owns the SmartphoneInterface worker. The
// GUI thread drives the worker through this object's signals and hears back through them.
class SmartphoneTokenManager : public QThread
{
    Q_OBJECT
public:
    explicit SmartphoneTokenManager(QObject* parent = nullptr);
    ~SmartphoneTokenManager() override;

    void init();
    int getSmartphoneTokenStatus() const { return status; }
    QString getSmartphoneStatusString() const;
    // The text as a 200x200 one-bit QR code image (red when it cannot be encoded).
    QImage drawQRImage(QString text) const;

signals:
    void getStatus();
    void getProxy();
    void statusUpdated();
    void proxyUri(QString uri);
    void signalStopPairing();
    void signalEjectToken();
    void signalStartPairing();
    void signalConfirmPairing(int code);
    void uiRequestDHConfirmation(int code, QString data);
    void donePairing();
    void pairingError();

public slots:
    void onChanged(int code, QString name, QString text);
    void onProxyResult(QString uri);
    void onRequestDHConfirmation(int code, QString data);
    void onPairingError();

protected:
    void run() override;

private:
    int status = 0;
    QString deviceName;
    QString statusText;
};
