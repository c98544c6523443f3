#include "openvpn_dialog.h"

#include "ui_openvpn_dialog.h"

#include "modal_seam.h"

#include <QDir>
#include <QFileDialog>
#include <QIcon>
#include <QPushButton>

OpenVPNDialog::OpenVPNDialog(const QString& configDir_, const QString& name, const QString& port,
                             const QMap<QString, QString>& certs_, QWidget* parent)
    : QDialog(parent), ui(new Ui::OpenVPNDialog), configDir(configDir_), certs(certs_)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    setWindowIcon(QIcon(":/Icons/icons/openvpn.png"));
    ui->nameEdit->setText(name);
    ui->portEdit->setText(port);
    for (auto it = certs.constBegin(); it != certs.constEnd(); ++it)
        ui->certCombo->addItem(QIcon(), it.key());
    connect(ui->browseButton, &QToolButton::clicked, this, &OpenVPNDialog::slotBrowse);
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &OpenVPNDialog::slotOk);
    connect(ui->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    for (QLineEdit* edit : {ui->nameEdit, ui->addressEdit, ui->portEdit, ui->caEdit})
        connect(edit, &QLineEdit::textChanged, this, &OpenVPNDialog::slotChanged);
    slotChanged(QString());
}

OpenVPNDialog::~OpenVPNDialog()
{
    delete ui;
}

QString OpenVPNDialog::cert() const
{
    return certs.value(ui->certCombo->currentText());
}

QStringList OpenVPNDialog::fieldTexts() const
{
    return {ui->nameEdit->text(), ui->addressEdit->text(), ui->portEdit->text(), ui->caEdit->text()};
}

void OpenVPNDialog::slotChanged(const QString&)
{
    const bool complete = !ui->nameEdit->text().isEmpty() && !ui->addressEdit->text().isEmpty() &&
                          !ui->portEdit->text().isEmpty() && !ui->caEdit->text().isEmpty();
    ui->buttonBox->button(QDialogButtonBox::Ok)->setEnabled(complete);
}

void OpenVPNDialog::slotBrowse()
{
    // The "certs" folder beside the configuration folder.
    const QString start = QDir::cleanPath(configDir + "/../certs");
    const QString file = ModalSeam::openFileName(this, tr("Select File", "Dialog titles"), start, QString());
    if (!file.isEmpty())
        ui->caEdit->setText(QDir::toNativeSeparators(file));
}

void OpenVPNDialog::slotOk()
{
    accept();
}
