#pragma once

#include <QObject>
#include <QString>

// The program's small HTTP client (blocking GET/POST and downloads).
class WebAccess : public QObject
{
    Q_OBJECT
public:
    explicit WebAccess(QObject* parent = nullptr);

    // Process-wide TLS set-up, once at start-up: adds the extra trusted CA certificates
    // named by the platform (used by the bench) to the default configuration.
    static void initSSL();
};
