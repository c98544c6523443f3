/*
 * The stored proxy setting shared with the transport components, and proxy discovery.
 *
 * The setting lives in the per-user preferences of the domain "com.zorvik.qvtransport":
 * "Proxy" (text "host:port", exactly as typed) and "ProxyEnabled" (boolean). Texts cross
 * this interface as Mac Roman C strings. Every function returns 0 on success and a
 * negative code otherwise; none of them writes any text anywhere.
 */
#ifndef ZORVIK_PROXY_H
#define ZORVIK_PROXY_H

#ifdef __cplusplus
extern "C" {
#endif

/* A discovered proxy. host and port point into one heap buffer that starts at host (the
 * ":" between them was replaced by a NUL); release it with proxy_config_free. */
typedef struct proxy_config
{
    char* host;
    char* port;
    int reserved; /* always 0 */
} proxy_config;

/* Reads the stored setting. scope 0 or 1 (both read the per-user preferences). On success
 * *proxy is a heap string the caller frees with free(), *enabled is 0 or 1. -255 for any
 * other scope, no or an empty "Proxy" value, no memory, or a character that has no Mac
 * Roman byte; nothing is stored then. */
int zorvikpc_get_proxy(int scope, char** proxy, unsigned int* enabled);

/* Stores "Proxy" and "ProxyEnabled" (enabled != 0). Only scope 1 (the user's settings) is
 * accepted; any other scope gives -255 and changes nothing, as does a failed write. */
int zorvikpc_set_proxy(int scope, const char* proxy, int enabled);

/* Cuts addr in place at its first ":"; *host is addr and *port the text behind the colon.
 * -1 when there is no ":". */
int parse_proxy_addr(char* addr, char** host, char** port);

/* The proxy from the environment variable ZORVIK_PROXY ("host:port"): 0, else -255. */
int proxy_discover_env(void* unused, proxy_config* config);
/* The stored setting, only when it is enabled: 0, else -255. */
int proxy_discover_sys(void* unused, proxy_config* config);
/* ZORVIK_PROXY when it holds a ":", else the stored setting when enabled: 0, or -10 when
 * no proxy is to be used. */
int proxy_discover(void* unused, proxy_config* config);

/* Releases what a discovery stored (a null record or host is ignored) and clears it. */
void proxy_config_free(proxy_config* config);

#ifdef __cplusplus
}
#endif

#endif /* ZORVIK_PROXY_H */
