#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The vpcd reader driver's wire protocol, seen from the card: every message is a 2-byte
// big-endian length followed by that many bytes. A 1-byte message from the reader is a
// control code; any longer message is a command APDU that gets its response APDU back.
class VpcdLink
{
public:
    enum Control : uint8_t { PowerOff = 0, PowerOn = 1, Reset = 2, GetAtr = 4 };
    enum class ConnectResult { Connected, Refused, Failed };

    VpcdLink() = default;
    ~VpcdLink();
    VpcdLink(const VpcdLink&) = delete;
    VpcdLink& operator=(const VpcdLink&) = delete;

    // One attempt. Refused means nobody listens on the port (yet): the reader is absent.
    ConnectResult connectTo(const std::string& host, int port, std::string& error);
    // False when the reader closed the connection or on an error.
    bool receive(std::vector<uint8_t>& message);
    bool send(const std::vector<uint8_t>& message);
    void close();

private:
    bool readAll(uint8_t* p, size_t n);
    bool writeAll(const uint8_t* p, size_t n);

    int fd = -1;
};
