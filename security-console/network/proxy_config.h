#pragma once

#include <QString>

// The user's proxy setting as the Qt side uses it. The port is kept as typed and converted
// with toInt() when the proxy is installed.
struct ProxyConfig
{
    QString host;
    QString port;
    bool enabled = false;
};
