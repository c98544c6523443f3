// A small blocking HTTPS client for the platform libraries: one POST, certificate
// verification on, through the user's proxy setting, interruptible.
#pragma once

#include <atomic>
#include <string>

namespace qvtoken_gui {

struct HttpsResult {
    enum Outcome { Ok, TimedOut, Cancelled, NetworkError };
    Outcome outcome = NetworkError;
    int status = 0;      // HTTP status when outcome is Ok
    std::string body;    // response body when outcome is Ok
    std::string error;   // what went wrong otherwise
};

// Proxy to use for Zorvik traffic: ZORVIK_PROXY ("host:port") first, else the stored,
// enabled setting of the domain "com.zorvik.qvtransport". Empty host: direct.
struct ProxySetting {
    std::string host;
    std::string port;
};
ProxySetting discoverProxy();

HttpsResult httpsPost(const std::string& url, const std::string& contentType, const std::string& body, int timeoutMs,
                      const std::atomic<bool>& cancelled);

} // namespace qvtoken_gui
