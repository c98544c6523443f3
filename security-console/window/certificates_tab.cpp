// The Certificates tab: lists the key's certificates (and, on request, its key pairs and
// empty containers), opens their details, deletes them and imports PKCS#12 files.
#include "dashboard_window.h"

#include "ui_dashboard_window.h"

#include "certificate_details_dialog.h"
#include "certificate_storage.h"
#include "cryptoki_interface.h"
#include "log.h"
#include "modal_seam.h"
#include "process_helpers.h"
#include "rsa_key_details_dialog.h"

#include <QDateTime>
#include <QDir>
#include <QLayout>
#include <QMessageBox>

namespace {

const QString kNameLink =
    "<a style=\"color: #1d86c7; text-decoration: none; font-size: 11pt\"href=\"cert-details-%1\">%2</a>";
const QString kIssuerLink =
    "<a style=\"color: #1d86c7; text-decoration: none; font-size: 10pt\"href=\"cert-details-%1\">%2</a>";
const QString kPlainText = "<span style=\"font-size: 10pt\">%1</span>";
const QString kWarningText = "<span style=\"color: #bb0000; font-size: 10pt\">%1</span>";
const QString kDeleteLink = "<a href='%1'><img src=':/Icons/images/small-trash.png'/></a>";

// Subject common names, or the label when they are blank.
QString displayName(const CryptokiStorageItem& item)
{
    if (item.type == CryptokiStorageItem::Certificate) {
        const QString names = item.certificate.subjectInfo(QSslCertificate::CommonName).join(", ");
        if (!names.trimmed().isEmpty())
            return names;
    }
    return item.label;
}

// deleteLater: even when no handler of ours runs, a label may still be on the stack below us.
void releaseRows(QList<QLabel*>& retired)
{
    for (QLabel* label : qAsConst(retired))
        label->deleteLater();
    retired.clear();
}

// Marks the run of a row's link handler; retired rows go when the outermost one ends.
class RowHandler
{
public:
    RowHandler(int& depth, QList<QLabel*>& retired) : depth(depth), retired(retired) { ++depth; }
    ~RowHandler()
    {
        if (--depth == 0)
            releaseRows(retired);
    }
    RowHandler(const RowHandler&) = delete;
    RowHandler& operator=(const RowHandler&) = delete;

private:
    int& depth;
    QList<QLabel*>& retired;
};

} // namespace

void DashboardWindow::requestListing()
{
    ui->stackedWidget->setCurrentIndex(1);
    emit cryptokiStorage->getCertificates();
    cryptokiStorage->working = true;
}

void DashboardWindow::updateCertificates()
{
    Log::print(Log::DEBUG, "Updating certificates");
    if (tokenPresent && !isHidden()) {
        requestListing();
        ui->stackedWidget->setCursor(Qt::WaitCursor);
    }
}

void DashboardWindow::clearCertificateRows()
{
    const QList<QPair<QString, QWidget*>> columns = {{"certName", ui->certNameWidget},
                                                     {"issuedBy", ui->certIssuedByWidget},
                                                     {"expireDate", ui->certExpireDateWidget},
                                                     {"certRemove", ui->certRemoveWidget}};
    for (QLabel* label : qAsConst(certificateRows)) {
        label->hide();
        for (const auto& column : columns)
            if (label->objectName().startsWith(column.first))
                column.second->layout()->removeWidget(label);
        // A new listing can arrive while one of these labels is still inside its own
        // linkActivated (a details dialog or a deletion box runs its own event loop): it
        // is deleted only once that handler has returned. Its name goes now, so nothing
        // finds the stale row.
        label->disconnect(this);
        label->setObjectName(QString());
        retiredCertificateRows << label;
    }
    certificateRows.clear();
    if (certificateRowHandlers == 0)
        releaseRows(retiredCertificateRows);
}

