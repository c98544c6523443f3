// PC/SC handles of libqvtoken: a context, and a session with one card inside a card
// transaction. Both release what they hold when they go out of scope.
#pragma once

#include "card_answers.h"

#include <winscard.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qvtoken {

// Result code of a PC/SC call as the log shows it: the 32-bit value in hexadecimal.
std::string scardText(LONG rv);

class PcscContext
{
public:
    PcscContext() = default;
    ~PcscContext();
    PcscContext(const PcscContext&) = delete;
    PcscContext& operator=(const PcscContext&) = delete;

    LONG establish();
    void release();
    bool valid() const { return established; }
    SCARDCONTEXT get() const { return handle; }

    // Reader names; an empty list when no reader is attached. rv gets the call's result.
    std::vector<std::string> readers(LONG& rv) const;

private:
    SCARDCONTEXT handle = 0;
    bool established = false;
};

// One connection to the card in a reader, held inside a card transaction so that a
// SELECT and the commands after it reach the card without another client in between.
class CardSession
{
public:
    explicit CardSession(const PcscContext& context) : context(context) {}
    ~CardSession();
    CardSession(const CardSession&) = delete;
    CardSession& operator=(const CardSession&) = delete;

    // Connects (shared) and begins the transaction.
    LONG open(const std::string& reader);
    void close();

    const std::vector<uint8_t>& atr() const { return atrBytes; }

    // Sends one APDU; the response holds data and the two status bytes. Follow-ups as
    // takeAnswer says.
    LONG transmit(const std::vector<uint8_t>& apdu, std::vector<uint8_t>& response);

    // SELECT of the Vantrel application; sw gets the status word (0 on a transport error).
    LONG selectVantrel(uint16_t& sw);

private:
    const PcscContext& context;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    bool connected = false;
    bool inTransaction = false;
    std::vector<uint8_t> atrBytes;
};

} // namespace qvtoken
