#include "information_dialog.h"

#include "log.h"

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

InformationDialog::InformationDialog(const QString& title, const QString& labelText, const QString& text, bool saveAs,
                                     QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(title);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    auto* layout = new QVBoxLayout(this);
    label = new QLabel(labelText, this);
    label->setObjectName("label");
    label->setWordWrap(true);
    message = new QTextBrowser(this);
    message->setObjectName("message");
    message->setOpenLinks(false);
    message->setHtml(text);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    okButton = buttons->button(QDialogButtonBox::Ok);
    if (saveAs)
        okButton->setText(tr("Save", "Button text"));
    layout->addWidget(label);
    layout->addWidget(message);
    layout->addWidget(buttons);
    connect(message, &QTextBrowser::anchorClicked, this, &InformationDialog::linkClicked);
    connect(buttons, &QDialogButtonBox::accepted, this, &InformationDialog::slotOk);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    resize(520, 400);
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
