#pragma once

#include <QThread>

// Sends a support request with the log files attached; one run per request.
class TicketSender : public QThread
{
    Q_OBJECT
public:
    explicit TicketSender(QObject* parent = nullptr);

signals:
    void support_error(QString message);
    void support_sent(QString ticket);

protected:
    void run() override;
};
