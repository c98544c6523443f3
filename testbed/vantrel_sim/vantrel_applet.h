#pragma once

#include "card_profile.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// One parsed short command APDU (ISO 7816-4 cases 1 to 4).
struct CommandApdu {
    uint8_t cla = 0;
    uint8_t ins = 0;
    uint8_t p1 = 0;
    uint8_t p2 = 0;
    std::vector<uint8_t> data;
    bool hasLe = false;

    // False when the bytes are not a well-formed short APDU.
    static bool parse(const std::vector<uint8_t>& bytes, CommandApdu& out);
};

// The card side of the Vantrel protocol. Each instruction is one handler in a table, so a
// new instruction is one more entry and one more member function.
class VantrelApplet
{
public:
    explicit VantrelApplet(CardProfile& profile);

    std::vector<uint8_t> atr() const { return profile.effectiveAtr(); }
    // Power off / on / reset: the application is deselected and an upgrade in progress is lost.
    void reset();
    // One command APDU in, the response APDU (data + status word) out.
    std::vector<uint8_t> process(const std::vector<uint8_t>& command);

    // The version text the key reports: version1 bytes joined by '.', then '.' and the
    // big-endian value of version2 (1.2.3 and 01 00 give "1.2.3.256").
    std::string firmwareVersionText() const;

    // Splits "<se version>;<controller version>" into the versions the key will report.
    static bool parseUpgradeTarget(const std::string& text, std::vector<uint8_t>& version1,
                                   std::vector<uint8_t>& version2, std::string& controller);

    // The per-key secret of the bench: SHA-256 of VANTREL_BENCH_SECRET_PREFIX + serial hex.
    static std::vector<uint8_t> benchSecret(const std::string& serialHex);

private:
    using Handler = std::vector<uint8_t> (VantrelApplet::*)(const CommandApdu&);
    struct Key {
        uint8_t cla;
        uint8_t ins;
        bool operator<(const Key& o) const { return cla != o.cla ? cla < o.cla : ins < o.ins; }
    };

    std::vector<uint8_t> select(const CommandApdu& apdu);
    std::vector<uint8_t> getStatus(const CommandApdu& apdu);
    std::vector<uint8_t> authTicket(const CommandApdu& apdu);
    std::vector<uint8_t> upgrade(const CommandApdu& apdu);

    static std::vector<uint8_t> statusWord(uint16_t sw);

    CardProfile& profile;
    std::map<Key, Handler> handlers;
    bool selected = false;

    // Firmware upgrade in progress.
    bool upgradeBegun = false;
    size_t upgradeBytes = 0;
    std::vector<uint8_t> targetVersion1;
    std::vector<uint8_t> targetVersion2;
    std::string targetController;
};
