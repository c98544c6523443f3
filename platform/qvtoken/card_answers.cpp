#include "card_answers.h"

#include "vantrel_protocol.h"

#include <cstring>

namespace qvtoken {

AnswerStep takeAnswer(const uint8_t* answer, size_t length, std::vector<uint8_t>& command,
                      std::vector<uint8_t>& response)
{
    if (!answer || length < 2)
        return AnswerStep::Malformed;
    const uint8_t sw1 = answer[length - 2];
    const uint8_t sw2 = answer[length - 1];
    if (sw1 == 0x61) {
        // More data waits: fetch it with GET RESPONSE.
        response.insert(response.end(), answer, answer + length - 2);
        command = {0x00, 0xC0, 0x00, 0x00, sw2};
        return AnswerStep::Again;
    }
    if (sw1 == 0x6C && command.size() >= 5) {
        // Wrong expected length: the card says how many bytes it has.
        command.back() = sw2;
        return AnswerStep::Again;
    }
    response.insert(response.end(), answer, answer + length);
    return AnswerStep::Done;
}

uint16_t statusWord(const std::vector<uint8_t>& response)
{
    if (response.size() < 2)
        return 0;
    return static_cast<uint16_t>((response[response.size() - 2] << 8) | response.back());
}

bool parseStatusRecord(const std::vector<uint8_t>& d, KeyStatusRecord& rec)
{
    size_t pos = 0;
    auto need = [&](size_t n) { return pos + n <= d.size(); };
    if (!need(4 + 1 + 1 + VANTREL_SERIAL_LEN))
        return false;
    const uint32_t info = (uint32_t(d[0]) << 24) | (uint32_t(d[1]) << 16) | (uint32_t(d[2]) << 8) | d[3];
    pos = 4;
    const int32_t status = d[pos++];
    const int32_t network = d[pos++];
    uint8_t serial[VANTREL_SERIAL_LEN];
    std::memcpy(serial, d.data() + pos, VANTREL_SERIAL_LEN);
    pos += VANTREL_SERIAL_LEN;
    uint8_t* arrays[2] = {rec.firstVersion, rec.secondVersion};
    int16_t* lengths[2] = {&rec.firstVersionLen, &rec.secondVersionLen};
    for (int i = 0; i < 2; ++i) {
        if (!need(1))
            return false;
        const size_t n = d[pos++];
        if (n > VANTREL_VERSION_MAX || !need(n))
            return false;
        std::memcpy(arrays[i], d.data() + pos, n);
        *lengths[i] = static_cast<int16_t>(n);
        pos += n;
    }
    if (!need(1))
        return false;
    const size_t c = d[pos++];
    if (c > VANTREL_CONTROLLER_MAX || !need(c))
        return false;
    std::memcpy(rec.controllerVersion, d.data() + pos, c);
    rec.controllerVersion[c] = '\0';
    rec.infoStatus = static_cast<int32_t>(info);
    rec.tokenStatus = status;
    rec.networkType = network;
    std::memcpy(rec.serial, serial, VANTREL_SERIAL_LEN);
    return true;
}

} // namespace qvtoken
