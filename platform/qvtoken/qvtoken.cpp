// libqvtoken: Vantrel keys over PC/SC.
#include "qvtoken.h"

#include "platform_files.h"

#include "card_answers.h"
#include "pcsc_session.h"
#include "qvlogger.h"
#include "vantrel_protocol.h"

#include <openssl/sha.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using qvtoken::CardSession;
using qvtoken::parseStatusRecord;
using qvtoken::PcscContext;
using qvtoken::scardText;
using qvtoken::statusWord;

// The record layout is part of the interface: the program reads its fields by position.
static_assert(offsetof(KeyStatusRecord, infoStatus) == 0, "record layout");
static_assert(offsetof(KeyStatusRecord, tokenStatus) == 4, "record layout");
static_assert(offsetof(KeyStatusRecord, networkType) == 8, "record layout");
static_assert(offsetof(KeyStatusRecord, firstVersion) == 12, "record layout");
static_assert(offsetof(KeyStatusRecord, firstVersionLen) == 12 + QVTOKEN_VERSION_MAX, "record layout");
static_assert(offsetof(KeyStatusRecord, secondVersion) == 14 + QVTOKEN_VERSION_MAX, "record layout");
static_assert(offsetof(KeyStatusRecord, secondVersionLen) == 14 + 2 * QVTOKEN_VERSION_MAX, "record layout");
static_assert(offsetof(KeyStatusRecord, controllerVersion) == 16 + 2 * QVTOKEN_VERSION_MAX, "record layout");
static_assert(QVTOKEN_VERSION_MAX == VANTREL_VERSION_MAX && QVTOKEN_CONTROLLER_MAX > VANTREL_CONTROLLER_MAX &&
                  QVTOKEN_SERIAL_LEN == VANTREL_SERIAL_LEN,
              "record sizes follow the protocol");

struct qvtoken_token {
    std::string reader;
    std::vector<uint8_t> atr;
    bool vantrel = false;
    qvtoken_search* search = nullptr;
};

struct qvtoken_search {
    int flags = 0;
    std::set<std::string> returned; // readers whose key this search has handed out
    std::vector<qvtoken_token*> tokens;
};

struct qvtoken_context {
    qvtoken_token* token = nullptr;
};

namespace {

const char* const kComponent = "qvtoken";

#define QVLOG(level, ...) qvlogger_log(level, kComponent, __VA_ARGS__)

// Every live handle. A handle not in here was closed (or never ours) and is refused.
struct Registry {
    std::mutex mutex;
    std::set<qvtoken_search*> searches;
    std::set<qvtoken_token*> tokens;
    std::set<qvtoken_context*> contexts;

    // What the callers never released (a search nobody destroyed, with its tokens) ends with
    // the library.
    ~Registry()
    {
        for (qvtoken_token* token : tokens)
            delete token;
        for (qvtoken_search* search : searches)
            delete search;
        for (qvtoken_context* context : contexts)
            delete context;
    }
};

Registry& registry()
{
    static Registry r;
    return r;
}

// What an operation needs of a token, copied under the lock so that the PC/SC work runs
// without it (and survives a concurrent close).
bool tokenReader(qvtoken_token* token, std::string& reader)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (!token || !r.tokens.count(token))
        return false;
    reader = token->reader;
    return true;
}

void closeTokenLocked(Registry& r, qvtoken_token* token)
{
    r.tokens.erase(token);
    if (token->search) {
        auto& v = token->search->tokens;
        v.erase(std::remove(v.begin(), v.end(), token), v.end());
    }
    delete token;
}

// Opens a session with the key in `reader` and selects the Vantrel application.
int openVantrel(PcscContext& context, CardSession& session, const std::string& reader)
{
    LONG rv = context.establish();
    if (rv != SCARD_S_SUCCESS) {
        QVLOG(QVLOGGER_ERROR, "Cannot reach the smart-card service: %s", scardText(rv).c_str());
        return QVTOKEN_ERR_NO_SERVICE;
    }
    rv = session.open(reader);
    if (rv != SCARD_S_SUCCESS) {
        QVLOG(QVLOGGER_WARNING, "Cannot connect to the key in %s: %s", reader.c_str(), scardText(rv).c_str());
        return QVTOKEN_ERR_KEY_GONE;
    }
    uint16_t sw = 0;
    rv = session.selectVantrel(sw);
    if (rv != SCARD_S_SUCCESS) {
        QVLOG(QVLOGGER_WARNING, "SELECT failed in %s: %s", reader.c_str(), scardText(rv).c_str());
        return QVTOKEN_ERR_KEY_GONE;
    }
    if (sw != VANTREL_SW_OK)
        return QVTOKEN_ERR_NOT_VANTREL;
    return QVTOKEN_OK;
}

