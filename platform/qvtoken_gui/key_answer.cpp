#include "key_answer.h"

#include "qvtoken.h"

#include <memory>

namespace {
std::string hex(const uint8_t* data, size_t len)
{
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < len; ++i) {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}
} // namespace

bool answerTicket(const std::string& ticket, KeyAnswer* answer)
{
    std::unique_ptr<qvtoken_search, decltype(&qvtoken_destroySearch)> search(
        qvtoken_initSearchWithFlags(QVTOKEN_SEARCH_VANTREL_ONLY), qvtoken_destroySearch);
    if (!search)
        return false;
    qvtoken_token* token = qvtoken_findNextToken(search.get(), 0);
    if (!token)
        return false;
    const KeyStatusRecord record = qvtoken_getTokenStatus(token, nullptr, nullptr);
    uint8_t proof[32];
    if (qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>(ticket.data()), ticket.size(), proof) !=
        QVTOKEN_OK)
        return false;
    answer->serialHex = hex(record.serial, sizeof record.serial);
    answer->proofHex = hex(proof, sizeof proof);
    return true;
}
