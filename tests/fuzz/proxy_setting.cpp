// The stored proxy setting ("host:port" as typed): the Mac Roman text the transport
// components exchange, and its split into host and port on both sides.
#include "dashboard_network_manager.h"
#include "mac_roman.h"
#include "zorvik_proxy.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    // Every byte has a character and back.
    QByteArray back;
    if (!MacRoman::fromUnicode(MacRoman::toUnicode(bytes), &back) || back != bytes)
        __builtin_trap();
    const QString typed = QString::fromUtf8(bytes);
    ProxyConfig config;
    DashboardNetworkManager::parseSettings(&config, typed, 1);
    QByteArray stored;
    if (MacRoman::fromUnicode(typed, &stored)) {
        if (MacRoman::toUnicode(stored) != typed)
            __builtin_trap();
        char* host = nullptr;
        char* port = nullptr;
        parse_proxy_addr(stored.data(), &host, &port);
    }
    return 0;
}
