#include "vantrel_presence.h"

#include <winscard.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "cryptoki_log.h"
#include "reader_names.h"
#include "vantrel_protocol.h"

namespace zcryptoki {

namespace {

struct ReaderMemory
{
    unsigned eventCount = 0;
    std::vector<unsigned char> atr;
    CardState verdict = CardState::Absent;
    std::chrono::steady_clock::time_point probedAt;
};

// A faulty card is asked again after this long even without a card event.
constexpr std::chrono::seconds kFaultyRetry(2);

struct PcscState
{
    std::mutex mutex;
    SCARDCONTEXT context = 0;
    bool haveContext = false;
    bool serviceMissingLogged = false;
    std::map<std::string, ReaderMemory> readers;
};

PcscState& state()
{
    static PcscState s;
    return s;
}

std::string swText(unsigned sw)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "%04X", sw);
    return buf;
}

// Sends SELECT of the Vantrel application to the card in `reader`. `retry` is set when the
// answer could not be had for a passing reason (card in exclusive use, reset under way).
CardState probeCard(SCARDCONTEXT context, const std::string& reader, const std::vector<unsigned char>& atr, bool& retry,
                    std::string& reason)
{
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    LONG rv = SCardConnect(context, reader.c_str(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card,
                           &protocol);
    if (rv != SCARD_S_SUCCESS) {
        retry = rv == SCARD_E_SHARING_VIOLATION || rv == SCARD_W_RESET_CARD;
        if (rv == SCARD_E_SHARING_VIOLATION) {
            // Someone holds the card exclusively (a firmware update, say): judge by the ATR.
            static const unsigned char vantrelAtr[] = {VANTREL_ATR_BYTES};
            if (atr == std::vector<unsigned char>(vantrelAtr, vantrelAtr + VANTREL_ATR_LEN))
                return CardState::Present;
        }
        reason = "reader \"" + reader + "\": cannot connect to the card: " + pcsc_stringify_error(rv);
        return rv == SCARD_W_UNRESPONSIVE_CARD ? CardState::Faulty : CardState::Absent;
    }
    const unsigned char select[] = {VANTREL_CLA_ISO, VANTREL_INS_SELECT, 0x04, 0x00,
                                    VANTREL_AID_LEN, VANTREL_AID_BYTES};
    unsigned char answer[258];
    DWORD answerLength = sizeof answer;
    const SCARD_IO_REQUEST* pci = protocol == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1;
    rv = SCardTransmit(card, pci, select, sizeof select, nullptr, answer, &answerLength);
    SCardDisconnect(card, SCARD_LEAVE_CARD);
    if (rv != SCARD_S_SUCCESS) {
        retry = rv == SCARD_W_RESET_CARD;
        if (rv == SCARD_W_REMOVED_CARD || rv == SCARD_E_NO_SMARTCARD)
            return CardState::Absent;
        reason = "reader \"" + reader + "\": the card does not answer: " + pcsc_stringify_error(rv);
        return CardState::Faulty;
    }
    if (answerLength < 2) {
        reason = "reader \"" + reader + "\": the card gave a short answer to SELECT";
        return CardState::Faulty;
    }
    const unsigned sw = (answer[answerLength - 2] << 8) | answer[answerLength - 1];
    if (sw == VANTREL_SW_OK) {
        reason = "Vantrel found in reader \"" + reader + "\"";
        return CardState::Present;
    }
    if ((sw & 0xFF00) == 0x6F00 || (sw & 0xFF00) == 0x6400 || (sw & 0xFF00) == 0x6500) {
        reason = "reader \"" + reader + "\": the Vantrel application reports a fault, SW " + swText(sw);
        return CardState::Faulty;
    }
    reason = "reader \"" + reader + "\": not a Vantrel, SELECT answered " + swText(sw);
    return CardState::Absent;
}

bool ensureContext(PcscState& s)
{
    if (s.haveContext && SCardIsValidContext(s.context) == SCARD_S_SUCCESS)
        return true;
    if (s.haveContext)
        SCardReleaseContext(s.context);
    s.haveContext = false;
    const LONG rv = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &s.context);
    if (rv != SCARD_S_SUCCESS) {
        if (!s.serviceMissingLogged)
            logWarning(std::string("no PC/SC service, so no Vantrel: ") + pcsc_stringify_error(rv));
        s.serviceMissingLogged = true;
        return false;
    }
    s.serviceMissingLogged = false;
    s.haveContext = true;
    return true;
}