// Sends a Vantrel command built from its parts; sw gets the status word.
int vantrelCommand(CardSession& session, uint8_t ins, uint8_t p1, const std::vector<uint8_t>& data, bool wantData,
                   std::vector<uint8_t>& out, uint16_t& sw)
{
    std::vector<uint8_t> apdu{VANTREL_CLA, ins, p1, 0x00};
    if (!data.empty()) {
        apdu.push_back(static_cast<uint8_t>(data.size()));
        apdu.insert(apdu.end(), data.begin(), data.end());
    }
    if (wantData)
        apdu.push_back(0x00);
    const LONG rv = session.transmit(apdu, out);
    if (rv != SCARD_S_SUCCESS)
        return QVTOKEN_ERR_KEY_GONE;
    sw = statusWord(out);
    out.resize(out.size() - 2);
    return QVTOKEN_OK;
}

std::string configFile()
{
    const std::string dir = zorvik_platform::userConfigDir();
    return dir.empty() ? dir : dir + "/qvtoken.conf";
}

std::mutex& settingsMutex()
{
    static std::mutex m;
    return m;
}

// The firmware image the upgrade writes: blocks derived from the target version.
std::vector<std::vector<uint8_t>> firmwareImage(const std::string& target)
{
    std::vector<std::vector<uint8_t>> blocks;
    unsigned char seed[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(target.data()), target.size(), seed);
    for (int b = 0; b < 16; ++b) {
        std::vector<uint8_t> block;
        while (block.size() < 224) {
            SHA256(seed, sizeof seed, seed);
            block.insert(block.end(), seed, seed + sizeof seed);
        }
        blocks.push_back(block);
    }
    return blocks;
}

int finishOperation(int code, const std::string& text, int* resultCode, char* resultText, size_t resultTextSize)
{
    if (resultCode)
        *resultCode = code;
    if (resultText && resultTextSize > 0) {
        const size_t n = std::min(text.size(), resultTextSize - 1);
        std::memcpy(resultText, text.data(), n);
        resultText[n] = '\0';
    }
    QVLOG(code == QVTOKEN_OK ? QVLOGGER_INFO : QVLOGGER_ERROR, "upgradecode result %d %s", code, text.c_str());
    return code;
}

std::string swText(uint16_t sw)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "%04X", sw);
    return buf;
}

} // namespace

extern "C" {

qvtoken_search* qvtoken_initSearch(void)
{
    return qvtoken_initSearchWithFlags(QVTOKEN_SEARCH_VANTREL_ONLY);
}

qvtoken_search* qvtoken_initSearchWithFlags(int flags)
{
    auto* s = new qvtoken_search;
    s->flags = flags;
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.searches.insert(s);
    return s;
}

void qvtoken_destroySearch(qvtoken_search* search)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (!search || !r.searches.erase(search))
        return;
    for (qvtoken_token* t : std::vector<qvtoken_token*>(search->tokens)) {
        t->search = nullptr;
        closeTokenLocked(r, t);
    }
    delete search;
}

void qvtoken_closeToken(qvtoken_token* token)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (token && r.tokens.count(token))
        closeTokenLocked(r, token);
}

