#pragma once

#include <QObject>
#include <QString>

#include <memory>

class VReader;

// The smartphone worker: polls the virtual reader, reports a status code with its text, runs
// the Diffie-Hellman pairing (discovery, confirmation code, approval), ejects the virtual
// card and obtains the proxy ticket. It lives on SmartphoneTokenManager's thread.
class SmartphoneInterface : public QObject
{
    Q_OBJECT
public:
    enum Status { NoDriver = 0, NoDevice = 1, DeviceConnected = 2, Pairing = 3 };

    explicit SmartphoneInterface(QObject* parent = nullptr);
    ~SmartphoneInterface() override;

    static QString stringStatus(int status, QString name);

    void connectDevice();
    void disconnectDevice();
    int getDeviceStatus();

public slots:
    void slotGetStatus();
    void slotGetProxy();
    void slotStopPairing();
    void slotEjectToken();
    void slotStartPairing();
    void slotConfirmPairing(int code);

signals:
    void statusChanged(int status, QString name, QString text);
    void proxyResult(QString uri);
    void signalDeviceConnected(VReader* reader);
    void pairingError();
    void requestDHConfirmation(int code, QString data);

private:
    bool haveReader();
    void endPairing();

    std::unique_ptr<VReader> reader;
    int status = NoDriver;
    bool pairingStarted = false;
};
