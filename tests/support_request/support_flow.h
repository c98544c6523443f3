// A support request sent through the window's help menu, and reading what the services
// simulator received: multipart/form-data bodies split into their parts, gzip data opened
// with the system's gzip.
#pragma once

#include "dashboard_window.h"
#include "modal_seam.h"
#include "support_dialog.h"
#include "ui_dashboard_window.h"
#include "ui_support_dialog.h"

#include <QByteArray>
#include <QList>
#include <QMessageBox>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

// Help > Contact support, the form filled in and submitted; the wait box is shown for real
// and the outcome box answered. Returns once the outcome box has been seen.
inline void submitSupportRequest(DashboardWindow* window, const QString& text, const QString& name,
                                 const QString& email)
{
    ModalSeam::setObserver([=](QDialog* d) {
        if (auto* dialog = qobject_cast<SupportDialog*>(d)) {
            dialog->form()->ticketText->setPlainText(text);
            dialog->form()->Name->setText(name);
            dialog->form()->Email->setText(email);
            QMetaObject::invokeMethod(dialog->form()->submitButton, "click", Qt::QueuedConnection);
        }
    });
    ModalSeam::answer(ModalSeam::ShowIt); // the form
    ModalSeam::answer(ModalSeam::ShowIt); // "Sending support request. Please wait"
    ModalSeam::answer(QMessageBox::Ok);   // the outcome
    window->form()->actionContact_support->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, 20000);
}

struct FormPart
{
    QByteArray headers; // the header lines, without the blank line after them
    QByteArray content;

    QString field() const
    {
        return QRegularExpression(R"re(\bname="([^"]*)")re").match(QString::fromUtf8(headers)).captured(1);
    }
    QString fileName() const
    {
        return QRegularExpression(R"re(filename="([^"]*)")re").match(QString::fromUtf8(headers)).captured(1);
    }
};

// The parts between "--boundary" lines, up to the closing "--boundary--"; an empty list
// when the body does not have that shape.
inline QList<FormPart> formParts(const QByteArray& body, const QByteArray& boundary)
{
    const QByteArray delimiter = "--" + boundary;
    QList<FormPart> parts;
    if (!body.startsWith(delimiter + "\r\n") || !body.endsWith(delimiter + "--\r\n"))
        return parts;
    int at = delimiter.size() + 2;
    while (at < body.size()) {
        const int next = body.indexOf("\r\n" + delimiter, at);
        if (next < 0)
            return {};
        const QByteArray chunk = body.mid(at, next - at);
        const int blank = chunk.indexOf("\r\n\r\n");
        if (blank < 0)
            return {};
        parts.append({chunk.left(blank), chunk.mid(blank + 4)});
        at = next + 2 + delimiter.size();
        if (body.mid(at, 4) == "--\r\n")
            break;
        at += 2;
    }
    return parts;
}

inline QByteArray gunzip(const QByteArray& data)
{
    QProcess gzip;
    gzip.start("gzip", {"-dc"});
    gzip.write(data);
    gzip.closeWriteChannel();
    gzip.waitForFinished(30000);
    return gzip.exitCode() == 0 ? gzip.readAllStandardOutput() : QByteArray();
}
