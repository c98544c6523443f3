#include "certificate_storage.h"

#include "cryptoki_interface.h"
#include "log.h"
#include "modal_seam.h"

#include <QInputDialog>
#include <QLineEdit>

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <memory>

CryptokiStorage::CryptokiStorage(QObject* parent) : QThread(parent), requests(new QObject)
{
    working = false;
    qRegisterMetaType<QList<CryptokiStorageItem>>("QList<CryptokiStorageItem>");
    qRegisterMetaType<EVP_PKEY*>("EVP_PKEY*");
    qRegisterMetaType<X509*>("X509*");
    qRegisterMetaType<SecretPtr>("SecretPtr");
    // The requests are queued to an object of the worker thread and reach the interface there;
    // they are wired before the thread starts, so none is asked before anyone listens.
    requests->moveToThread(this);
    connect(this, &CryptokiStorage::getCertificates, requests.get(), [this] { interface->slotGetCertificates(); });
    connect(this, &CryptokiStorage::importCertificate, requests.get(),
            [this](EVP_PKEY* pkey, X509* cert, SecretPtr pin, QString friendlyName) {
                interface->importCertificateAndKeys(pkey, cert, std::move(pin), friendlyName);
            });
    connect(this, &CryptokiStorage::delCertificate, requests.get(),
            [this](const QByteArray& pkcs11id, SecretPtr pin) { interface->removeCertificate(pkcs11id, std::move(pin)); });
    start();
}

CryptokiStorage::~CryptokiStorage()
{
    if (isRunning()) {
        exit(0);
        wait();
    }
}

void CryptokiStorage::run()
{
    CryptokiInterface worker(nullptr);
    connect(&worker, &CryptokiInterface::certificates, this, &CryptokiStorage::slotCertificates);
    connect(&worker, &CryptokiInterface::noTokenFound, this, &CryptokiStorage::slotNoTokenFound);
    connect(&worker, &CryptokiInterface::cannotGetCertificates, this, &CryptokiStorage::slotCannotGetCertificates);
    connect(&worker, &CryptokiInterface::error, this, &CryptokiStorage::slotError);
    connect(&worker, &CryptokiInterface::importFinished, this, &CryptokiStorage::slotImportFinished);
    interface = &worker;
    exec();
    interface = nullptr;
}

void CryptokiStorage::addCertificate(EVP_PKEY* pkey, X509* cert, SecretPtr tokenpassword, QString friendlyName)
{
    emit importCertificate(pkey, cert, std::move(tokenpassword), friendlyName);
}

void CryptokiStorage::removeCertificate(const QByteArray& pkcs11id, SecretPtr tokenpassword)
{
    emit delCertificate(pkcs11id, std::move(tokenpassword));
}

void CryptokiStorage::slotCertificates(QList<CryptokiStorageItem> list)
{
    working = false;
    emit certificates(list);
}

void CryptokiStorage::slotNoTokenFound()
{
    working = false;
    emit noTokenFound();
}

void CryptokiStorage::slotCannotGetCertificates(int code, int tokenStatus)
{
    working = false;
    emit cannotGetCertificates(code, tokenStatus);
}

void CryptokiStorage::slotError(QString message, int index)
{
    working = false;
    emit error(message, index);
}

void CryptokiStorage::slotImportFinished()
{
    emit importFinished();
}

bool CryptokiStorage::askTokenPassword(QWidget* parent, SecretPtr* pin)
{
    QInputDialog dialog(parent);
    dialog.setWindowTitle(tr("Zorvik PIN Request"));
    //: dilaog message
    dialog.setLabelText(tr("Please enter PIN for your Vantrel:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    dialog.resize(280, 180);
    dialog.setWindowFlags(dialog.windowFlags() & ~Qt::WindowContextHelpButtonHint);
    if (parent && parent->metaObject()->indexOfSignal("noToken()") >= 0)
        connect(parent, SIGNAL(noToken()), &dialog, SLOT(reject()));
    SecretBytes::prepare(&dialog);
    const int result = ModalSeam::exec(&dialog);
    *pin = shareSecret(SecretBytes::takeFrom(&dialog));
    return result == QDialog::Accepted;
}

QString CryptokiStorage::getEKU(QByteArray der)
{
    Log::print(Log::DEBUG, "getEKU");
    const auto* p = reinterpret_cast<const unsigned char*>(der.constData());
    std::unique_ptr<X509, decltype(&X509_free)> cert(d2i_X509(nullptr, &p, der.size()), X509_free);
    if (!cert)
        return tr("Invalid certificate");
    std::unique_ptr<EXTENDED_KEY_USAGE, decltype(&EXTENDED_KEY_USAGE_free)> eku(
        static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(cert.get(), NID_ext_key_usage, nullptr, nullptr)),
        EXTENDED_KEY_USAGE_free);
    if (!eku)
        return tr("Invalid certificate");
    QStringList names;
    for (int i = 0; i < sk_ASN1_OBJECT_num(eku.get()); ++i) {
        char buf[256];
        OBJ_obj2txt(buf, sizeof buf, sk_ASN1_OBJECT_value(eku.get(), i), 0);
        names << QString::fromLatin1(buf);
    }
    return names.join(';');
}
