#pragma once

#include "proxy_config.h"

#include <QNetworkAccessManager>

// Turns the stored proxy setting into the Qt proxy. The program installs it application
// wide (SetupProxy), so every QNetworkAccessManager uses it without further work.
class DashboardNetworkManager : public QNetworkAccessManager
{
    Q_OBJECT
public:
    explicit DashboardNetworkManager(QObject* parent);

    // The stored setting, read afresh; empty and disabled when there is none or it cannot
    // be split into host and port. ZORVIK_PROXY is not consulted on this side.
    static ProxyConfig readProxySettings();
    // Fills `config` from "host:port" (split at every ":", the first two pieces used) and
    // the enabled flag; false, and `config` untouched, when there is no ":".
    static bool parseSettings(ProxyConfig* config, QString settings, unsigned int enabled);
    // Installs the application-wide proxy: an HTTP proxy when enabled, otherwise none at
    // all (the system's proxy settings are never used).
    static void SetupProxy(ProxyConfig config);

    // Sets the proxy of this manager alone from the stored setting.
    void UpdateProxy();
};

// Logs the proxies the operating system would choose for the key service (diagnostics);
// always returns an empty configuration.
ProxyConfig PAC();
