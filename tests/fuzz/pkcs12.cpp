// A PKCS#12 file chosen for import: decoded, opened without a password and with one, and
// searched for its friendly name.
#include "cryptoki_interface.h"

#include <openssl/err.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    PKCS12* p12 = CryptokiInterface::decodeP12(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    if (!p12)
        return 0;
    for (const char* password : {static_cast<const char*>(nullptr), "fuzz"}) {
        EVP_PKEY* key = nullptr;
        X509* cert = nullptr;
        PKCS12_parse(p12, password, &key, &cert, nullptr);
        EVP_PKEY_free(key);
        X509_free(cert);
    }
    CryptokiInterface::p12FriendlyName(p12);
    PKCS12_free(p12);
    ERR_clear_error();
    return 0;
}
