#pragma once

#include <QDialog>

class QIcon;

namespace Ui {
class IconDialog;
}

// A short note beside an icon, with links the desktop opens, and one OK button.
class IconDialog : public QDialog
{
    Q_OBJECT
public:
    IconDialog(const QString& title, const QIcon& icon, const QString& text, QWidget* parent = nullptr);
    ~IconDialog() override;

    Ui::IconDialog* form() const { return ui; }

public slots:
    void linkActivated(QString link);

private:
    Ui::IconDialog* ui = nullptr;
};
