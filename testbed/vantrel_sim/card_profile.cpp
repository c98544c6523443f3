#include "card_profile.h"

#include "vantrel_protocol.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

// A plain ISO card: T=0, two historical bytes.
const std::vector<uint8_t> kPlainAtr{0x3B, 0x02, 0x14, 0x50};

bool parseLong(const std::string& text, long long minValue, long long maxValue, long long& out)
{
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || end == text.c_str() || *end != '\0' || v < minValue || v > maxValue)
        return false;
    out = v;
    return true;
}

bool parseStatusWord(const std::string& text, uint16_t& out)
{
    std::vector<uint8_t> bytes;
    if (!parseHex(text, bytes) || bytes.size() != 2)
        return false;
    out = static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
    return true;
}

} // namespace

std::vector<uint8_t> CardProfile::effectiveAtr() const
{
    if (!atr.empty())
        return atr;
    if (!vantrel)
        return kPlainAtr;
    return {VANTREL_ATR_BYTES};
}

std::string CardProfile::serialHex() const
{
    static const char digits[] = "0123456789ABCDEF";
    std::string s;
    for (uint8_t b : serial) {
        s += digits[b >> 4];
        s += digits[b & 0x0F];
    }
    return s;
}

bool parseVersionBytes(const std::string& text, std::vector<uint8_t>& out)
{
    out.clear();
    if (text.empty())
        return true;
    size_t start = 0;
    for (;;) {
        const size_t dot = text.find('.', start);
        const std::string part = text.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        long long v = 0;
        for (char c : part)
            if (!std::isdigit(static_cast<unsigned char>(c)))
                return false;
        if (!parseLong(part, 0, 255, v))
            return false;
        out.push_back(static_cast<uint8_t>(v));
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    return out.size() <= VANTREL_VERSION_MAX;
}

bool parseHex(const std::string& text, std::vector<uint8_t>& out)
{
    out.clear();
    int high = -1;
    for (char c : text) {
        if (c == ' ' || c == ':') {
            if (high >= 0)
                return false;
            continue;
        }
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return false;
        const int v = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (std::toupper(c) - 'A' + 10);
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<uint8_t>((high << 4) | v));
            high = -1;
        }
    }
    return high < 0 && !out.empty();
}

std::string usageText()
{
    return "usage: vantrel-sim --port N [options]\n"
           "Connects to a vpcd reader slot on 127.0.0.1:N (that inserts the key) and answers it\n"
           "until it is stopped (that removes the key).\n"
           "  --host H             address of the vpcd slot (default 127.0.0.1)\n"
           "  --status N           key status code 0..8 (default 7, active)\n"
           "  --info N             GetInfo status word, signed 32-bit (default 0)\n"
           "  --network N          network code 0..255 (default 1)\n"
           "  --serial HEX         8-byte serial number (default 5A52564B00000001)\n"
           "  --version1 A.B.C     secure-element version bytes (default 1.2.3)\n"
           "  --version2 A.B       second version bytes, big-endian (default 1.0 = 256)\n"
           "  --controller TEXT    controller version text (default 2.1)\n"
           "  --not-vantrel        a plain card: ATR only, SELECT answers 6A82\n"
           "  --atr HEX            answer-to-reset bytes\n"
           "  --foreign-secret     answer tickets with a secret the key service does not know\n"
           "  --fail-status SW     answer GET STATUS with SW (e.g. 6F00)\n"
           "  --fail-ticket SW     answer AUTH TICKET with SW\n"
           "  --fail-upgrade SW    answer the upgrade commit with SW\n"
           "  --delay MS           hold back every APDU answer by MS milliseconds\n"
           "  --drop-after N       close the connection instead of answering APDU N+1\n"
           "  --no-reconnect       exit when the reader goes away instead of waiting for it\n";
}

bool parseCardArguments(const std::vector<std::string>& args, CardProfile& p, std::string& error, bool& helpRequested)
{
    helpRequested = false;
    bool havePort = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& opt = args[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= args.size()) {
                error = "option " + opt + " needs a value";
                return false;
            }
            out = args[++i];
            return true;
        };
        auto bad = [&](const std::string& v) {
            error = "bad value for " + opt + ": \"" + v + "\"";
            return false;
        };
        std::string v;
        long long n = 0;
        if (opt == "--help" || opt == "-h") {
            helpRequested = true;
            error = usageText();
            return false;
        } else if (opt == "--not-vantrel") {
            p.vantrel = false;
        } else if (opt == "--foreign-secret") {
            p.foreignSecret = true;
        } else if (opt == "--no-reconnect") {
            p.reconnect = false;
        } else if (opt == "--port") {
            if (!value(v))
                return false;
            if (!parseLong(v, 1, 65535, n))
                return bad(v);
            p.port = static_cast<int>(n);
            havePort = true;
        } else if (opt == "--host") {
            if (!value(v))
                return false;
            if (v.empty())
                return bad(v);
            p.host = v;
        } else if (opt == "--status") {
            if (!value(v))
                return false;
            if (!parseLong(v, 0, 8, n))
                return bad(v);
            p.keyStatus = static_cast<uint8_t>(n);
        } else if (opt == "--info") {
            if (!value(v))
                return false;
            if (!parseLong(v, INT32_MIN, UINT32_MAX, n))
                return bad(v);
            p.infoStatus = static_cast<int32_t>(static_cast<uint32_t>(n));
        } else if (opt == "--network") {
            if (!value(v))
                return false;
            if (!parseLong(v, 0, 255, n))
                return bad(v);
            p.network = static_cast<uint8_t>(n);
        } else if (opt == "--serial") {
            std::vector<uint8_t> bytes;
            if (!value(v))
                return false;
            if (!parseHex(v, bytes) || bytes.size() != p.serial.size())
                return bad(v);
            std::copy(bytes.begin(), bytes.end(), p.serial.begin());
        } else if (opt == "--version1" || opt == "--version2") {
            if (!value(v))
                return false;
            if (!parseVersionBytes(v, opt == "--version1" ? p.version1 : p.version2))
                return bad(v);
        } else if (opt == "--controller") {
            if (!value(v))
                return false;
            if (v.size() > VANTREL_CONTROLLER_MAX)
                return bad(v);
            p.controller = v;
        } else if (opt == "--atr") {
            if (!value(v))
                return false;
            if (!parseHex(v, p.atr) || p.atr.size() > 33)
                return bad(v);
        } else if (opt == "--fail-status" || opt == "--fail-ticket" || opt == "--fail-upgrade") {
            uint16_t sw = 0;
            if (!value(v))
                return false;
            if (!parseStatusWord(v, sw))
                return bad(v);
            const uint8_t ins = opt == "--fail-status"   ? VANTREL_INS_GET_STATUS
                                : opt == "--fail-ticket" ? VANTREL_INS_AUTH_TICKET
                                                         : VANTREL_INS_UPGRADE;
            p.failures[ins] = sw;
        } else if (opt == "--delay") {
            if (!value(v))
                return false;
            if (!parseLong(v, 0, 600000, n))
                return bad(v);
            p.delayMs = static_cast<int>(n);
        } else if (opt == "--drop-after") {
            if (!value(v))
                return false;
            if (!parseLong(v, 0, INT_MAX, n))
                return bad(v);
            p.dropAfter = static_cast<int>(n);
        } else {
            error = "unknown option \"" + opt + "\"";
            return false;
        }
    }
    if (!havePort) {
        error = "--port is required";
        return false;
    }
    return true;
}
