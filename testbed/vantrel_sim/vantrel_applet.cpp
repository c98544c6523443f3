#include "vantrel_applet.h"

#include "vantrel_protocol.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>

namespace {

const uint8_t kAid[] = {VANTREL_AID_BYTES};

bool parseDecimal(const std::string& text, unsigned long long maxValue, unsigned long long& out)
{
    if (text.empty() || text.size() > 10)
        return false;
    unsigned long long v = 0;
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
        v = v * 10 + static_cast<unsigned>(c - '0');
    }
    if (v > maxValue)
        return false;
    out = v;
    return true;
}

} // namespace

bool CommandApdu::parse(const std::vector<uint8_t>& b, CommandApdu& out)
{
    if (b.size() < 4)
        return false;
    out = CommandApdu();
    out.cla = b[0];
    out.ins = b[1];
    out.p1 = b[2];
    out.p2 = b[3];
    if (b.size() == 4)
        return true; // case 1
    if (b.size() == 5) {
        out.hasLe = true; // case 2
        return true;
    }
    const size_t lc = b[4];
    if (lc == 0)
        return false; // extended length is not spoken here
    if (b.size() == 5 + lc) {
        out.data.assign(b.begin() + 5, b.end()); // case 3
        return true;
    }
    if (b.size() == 6 + lc) {
        out.data.assign(b.begin() + 5, b.end() - 1); // case 4
        out.hasLe = true;
        return true;
    }
    return false;
}

VantrelApplet::VantrelApplet(CardProfile& profile_) : profile(profile_)
{
    handlers[{VANTREL_CLA_ISO, VANTREL_INS_SELECT}] = &VantrelApplet::select;
    handlers[{VANTREL_CLA, VANTREL_INS_GET_STATUS}] = &VantrelApplet::getStatus;
    handlers[{VANTREL_CLA, VANTREL_INS_AUTH_TICKET}] = &VantrelApplet::authTicket;
    handlers[{VANTREL_CLA, VANTREL_INS_UPGRADE}] = &VantrelApplet::upgrade;
}

void VantrelApplet::reset()
{
    selected = false;
    upgradeBegun = false;
    upgradeBytes = 0;
}

std::vector<uint8_t> VantrelApplet::statusWord(uint16_t sw)
{
    return {static_cast<uint8_t>(sw >> 8), static_cast<uint8_t>(sw & 0xFF)};
}

std::vector<uint8_t> VantrelApplet::process(const std::vector<uint8_t>& command)
{
    CommandApdu apdu;
    if (!CommandApdu::parse(command, apdu))
        return statusWord(VANTREL_SW_WRONG_LENGTH);
    const auto it = handlers.find({apdu.cla, apdu.ins});
    if (it == handlers.end()) {
        const bool knownClass = std::any_of(handlers.begin(), handlers.end(),
                                            [&](const auto& h) { return h.first.cla == apdu.cla; });
        return statusWord(knownClass ? VANTREL_SW_INS_NOT_SUPPORTED : VANTREL_SW_CLA_NOT_SUPPORTED);
    }
    // A plain card knows nothing but the ISO SELECT (and finds no Vantrel application).
    if (!profile.vantrel && apdu.cla != VANTREL_CLA_ISO)
        return statusWord(VANTREL_SW_CLA_NOT_SUPPORTED);
    if (apdu.cla == VANTREL_CLA && !selected)
        return statusWord(VANTREL_SW_CONDITIONS);
    return (this->*(it->second))(apdu);
}

std::vector<uint8_t> VantrelApplet::select(const CommandApdu& apdu)
{
    if (apdu.p1 != 0x04 || (apdu.p2 != 0x00 && apdu.p2 != 0x0C))
        return statusWord(VANTREL_SW_WRONG_P1P2);
    selected = profile.vantrel && apdu.data.size() == VANTREL_AID_LEN &&
               std::equal(apdu.data.begin(), apdu.data.end(), kAid);
    return statusWord(selected ? VANTREL_SW_OK : VANTREL_SW_FILE_NOT_FOUND);
}

std::vector<uint8_t> VantrelApplet::getStatus(const CommandApdu& apdu)
{
    if (apdu.p1 != 0 || apdu.p2 != 0)
        return statusWord(VANTREL_SW_WRONG_P1P2);
    if (const auto f = profile.failures.find(VANTREL_INS_GET_STATUS); f != profile.failures.end())
        return statusWord(f->second);
    std::vector<uint8_t> r;
    const auto info = static_cast<uint32_t>(profile.infoStatus);
    for (int shift = 24; shift >= 0; shift -= 8)
        r.push_back(static_cast<uint8_t>(info >> shift));
    r.push_back(profile.keyStatus);
    r.push_back(profile.network);
    r.insert(r.end(), profile.serial.begin(), profile.serial.end());
    r.push_back(static_cast<uint8_t>(profile.version1.size()));
    r.insert(r.end(), profile.version1.begin(), profile.version1.end());
    r.push_back(static_cast<uint8_t>(profile.version2.size()));
    r.insert(r.end(), profile.version2.begin(), profile.version2.end());
    r.push_back(static_cast<uint8_t>(profile.controller.size()));
    r.insert(r.end(), profile.controller.begin(), profile.controller.end());
    const auto sw = statusWord(VANTREL_SW_OK);
    r.insert(r.end(), sw.begin(), sw.end());
    return r;
}

