// The key's answers to GET STATUS, as libqvtoken takes them: a chain of answers (each one
// length byte, then the bytes), followed up and read as a status record.
#include "card_answers.h"

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> command{0x80, 0x10, 0x00, 0x00, 0x00};
    std::vector<uint8_t> response;
    qvtoken::AnswerStep step = qvtoken::AnswerStep::Again;
    size_t pos = 0;
    while (step == qvtoken::AnswerStep::Again && pos < size) {
        const size_t length = data[pos++];
        const size_t n = std::min(length, size - pos);
        const std::vector<uint8_t> answer(data + pos, data + pos + n); // exactly n bytes
        pos += n;
        step = qvtoken::takeAnswer(answer.data(), answer.size(), command, response);
    }
    if (step != qvtoken::AnswerStep::Done || qvtoken::statusWord(response) != 0x9000)
        return 0;
    response.resize(response.size() - 2);
    KeyStatusRecord rec{};
    if (qvtoken::parseStatusRecord(response, rec) &&
        (rec.firstVersionLen > QVTOKEN_VERSION_MAX || rec.secondVersionLen > QVTOKEN_VERSION_MAX ||
         strnlen(rec.controllerVersion, sizeof rec.controllerVersion) == sizeof rec.controllerVersion))
        __builtin_trap();
    return 0;
}
