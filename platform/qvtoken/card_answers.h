// What libqvtoken reads from the key's answers, kept apart from the PC/SC calls: the
// follow-up rules of an exchange and the status record.
#pragma once

#include "qvtoken.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvtoken {

enum class AnswerStep {
    Done,     // `response` holds the whole answer, status word last
    Again,    // send `command` (now the follow-up) and hand its answer here too
    Malformed // shorter than a status word
};

// Takes one answer of the card to `command`. Answers 61xx (more data) and 6Cxx (wrong Le)
// are followed up as ISO 7816-4 says: their data is kept and `command` becomes GET RESPONSE
// or the command again with the right Le.
AnswerStep takeAnswer(const uint8_t* answer, size_t length, std::vector<uint8_t>& command,
                      std::vector<uint8_t>& response);

// The last two bytes as a status word; 0 for a shorter response.
uint16_t statusWord(const std::vector<uint8_t>& response);

// Fills the record from the GET STATUS answer (data without the status word). False when the
// data is not a whole record; the record may then hold part of it.
bool parseStatusRecord(const std::vector<uint8_t>& data, KeyStatusRecord& rec);

} // namespace qvtoken