qvtoken_token* qvtoken_findNextToken(qvtoken_search* search, int waitMs)
{
    int flags = 0;
    std::set<std::string> returned;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        if (!search || !r.searches.count(search)) {
            QVLOG(QVLOGGER_ERROR, "findNextToken: invalid search handle");
            return nullptr;
        }
        flags = search->flags;
        returned = search->returned;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(waitMs, 0));

    PcscContext context;
    LONG rv = context.establish();
    if (rv != SCARD_S_SUCCESS) {
        QVLOG(QVLOGGER_ERROR, "Cannot reach the smart-card service: %s", scardText(rv).c_str());
        return nullptr;
    }
    for (;;) {
        const std::vector<std::string> readers = context.readers(rv);
        if (rv != SCARD_S_SUCCESS) {
            QVLOG(QVLOGGER_ERROR, "Cannot list readers: %s", scardText(rv).c_str());
            return nullptr;
        }
        // The states seen now; the wait below starts from them.
        std::vector<SCARD_READERSTATE> states(readers.size() + 1);
        for (size_t i = 0; i < readers.size(); ++i) {
            states[i].szReader = readers[i].c_str();
            states[i].dwCurrentState = SCARD_STATE_UNAWARE;
        }
        states.back().szReader = "\\\\?PnP?\\Notification";
        states.back().dwCurrentState = static_cast<DWORD>(readers.size()) << 16;
        if (!readers.empty()) {
            rv = SCardGetStatusChange(context.get(), 0, states.data(), static_cast<DWORD>(readers.size()));
            if (rv != SCARD_S_SUCCESS && rv != SCARD_E_TIMEOUT) {
                QVLOG(QVLOGGER_ERROR, "Cannot get the reader states: %s", scardText(rv).c_str());
                return nullptr;
            }
        }
        for (size_t i = 0; i < readers.size(); ++i) {
            const DWORD st = states[i].dwEventState;
            states[i].dwCurrentState = st & ~SCARD_STATE_CHANGED;
            if (!(st & SCARD_STATE_PRESENT) || (st & SCARD_STATE_MUTE) || returned.count(readers[i]))
                continue;
            CardSession session(context);
            if ((rv = session.open(readers[i])) != SCARD_S_SUCCESS) {
                QVLOG(QVLOGGER_WARNING, "Cannot connect to the card in %s: %s", readers[i].c_str(),
                      scardText(rv).c_str());
                continue;
            }
            uint16_t sw = 0;
            if ((rv = session.selectVantrel(sw)) != SCARD_S_SUCCESS) {
                QVLOG(QVLOGGER_WARNING, "SELECT failed in %s: %s", readers[i].c_str(), scardText(rv).c_str());
                continue;
            }
            const bool vantrel = sw == VANTREL_SW_OK;
            if (!vantrel && !(flags & QVTOKEN_SEARCH_ANY_CARD))
                continue;

            auto* token = new qvtoken_token;
            token->reader = readers[i];
            token->atr = session.atr();
            token->vantrel = vantrel;
            Registry& r = registry();
            std::lock_guard<std::mutex> lock(r.mutex);
            if (!r.searches.count(search)) {
                delete token; // destroyed meanwhile by another thread
                return nullptr;
            }
            if (search->returned.count(readers[i])) {
                delete token; // handed out meanwhile by a call on another thread
                continue;
            }
            token->search = search;
            search->returned.insert(readers[i]);
            search->tokens.push_back(token);
            r.tokens.insert(token);
            QVLOG(QVLOGGER_DEBUG, "Found %s in %s", vantrel ? "a Vantrel" : "a card that is no Vantrel",
                  readers[i].c_str());
            return token;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline)
            return nullptr;
        // Wait for a reader to change (a card in or out) or for readers to come or go.
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
        rv = SCardGetStatusChange(context.get(), static_cast<DWORD>(left), states.data(),
                                  static_cast<DWORD>(states.size()));
        if (rv == SCARD_E_TIMEOUT)
            return nullptr;
        if (rv != SCARD_S_SUCCESS && rv != SCARD_E_UNKNOWN_READER) {
            QVLOG(QVLOGGER_ERROR, "Waiting for a key failed: %s", scardText(rv).c_str());
            return nullptr;
        }
    }
}

const char* qvtoken_getReaderName(qvtoken_token* token)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return token && r.tokens.count(token) ? token->reader.c_str() : nullptr;
}

