#include "support_dialog.h"

#include "modal_seam.h"
#include "ticket_sender.h"
#include "ui_support_dialog.h"

#include <QMessageBox>
#include <QTextCursor>

SupportDialog::SupportDialog(QWidget* parent, const TicketSender* sender_)
    : QDialog(parent), ui(new Ui::SupportDialog), sender(sender_)
{
    ui->setupUi(this);
    connect(ui->submitButton, &QPushButton::clicked, this, &SupportDialog::slotSubmit);
    connect(ui->cancelButton, &QPushButton::clicked, this, &QDialog::close);
    connect(ui->ticketText, &QPlainTextEdit::textChanged, this, &SupportDialog::on_edit_textChanged);
}

SupportDialog::~SupportDialog()
{
    delete ui;
}

QString SupportDialog::description() const
{
    return ui->ticketText->toPlainText();
}

QString SupportDialog::name() const
{
    return ui->Name->text();
}

QString SupportDialog::email() const
{
    return ui->Email->text();
}

void SupportDialog::on_edit_textChanged()
{
    const QString text = ui->ticketText->toPlainText();
    if (text.size() <= maxTextLength)
        return;
    ui->ticketText->setPlainText(text.left(maxTextLength));
    ui->ticketText->moveCursor(QTextCursor::End);
}

void SupportDialog::slotSubmit()
{
    if (sender && sender->isRunning()) {
        QMessageBox box(QMessageBox::Critical, QCoreApplication::translate("Application messages", "Dashboard warning"),
                        QCoreApplication::translate("Application messages",
                                                    "%1 is sending your previous support request. Please wait and "
                                                    "try again later.")
                            .arg("Zorvik Dashboard"),
                        QMessageBox::Ok, this);
        ModalSeam::exec(&box);
        return;
    }
    done(QDialog::Accepted);
}
