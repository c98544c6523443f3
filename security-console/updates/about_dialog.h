#pragma once

#include <QDialog>

namespace Ui {
class AboutDialog;
}

// The program's name and built-in version; when a newer Security Pack is known, a "New
// version available" link that ends the dialog with code 3 (the caller then offers it).
class AboutDialog : public QDialog
{
    Q_OBJECT
public:
    enum { UpdateRequested = 3 };

    explicit AboutDialog(bool updateAvailable, QWidget* parent = nullptr);
    ~AboutDialog() override;

    Ui::AboutDialog* form() const { return ui; }

public slots:
    void slotUpdate(const QString& link);

private:
    Ui::AboutDialog* ui;
};
