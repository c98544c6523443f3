// The output of `openvpn --show-pkcs11-ids`, read into the certificate choices.
#include "sp_components.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    SP_Components::certificatesInPkcs11Ids(QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)));
    return 0;
}
