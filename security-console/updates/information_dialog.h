#pragma once

#include <QDialog>

class QLabel;
class QPushButton;
class QTextBrowser;
class QUrl;

// A text (with links) under a label, with OK (or "Save") and Cancel.
class InformationDialog : public QDialog
{
    Q_OBJECT
public:
    InformationDialog(const QString& title, const QString& label, const QString& text, bool saveAs,
                      QWidget* parent = nullptr);

public slots:
    void linkClicked(const QUrl& url);
    void slotOk();

private:
    QLabel* label = nullptr;
    QTextBrowser* message = nullptr;
    QPushButton* okButton = nullptr;
};
