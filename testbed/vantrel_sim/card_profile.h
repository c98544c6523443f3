#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Everything that makes one simulated key what it is: identity, the status it reports,
// its firmware versions, and the faults it shows on demand.
struct CardProfile {
    bool vantrel = true;               // false: a plain card (ATR only, SELECT answers 6A82)
    std::vector<uint8_t> atr;          // empty: the Vantrel ATR, or a plain ATR for a plain card
    int32_t infoStatus = 0;            // GetInfo status word
    uint8_t keyStatus = 7;             // 0..8, see VANTREL_KEY_*
    uint8_t network = 1;               // 0 none, 1 production, 2 developers, 3 test
    std::array<uint8_t, 8> serial{{0x5A, 0x52, 0x56, 0x4B, 0x00, 0x00, 0x00, 0x01}};
    std::vector<uint8_t> version1{1, 2, 3};   // secure-element version bytes
    std::vector<uint8_t> version2{1, 0};      // big-endian build number
    std::string controller = "2.1";           // controller version text
    bool foreignSecret = false;               // a secret the bench key service cannot derive

    // Faults: an instruction byte mapped to the status word it answers instead of its work
    // (for the upgrade instruction, only the commit step fails).
    std::map<uint8_t, uint16_t> failures;
    int delayMs = 0;      // every APDU answer is held back this long
    int dropAfter = -1;   // the connection is closed instead of answering APDU number N+1
    bool reconnect = true; // after the reader went away (pcscd stopped), wait for it again

    std::string host = "127.0.0.1";
    int port = 0;

    std::vector<uint8_t> effectiveAtr() const;
    std::string serialHex() const;
};

// Parses the command line into `profile`. Returns false with a message in `error` for bad
// input; "--help" returns false with the usage text in `error` and `helpRequested` set.
bool parseCardArguments(const std::vector<std::string>& args, CardProfile& profile, std::string& error,
                        bool& helpRequested);

// "1.2.3" -> {1, 2, 3}; every part 0..255. An empty text gives no bytes.
bool parseVersionBytes(const std::string& text, std::vector<uint8_t>& out);

// Hexadecimal text (blanks and colons allowed between byte pairs) -> bytes.
bool parseHex(const std::string& text, std::vector<uint8_t>& out);

std::string usageText();
