#pragma once

#include <QString>
#include <QStringList>
#include <functional>

class QDialog;
class QWidget;

// Every modal box, prompt and file chooser of the program runs through here. In normal use
// it simply runs the dialog. A test can queue answers: the next dialog is then answered
// without being shown (its title and text are recorded), or shown for real with ShowIt.
class ModalSeam
{
public:
    enum { ShowIt = -1000 };

    // Runs the dialog modally and returns its result: the pressed QMessageBox::StandardButton
    // for message boxes, QDialog::Accepted/Rejected otherwise.
    static int exec(QDialog* dialog);
    // A file to open, or an empty text when the user cancelled.
    static QString openFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter);

    // Test side. For an input dialog, `text` becomes its text value before it "closes".
    static void answer(int result, const QString& text = QString());
    static void answerFile(const QString& path);
    // "title|text" of every dialog that went through exec() since the last reset.
    static QStringList seen();
    static int pending();
    static void reset();
    // Called with each dialog just before it runs (answered or shown).
    static void setObserver(std::function<void(QDialog*)> observer);
};
