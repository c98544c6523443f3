#include "certificate_details_dialog.h"

#include "ui_certificate_details_dialog.h"

#include "certificate_storage.h"
#include "log.h"
#include "process_helpers.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QHideEvent>
#include <QProcess>
#include <QSslCertificateExtension>

#include <algorithm>

namespace {
const QString kValue = "<span style=\"font-size: 10pt\">%1</span>";

void setValue(QLabel* label, const QString& text)
{
    label->setText(kValue.arg(text.toHtmlEscaped()));
}
} // namespace

CertificateDetailsDialog::CertificateDetailsDialog(const QByteArray& pkcs11id, const QString& label,
                                                   const QSslCertificate& certificate, QWidget* parent)
    : QDialog(parent), ui(new Ui::CertificateDetailsDialog), der(certificate.toDer())
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->inspectButton->hide();
    connect(ui->inspectButton, &QPushButton::clicked, this, &CertificateDetailsDialog::viewNativeButton);

    const QString type = isCertValid(certificate)
                             ? QCoreApplication::translate("Certificate info", "X509 Certificate")
                             : QCoreApplication::translate("Certificate info", "X509 Certificate <strong>[Invalid]</strong>");
    ui->typeLabel->setText(kValue.arg(type));
    setValue(ui->pkcs11IDLabel, hexlify(pkcs11id));
    setValue(ui->pkcs11Label, label);
    setValue(ui->ownerCNLabel, certificate.subjectInfo(QSslCertificate::CommonName).join(", "));
    setValue(ui->ownerOLabel, certificate.subjectInfo(QSslCertificate::Organization).join(", "));
    setValue(ui->ownerOULabel, certificate.subjectInfo(QSslCertificate::OrganizationalUnitName).join(", "));
    setValue(ui->ownerSNLabel, QString::fromLatin1(certificate.serialNumber()).toUpper());
    setValue(ui->issuerCNLabel, certificate.issuerInfo(QSslCertificate::CommonName).join(", "));
    setValue(ui->issuerOLabel, certificate.issuerInfo(QSslCertificate::Organization).join(", "));
    setValue(ui->issuerOULabel, certificate.issuerInfo(QSslCertificate::OrganizationalUnitName).join(", "));
    setValue(ui->issuedOnLabel, certificate.effectiveDate().toString("dd-MMM-yyyy"));
    setValue(ui->expiresOnLabel, certificate.expiryDate().toString("dd-MMM-yyyy"));
    setValue(ui->sha1Label, hexlify(certificate.digest(QCryptographicHash::Sha1)));
    setValue(ui->md5Label, hexlify(certificate.digest(QCryptographicHash::Md5)));
    // QMultiMap::values() gives the entries of a key newest first: turn them back into the
    // certificate's own order.
    const auto san = certificate.subjectAlternativeNames();
    QStringList names = san.values(QSsl::EmailEntry);
    std::reverse(names.begin(), names.end());
    QStringList dnsNames = san.values(QSsl::DnsEntry);
    std::reverse(dnsNames.begin(), dnsNames.end());
    names += dnsNames;
    setValue(ui->SANLabel, names.join(";"));
    setValue(ui->EKU_label, CryptokiStorage::getEKU(der));
    resize(sizeHint());
}

CertificateDetailsDialog::~CertificateDetailsDialog()
{
    delete ui;
}

void CertificateDetailsDialog::viewNativeButton()
{
    Log::print(Log::DEBUG, "CertificateDetailsDialog::viewNativeButton()");
    tempPath = QDir::homePath() + QDir::separator() + "temp.cer";
    QFile file(tempPath);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(der);
        file.close();
    }
    // No certificate viewer is configured on this platform.
    QProcess::execute(QString(), {});
}

void CertificateDetailsDialog::hideEvent(QHideEvent* event)
{
    if (!tempPath.isEmpty())
        QFile::remove(tempPath);
    event->accept();
}