std::vector<uint8_t> VantrelApplet::benchSecret(const std::string& serialHex)
{
    const std::string text = VANTREL_BENCH_SECRET_PREFIX + serialHex;
    std::vector<uint8_t> digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return digest;
}

std::vector<uint8_t> VantrelApplet::authTicket(const CommandApdu& apdu)
{
    if (apdu.p1 != 0 || apdu.p2 != 0)
        return statusWord(VANTREL_SW_WRONG_P1P2);
    if (apdu.data.empty())
        return statusWord(VANTREL_SW_WRONG_LENGTH);
    if (const auto f = profile.failures.find(VANTREL_INS_AUTH_TICKET); f != profile.failures.end())
        return statusWord(f->second);
    // A foreign key was provisioned elsewhere: its answers are well formed but wrong here.
    const std::vector<uint8_t> secret = benchSecret(profile.foreignSecret ? "FOREIGN" + profile.serialHex()
                                                                          : profile.serialHex());
    std::vector<uint8_t> r(VANTREL_HMAC_LEN);
    unsigned int len = 0;
    if (!HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()), apdu.data.data(), apdu.data.size(),
              r.data(), &len) ||
        len != VANTREL_HMAC_LEN)
        return statusWord(VANTREL_SW_INTERNAL_ERROR);
    const auto sw = statusWord(VANTREL_SW_OK);
    r.insert(r.end(), sw.begin(), sw.end());
    return r;
}

bool VantrelApplet::parseUpgradeTarget(const std::string& text, std::vector<uint8_t>& version1,
                                       std::vector<uint8_t>& version2, std::string& controller)
{
    const size_t semi = text.find(';');
    if (semi == std::string::npos || text.find(';', semi + 1) != std::string::npos)
        return false;
    const std::string se = text.substr(0, semi);
    const std::string ctl = text.substr(semi + 1);
    if (ctl.empty() || ctl.size() > VANTREL_CONTROLLER_MAX)
        return false;
    for (char c : ctl)
        if (!std::isprint(static_cast<unsigned char>(c)))
            return false;

    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t dot = se.find('.', start);
        parts.push_back(se.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    // At least one version byte and the build number.
    if (parts.size() < 2 || parts.size() - 1 > VANTREL_VERSION_MAX)
        return false;
    std::vector<uint8_t> v1;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        unsigned long long v = 0;
        if (!parseDecimal(parts[i], 255, v))
            return false;
        v1.push_back(static_cast<uint8_t>(v));
    }
    unsigned long long build = 0;
    if (!parseDecimal(parts.back(), 0xFFFFFFFFull, build))
        return false;
    std::vector<uint8_t> v2;
    do {
        v2.insert(v2.begin(), static_cast<uint8_t>(build & 0xFF));
        build >>= 8;
    } while (build != 0);
    version1 = v1;
    version2 = v2;
    controller = ctl;
    return true;
}

std::vector<uint8_t> VantrelApplet::upgrade(const CommandApdu& apdu)
{
    if (apdu.p2 != 0)
        return statusWord(VANTREL_SW_WRONG_P1P2);
    switch (apdu.p1) {
    case VANTREL_UPGRADE_BEGIN: {
        const std::string target(apdu.data.begin(), apdu.data.end());
        upgradeBegun = false;
        upgradeBytes = 0;
        if (!parseUpgradeTarget(target, targetVersion1, targetVersion2, targetController))
            return statusWord(VANTREL_SW_WRONG_DATA);
        upgradeBegun = true;
        return statusWord(VANTREL_SW_OK);
    }
    case VANTREL_UPGRADE_BLOCK:
        if (!upgradeBegun)
            return statusWord(VANTREL_SW_CONDITIONS);
        if (apdu.data.empty())
            return statusWord(VANTREL_SW_WRONG_LENGTH);
        upgradeBytes += apdu.data.size();
        return statusWord(VANTREL_SW_OK);
    case VANTREL_UPGRADE_COMMIT: {
        if (!upgradeBegun || upgradeBytes == 0)
            return statusWord(VANTREL_SW_CONDITIONS);
        upgradeBegun = false;
        upgradeBytes = 0;
        if (const auto f = profile.failures.find(VANTREL_INS_UPGRADE); f != profile.failures.end())
            return statusWord(f->second);
        profile.version1 = targetVersion1;
        profile.version2 = targetVersion2;
        profile.controller = targetController;
        return statusWord(VANTREL_SW_OK);
    }
    default:
        return statusWord(VANTREL_SW_WRONG_P1P2);
    }
}

std::string VantrelApplet::firmwareVersionText() const
{
    std::string s;
    for (size_t i = 0; i < profile.version1.size(); ++i) {
        if (i)
            s += '.';
        s += std::to_string(profile.version1[i]);
    }
    uint32_t build = 0;
    for (uint8_t b : profile.version2)
        build = (build << 8) | b;
    return s + "." + std::to_string(build);
}