void DashboardWindow::certificateInfo(QList<CryptokiStorageItem> list)
{
    // A listing that ends after the key has gone describes a key that is no longer there:
    // the tab stays on its no-key page instead of showing stale rows.
    if (!tokenPresent) {
        Log::print(Log::DEBUG, "Certificate listing ended after the key was removed; dropped");
        clearCertificateRows();
        certificateNoToken();
        return;
    }
    certificateItems = list;
    haveCertificateList = true;
    certificateCount = list.size();
    Log::print(Log::DEBUG, QString("cert count %1").arg(certificateCount));
    const QDateTime now = QDateTime::currentDateTime();
    clearCertificateRows();

    auto addRow = [this](QWidget* column, const QString& name, const QString& text,
                         Qt::Alignment alignment = Qt::Alignment()) {
        auto* label = new QLabel(this);
        label->setObjectName(name);
        label->setTextFormat(Qt::RichText);
        label->setText(text);
        if (alignment)
            label->setAlignment(alignment);
        column->layout()->addWidget(label);
        certificateRows << label;
        return label;
    };

    for (int i = 0; i < list.size(); ++i) {
        const CryptokiStorageItem& item = list.at(i);
        if (!ui->showAllPKCSCheckBox->isChecked() && item.type != CryptokiStorageItem::Certificate)
            continue;
        const QString index = QString::number(i);

        QString name;
        if (item.type == CryptokiStorageItem::RsaKeyPair)
            name = kNameLink.arg(index, item.label.toHtmlEscaped());
        else if (item.type == CryptokiStorageItem::Empty)
            name = kPlainText.arg("Empty container");
        else if (!isCertValid(item.certificate))
            name = kNameLink.arg(index, QCoreApplication::translate("Certificate info", "Invalid Certificate"));
        else
            name = kNameLink.arg(index, displayName(item).toHtmlEscaped());
        connect(addRow(ui->certNameWidget, "certNameLabel" + index, name), &QLabel::linkActivated, this,
                &DashboardWindow::slotCertificateActivated);

        QString issuer;
        if (item.type == CryptokiStorageItem::Certificate)
            issuer = kIssuerLink.arg(
                index, item.certificate.issuerInfo(QSslCertificate::CommonName).join(", ").toHtmlEscaped());
        else if (item.type == CryptokiStorageItem::RsaKeyPair)
            issuer = kIssuerLink.arg(index, QString("RSA Keypair (%1 bit)").arg(item.RSALength()));
        connect(addRow(ui->certIssuedByWidget, "issuedByLabel" + index, issuer), &QLabel::linkActivated, this,
                &DashboardWindow::slotCertificateActivated);

        QString expiry = kPlainText.arg("N/A");
        if (item.type == CryptokiStorageItem::Certificate) {
            const QDateTime expires = item.certificate.expiryDate();
            const QString text = now < expires ? expires.toString("dd-MMM-yyyy") : QString("EXPIRED");
            expiry = (expires < now.addMonths(1) ? kWarningText : kPlainText).arg(text);
        }
        addRow(ui->certExpireDateWidget, "expireDateLabel" + index, expiry);

        connect(addRow(ui->certRemoveWidget, "certRemoveLabel" + index, kDeleteLink.arg(index),
                       Qt::AlignHCenter),
                &QLabel::linkActivated, this, &DashboardWindow::slotCertificateDelete);
    }
    ui->stackedWidget->setCurrentIndex(2);
    ui->stackedWidget->unsetCursor();
}

void DashboardWindow::slotCertificateActivated(QString link)
{
    const RowHandler running(certificateRowHandlers, retiredCertificateRows);
    assertion(link.contains("cert-details-"), __LINE__);
    const int index = link.mid(link.indexOf("cert-details-") + int(strlen("cert-details-"))).toInt();
    if (index < 0 || index >= certificateItems.size())
        return;
    const CryptokiStorageItem item = certificateItems.at(index);
    if (item.type == CryptokiStorageItem::RsaKeyPair) {
        RsaKeyDetailsDialog dialog(item.pkcs11id, item.label, item.modulus, item.exponent, this);
        ModalSeam::exec(&dialog);
    } else {
        CertificateDetailsDialog dialog(item.pkcs11id, item.label, item.certificate, this);
        ModalSeam::exec(&dialog);
    }
}

void DashboardWindow::slotCertificateDelete(QString link)
{
    const RowHandler running(certificateRowHandlers, retiredCertificateRows);
    Log::print(Log::DEBUG, "slotCertificateDelete link=" + link);
    const int index = link.toInt();
    if (index < 0 || index >= certificateItems.size())
        return;
    const CryptokiStorageItem item = certificateItems.at(index);

    QMessageBox box;
    box.setIcon(QMessageBox::Warning); // the deletion cannot be undone
    box.setWindowTitle(tr("Confirm %1 deletion").arg(item.typeName()));
    box.setText(tr("Are you sure you want to delete:"));
    box.setInformativeText(
        tr("%1\n\nYou will not be able to identify yourself with this %2 once it has been deleted.")
            .arg(displayName(item), item.typeName()));
    box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    connect(this, &DashboardWindow::noToken, &box, &QMessageBox::reject);
    if (ModalSeam::exec(&box) != QMessageBox::Ok)
        return;

    SecretPtr pin;
    const bool accepted = CryptokiStorage::askTokenPassword(this, &pin);
    if (accepted && pin->isEmpty())
        certificateError("Incorrect password", 2);
    else if (accepted)
        cryptokiStorage->removeCertificate(item.pkcs11id, std::move(pin));
    pin.reset();
    requestListing();
}

