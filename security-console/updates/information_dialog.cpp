#include "information_dialog.h"

#include "ui_information_dialog.h"

#include "log.h"

#include <QDesktopServices>
#include <QPushButton>
#include <QUrl>

InformationDialog::InformationDialog(const QString& title, const QString& labelText, const QString& text, bool saveAs,
                                     QWidget* parent)
    : QDialog(parent), ui(new Ui::InformationDialog)
{
    ui->setupUi(this);
    setWindowTitle(title);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->label->setText(labelText);
    ui->message->setHtml(text);
    if (saveAs)
        ui->buttonBox->button(QDialogButtonBox::Ok)->setText(QCoreApplication::translate("Button text", "Save"));
    connect(ui->message, &QTextBrowser::anchorClicked, this, &InformationDialog::linkClicked);
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &InformationDialog::slotOk);
}

InformationDialog::~InformationDialog()
{
    delete ui;
}

void InformationDialog::linkClicked(const QUrl& url)
{
    Log::print(Log::DEBUG, "Opening url: " + url.toString());
    QDesktopServices::openUrl(url);
}

void InformationDialog::slotOk()
{
    accept();
}
