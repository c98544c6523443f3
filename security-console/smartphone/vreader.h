#pragma once

#include <winscard.h>

#include <memory>
#include <string>
#include <vector>

// One "Zorvik Virtual Card Reader": the PC/SC reader through which a paired smartphone acts as
// a key. Besides the card it answers the reader driver's vendor control codes (discovery, the
// Diffie-Hellman pairing, the proxy channel, eject) and vendor attributes (the device names).
// Every call returns the PC/SC result unchanged; the caller decides. Used from one thread only.
class VReader
{
public:
    VReader(SCARDCONTEXT context, std::shared_ptr<void> contextOwner, const std::string& name);
    VReader(const VReader& other);
    VReader& operator=(const VReader& other);
    ~VReader();

    // The virtual readers among those PC/SC lists (name prefix match), each for `delete`.
    static std::vector<VReader*> getReaders();
    static void freeReaders(std::vector<VReader*>& readers);

    LONG open();
    void close();

    // `out`'s length on entry is the receive buffer size; on success it is the received length.
    LONG sendCommand(unsigned code, const std::string& in, std::string& out);
    LONG getAttr(unsigned attr, std::string& out);
    LONG getStatus(unsigned& state, std::string& atr);
    LONG isInserted(bool& inserted);
    LONG waitStatusChange(unsigned timeout);

    LONG stopPairing();
    LONG isPairingEnabled(bool& enabled);
    LONG enableDiscovery(unsigned value);
    LONG disableDiscovery();
    LONG isDiscoveryEnabled(bool& enabled);
    LONG approveDHPairing(unsigned value);
    LONG getDHPairingInfo(unsigned char& state, unsigned& value, std::string& data);
    LONG requestProxyChannel(unsigned value, std::string& out);
    LONG startDHPairing(unsigned value);
    LONG eject();
    LONG getDeviceName(std::string& name, std::string& model);

    // Starts a pairing and waits, polling once a second, until the phone's confirmation code is
    // ready: 0 with `code` and `data`, 0xFF when the phone reports no pairing, another state
    // value as it is, or a PC/SC error (after which the pairing is stopped).
    LONG doDHPairing(unsigned value, unsigned& code, std::string& data);

    const std::string& getName() const { return name; }
    bool isConnected() const { return card >= 1; }

    static constexpr const char* virtualReaderName = "Zorvik Virtual Card Reader";

private:
    LONG connect();
    LONG reconnect();
    LONG sendPlain(unsigned code);
    LONG sendValue(unsigned code, unsigned value);
    LONG readFlag(unsigned code, bool& flag);

    SCARDCONTEXT context = 0;
    SCARDHANDLE card = -1;
    std::string name;
    DWORD eventState = SCARD_STATE_UNAWARE;
    std::shared_ptr<void> contextOwner; // releases the context with its last reader
};
