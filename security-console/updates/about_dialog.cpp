#include "about_dialog.h"

#include "ui_about_dialog.h"
#include "zorvik_build.h"

AboutDialog::AboutDialog(bool updateAvailable, QWidget* parent) : QDialog(parent), ui(new Ui::AboutDialog)
{
    ui->setupUi(this);
    setWindowTitle(tr("About %1").arg("Zorvik Dashboard"));
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    setSizeGripEnabled(false);
    ui->version_label->setText(tr("Version %1").arg(ZORVIK_VERSION));
    if (updateAvailable) {
        ui->update_label->setText(tr("<a href=\"update\" style=\" text-decoration: none;\">New version available</a>"));
        connect(ui->update_label, &QLabel::linkActivated, this, &AboutDialog::slotUpdate);
    } else {
        ui->update_icon->hide();
        ui->update_label->hide();
    }
    connect(ui->pushButton, &QPushButton::pressed, this, &QDialog::accept);
    layout()->setSizeConstraint(QLayout::SetFixedSize);
}

AboutDialog::~AboutDialog()
{
    delete ui;
}

void AboutDialog::slotUpdate(const QString& link)
{
    Q_UNUSED(link)
    done(UpdateRequested);
}
