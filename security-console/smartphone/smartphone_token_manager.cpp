#include "smartphone_token_manager.h"

#include "log.h"
#include "smartphone_interface.h"

#include <QPainter>
#include <qrencode.h>

#include <memory>

namespace {

constexpr int kQrSize = 200;

struct QrCodeDeleter
{
    void operator()(QRcode* code) const { QRcode_free(code); }
};

} // namespace

SmartphoneTokenManager::SmartphoneTokenManager(QObject* parent) : QThread(parent) {}

SmartphoneTokenManager::~SmartphoneTokenManager()
{
    quit();
    wait();
}

void SmartphoneTokenManager::init()
{
    statusText = SmartphoneInterface::stringStatus(SmartphoneInterface::NoDriver, QString());
    start(QThread::InheritPriority);
}

QString SmartphoneTokenManager::getSmartphoneStatusString() const
{
    Log::print(Log::DEBUG, "Smartphone: " + statusText);
    return statusText;
}

void SmartphoneTokenManager::run()
{
    Log::print(Log::DEBUG, "SmartphoneTokenManager::run");
    SmartphoneInterface worker;
    connect(this, &SmartphoneTokenManager::getStatus, &worker, &SmartphoneInterface::slotGetStatus);
    connect(this, &SmartphoneTokenManager::getProxy, &worker, &SmartphoneInterface::slotGetProxy);
    connect(this, &SmartphoneTokenManager::signalStopPairing, &worker, &SmartphoneInterface::slotStopPairing);
    connect(this, &SmartphoneTokenManager::signalEjectToken, &worker, &SmartphoneInterface::slotEjectToken);
    connect(&worker, &SmartphoneInterface::statusChanged, this, &SmartphoneTokenManager::onChanged);
    connect(&worker, &SmartphoneInterface::proxyResult, this, &SmartphoneTokenManager::onProxyResult);
    connect(this, &SmartphoneTokenManager::signalStartPairing, &worker, &SmartphoneInterface::slotStartPairing);
    connect(this, &SmartphoneTokenManager::signalConfirmPairing, &worker, &SmartphoneInterface::slotConfirmPairing);
    connect(&worker, &SmartphoneInterface::requestDHConfirmation, this,
            &SmartphoneTokenManager::onRequestDHConfirmation);
    connect(&worker, &SmartphoneInterface::pairingError, this, &SmartphoneTokenManager::onPairingError);
    exec();
    worker.disconnectDevice();
}

void SmartphoneTokenManager::onChanged(int code, QString name, QString text)
{
    status = code;
    deviceName = name;
    statusText = text;
    Log::print(Log::DEBUG, "SmartphoneTokenManager::onChanged: = " + text);
    emit statusUpdated();
}

void SmartphoneTokenManager::onProxyResult(QString uri)
{
    emit proxyUri(uri);
}

void SmartphoneTokenManager::onRequestDHConfirmation(int code, QString data)
{
    emit donePairing();
    emit uiRequestDHConfirmation(code, data);
}

void SmartphoneTokenManager::onPairingError()
{
    emit pairingError();
}

QImage SmartphoneTokenManager::drawQRImage(QString text) const
{
    QImage image(kQrSize, kQrSize, QImage::Format_Mono);
    const QRect all(QPoint(0, 0), QPoint(kQrSize - 1, kQrSize - 1));
    const QByteArray utf8 = text.toUtf8();
    std::unique_ptr<QRcode, QrCodeDeleter> code(QRcode_encodeString(utf8.constData(), 0, QR_ECLEVEL_L, QR_MODE_8, 1));
    QPainter painter(&image);
    if (!code) {
        painter.fillRect(all, QColor("red"));
        Log::print(Log::DEBUG, "QR FAIL");
    } else {
        painter.setPen(Qt::NoPen);
        painter.fillRect(all, QColor("white"));
        painter.setBrush(QColor("black"));
        const int width = code->width;
        const int side = qMax(1, kQrSize / qMax(1, width));
        for (int row = 0; row < width; ++row)
            for (int column = 0; column < width; ++column)
                if (code->data[row * width + column] & 1)
                    painter.drawRect(column * side, row * side, side, side);
    }
    painter.end();
    return image;
}
