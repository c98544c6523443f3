/*
 * libqvtoken: finds Vantrel keys through PC/SC and talks to them (status record, ATR,
 * firmware upgrade, raw commands), and keeps the per-user SSL switch.
 *
 * Handles are opaque. A handle that was closed or destroyed is recognised and refused, so a
 * late call with it fails cleanly instead of touching freed memory. No call keeps a PC/SC
 * connection open between calls: each operation connects to the key's reader, does its
 * work inside one card transaction, and disconnects.
 *
 * The PC/SC service is the one named by PCSCLITE_CSOCK_NAME (pcsc-lite), as for every
 * PC/SC client of the process. Diagnostics go to libqvlogger with the component "qvtoken".
 */
#ifndef QVTOKEN_H
#define QVTOKEN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qvtoken_search qvtoken_search;
typedef struct qvtoken_token qvtoken_token;
typedef struct qvtoken_context qvtoken_context;
typedef qvtoken_search* qvtoken_search_t;
typedef qvtoken_token* qvtoken_token_t;
typedef qvtoken_context* qvtoken_context_t;

/* Search flags. Without QVTOKEN_SEARCH_ANY_CARD a search finds only keys that answer like
 * a Vantrel; with it, every card, and a card that is no Vantrel reports key status 1. */
#define QVTOKEN_SEARCH_VANTREL_ONLY 0
#define QVTOKEN_SEARCH_ANY_CARD 1

#define QVTOKEN_VERSION_MAX 64
#define QVTOKEN_CONTROLLER_MAX 64
#define QVTOKEN_SERIAL_LEN 8
#define QVTOKEN_ATR_MAX 64

/* Key status codes (tokenStatus). */
#define QVTOKEN_STATUS_NO_KEY 0
#define QVTOKEN_STATUS_NOT_COMPATIBLE 1
#define QVTOKEN_STATUS_INTERNAL_ERROR 8

/* What qvtoken_getTokenStatus returns. The first three integers are the key's GetInfo
 * status word, its status code (0 no key, 1 not a Vantrel, 2..8 the key's own state) and its
 * network code. The firmware version bytes follow as the key reports them; the controller
 * version is a NUL-terminated text. */
typedef struct KeyStatusRecord {
    int32_t infoStatus;
    int32_t tokenStatus;
    int32_t networkType;
    uint8_t firstVersion[QVTOKEN_VERSION_MAX];
    int16_t firstVersionLen;
    uint8_t secondVersion[QVTOKEN_VERSION_MAX];
    int16_t secondVersionLen;
    char controllerVersion[QVTOKEN_CONTROLLER_MAX];
    uint8_t serial[QVTOKEN_SERIAL_LEN]; /* all zero when unknown */
} KeyStatusRecord;

/* ---- Finding keys ---- */

/* Same as qvtoken_initSearchWithFlags(QVTOKEN_SEARCH_VANTREL_ONLY). */
qvtoken_search* qvtoken_initSearch(void);
qvtoken_search* qvtoken_initSearchWithFlags(int flags);

/* The next key of the search, in reader order, that this search has not returned yet.
 * When there is none, waits up to waitMs milliseconds (negative counts as 0) for one to be
 * inserted. NULL when none came, or when the PC/SC service cannot be reached. The handle
 * belongs to the search until qvtoken_closeToken or qvtoken_destroySearch. */
qvtoken_token* qvtoken_findNextToken(qvtoken_search* search, int waitMs);

/* Ends a search and every key handle of it that is still open. NULL is allowed. */
void qvtoken_destroySearch(qvtoken_search* search);

/* Closes one key handle. NULL and closed handles are allowed. */
void qvtoken_closeToken(qvtoken_token* token);

/* Reads the key's status record. atrBuf may be NULL (no ATR wanted); otherwise *atrLen is
 * the buffer size on entry (QVTOKEN_ATR_MAX is always enough) and the number of ATR bytes
 * written on return. A key that has gone, or an invalid handle, gives tokenStatus 0 and
 * an ATR length 0. */
