#include "zorvik_proxy.h"

#include "mac_roman.h"
#include "preferences_store.h"

#include <cstdlib>
#include <cstring>

namespace {

const char* const kDomain = "com.zorvik.qvtransport";
const char* const kProxyKey = "Proxy";
const char* const kEnabledKey = "ProxyEnabled";

const int kRefused = -255;
const int kNoProxy = -10;

char* duplicate(const char* text)
{
    const size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy)
        std::memcpy(copy, text, size);
    return copy;
}

// Takes ownership of `text` ("host:port"): on success the record owns it, else it is freed.
bool adoptAddress(char* text, proxy_config* config)
{
    char* host = nullptr;
    char* port = nullptr;
    if (parse_proxy_addr(text, &host, &port) != 0) {
        std::free(text);
        return false;
    }
    config->host = host;
    config->port = port;
    config->reserved = 0;
    return true;
}

void clear(proxy_config* config)
{
    config->host = nullptr;
    config->port = nullptr;
    config->reserved = 0;
}

} // namespace

extern "C" int zorvikpc_get_proxy(int scope, char** proxy, unsigned int* enabled)
{
    if ((scope != 0 && scope != 1) || !proxy || !enabled)
        return kRefused;
    const PreferencesStore store(kDomain);
    const bool isEnabled = store.boolValue(kEnabledKey).value_or(false);
    const std::optional<QString> value = store.stringValue(kProxyKey);
    if (!value || value->isEmpty())
        return kRefused;
    QByteArray bytes;
    if (!MacRoman::fromUnicode(*value, &bytes))
        return kRefused;
    char* copy = static_cast<char*>(std::malloc(static_cast<size_t>(bytes.size()) + 1));
    if (!copy)
        return kRefused;
    std::memcpy(copy, bytes.constData(), static_cast<size_t>(bytes.size()) + 1);
    *proxy = copy;
    *enabled = isEnabled ? 1 : 0;
    return 0;
}

extern "C" int zorvikpc_set_proxy(int scope, const char* proxy, int enabled)
{
    if (scope != 1 || !proxy)
        return kRefused;
    // Every Mac Roman byte has a character, so the conversion itself cannot fail.
    PreferencesStore store(kDomain);
    store.setString(kProxyKey, MacRoman::toUnicode(QByteArray(proxy)));
    store.setBool(kEnabledKey, enabled != 0);
    return store.synchronize() ? 0 : kRefused;
}

extern "C" int parse_proxy_addr(char* addr, char** host, char** port)
{
    if (!addr || !host || !port)
        return -1;
    char* colon = std::strchr(addr, ':');
    if (!colon)
        return -1;
    *colon = '\0';
    *host = addr;
    *port = colon + 1;
    return 0;
}

extern "C" int proxy_discover_env(void* unused, proxy_config* config)
{
    (void)unused;
    if (!config)
        return kRefused;
    clear(config);
    const char* value = std::getenv("ZORVIK_PROXY");
    if (!value)
        return kRefused;
    char* copy = duplicate(value);
    if (!copy || !adoptAddress(copy, config))
        return kRefused;
    return 0;
}

extern "C" int proxy_discover_sys(void* unused, proxy_config* config)
{
    (void)unused;
    if (!config)
        return kRefused;
    clear(config);
    char* stored = nullptr;
    unsigned int enabled = 0;
    if (zorvikpc_get_proxy(0, &stored, &enabled) != 0)
        return kRefused;
    if (!enabled) {
        std::free(stored);
        return kRefused;
    }
    return adoptAddress(stored, config) ? 0 : kRefused;
}

extern "C" int proxy_discover(void* unused, proxy_config* config)
{
    if (!config)
        return kNoProxy;
    // The environment always wins; a value without ":" is ignored, it does not switch the
    // stored proxy off.
    if (proxy_discover_env(unused, config) == 0)
        return 0;
    return proxy_discover_sys(unused, config) == 0 ? 0 : kNoProxy;
}

extern "C" void proxy_config_free(proxy_config* config)
{
    if (!config || !config->host)
        return;
    std::free(config->host);
    clear(config);
}
