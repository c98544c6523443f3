#include "pcsc_session.h"

#include "reader_names.h"
#include "vantrel_protocol.h"

#include <algorithm>

#include <cstdio>

namespace qvtoken {

std::string scardText(LONG rv)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(static_cast<uint32_t>(rv)));
    return buf;
}

PcscContext::~PcscContext()
{
    release();
}

LONG PcscContext::establish()
{
    release();
    const LONG rv = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &handle);
    established = rv == SCARD_S_SUCCESS;
    return rv;
}

void PcscContext::release()
{
    if (established) {
        SCardReleaseContext(handle);
        established = false;
        handle = 0;
    }
}

std::vector<std::string> PcscContext::readers(LONG& rv) const
{
    std::vector<std::string> names;
    DWORD len = 0;
    rv = SCardListReaders(handle, nullptr, nullptr, &len);
    if (rv == SCARD_E_NO_READERS_AVAILABLE) {
        rv = SCARD_S_SUCCESS;
        return names;
    }
    if (rv != SCARD_S_SUCCESS)
        return names;
    std::vector<char> buf(len + 1, '\0');
    rv = SCardListReaders(handle, nullptr, buf.data(), &len);
    if (rv == SCARD_E_NO_READERS_AVAILABLE) {
        rv = SCARD_S_SUCCESS;
        return names;
    }
    if (rv != SCARD_S_SUCCESS)
        return names;
    return zorvik_platform::readerNames(buf.data(), std::min<size_t>(len, buf.size()));
}

CardSession::~CardSession()
{
    close();
}

LONG CardSession::open(const std::string& reader)
{
    close();
    LONG rv = SCardConnect(context.get(), reader.c_str(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1,
                           &card, &protocol);
    if (rv != SCARD_S_SUCCESS)
        return rv;
    connected = true;
    rv = SCardBeginTransaction(card);
    if (rv == SCARD_W_RESET_CARD) {
        // Someone reset the card since we last saw it: take note and try once more.
        rv = SCardReconnect(card, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, SCARD_LEAVE_CARD,
                            &protocol);
        if (rv == SCARD_S_SUCCESS)
            rv = SCardBeginTransaction(card);
    }
    if (rv != SCARD_S_SUCCESS) {
        close();
        return rv;
    }
    inTransaction = true;

    BYTE atr[MAX_ATR_SIZE];
    DWORD atrLen = sizeof atr;
    DWORD state = 0;
    DWORD proto = 0;
    char name[MAX_READERNAME + 1];
    DWORD nameLen = sizeof name;
    rv = SCardStatus(card, name, &nameLen, &state, &proto, atr, &atrLen);
    if (rv != SCARD_S_SUCCESS) {
        close();
        return rv;
    }
    atrBytes.assign(atr, atr + atrLen);
    return SCARD_S_SUCCESS;
}

void CardSession::close()
{
    if (inTransaction) {
        SCardEndTransaction(card, SCARD_LEAVE_CARD);
        inTransaction = false;
    }
    if (connected) {
        SCardDisconnect(card, SCARD_LEAVE_CARD);
        connected = false;
    }
    atrBytes.clear();
}

LONG CardSession::transmit(const std::vector<uint8_t>& apdu, std::vector<uint8_t>& response)
{
    response.clear();
    if (!connected)
        return SCARD_E_INVALID_HANDLE;
    const SCARD_IO_REQUEST* pci = protocol == SCARD_PROTOCOL_T1 ? SCARD_PCI_T1 : SCARD_PCI_T0;
    std::vector<uint8_t> command = apdu;
    for (int round = 0; round < 32; ++round) {
        BYTE buf[258];
        DWORD len = sizeof buf;
        const LONG rv = SCardTransmit(card, pci, command.data(), static_cast<DWORD>(command.size()), nullptr, buf, &len);
        if (rv != SCARD_S_SUCCESS)
            return rv;
        switch (takeAnswer(buf, std::min<size_t>(len, sizeof buf), command, response)) {
        case AnswerStep::Done:
            return SCARD_S_SUCCESS;
        case AnswerStep::Malformed:
            return SCARD_F_COMM_ERROR;
        case AnswerStep::Again:
            break;
        }
    }
    return SCARD_F_COMM_ERROR;
}

LONG CardSession::selectVantrel(uint16_t& sw)
{
    sw = 0;
    std::vector<uint8_t> apdu{VANTREL_CLA_ISO, VANTREL_INS_SELECT, 0x04, 0x00, VANTREL_AID_LEN, VANTREL_AID_BYTES};
    std::vector<uint8_t> response;
    const LONG rv = transmit(apdu, response);
    if (rv == SCARD_S_SUCCESS)
        sw = statusWord(response);
    return rv;
}

} // namespace qvtoken
