#include "vreader.h"

#include <qvlogger.h>
#include <reader_names.h>

#include <algorithm>

#include <chrono>
#include <cstring>
#include <thread>

namespace {

constexpr unsigned kStopPairing = 0x42000902;
constexpr unsigned kIsPairingEnabled = 0x42000903;
constexpr unsigned kEnableDiscovery = 0x42000905;
constexpr unsigned kDisableDiscovery = 0x42000906;
constexpr unsigned kIsDiscoveryEnabled = 0x42000907;
constexpr unsigned kApproveDHPairing = 0x42000909;
constexpr unsigned kDHPairingInfo = 0x42000910;
constexpr unsigned kRequestProxyChannel = 0x42000911;
constexpr unsigned kStartDHPairing = 0x42000918;
constexpr unsigned kEject = 0x42000006;

constexpr unsigned kAttrDeviceModel = 0x75B01;
constexpr unsigned kAttrDeviceName = 0x75B02;
constexpr size_t kAttrBuffer = 264;
constexpr size_t kPairingInfoBuffer = 2048;
constexpr size_t kProxyBuffer = 256;

constexpr unsigned char kPairingNone = 0;
constexpr unsigned char kPairingInProgress = 1;
constexpr unsigned char kPairingReady = 2;

// Printed as the 32-bit code PC/SC defines, whatever the width of LONG.
unsigned hex(LONG rv)
{
    return static_cast<unsigned>(rv);
}

template <typename... Args> void logLine(const char* format, Args... args)
{
    qvlogger_log(1, "dashboard", format, args...);
}

std::string trimmedAtNul(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

} // namespace

VReader::VReader(SCARDCONTEXT context, std::shared_ptr<void> contextOwner, const std::string& name)
    : context(context), name(name), contextOwner(std::move(contextOwner))
{
}

VReader::VReader(const VReader& other)
    : context(other.context), name(other.name), eventState(other.eventState), contextOwner(other.contextOwner)
{
}

VReader& VReader::operator=(const VReader& other)
{
    if (this != &other) {
        close();
        context = other.context;
        name = other.name;
        eventState = other.eventState;
        contextOwner = other.contextOwner;
    }
    return *this;
}

VReader::~VReader()
{
    close();
}

std::vector<VReader*> VReader::getReaders()
{
    std::vector<VReader*> found;
    SCARDCONTEXT ctx = 0;
    LONG rv = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &ctx);
    if (rv != SCARD_S_SUCCESS) {
        logLine("Error in SCardEstablishContext: %x", hex(rv));
        return found;
    }
    // The readers found share the context; the last one to go releases it.
    std::shared_ptr<void> owner(nullptr, [ctx](void*) { SCardReleaseContext(ctx); });

    DWORD size = 0;
    rv = SCardListReaders(ctx, nullptr, nullptr, &size);
    std::vector<char> names(size + 1, '\0');
    if (rv == SCARD_S_SUCCESS)
        rv = SCardListReaders(ctx, nullptr, names.data(), &size);
    if (rv != SCARD_S_SUCCESS) {
        logLine("Error in SCardListReaders: %x", hex(rv));
        return found;
    }
    const size_t prefix = std::strlen(virtualReaderName);
    for (const std::string& name : zorvik_platform::readerNames(names.data(), std::min<size_t>(size, names.size()))) {
        logLine("Reader: %s", name.c_str());
        if (name.compare(0, prefix, virtualReaderName) == 0) {
            logLine("Trying to open reader: %s", name.c_str());
            found.push_back(new VReader(ctx, owner, name));
        }
    }
    return found;
}

void VReader::freeReaders(std::vector<VReader*>& readers)
{
    for (VReader* reader : readers)
        delete reader;
    readers.clear();
}

