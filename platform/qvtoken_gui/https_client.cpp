#include "https_client.h"

#include "platform_files.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace qvtoken_gui {
namespace {

using Clock = std::chrono::steady_clock;

struct Url {
    std::string host;
    std::string port = "443";
    std::string path = "/";
};

bool parseUrl(const std::string& url, Url* out)
{
    const std::string scheme = "https://";
    if (url.compare(0, scheme.size(), scheme) != 0)
        return false;
    std::string rest = url.substr(scheme.size());
    const auto slash = rest.find('/');
    std::string authority = rest.substr(0, slash);
    out->path = slash == std::string::npos ? "/" : rest.substr(slash);
    const auto colon = authority.rfind(':');
    if (colon != std::string::npos) {
        out->port = authority.substr(colon + 1);
        authority.resize(colon);
    }
    out->host = authority;
    return !out->host.empty();
}

// Remaining milliseconds until the deadline, at least 0.
int remaining(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

struct Connection {
    int fd = -1;
    ~Connection()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Waits for the socket in slices, so cancellation is seen within 100 ms.
HttpsResult::Outcome waitFor(int fd, short events, Clock::time_point deadline, const std::atomic<bool>& cancelled)
{
    for (;;) {
        if (cancelled)
            return HttpsResult::Cancelled;
        const int left = remaining(deadline);
        if (left == 0)
            return HttpsResult::TimedOut;
        pollfd p{fd, events, 0};
        const int n = ::poll(&p, 1, left < 100 ? left : 100);
        if (n > 0)
            return HttpsResult::Ok;
        if (n < 0 && errno != EINTR)
            return HttpsResult::NetworkError;
    }
}

HttpsResult::Outcome connectTcp(const std::string& host, const std::string& port, Connection* c,
                                Clock::time_point deadline, const std::atomic<bool>& cancelled, std::string* error)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* res = nullptr;
    if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &res) != 0 || !res) {
        *error = "cannot resolve " + host;
        return HttpsResult::NetworkError;
    }
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> guard(res, freeaddrinfo);
    for (addrinfo* ai = res; ai; ai = ai->ai_next) {
        const int fd = ::socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, ai->ai_protocol);
        if (fd < 0)
            continue;
        if (::connect(fd, ai->ai_addr, ai->ai_addrlen) == 0 || errno == EINPROGRESS) {
            const auto w = waitFor(fd, POLLOUT, deadline, cancelled);
            int err = 0;
            socklen_t len = sizeof err;
            if (w == HttpsResult::Ok && ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0) {
                // Every write is a whole message (CONNECT, a TLS flight, the request): no
                // waiting for the peer's delayed ACK of the previous one.
                const int one = 1;
                ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                c->fd = fd;
                return HttpsResult::Ok;
            }
            ::close(fd);
            if (w != HttpsResult::Ok)
                return w;
            continue;
        }
        ::close(fd);
    }
    *error = "cannot connect to " + host + ":" + port;
    return HttpsResult::NetworkError;
}

// Plain-socket send/receive of the proxy's CONNECT exchange.
HttpsResult::Outcome proxyConnect(Connection* c, const Url& target, Clock::time_point deadline,
                                  const std::atomic<bool>& cancelled, std::string* error)
{
    const std::string request = "CONNECT " + target.host + ":" + target.port + " HTTP/1.1\r\nHost: " + target.host +
                                ":" + target.port + "\r\n\r\n";
    size_t sent = 0;
    while (sent < request.size()) {
        const auto w = waitFor(c->fd, POLLOUT, deadline, cancelled);
        if (w != HttpsResult::Ok)
            return w;
        const ssize_t n = ::send(c->fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            *error = "proxy closed the connection";
            return HttpsResult::NetworkError;
        }
        sent += static_cast<size_t>(n);
    }
    std::string answer;
    while (answer.find("\r\n\r\n") == std::string::npos) {
        const auto w = waitFor(c->fd, POLLIN, deadline, cancelled);
        if (w != HttpsResult::Ok)
            return w;
        char ch;
        const ssize_t n = ::recv(c->fd, &ch, 1, 0);
        if (n <= 0 || answer.size() > 8192) {
            *error = "proxy closed the connection";
            return HttpsResult::NetworkError;
        }
        answer += ch;
    }
    if (answer.compare(0, 9, "HTTP/1.1 ") != 0 && answer.compare(0, 9, "HTTP/1.0 ") != 0)
        return *error = "bad proxy answer", HttpsResult::NetworkError;
    if (answer.compare(9, 3, "200") != 0) {
        *error = "proxy refused the tunnel: " + answer.substr(0, answer.find("\r\n"));
        return HttpsResult::NetworkError;
    }
    return HttpsResult::Ok;
}

std::string sslError()
{
    char buf[256];
    const unsigned long e = ERR_get_error();
    if (!e)
        return "TLS error";
    ERR_error_string_n(e, buf, sizeof buf);
    return buf;
}

// Drives one TLS operation of a non-blocking socket to completion.
template <typename Op>
HttpsResult::Outcome tlsStep(SSL* ssl, int fd, Op op, int* result, Clock::time_point deadline,
                             const std::atomic<bool>& cancelled)
{
    for (;;) {
        *result = op();
        if (*result > 0)
            return HttpsResult::Ok;
        const int e = SSL_get_error(ssl, *result);
        short events = 0;
        if (e == SSL_ERROR_WANT_READ)
            events = POLLIN;
        else if (e == SSL_ERROR_WANT_WRITE)
            events = POLLOUT;
        else
            return HttpsResult::NetworkError;
        const auto w = waitFor(fd, events, deadline, cancelled);
        if (w != HttpsResult::Ok)
            return w;
    }
}

} // namespace