KeyStatusRecord qvtoken_getTokenStatus(qvtoken_token* token, uint8_t* atrBuf, int* atrLen)
{
    KeyStatusRecord rec;
    std::memset(&rec, 0, sizeof rec);
    const int atrRoom = (atrBuf && atrLen) ? std::max(*atrLen, 0) : 0;
    if (atrLen)
        *atrLen = 0;

    std::string reader;
    if (!tokenReader(token, reader)) {
        QVLOG(QVLOGGER_ERROR, "getTokenStatus: invalid key handle");
        return rec;
    }
    PcscContext context;
    CardSession session(context);
    const int rc = openVantrel(context, session, reader);
    if (rc == QVTOKEN_ERR_NO_SERVICE || rc == QVTOKEN_ERR_KEY_GONE) {
        rec.tokenStatus = QVTOKEN_STATUS_NO_KEY;
        return rec;
    }
    if (atrBuf && atrLen) {
        const int n = std::min(static_cast<int>(session.atr().size()), atrRoom);
        std::memcpy(atrBuf, session.atr().data(), static_cast<size_t>(n));
        *atrLen = n;
    }
    if (rc == QVTOKEN_ERR_NOT_VANTREL) {
        QVLOG(QVLOGGER_DEBUG, "The card in %s is no Vantrel", reader.c_str());
        rec.tokenStatus = QVTOKEN_STATUS_NOT_COMPATIBLE;
        return rec;
    }
    std::vector<uint8_t> data;
    uint16_t sw = 0;
    if (vantrelCommand(session, VANTREL_INS_GET_STATUS, 0, {}, true, data, sw) != QVTOKEN_OK) {
        QVLOG(QVLOGGER_WARNING, "The key in %s went away while reading its status", reader.c_str());
        if (atrLen)
            *atrLen = 0;
        rec.tokenStatus = QVTOKEN_STATUS_NO_KEY;
        return rec;
    }
    if (sw != VANTREL_SW_OK) {
        QVLOG(QVLOGGER_ERROR, "The key in %s cannot report its status: %s", reader.c_str(), swText(sw).c_str());
        rec.infoStatus = sw;
        rec.tokenStatus = QVTOKEN_STATUS_INTERNAL_ERROR;
        return rec;
    }
    if (!parseStatusRecord(data, rec)) {
        QVLOG(QVLOGGER_ERROR, "The key in %s sent a malformed status record (%zu bytes)", reader.c_str(),
              data.size());
        std::memset(&rec, 0, sizeof rec);
        rec.tokenStatus = QVTOKEN_STATUS_INTERNAL_ERROR;
        return rec;
    }
    QVLOG(QVLOGGER_DEBUG, "Key status in %s: info %d, status %d, network %d", reader.c_str(), rec.infoStatus,
          rec.tokenStatus, rec.networkType);
    return rec;
}