LONG VReader::connect()
{
    if (isConnected())
        return SCARD_S_SUCCESS;
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    LONG rv = SCardConnect(context, name.c_str(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &handle,
                           &protocol);
    // No phone connected: the reader itself still answers its control codes.
    if (rv == LONG(SCARD_W_REMOVED_CARD) || rv == LONG(SCARD_E_NO_SMARTCARD))
        rv = SCardConnect(context, name.c_str(), SCARD_SHARE_DIRECT, 0, &handle, &protocol);
    if (rv != SCARD_S_SUCCESS) {
        logLine("Error in SCardConnect: %x", hex(rv));
        return rv;
    }
    card = handle;
    return SCARD_S_SUCCESS;
}

LONG VReader::open()
{
    return connect();
}

void VReader::close()
{
    if (isConnected())
        SCardDisconnect(card, SCARD_LEAVE_CARD);
    card = -1;
}

LONG VReader::reconnect()
{
    close();
    return connect();
}

LONG VReader::sendCommand(unsigned code, const std::string& in, std::string& out)
{
    std::string buffer(out.size(), '\0');
    DWORD received = 0;
    auto call = [&] {
        return SCardControl(card, code, in.empty() ? nullptr : in.data(), static_cast<DWORD>(in.size()),
                            buffer.empty() ? nullptr : &buffer[0], static_cast<DWORD>(buffer.size()), &received);
    };
    LONG rv = call();
    if (rv == LONG(SCARD_W_REMOVED_CARD)) {
        rv = reconnect();
        if (rv == SCARD_S_SUCCESS)
            rv = call();
    }
    if (rv == SCARD_S_SUCCESS)
        out.assign(buffer.data(), received);
    return rv;
}

LONG VReader::getAttr(unsigned attr, std::string& out)
{
    std::string buffer(out.size(), '\0');
    DWORD length = 0;
    auto call = [&] {
        length = static_cast<DWORD>(buffer.size());
        return SCardGetAttrib(card, attr, reinterpret_cast<LPBYTE>(&buffer[0]), &length);
    };
    LONG rv = call();
    if (rv == LONG(SCARD_W_REMOVED_CARD)) {
        rv = reconnect();
        if (rv == SCARD_S_SUCCESS)
            rv = call();
    }
    if (rv != SCARD_S_SUCCESS) {
        logLine("Error in SCardGetAttrib: %x", hex(rv));
        return rv;
    }
    out.assign(buffer.data(), length);
    return rv;
}

LONG VReader::getStatus(unsigned& state, std::string& atr)
{
    char readerName[2048];
    DWORD nameLength = sizeof readerName;
    unsigned char atrBytes[256];
    DWORD atrLength = sizeof atrBytes;
    DWORD cardState = 0;
    DWORD protocol = 0;
    const LONG rv = SCardStatus(card, readerName, &nameLength, &cardState, &protocol, atrBytes, &atrLength);
    if (rv != SCARD_S_SUCCESS) {
        logLine("Error in SCardStatus: %x", hex(rv));
        return rv;
    }
    state = static_cast<unsigned>(cardState);
    atr.assign(reinterpret_cast<const char*>(atrBytes), atrLength);
    return rv;
}

// What PC/SC reports for the reader itself: a handle opened before the phone came or went
// would only answer that the card changed.
LONG VReader::isInserted(bool& inserted)
{
    SCARD_READERSTATE state{};
    state.szReader = name.c_str();
    state.dwCurrentState = SCARD_STATE_UNAWARE;
    const LONG rv = SCardGetStatusChange(context, 0, &state, 1);
    if (rv == SCARD_S_SUCCESS)
        inserted = (state.dwEventState & SCARD_STATE_PRESENT) != 0;
    return rv;
}

LONG VReader::waitStatusChange(unsigned timeout)
{
    SCARD_READERSTATE state{};
    state.szReader = name.c_str();
    state.dwCurrentState = eventState;
    const LONG rv = SCardGetStatusChange(context, timeout, &state, 1);
    if (rv == SCARD_S_SUCCESS)
        eventState = state.dwEventState;
    return rv;
}

LONG VReader::sendPlain(unsigned code)
{
    std::string out;
    return sendCommand(code, std::string(), out);
}

LONG VReader::sendValue(unsigned code, unsigned value)
{
    std::string out;
    return sendCommand(code, std::string(reinterpret_cast<const char*>(&value), sizeof value), out);
}

LONG VReader::readFlag(unsigned code, bool& flag)
{
    std::string out(4, '\0');
    const LONG rv = sendCommand(code, std::string(), out);
    if (rv == SCARD_S_SUCCESS)
        flag = out.find_first_not_of('\0') != std::string::npos;
    return rv;
}

LONG VReader::stopPairing()
{
    return sendPlain(kStopPairing);
}

LONG VReader::isPairingEnabled(bool& enabled)
{
    return readFlag(kIsPairingEnabled, enabled);
}

LONG VReader::enableDiscovery(unsigned value)
{
    return sendValue(kEnableDiscovery, value);
}

LONG VReader::disableDiscovery()
{
    return sendPlain(kDisableDiscovery);
}

LONG VReader::isDiscoveryEnabled(bool& enabled)
{
    return readFlag(kIsDiscoveryEnabled, enabled);
}

LONG VReader::approveDHPairing(unsigned value)
{
    return sendValue(kApproveDHPairing, value);
}

LONG VReader::getDHPairingInfo(unsigned char& state, unsigned& value, std::string& data)
{
    std::string out(kPairingInfoBuffer, '\0');
    const LONG rv = sendCommand(kDHPairingInfo, std::string(), out);
    if (rv != SCARD_S_SUCCESS)
        return rv;
    if (out.empty() || (out[0] == kPairingReady && out.size() < 5)) {
        logLine("IOCTL_SMARTCARD_DHPAIRING_INFO returned insufficient data");
        return SCARD_E_UNEXPECTED;
    }
    state = static_cast<unsigned char>(out[0]);
    if (state == kPairingReady) {
        std::memcpy(&value, out.data() + 1, sizeof value);
        data = out.substr(5);
    }
    return rv;
}

LONG VReader::requestProxyChannel(unsigned value, std::string& out)
{
    out.assign(kProxyBuffer, '\0');
    return sendCommand(kRequestProxyChannel, std::string(reinterpret_cast<const char*>(&value), sizeof value), out);
}

LONG VReader::startDHPairing(unsigned value)
{
    return sendValue(kStartDHPairing, value);
}

LONG VReader::eject()
{
    return sendPlain(kEject);
}

LONG VReader::getDeviceName(std::string& deviceName, std::string& model)
{
    std::string first(kAttrBuffer, '\0');
    LONG rv = getAttr(kAttrDeviceName, first);
    if (rv != SCARD_S_SUCCESS)
        return rv;
    std::string second(kAttrBuffer, '\0');
    rv = getAttr(kAttrDeviceModel, second);
    if (rv != SCARD_S_SUCCESS)
        return rv;
    deviceName = trimmedAtNul(first);
    model = trimmedAtNul(second);
    return rv;
}

LONG VReader::doDHPairing(unsigned value, unsigned& code, std::string& data)
{
    unsigned char state = kPairingNone;
    LONG rv = startDHPairing(value);
    if (rv == SCARD_S_SUCCESS)
        rv = getDHPairingInfo(state, code, data);
    while (rv == SCARD_S_SUCCESS && state == kPairingInProgress) {
        // The driver moves the pairing on between connections.
        close();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        rv = connect();
        if (rv == SCARD_S_SUCCESS)
            rv = getDHPairingInfo(state, code, data);
    }
    if (rv != SCARD_S_SUCCESS) {
        stopPairing();
        return rv;
    }
    if (state == kPairingReady)
        return 0;
    if (state == kPairingNone)
        return 0xFF;
    return state;
}
