#pragma once

#include <QDialog>

class TicketSender;

namespace Ui {
class SupportDialog;
}

// The support request form: a description (at most 20,000 characters), an optional name
// and e-mail address. Accepted by "Submit Report" unless the previous request is still
// being sent by `sender`.
class SupportDialog : public QDialog
{
    Q_OBJECT
public:
    static const int maxTextLength = 20000;

    SupportDialog(QWidget* parent, const TicketSender* sender);
    ~SupportDialog() override;

    QString description() const;
    QString name() const;
    QString email() const;
    Ui::SupportDialog* form() const { return ui; }

    // Cuts the description to the limit while it is typed or pasted.
    void on_edit_textChanged();

public slots:
    void slotSubmit();

private:
    Ui::SupportDialog* ui;
    const TicketSender* sender;
};