void dropContext(PcscState& s)
{
    if (s.haveContext)
        SCardReleaseContext(s.context);
    s.haveContext = false;
    s.readers.clear();
}

// The reader names, or an empty list. A dead service drops the context for the next call.
std::vector<std::string> listReaders(PcscState& s)
{
    DWORD length = 0;
    LONG rv = SCardListReaders(s.context, nullptr, nullptr, &length);
    std::vector<char> names;
    if (rv == SCARD_S_SUCCESS) {
        names.resize(length + 1);
        rv = SCardListReaders(s.context, nullptr, names.data(), &length);
    }
    if (rv != SCARD_S_SUCCESS) {
        if (rv != SCARD_E_NO_READERS_AVAILABLE)
            dropContext(s);
        return {};
    }
    return zorvik_platform::readerNames(names.data(), std::min<size_t>(length, names.size()));
}

} // namespace

CardState vantrelPresence()
{
    PcscState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!ensureContext(s))
        return CardState::Absent;
    std::vector<std::string> readers = listReaders(s);
    if (readers.empty()) {
        s.readers.clear();
        return CardState::Absent;
    }
    std::vector<SCARD_READERSTATE> states(readers.size());
    for (size_t i = 0; i < readers.size(); ++i) {
        states[i].szReader = readers[i].c_str();
        states[i].dwCurrentState = SCARD_STATE_UNAWARE;
    }
    const LONG rv = SCardGetStatusChange(s.context, 0, states.data(), static_cast<DWORD>(states.size()));
    if (rv != SCARD_S_SUCCESS && rv != SCARD_E_TIMEOUT) {
        dropContext(s);
        return CardState::Absent;
    }
    std::map<std::string, ReaderMemory> seen;
    CardState result = CardState::Absent;
    for (size_t i = 0; i < readers.size(); ++i) {
        const SCARD_READERSTATE& st = states[i];
        if (!(st.dwEventState & SCARD_STATE_PRESENT) || (st.dwEventState & SCARD_STATE_MUTE)) {
            if (st.dwEventState & SCARD_STATE_MUTE)
                result = result == CardState::Present ? result : CardState::Faulty;
            continue;
        }
        ReaderMemory memory;
        // pcsc-lite counts the card events of a reader in the upper half of the state.
        memory.eventCount = static_cast<unsigned>(st.dwEventState >> 16);
        memory.atr.assign(st.rgbAtr, st.rgbAtr + std::min<DWORD>(st.cbAtr, sizeof st.rgbAtr));
        auto known = s.readers.find(readers[i]);
        const auto now = std::chrono::steady_clock::now();
        const bool sameCard = known != s.readers.end() && known->second.eventCount == memory.eventCount &&
                              known->second.atr == memory.atr;
        bool retry = false;
        if (sameCard && (known->second.verdict != CardState::Faulty || now - known->second.probedAt < kFaultyRetry)) {
            memory.verdict = known->second.verdict;
            memory.probedAt = known->second.probedAt;
        } else {
            std::string reason;
            memory.verdict = probeCard(s.context, readers[i], memory.atr, retry, reason);
            memory.probedAt = now;
            // Logged when the reader's verdict changes, not at every look.
            if (!reason.empty() && !(sameCard && known->second.verdict == memory.verdict))
                logLine(memory.verdict == CardState::Faulty ? QVLOGGER_WARNING : QVLOGGER_INFO, reason);
        }
        if (!retry)
            seen[readers[i]] = memory;
        if (memory.verdict == CardState::Present)
            result = CardState::Present;
        else if (memory.verdict == CardState::Faulty && result == CardState::Absent)
            result = CardState::Faulty;
    }
    s.readers.swap(seen);
    return result;
}

void releasePresence()
{
    PcscState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    dropContext(s);
}

const char* cardStateName(CardState state)
{
    switch (state) {
    case CardState::Present:
        return "present";
    case CardState::Faulty:
        return "faulty";
    case CardState::Absent:
        break;
    }
    return "absent";
}

} // namespace zcryptoki
