#include "icon_dialog.h"

#include "ui_icon_dialog.h"

#include <QDesktopServices>
#include <QIcon>
#include <QUrl>

IconDialog::IconDialog(const QString& title, const QIcon& icon, const QString& text, QWidget* parent)
    : QDialog(parent), ui(new Ui::IconDialog)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    setWindowTitle(title);
    ui->iconLabel->setPixmap(icon.pixmap(64, 64));
    ui->textLabel->setText(text);
    connect(ui->textLabel, &QLabel::linkActivated, this, &IconDialog::linkActivated);
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
}

IconDialog::~IconDialog()
{
    delete ui;
}

void IconDialog::linkActivated(QString link)
{
    QDesktopServices::openUrl(QUrl(link));
}