int qvtoken_sendApdu(qvtoken_token* token, const uint8_t* apdu, size_t apduLen, uint8_t* response,
                     size_t* responseLen)
{
    if (!apdu || apduLen < 4 || apduLen > 261 || !response || !responseLen)
        return QVTOKEN_ERR_INVALID_ARGUMENT;
    std::string reader;
    if (!tokenReader(token, reader))
        return QVTOKEN_ERR_INVALID_HANDLE;
    PcscContext context;
    CardSession session(context);
    const int rc = openVantrel(context, session, reader);
    if (rc != QVTOKEN_OK)
        return rc;
    std::vector<uint8_t> out;
    if (session.transmit(std::vector<uint8_t>(apdu, apdu + apduLen), out) != SCARD_S_SUCCESS)
        return QVTOKEN_ERR_KEY_GONE;
    if (out.size() > *responseLen) {
        *responseLen = out.size();
        return QVTOKEN_ERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(response, out.data(), out.size());
    *responseLen = out.size();
    return QVTOKEN_OK;
}

int qvtoken_answerTicket(qvtoken_token* token, const uint8_t* ticket, size_t ticketLen, uint8_t answer[32])
{
    if (!ticket || ticketLen == 0 || ticketLen > VANTREL_TICKET_MAX || !answer)
        return QVTOKEN_ERR_INVALID_ARGUMENT;
    std::string reader;
    if (!tokenReader(token, reader))
        return QVTOKEN_ERR_INVALID_HANDLE;
    PcscContext context;
    CardSession session(context);
    int rc = openVantrel(context, session, reader);
    if (rc != QVTOKEN_OK)
        return rc;
    std::vector<uint8_t> data;
    uint16_t sw = 0;
    rc = vantrelCommand(session, VANTREL_INS_AUTH_TICKET, 0, std::vector<uint8_t>(ticket, ticket + ticketLen), true,
                        data, sw);
    if (rc != QVTOKEN_OK)
        return rc;
    if (sw != VANTREL_SW_OK || data.size() != VANTREL_HMAC_LEN) {
        QVLOG(QVLOGGER_ERROR, "The key in %s refused the ticket: %s", reader.c_str(), swText(sw).c_str());
        return QVTOKEN_ERR_KEY_REFUSED;
    }
    std::memcpy(answer, data.data(), VANTREL_HMAC_LEN);
    return QVTOKEN_OK;
}

int qvtoken_isVantrelPresent(void)
{
    PcscContext context;
    LONG rv = context.establish();
    if (rv != SCARD_S_SUCCESS)
        return QVTOKEN_ERR_NO_SERVICE;
    const std::vector<std::string> readers = context.readers(rv);
    if (rv != SCARD_S_SUCCESS)
        return QVTOKEN_ERR_NO_SERVICE;
    for (const std::string& reader : readers) {
        SCARD_READERSTATE st{};
        st.szReader = reader.c_str();
        st.dwCurrentState = SCARD_STATE_UNAWARE;
        if (SCardGetStatusChange(context.get(), 0, &st, 1) != SCARD_S_SUCCESS || !(st.dwEventState & SCARD_STATE_PRESENT))
            continue;
        CardSession session(context);
        uint16_t sw = 0;
        if (session.open(reader) == SCARD_S_SUCCESS && session.selectVantrel(sw) == SCARD_S_SUCCESS &&
            sw == VANTREL_SW_OK)
            return 1;
    }
    return 0;
}

qvtoken_context* qvtoken_getContext(void)
{
    auto* c = new qvtoken_context;
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.contexts.insert(c);
    return c;
}

void qvtoken_releaseContext(qvtoken_context* context)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (context && r.contexts.erase(context))
        delete context;
}

int qvtoken_setParam(qvtoken_context* context, int param, void* value)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (!context || !r.contexts.count(context))
        return QVTOKEN_ERR_INVALID_HANDLE;
    if (param != QVTOKEN_PARAM_TOKEN) {
        QVLOG(QVLOGGER_ERROR, "setParam: unknown parameter %d", param);
        return QVTOKEN_ERR_INVALID_ARGUMENT;
    }
    auto* token = static_cast<qvtoken_token*>(value);
    if (token && !r.tokens.count(token))
        return QVTOKEN_ERR_INVALID_HANDLE;
    context->token = token;
    return QVTOKEN_OK;
}

