// The key's part of a ticket authentication.
#pragma once

#include <string>

struct KeyAnswer {
    std::string serialHex; // the key's serial number, upper-case hexadecimal
    std::string proofHex;  // the key's HMAC over the ticket, upper-case hexadecimal
};

// Has the first Vantrel found answer the ticket; false when there is none or it refused.
bool answerTicket(const std::string& ticket, KeyAnswer* answer);
