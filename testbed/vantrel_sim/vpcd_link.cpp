#include "vpcd_link.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

VpcdLink::~VpcdLink()
{
    close();
}

void VpcdLink::close()
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

VpcdLink::ConnectResult VpcdLink::connectTo(const std::string& host, int port, std::string& error)
{
    close();
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* res = nullptr;
    const std::string service = std::to_string(port);
    if (const int rc = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &res); rc != 0) {
        error = "cannot resolve " + host + ": " + gai_strerror(rc);
        return ConnectResult::Failed;
    }
    ConnectResult result = ConnectResult::Failed;
    for (addrinfo* ai = res; ai; ai = ai->ai_next) {
        const int s = ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol);
        if (s < 0) {
            error = std::string("socket: ") + std::strerror(errno);
            continue;
        }
        if (::connect(s, ai->ai_addr, ai->ai_addrlen) == 0) {
            const int one = 1;
            ::setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            fd = s;
            result = ConnectResult::Connected;
            break;
        }
        const int err = errno;
        ::close(s);
        error = std::string("connect: ") + std::strerror(err);
        if (err == ECONNREFUSED)
            result = ConnectResult::Refused;
    }
    ::freeaddrinfo(res);
    return result;
}

bool VpcdLink::readAll(uint8_t* p, size_t n)
{
    while (n > 0) {
        const ssize_t r = ::recv(fd, p, n, 0);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        // The driver writes a message's length and its bytes separately; acknowledging at
        // once spares each exchange the peer's wait for a delayed ACK.
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
        p += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

bool VpcdLink::writeAll(const uint8_t* p, size_t n)
{
    while (n > 0) {
        const ssize_t r = ::send(fd, p, n, MSG_NOSIGNAL);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        p += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

bool VpcdLink::receive(std::vector<uint8_t>& message)
{
    if (fd < 0)
        return false;
    uint8_t header[2];
    if (!readAll(header, 2))
        return false;
    message.resize(static_cast<size_t>((header[0] << 8) | header[1]));
    return message.empty() || readAll(message.data(), message.size());
}

bool VpcdLink::send(const std::vector<uint8_t>& message)
{
    if (fd < 0 || message.size() > 0xFFFF)
        return false;
    std::vector<uint8_t> framed{static_cast<uint8_t>(message.size() >> 8), static_cast<uint8_t>(message.size() & 0xFF)};
    framed.insert(framed.end(), message.begin(), message.end());
    return writeAll(framed.data(), framed.size());
}