int qvtoken_userfeOperation(qvtoken_context* context, const char* operation, int flags, const char* argument,
                            int* resultCode, char* resultText, size_t resultTextSize)
{
    (void)flags;
    qvtoken_token* token = nullptr;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        if (!context || !r.contexts.count(context))
            return finishOperation(QVTOKEN_ERR_INVALID_HANDLE, "Invalid context", resultCode, resultText,
                                   resultTextSize);
        token = context->token;
    }
    if (!operation || std::strcmp(operation, "upgradecode") != 0)
        return finishOperation(QVTOKEN_ERR_UNKNOWN_OPERATION,
                               std::string("Unknown operation ") + (operation ? operation : "(none)"), resultCode,
                               resultText, resultTextSize);
    if (!token)
        return finishOperation(QVTOKEN_ERR_NO_KEY_SET, "No key given for the upgrade", resultCode, resultText,
                               resultTextSize);
    const std::string target = argument ? argument : "";
    if (target.empty() || target.size() > VANTREL_TICKET_MAX)
        return finishOperation(QVTOKEN_ERR_INVALID_ARGUMENT, "No valid target version given", resultCode,
                               resultText, resultTextSize);
    std::string reader;
    if (!tokenReader(token, reader))
        return finishOperation(QVTOKEN_ERR_INVALID_HANDLE, "The key handle is no longer valid", resultCode,
                               resultText, resultTextSize);

    QVLOG(QVLOGGER_INFO, "Upgrading the key in %s to %s", reader.c_str(), target.c_str());
    PcscContext pcsc;
    CardSession session(pcsc);
    int rc = openVantrel(pcsc, session, reader);
    if (rc == QVTOKEN_ERR_NO_SERVICE)
        return finishOperation(rc, "The smart-card service does not answer", resultCode, resultText, resultTextSize);
    if (rc == QVTOKEN_ERR_KEY_GONE)
        return finishOperation(rc, "The key is not present", resultCode, resultText, resultTextSize);
    if (rc == QVTOKEN_ERR_NOT_VANTREL)
        return finishOperation(rc, "The card is not a Vantrel key", resultCode, resultText, resultTextSize);

    std::vector<uint8_t> out;
    uint16_t sw = 0;
    rc = vantrelCommand(session, VANTREL_INS_UPGRADE, VANTREL_UPGRADE_BEGIN,
                        std::vector<uint8_t>(target.begin(), target.end()), false, out, sw);
    if (rc != QVTOKEN_OK)
        return finishOperation(rc, "The key was removed during the upgrade", resultCode, resultText, resultTextSize);
    if (sw == VANTREL_SW_WRONG_DATA)
        return finishOperation(QVTOKEN_ERR_INVALID_ARGUMENT, "The key refused the target version " + target,
                               resultCode, resultText, resultTextSize);
    if (sw != VANTREL_SW_OK)
        return finishOperation(QVTOKEN_ERR_KEY_REFUSED, "The key refused the upgrade (status " + swText(sw) + ")",
                               resultCode, resultText, resultTextSize);
    for (const auto& block : firmwareImage(target)) {
        rc = vantrelCommand(session, VANTREL_INS_UPGRADE, VANTREL_UPGRADE_BLOCK, block, false, out, sw);
        if (rc != QVTOKEN_OK)
            return finishOperation(rc, "The key was removed during the upgrade", resultCode, resultText,
                                   resultTextSize);
        if (sw != VANTREL_SW_OK)
            return finishOperation(QVTOKEN_ERR_KEY_REFUSED,
                                   "The key refused a firmware block (status " + swText(sw) + ")", resultCode,
                                   resultText, resultTextSize);
    }
    rc = vantrelCommand(session, VANTREL_INS_UPGRADE, VANTREL_UPGRADE_COMMIT, {}, false, out, sw);
    if (rc != QVTOKEN_OK)
        return finishOperation(rc, "The key was removed during the upgrade", resultCode, resultText, resultTextSize);
    if (sw != VANTREL_SW_OK)
        return finishOperation(QVTOKEN_ERR_KEY_REFUSED,
                               "The key could not switch to the new firmware (status " + swText(sw) + ")",
                               resultCode, resultText, resultTextSize);
    return finishOperation(QVTOKEN_OK, "Key firmware upgraded to " + target, resultCode, resultText, resultTextSize);
}

int qvtoken_getSsl(void)
{
    std::lock_guard<std::mutex> lock(settingsMutex());
    const std::string path = configFile();
    if (path.empty())
        return 1;
    for (const std::string& line : zorvik_platform::readLines(path)) {
        if (line.rfind("ssl=", 0) == 0) {
            const std::string v = line.substr(4);
            if (v == "0")
                return 0;
            if (v == "1")
                return 1;
        }
    }
    return 1;
}

int qvtoken_setSsl(int on)
{
    std::lock_guard<std::mutex> lock(settingsMutex());
    const std::string path = configFile();
    if (path.empty()) {
        QVLOG(QVLOGGER_ERROR, "Cannot store the SSL setting: no configuration directory");
        return -1;
    }
    // Other settings in the file stay as they are.
    std::string content;
    for (const std::string& line : zorvik_platform::readLines(path))
        if (line.rfind("ssl=", 0) != 0)
            content += line + "\n";
    content += on ? "ssl=1\n" : "ssl=0\n";
    if (!zorvik_platform::writeFileAtomically(path, content)) {
        QVLOG(QVLOGGER_ERROR, "Cannot store the SSL setting in %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    QVLOG(QVLOGGER_DEBUG, "SSL switched %s", on ? "on" : "off");
    return QVTOKEN_OK;
}

} // extern "C"
