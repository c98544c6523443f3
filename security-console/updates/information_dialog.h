#pragma once

#include <QDialog>

class QUrl;

namespace Ui {
class InformationDialog;
}

// A text (with links) under a label, with OK (or "Save") and Cancel.
class InformationDialog : public QDialog
{
    Q_OBJECT
public:
    InformationDialog(const QString& title, const QString& label, const QString& text, bool saveAs,
                      QWidget* parent = nullptr);
    ~InformationDialog() override;

    Ui::InformationDialog* form() const { return ui; }

public slots:
    void linkClicked(const QUrl& url);
    void slotOk();

private:
    Ui::InformationDialog* ui;
};
