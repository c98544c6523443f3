/*
 * libzorvik-cryptoki: the Zorvik PKCS#11 module.
 *
 * A PKCS#11 v2.40 module (C_GetFunctionList and every standard function) that keeps the
 * Vantrel's certificates and keys in a standard backing module and adds the vendor calls
 * declared here.
 *
 * Backing module: the path in ZORVIK_CRYPTOKI_BACKEND, else the "backend" key of
 * $XDG_CONFIG_HOME/zorvik/cryptoki.conf, else of /etc/zorvik/cryptoki.conf, else OpenSC.
 * The configuration file holds "key = value" lines ('#' starts a comment):
 *   backend = /usr/lib/softhsm/libsofthsm2.so   the backing PKCS#11 module
 *   token-label = Vantrel                       which of its tokens is the key's (default:
 *                                               its first initialised token)
 *   pin-retries = 3                             wrong user PINs before the module locks the
 *                                               PIN itself (0: leave locking to the backend)
 * ZORVIK_CRYPTOKI_CONF names one more file read last (its keys win). The module's own
 * count of wrong PINs lives in $ZORVIK_CRYPTOKI_STATE_DIR, else $XDG_STATE_HOME/zorvik/cryptoki.
 *
 * Slots: the module shows one slot, ZORVIK_CRYPTOKI_SLOT. Its token is present only while
 * a Vantrel is in a PC/SC reader, unless ZORVIK_CRYPTOKI_NO_CARDS is set (to anything but
 * "0"), and only while the backing module holds the token. The vendor calls below accept
 * ZORVIK_CRYPTOKI_ANY_SLOT (0, "the inserted key") as well as ZORVIK_CRYPTOKI_SLOT.
 * ZORVIK_CRYPTOKI_NO_GUI is accepted for compatibility: the module never shows a prompt.
 *
 * Return codes of the vendor calls: 0 success; CKR_PIN_INVALID (161) a wrong PIN;
 * CKR_PIN_LOCKED (164) a locked PIN; CKR_TOKEN_NOT_RECOGNIZED (225) no Vantrel (or no
 * token); CKR_DEVICE_ERROR (48) trouble in the key or the backing module;
 * CKR_OBJECT_HANDLE_INVALID (130) nothing stored under an identifier; CKR_USER_NOT_LOGGED_IN
 * when a change needs a login that has not happened; CKR_ARGUMENTS_BAD and
 * CKR_TEMPLATE_INCONSISTENT for input that cannot be stored. C_Login reports a wrong PIN
 * as CKR_PIN_INVALID too.
 */
#ifndef ZORVIK_CRYPTOKI_H
#define ZORVIK_CRYPTOKI_H

#include <stdint.h>

#include <p11-kit/pkcs11.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZORVIK_CRYPTOKI_ANY_SLOT 0
#define ZORVIK_CRYPTOKI_SLOT 1

/* Object types of the public token data. */
#define ZORVIK_OBJECT_CERTIFICATE 1
#define ZORVIK_OBJECT_RSA_KEYPAIR 2

/* A label: UTF-8 bytes (followed by a NUL not counted in length). */
typedef struct ZorvikLabel
{
    const unsigned char* text; /* offset 0 */
    uint32_t length;           /* offset 8 */
    uint32_t reserved;
} ZorvikLabel;

/* One object of the key. Certificates and RSA key pairs are separate objects; a key pair
 * and its certificate share the identifier. */
typedef struct ZorvikPublicObject
{
    int32_t index; /* offset 0: position in the list */
    uint32_t reserved0;
    const unsigned char* id; /* offset 8: CKA_ID bytes */
    uint32_t idLength;       /* offset 16 */
    uint8_t reserved1[28];
    int32_t type; /* offset 48: ZORVIK_OBJECT_* */
    uint32_t reserved2;
    const unsigned char* value; /* offset 56: DER certificate, or the RSA modulus */
    uint32_t valueLength;       /* offset 64 */
    uint8_t reserved3[28];
    const unsigned char* exponent; /* offset 96: RSA public exponent (key pair) */
    uint32_t exponentLength;       /* offset 104 */
    uint8_t reserved4[124];
    const ZorvikLabel* label; /* offset 232: or NULL when the object has no label */
} ZorvikPublicObject;

typedef struct ZorvikPublicTokenData
{
    ZorvikPublicObject** objects; /* offset 0 */
    int32_t count;                /* offset 8 */
    int32_t reserved;
} ZorvikPublicTokenData;

/* One big-endian magnitude of an RSA key component. */
typedef struct ZorvikKeyPart
{
    const unsigned char* data;
    uint64_t length;
} ZorvikKeyPart;

/* The RSA key as C_ImportCertAndKey receives it; the private exponent is derived. */
typedef struct ZorvikRsaKeyParts
{
    ZorvikKeyPart modulus;        /* n */
    ZorvikKeyPart publicExponent; /* e */
    ZorvikKeyPart prime1;         /* p */
    ZorvikKeyPart prime2;         /* q */
    ZorvikKeyPart exponent1;      /* d mod (p-1) */
    ZorvikKeyPart exponent2;      /* d mod (q-1) */
    ZorvikKeyPart coefficient;    /* q^-1 mod p */
} ZorvikRsaKeyParts;

/* Number of keys whose token the module can reach now (0 or 1). 0 before C_Initialize. */
CK_ULONG C_GetAvailableTokensCount(void);

/* Lists the key's certificates and RSA key pairs (public values only; private keys
 * without a public key object are listed too once the user is logged in). The data is
 * owned by the module and valid until the next call of this function or C_Finalize. */
CK_RV C_GetPublicTokenData(CK_SLOT_ID slot, ZorvikPublicTokenData** data);

/* Hands the user PIN to the module for the next login it makes: a C_Login with a NULL
 * PIN, or the login an import or removal needs when the user is not logged in. The PIN is
 * not checked here; it is wiped at the next login, logout, removal of the key and
 * C_Finalize. */
CK_RV C_SetTokenPassword(CK_SLOT_ID slot, const char* pin, CK_ULONG pinLength);

/* Stores a certificate with its RSA key pair under one CKA_ID (SHA-1 of the modulus) with
 * `name` as the label (the certificate's common name when `name` is empty). The key must
 * belong to the certificate. Stores nothing on failure; an object already stored
 * identically under that identifier is not stored twice. */
CK_RV C_ImportCertAndKey(CK_SLOT_ID slot, const char* name, CK_ULONG nameLength, const unsigned char* der,
                         CK_ULONG derLength, ZorvikRsaKeyParts keyParts);

/* Removes every object stored under the identifier: certificate, private and public key. */
CK_RV C_RemoveContainerByID(CK_SLOT_ID slot, const unsigned char* id, CK_ULONG idLength);

#ifdef __cplusplus
}
#endif

#endif /* ZORVIK_CRYPTOKI_H */