KeyStatusRecord qvtoken_getTokenStatus(qvtoken_token* token, uint8_t* atrBuf, int* atrLen);

/* The reader name of a key handle, or NULL for an invalid handle. Valid while the handle is. */
const char* qvtoken_getReaderName(qvtoken_token* token);

/* ---- Talking to a key ---- */

/* Result codes of the calls below (and of the "upgradecode" operation). */
#define QVTOKEN_OK 0
#define QVTOKEN_ERR_INVALID_HANDLE -1
#define QVTOKEN_ERR_INVALID_ARGUMENT -2
#define QVTOKEN_ERR_NO_SERVICE -3      /* the PC/SC service does not answer */
#define QVTOKEN_ERR_KEY_GONE -4        /* the key was removed or cannot be reached */
#define QVTOKEN_ERR_NOT_VANTREL -5     /* the card does not select the Vantrel application */
#define QVTOKEN_ERR_KEY_REFUSED -6     /* the key answered with an error status word */
#define QVTOKEN_ERR_BUFFER_TOO_SMALL -7
#define QVTOKEN_ERR_UNKNOWN_OPERATION -8
#define QVTOKEN_ERR_NO_KEY_SET -9      /* the context has no key handle (parameter 4) */

/* Sends one command APDU to the Vantrel application of the key: selects the application
 * and sends the command in one card transaction. The response (data and the two status
 * bytes) goes to response, *responseLen being its size on entry and the length on return.
 * Returns QVTOKEN_OK when the key answered (whatever its status word). */
int qvtoken_sendApdu(qvtoken_token* token, const uint8_t* apdu, size_t apduLen, uint8_t* response,
                     size_t* responseLen);

/* The key's answer to a key-service ticket (AUTH TICKET): 32 bytes into answer. */
int qvtoken_answerTicket(qvtoken_token* token, const uint8_t* ticket, size_t ticketLen,
                         uint8_t answer[32]);

/* 1 when any reader holds a key that answers like a Vantrel, 0 when none does, and
 * QVTOKEN_ERR_NO_SERVICE when the PC/SC service does not answer. Never waits for a key. */
int qvtoken_isVantrelPresent(void);

/* ---- Key operations through a context ---- */

#define QVTOKEN_PARAM_TOKEN 4

qvtoken_context* qvtoken_getContext(void);
void qvtoken_releaseContext(qvtoken_context* context);

/* Parameter 4 (QVTOKEN_PARAM_TOKEN): value is the qvtoken_token* the operations work on.
 * Returns QVTOKEN_OK, or an error for an unknown parameter or invalid handle. */
int qvtoken_setParam(qvtoken_context* context, int param, void* value);

/* Runs a key operation. "upgradecode" rewrites the key's firmware: `argument` is the target
 * version text "<secure-element version>;<controller version>" (for example
 * "1.2.4.256;2.1"). The result code (QVTOKEN_OK or a QVTOKEN_ERR_* code) is both
 * returned and written to *resultCode; a one-line English result text goes to resultText
 * (NUL-terminated, cut to resultTextSize). resultCode and resultText may be NULL.
 * flags: reserved, 0. */
int qvtoken_userfeOperation(qvtoken_context* context, const char* operation, int flags, const char* argument,
                            int* resultCode, char* resultText, size_t resultTextSize);

/* ---- Settings kept per user ---- */

/* The SSL switch: non-zero when on. Kept in $XDG_CONFIG_HOME/zorvik/qvtoken.conf
 * (~/.config when XDG_CONFIG_HOME is unset); on by default. */
int qvtoken_getSsl(void);
/* Switches SSL on (non-zero) or off. Returns QVTOKEN_OK, or -1 when it could not be stored. */
int qvtoken_setSsl(int on);

#ifdef __cplusplus
}
#endif

#endif /* QVTOKEN_H */