ProxySetting discoverProxy()
{
    ProxySetting proxy;
    if (const char* env = zorvik_platform::environment("ZORVIK_PROXY"); env && std::strchr(env, ':')) {
        const std::string v(env);
        const auto colon = v.find(':');
        proxy.host = v.substr(0, colon);
        proxy.port = v.substr(colon + 1);
        return proxy;
    }
    std::string value;
    bool enabled = false;
    const std::string dir = zorvik_platform::userConfigDir();
    // No per-user setting without a configuration directory (nor in secure mode).
    for (const std::string& line :
         dir.empty() ? std::vector<std::string>() : zorvik_platform::readLines(dir + "/com.zorvik.qvtransport.ini")) {
        const auto eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        const std::string key = line.substr(0, eq);
        const std::string val = line.substr(eq + 1);
        if (key == "Proxy")
            value = val;
        else if (key == "ProxyEnabled")
            enabled = val == "true" || val == "yes" || val == "1";
    }
    const auto colon = value.find(':');
    if (enabled && colon != std::string::npos) {
        proxy.host = value.substr(0, colon);
        proxy.port = value.substr(colon + 1);
    }
    return proxy;
}

HttpsResult httpsPost(const std::string& url, const std::string& contentType, const std::string& body, int timeoutMs,
                      const std::atomic<bool>& cancelled)
{
    HttpsResult result;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Url target;
    if (!parseUrl(url, &target)) {
        result.error = "not an https address: " + url;
        return result;
    }

    Connection c;
    const ProxySetting proxy = discoverProxy();
    const bool viaProxy = !proxy.host.empty();
    auto outcome = connectTcp(viaProxy ? proxy.host : target.host, viaProxy ? proxy.port : target.port, &c, deadline,
                              cancelled, &result.error);
    if (outcome == HttpsResult::Ok && viaProxy)
        outcome = proxyConnect(&c, target, deadline, cancelled, &result.error);
    if (outcome != HttpsResult::Ok) {
        result.outcome = outcome;
        return result;
    }

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> ctx(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set_verify(ctx.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_default_verify_paths(ctx.get());
    if (const char* extra = zorvik_platform::environment("ZORVIK_EXTRA_CA"))
        SSL_CTX_load_verify_locations(ctx.get(), extra, nullptr);
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(ctx.get()), SSL_free);
    SSL_set_fd(ssl.get(), c.fd);
    SSL_set_tlsext_host_name(ssl.get(), target.host.c_str());
    X509_VERIFY_PARAM* param = SSL_get0_param(ssl.get());
    if (!target.host.empty() && target.host.find_first_not_of("0123456789.") == std::string::npos)
        X509_VERIFY_PARAM_set1_ip_asc(param, target.host.c_str());
    else
        X509_VERIFY_PARAM_set1_host(param, target.host.c_str(), 0);

    int rc = 0;
    outcome = tlsStep(ssl.get(), c.fd, [&] { return SSL_connect(ssl.get()); }, &rc, deadline, cancelled);
    if (outcome != HttpsResult::Ok) {
        result.outcome = outcome;
        const long verify = SSL_get_verify_result(ssl.get());
        result.error = verify != X509_V_OK ? std::string("certificate: ") + X509_verify_cert_error_string(verify)
                                           : sslError();
        return result;
    }

    const std::string request = "POST " + target.path + " HTTP/1.1\r\nHost: " + target.host + ":" + target.port +
                                "\r\nUser-Agent: qvtoken_gui\r\nContent-Type: " + contentType +
                                "\r\nContent-Length: " + std::to_string(body.size()) +
                                "\r\nConnection: close\r\n\r\n" + body;
    size_t sent = 0;
    while (sent < request.size()) {
        outcome = tlsStep(
            ssl.get(), c.fd,
            [&] { return SSL_write(ssl.get(), request.data() + sent, static_cast<int>(request.size() - sent)); }, &rc,
            deadline, cancelled);
        if (outcome != HttpsResult::Ok) {
            result.outcome = outcome;
            result.error = sslError();
            return result;
        }
        sent += static_cast<size_t>(rc);
    }

    std::string answer;
    char buf[4096];
    for (;;) {
        outcome = tlsStep(ssl.get(), c.fd, [&] { return SSL_read(ssl.get(), buf, sizeof buf); }, &rc, deadline,
                          cancelled);
        if (outcome == HttpsResult::Ok) {
            answer.append(buf, static_cast<size_t>(rc));
            continue;
        }
        if (outcome != HttpsResult::NetworkError) {
            result.outcome = outcome;
            return result;
        }
        break; // closed by the server (Connection: close)
    }
    const auto headerEnd = answer.find("\r\n\r\n");
    if (answer.compare(0, 5, "HTTP/") != 0 || headerEnd == std::string::npos) {
        result.error = "no HTTP answer";
        return result;
    }
    const auto space = answer.find(' ');
    result.status = std::atoi(answer.c_str() + space + 1);
    result.body = answer.substr(headerEnd + 4);
    result.outcome = HttpsResult::Ok;
    return result;
}

} // namespace qvtoken_gui
