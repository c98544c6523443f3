#pragma once

#include <QDialog>

namespace Ui {
class UpdateDialog;
}

// Offers a newer Security Pack with its change log: "Install Now" accepts, "Update Later"
// rejects.
class UpdateDialog : public QDialog
{
    Q_OBJECT
public:
    UpdateDialog(const QString& version, const QString& changeLog, QWidget* parent = nullptr);
    ~UpdateDialog() override;

    Ui::UpdateDialog* form() const { return ui; }

private:
    Ui::UpdateDialog* ui;
};
