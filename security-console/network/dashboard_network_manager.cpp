#include "dashboard_network_manager.h"

#include "log.h"
#include "os_platform.h"
#include "zorvik_proxy.h"

#include <QNetworkProxy>
#include <QNetworkProxyFactory>
#include <QNetworkProxyQuery>
#include <QUrl>

#include <cstdlib>

DashboardNetworkManager::DashboardNetworkManager(QObject* parent) : QNetworkAccessManager(parent) {}

ProxyConfig DashboardNetworkManager::readProxySettings()
{
    Log::print(Log::DEBUG, "Read proxy settings");
    ProxyConfig config;
    QString settings;
    char* stored = nullptr;
    unsigned int enabled = 0;
    if (zorvikpc_get_proxy(0, &stored, &enabled) == 0) {
        settings = QString::fromLatin1(stored);
        std::free(stored);
        Log::print(Log::DEBUG, tr("Proxy config string user: %1").arg(settings));
    }
    if (!parseSettings(&config, settings, enabled))
        Log::print(Log::DEBUG, "Cannot read proxy settings");
    return config;
}

bool DashboardNetworkManager::parseSettings(ProxyConfig* config, QString settings, unsigned int enabled)
{
    const QStringList parts = settings.split(':', Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (parts.size() < 2)
        return false;
    config->enabled = enabled != 0;
    config->port = parts.at(1);
    config->host = parts.at(0);
    return true;
}

void DashboardNetworkManager::SetupProxy(ProxyConfig config)
{
    if (config.enabled) {
        QNetworkProxy::setApplicationProxy(QNetworkProxy(
            QNetworkProxy::HttpProxy, config.host, static_cast<quint16>(config.port.toInt()), QString(), QString()));
    } else {
        QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::NoProxy, QString(), 0, QString(), QString()));
    }
}

void DashboardNetworkManager::UpdateProxy()
{
    const ProxyConfig config = readProxySettings();
    if (config.enabled) {
        Log::print(Log::DEBUG,
                   QString("Created QNetworkAccessManager using proxy %1:%2").arg(config.host, config.port));
        // The default type here, not HTTP as in SetupProxy: this is how it has always been.
        setProxy(
            QNetworkProxy(QNetworkProxy::DefaultProxy, config.host, static_cast<quint16>(config.port.toInt()), "", ""));
    } else {
        setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    }
}

ProxyConfig PAC()
{
    // First a general address, to see that the system's proxy resolution answers at all.
    QNetworkProxyFactory::systemProxyForQuery(
        QNetworkProxyQuery(QUrl(OsPlatform::proxyTestUrl()), QNetworkProxyQuery::UrlRequest));
    ProxyConfig config;
    const QUrl keyService(OsPlatform::keyServiceUrl());
    const QList<QNetworkProxy> proxies =
        QNetworkProxyFactory::systemProxyForQuery(QNetworkProxyQuery(keyService, QNetworkProxyQuery::UrlRequest));
    for (const QNetworkProxy& proxy : proxies)
        Log::print(Log::DEBUG, QString("PAC Proxy: %1:%2").arg(proxy.hostName()).arg(proxy.port()));
    return config;
}
