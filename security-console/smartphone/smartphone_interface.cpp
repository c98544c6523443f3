#include "smartphone_interface.h"

#include "log.h"
#include "vreader.h"

#include <QByteArray>

namespace {

constexpr unsigned kDiscoverySeconds = 300;
constexpr unsigned kPairingSeconds = 299;
constexpr unsigned kProxySeconds = 300;
constexpr unsigned char kPairingInProgress = 1;
constexpr unsigned char kPairingReady = 2;

void debug(const QString& text)
{
    Log::print(Log::DEBUG, text);
}

QString hexCode(LONG rv)
{
    return QString::number(static_cast<quint32>(rv), 16);
}

} // namespace

SmartphoneInterface::SmartphoneInterface(QObject* parent) : QObject(parent) {}

SmartphoneInterface::~SmartphoneInterface() = default;

QString SmartphoneInterface::stringStatus(int status, QString name)
{
    switch (status) {
    case NoDriver:
        return tr("Smartphone driver not found");
    case NoDevice:
        return tr("No mobile device is connected");
    case DeviceConnected:
        return tr("\"%1\" is connected").arg(name.isEmpty() ? tr("Unknown device") : name);
    case Pairing:
        return tr("Pairing in process");
    default:
        return tr("Unknown status %1").arg(status);
    }
}

void SmartphoneInterface::connectDevice()
{
    debug("SmartphoneInterface::connectDevice");
    bool inserted = false;
    if (reader && reader->open() == SCARD_S_SUCCESS && reader->isInserted(inserted) == SCARD_S_SUCCESS)
        return;
    std::vector<VReader*> readers = VReader::getReaders();
    if (!readers.empty()) {
        reader = std::make_unique<VReader>(*readers.front());
        if (reader->open() == SCARD_S_SUCCESS)
            emit signalDeviceConnected(reader.get());
    }
    VReader::freeReaders(readers);
}

void SmartphoneInterface::disconnectDevice()
{
    reader.reset();
}

bool SmartphoneInterface::haveReader()
{
    if (reader)
        return true;
    debug("No Smartphone driver");
    return false;
}

// A pairing that ended (approved, refused, cancelled or failed) is not looked at again.
void SmartphoneInterface::endPairing()
{
    pairingStarted = false;
}

int SmartphoneInterface::getDeviceStatus()
{
    if (status == NoDriver)
        connectDevice();
    if (!reader)
        return NoDriver;

    bool inserted = false;
    LONG rv = reader->isInserted(inserted);
    if (rv != SCARD_S_SUCCESS) {
        debug(QString("Smartphone Token Device error. isInserted returns %1").arg(hexCode(rv)));
        disconnectDevice();
        return NoDriver;
    }
    if (inserted)
        return DeviceConnected;

    bool enabled = false;
    rv = reader->isPairingEnabled(enabled);
    if (rv != SCARD_S_SUCCESS) {
        debug(QString("Smartphone Token Device error. isPairingEnabled returns %1").arg(hexCode(rv)));
        disconnectDevice();
        return NoDriver;
    }
    if (!pairingStarted)
        return enabled ? Pairing : NoDevice;

    unsigned char state = 0;
    unsigned code = 0;
    std::string data;
    if (reader->getDHPairingInfo(state, code, data) != SCARD_S_SUCCESS) {
        reader->stopPairing();
        reader->disableDiscovery();
        endPairing();
        disconnectDevice();
        return NoDriver;
    }
    if (state == kPairingInProgress)
        return Pairing;
    if (state == kPairingReady) {
        emit requestDHConfirmation(static_cast<int>(code), QString::fromUtf8(data.data(), int(data.size())));
        return Pairing;
    }
    reader->stopPairing();
    reader->disableDiscovery();
    endPairing();
    emit pairingError();
    debug("SmartphoneInterface::getDeviceStatus DH Pairing ended");
    return NoDevice;
}

void SmartphoneInterface::slotGetStatus()
{
    const int current = getDeviceStatus();
    if (current == status)
        return;
    QString name;
    if (current == DeviceConnected) {
        // A fresh connection to the phone's card, then its name.
        reader->close();
        reader->open();
        std::string deviceName, model;
        reader->getDeviceName(deviceName, model);
        name = QString::fromUtf8(deviceName.data(), int(deviceName.size()));
        if (name.isEmpty())
            name = tr("Unknown device");
    }
    status = current;
    const QString text = stringStatus(status, name);
    debug(text);
    emit statusChanged(status, name, text);
}

void SmartphoneInterface::slotStartPairing()
{
    debug("SmartphoneInterface::slotStartPairing DH");
    connectDevice();
    if (!reader) {
        debug("No Smartphone driver");
        emit pairingError();
        return;
    }
    LONG rv = reader->enableDiscovery(kDiscoverySeconds);
    if (rv != SCARD_S_SUCCESS) {
        debug(QString("startPairng enableDiscovery failed result = %1").arg(rv));
        emit pairingError();
        return;
    }
    rv = reader->startDHPairing(kPairingSeconds);
    if (rv == SCARD_S_SUCCESS) {
        pairingStarted = true;
        return;
    }
    debug(QString("startPairng doDHPairing failed result = %1").arg(rv));
    reader->disableDiscovery();
    debug(QString("startPairng enableDiscovery failed result = %1").arg(rv));
    emit pairingError();
}

void SmartphoneInterface::slotConfirmPairing(int code)
{
    debug("SmartphoneInterface::slotConfirmPairing");
    if (!haveReader())
        return;
    endPairing();
    LONG rv = reader->approveDHPairing(static_cast<unsigned>(code));
    if (rv == SCARD_S_SUCCESS) {
        rv = reader->disableDiscovery();
        if (rv != SCARD_S_SUCCESS)
            debug(QString("ERROR: disableDiscovery failed! result = %1").arg(rv));
        return;
    }
    debug(QString("ERROR: confirmPairing failed! result = %1").arg(rv));
    reader->disableDiscovery();
    emit pairingError();
}

void SmartphoneInterface::slotStopPairing()
{
    debug("SmartphoneInterface::slotCancelPairing");
    if (!haveReader())
        return;
    endPairing();
    const LONG rv = reader->stopPairing();
    if (rv != SCARD_S_SUCCESS)
        debug(QString("ERROR: stopPairing failed! result = %1").arg(rv));
}

void SmartphoneInterface::slotEjectToken()
{
    debug("SmartphoneInterface::slotEjectToken");
    if (!haveReader())
        return;
    debug("Eject Token");
    const LONG rv = reader->eject();
    if (rv != SCARD_S_SUCCESS)
        debug(QString("ERROR: Eject failed! result = %1").arg(rv));
}

void SmartphoneInterface::slotGetProxy()
{
    connectDevice();
    if (!haveReader())
        return;
    std::string ticket;
    const LONG rv = reader->requestProxyChannel(kProxySeconds, ticket);
    if (rv != SCARD_S_SUCCESS) {
        debug(QString("ERROR: requestProxyChannel failed! result = %1").arg(rv));
        return;
    }
    QByteArray encoded = QByteArray(ticket.data(), int(ticket.size())).toBase64();
    encoded.replace('+', '-').replace('/', '.').replace('=', '_');
    emit proxyResult(QStringLiteral("zorvikkey://proxy?ticket=") + QString::fromLatin1(encoded));
}