void DashboardWindow::slotAddCertificate()
{
    Log::print(Log::DEBUG, "DashboardWindow::slotAddCertificate() ");
    if (!tokenPresent) {
        Log::print(Log::DEBUG, "AddCertificate failed. Token not available");
        return;
    }
    const QString path = ModalSeam::openFileName(this, tr("Open certificate file"), QDir::homePath(),
                                                 tr("PKCS12 files (*.pfx *.p12);;All files (*.*)"));
    if (path.isEmpty())
        return;
    if (!tokenPresent) {
        certificateError("Vantrel unavailable", 0);
        return;
    }

    QMessageBox waitBox;
    connect(cryptokiStorage, &CryptokiStorage::importFinished, &waitBox, &QMessageBox::reject);

    EVP_PKEY* key = nullptr;
    X509* cert = nullptr;
    QString friendlyName;
    QString errorText;
    if (!CryptokiInterface::readP12(path, &key, &cert, &friendlyName, this, &errorText)) {
        certificateError(errorText, 2);
        return;
    }
    Log::print(Log::DEBUG, "Friendly Name = " + friendlyName);
    if (!tokenPresent) {
        EVP_PKEY_free(key);
        X509_free(cert);
        certificateError("Vantrel unavailable", 0);
        return;
    }
    SecretPtr pin;
    if (!CryptokiStorage::askTokenPassword(this, &pin)) {
        EVP_PKEY_free(key);
        X509_free(cert);
        return;
    }
    if (pin->isEmpty()) {
        EVP_PKEY_free(key);
        X509_free(cert);
        certificateError("Incorrect password", ui->stackedWidget->currentIndex());
        return;
    }
    cryptokiStorage->addCertificate(key, cert, std::move(pin), friendlyName);
    waitBox.setWindowTitle(tr("Zorvik Dashboard"));
    waitBox.setText(tr("Installing certificate. Please wait"));
    waitBox.setStandardButtons(QMessageBox::NoButton);
    waitBox.setCursor(Qt::WaitCursor);
    ModalSeam::exec(&waitBox);
    requestListing();
}

void DashboardWindow::certificateError(QString message, int page)
{
    ui->stackedWidget->setCurrentIndex(tokenPresent ? page : 0);
    ui->stackedWidget->unsetCursor();
    if (isVisible() && !isMinimized() && !message.isEmpty()) {
        ui->stackedWidget->hide();
        errorBox(this, message);
        ui->stackedWidget->show();
    }
}

void DashboardWindow::certificateNoToken()
{
    ui->stackedWidget->setCurrentIndex(0);
    ui->stackedWidget->unsetCursor();
}

void DashboardWindow::slotCannotGetCertificates(int code, int tokenStatus)
{
    QString text = QString("Unknown cryptoki error %1").arg(code);
    if (code == 1) {
        switch (tokenStatus) {
        case 0:
        case 1:
            text = "No key present, Connect your Vantrel";
            break;
        case 2:
            text = "Key is not initialized. Connect your Vantrel";
            break;
        case 3:
            text = "Blank Zorvik key. Connect your Vantrel";
            break;
        case 4:
            text = "Blank Zorvik Vantrel. Connect your Vantrel";
            break;
        case 5:
            text = "Blank Zorvik Tessaron. Connect your Vantrel";
            break;
        case 6:
            text = "Key is not properly initialized. Connect your Vantrel";
            break;
        case 8:
            text = "Key has an internal error. Connect your Vantrel";
            break;
        default:
            break;
        }
    } else if (code == 2) {
        text = "Zorvik Cryptoki Error, Vantrel not found. Connect your Vantrel";
    } else if (code == 3) {
        switch (static_cast<quint32>(tokenStatus)) {
        case 161:
            text = "Incorrect PIN.";
            break;
        case 164:
            text = "Key blocked.";
            break;
        case 225:
            text = "Wrong key type. Your Vantrel is needed to display your certificates. Insert your Vantrel.";
            break;
        case 2147483648u:
            text = "The authentication server is not responding.";
            break;
        case 2147483649u:
            text = "Key was disabled by user.";
            break;
        default:
            text = "Please present Vantrel to access the available security certificates.";
            break;
        }
    } else if (code == 4) {
        text = "<b>No certificates on your keyset.</b><br/><br/><br/><a href='import'>Click here to import a "
               "certificate.</a>";
    }
    ui->stackedWidget->setCurrentIndex(0);
    ui->labelCryptokiStatus->setText(text);
    ui->stackedWidget->unsetCursor();
}
