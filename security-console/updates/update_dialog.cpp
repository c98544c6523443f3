#include "update_dialog.h"

#include "ui_update_dialog.h"
#include "zorvik_build.h"

UpdateDialog::UpdateDialog(const QString& version, const QString& changeLog, QWidget* parent)
    : QDialog(parent), ui(new Ui::UpdateDialog)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    setSizeGripEnabled(false);
    ui->new_vesion_label->setText(tr("Security Pack Version %1 \n is now available").arg(version));
    // The change log is a text file; markup in it is shown, not interpreted.
    ui->textBrowser->setPlainText(changeLog);
    ui->current_version_label->setText(tr("Current version: %1").arg(ZORVIK_VERSION));
    setFixedSize(size().expandedTo(minimumSizeHint()));
}

UpdateDialog::~UpdateDialog()
{
    delete ui;
}
