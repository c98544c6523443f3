/*
 * The APDU protocol spoken between the token libraries (libqvtoken, libqvtoken_gui,
 * libzorvik-cryptoki) and the Vantrel key. The card simulator of the bench includes this
 * header too, so both sides always agree. docs/vantrel-protocol.md describes the exchange.
 *
 * All multi-byte integers on the wire are big-endian.
 */
#ifndef VANTREL_PROTOCOL_H
#define VANTREL_PROTOCOL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Application identifier of the Vantrel applet (proprietary RID range). */
#define VANTREL_AID_BYTES 0xF0, 0x5A, 0x4F, 0x52, 0x56, 0x49, 0x4B, 0x56, 0x54
#define VANTREL_AID_LEN 9

/* ISO 7816-4 SELECT by name: 00 A4 04 00 Lc <AID>. A card that does not answer 90 00
 * is not a Vantrel ("a non-compatible device"). */
#define VANTREL_CLA_ISO 0x00
#define VANTREL_INS_SELECT 0xA4

/* Proprietary class and instructions, valid only after a successful SELECT. */
#define VANTREL_CLA 0x80
/* 80 10 00 00 00 -> status record (below) + 90 00; 6F 00 when the key cannot read it */
#define VANTREL_INS_GET_STATUS 0x10
/* 80 20 00 00 Lc <ticket bytes> 00 -> 32-byte HMAC-SHA256(key secret, ticket) + 90 00 */
#define VANTREL_INS_AUTH_TICKET 0x20
/* 80 30 P1 00 Lc <data>: firmware upgrade.
 *   P1 = 00 begin: data is the target version text "<se version>;<controller version>",
 *        for example "1.2.4.256;2.1"; answers 90 00 or 6A 80 for a malformed text.
 *   P1 = 01 write block: data is one block of the image (any content, up to 255 bytes).
 *   P1 = 02 commit: the key switches to the target versions and answers 90 00. */
#define VANTREL_INS_UPGRADE 0x30
#define VANTREL_UPGRADE_BEGIN 0x00
#define VANTREL_UPGRADE_BLOCK 0x01
#define VANTREL_UPGRADE_COMMIT 0x02

/* Status words */
#define VANTREL_SW_OK 0x9000
#define VANTREL_SW_FILE_NOT_FOUND 0x6A82   /* SELECT of an unknown application */
#define VANTREL_SW_WRONG_DATA 0x6A80
#define VANTREL_SW_WRONG_LENGTH 0x6700     /* APDU shorter or longer than its header says */
#define VANTREL_SW_WRONG_P1P2 0x6B00
#define VANTREL_SW_CONDITIONS 0x6985       /* e.g. upgrade commit without begin */
#define VANTREL_SW_INS_NOT_SUPPORTED 0x6D00
#define VANTREL_SW_CLA_NOT_SUPPORTED 0x6E00
#define VANTREL_SW_INTERNAL_ERROR 0x6F00

/* Status record returned by GET STATUS, in this order:
 *   4 bytes  GetInfo status word (signed)
 *   1 byte   key status code 0..8 (see VANTREL_KEY_*)
 *   1 byte   network code (0 none, 1 production, 2 developers, 3 test)
 *   8 bytes  key serial number (the key service finds the key's secret by it)
 *   1 byte   n, then n bytes   secure-element firmware version bytes (n <= 64)
 *   1 byte   m, then m bytes   second version bytes, a big-endian number (m <= 64)
 *   1 byte   c, then c bytes   controller version text, ASCII (c <= 63)
 */
#define VANTREL_SERIAL_LEN 8
#define VANTREL_VERSION_MAX 64
#define VANTREL_CONTROLLER_MAX 63
#define VANTREL_HMAC_LEN 32
#define VANTREL_TICKET_MAX 255

/* Key status codes */
#define VANTREL_KEY_NONE 0
#define VANTREL_KEY_NOT_VANTREL 1
#define VANTREL_KEY_NOT_INITIALIZED 2
#define VANTREL_KEY_BLANK 3
#define VANTREL_KEY_BLANK_VANTREL 4
#define VANTREL_KEY_BLANK_TESSARON 5
#define VANTREL_KEY_BAD_INIT 6
#define VANTREL_KEY_ACTIVE 7
#define VANTREL_KEY_INTERNAL_ERROR 8

/* ATR of the Vantrel: T=1, ten historical bytes ("ZORVIK VT" and a status byte), then the
 * check byte TCK (XOR of T0 .. last historical byte). */
#define VANTREL_ATR_BYTES 0x3B, 0x8A, 0x80, 0x01, 0x5A, 0x4F, 0x52, 0x56, 0x49, 0x4B, 0x20, 0x56, 0x54, 0x00, 0x3A
#define VANTREL_ATR_LEN 15

/* The bench's per-key secret: HMAC-SHA256 key = SHA-256 of the text
 * "zorvik-bench-key:" followed by the serial number in upper-case hexadecimal.
 * Real keys carry a secret provisioned by the key service. */
#define VANTREL_BENCH_SECRET_PREFIX "zorvik-bench-key:"

#ifdef __cplusplus
}
#endif

#endif /* VANTREL_PROTOCOL_H */
