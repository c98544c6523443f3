#include "modal_seam.h"

#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QMutex>
#include <QQueue>

namespace {
struct Pending {
    int result;
    QString text;
};
struct State {
    QMutex mutex;
    QQueue<Pending> answers;
    QQueue<QString> files;
    QStringList seen;
    std::function<void(QDialog*)> observer;
};
State& state()
{
    static State s;
    return s;
}

QString describe(QDialog* dialog)
{
    QString text;
    if (auto* box = qobject_cast<QMessageBox*>(dialog))
        text = box->text() + (box->informativeText().isEmpty() ? QString() : "\n" + box->informativeText());
    else if (auto* input = qobject_cast<QInputDialog*>(dialog))
        text = input->labelText();
    return dialog->windowTitle() + "|" + text;
}
} // namespace

int ModalSeam::exec(QDialog* dialog)
{
    State& s = state();
    std::function<void(QDialog*)> observer;
    bool answered = false;
    Pending p{0, QString()};
    {
        QMutexLocker lock(&s.mutex);
        s.seen << describe(dialog);
        observer = s.observer;
        if (!s.answers.isEmpty()) {
            p = s.answers.dequeue();
            answered = p.result != ShowIt;
        }
    }
    if (observer)
        observer(dialog);
    if (!answered)
        return dialog->exec();
    // A copy of its own, as if typed: the program wipes what a prompt held, and that must
    // not reach the test's string.
    if (auto* input = qobject_cast<QInputDialog*>(dialog))
        input->setTextValue(QString(p.text.constData(), p.text.size()));
    dialog->setResult(p.result);
    return p.result;
}

QString ModalSeam::openFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter)
{
    {
        State& s = state();
        QMutexLocker lock(&s.mutex);
        if (!s.files.isEmpty())
            return s.files.dequeue();
    }
    return QFileDialog::getOpenFileName(parent, caption, dir, filter);
}

void ModalSeam::answer(int result, const QString& text)
{
    QMutexLocker lock(&state().mutex);
    state().answers.enqueue({result, text});
}

void ModalSeam::answerFile(const QString& path)
{
    QMutexLocker lock(&state().mutex);
    state().files.enqueue(path);
}

QStringList ModalSeam::seen()
{
    QMutexLocker lock(&state().mutex);
    return state().seen;
}

int ModalSeam::pending()
{
    QMutexLocker lock(&state().mutex);
    return state().answers.size();
}

void ModalSeam::reset()
{
    QMutexLocker lock(&state().mutex);
    state().answers.clear();
    state().files.clear();
    state().seen.clear();
    state().observer = nullptr;
}

void ModalSeam::setObserver(std::function<void(QDialog*)> observer)
{
    QMutexLocker lock(&state().mutex);
    state().observer = std::move(observer);
}
