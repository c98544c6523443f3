#include "rsa_key_details_dialog.h"

#include "ui_rsa_key_details_dialog.h"

#include "process_helpers.h"

#include <QFontDatabase>

namespace {
const QString kValue = "<span style=\"font-size: 10pt\">%1</span>";
}

RsaKeyDetailsDialog::RsaKeyDetailsDialog(const QByteArray& pkcs11id, const QString& label, const QByteArray& modulus,
                                         const QByteArray& exponent, QWidget* parent)
    : QDialog(parent), ui(new Ui::RsaKeyDetailsDialog)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    ui->typeLabel->setText(kValue.arg(QCoreApplication::translate("RSA Keypair info", "RSA Keypair")));
    ui->pkcs11IDLabel->setText(kValue.arg(hexlify(pkcs11id)));
    ui->pkcs11IDLabel->setFont(fixed);
    ui->pkcs11Label->setText(kValue.arg(label.toHtmlEscaped()));
    ui->modulusLabel->setHtml(kValue.arg(hexlify(modulus)));
    ui->modulusLabel->setFont(fixed);
    ui->modulusLabel->viewport()->setAutoFillBackground(false);
    ui->exponentLabel->setText(kValue.arg(hexlify(exponent)));
    ui->exponentLabel->setFont(fixed);
    resize(sizeHint());
}

RsaKeyDetailsDialog::~RsaKeyDetailsDialog()
{
    delete ui;
}
