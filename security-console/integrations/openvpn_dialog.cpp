#include "openvpn_dialog.h"

#include "modal_seam.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>

OpenVPNDialog::OpenVPNDialog(const QString& configDir_, const QString& name, const QString& port,
                             const QMap<QString, QString>& certs_, QWidget* parent)
    : QDialog(parent), configDir(configDir_), certs(certs_)
{
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    auto* form = new QFormLayout(this);
    nameEdit = new QLineEdit(name, this);
    addressEdit = new QLineEdit(this);
    portEdit = new QLineEdit(port, this);
    caEdit = new QLineEdit(this);
    auto* browseButton = new QPushButton("...", this);
    auto* caRow = new QHBoxLayout;
    caRow->addWidget(caEdit);
    caRow->addWidget(browseButton);
    certCombo = new QComboBox(this);
    certCombo->addItems(certs.keys());
    buttonBox = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    form->addRow(tr("Name:"), nameEdit);
    form->addRow(tr("Address:"), addressEdit);
    form->addRow(tr("Port:"), portEdit);
    form->addRow(tr("CA certificate:"), caRow);
    form->addRow(tr("Certificate:"), certCombo);
    form->addRow(buttonBox);
    connect(browseButton, &QPushButton::clicked, this, &OpenVPNDialog::slotBrowse);
    connect(buttonBox, &QDialogButtonBox::accepted, this, &OpenVPNDialog::slotOk);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    for (QLineEdit* edit : {nameEdit, addressEdit, portEdit, caEdit})
        connect(edit, &QLineEdit::textChanged, this, &OpenVPNDialog::slotChanged);
    slotChanged(QString());
}

QString OpenVPNDialog::cert() const
{
    return certs.value(certCombo->currentText());
}

QStringList OpenVPNDialog::fieldTexts() const
{
    return {nameEdit->text(), addressEdit->text(), portEdit->text(), caEdit->text()};
}

void OpenVPNDialog::slotChanged(const QString&)
{
    const bool complete = !nameEdit->text().isEmpty() && !addressEdit->text().isEmpty() &&
                          !portEdit->text().isEmpty() && !caEdit->text().isEmpty();
    buttonBox->button(QDialogButtonBox::Ok)->setEnabled(complete);
}

void OpenVPNDialog::slotBrowse()
{
    QDir dir(configDir);
    dir.cd("../certs");
    const QString file = ModalSeam::openFileName(this, tr("Select File"), dir.absolutePath(), QString());
    if (!file.isEmpty())
        caEdit->setText(QDir::toNativeSeparators(file));
}

void OpenVPNDialog::slotOk()
{
    accept();
}
