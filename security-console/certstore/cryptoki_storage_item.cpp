#include "cryptoki_storage_item.h"

QString CryptokiStorageItem::typeName() const
{
    return type == RsaKeyPair ? "RSA keypair" : "certificate";
}

int CryptokiStorageItem::RSALength() const
{
    if (type != RsaKeyPair)
        return 0;
    int i = 0;
    while (i < modulus.size() && modulus.at(i) == '\0')
        ++i;
    if (i == modulus.size())
        return 0;
    auto first = static_cast<unsigned char>(modulus.at(i));
    int leadingZeroBits = 0;
    for (unsigned char mask = 0x80; mask && !(first & mask); mask >>= 1)
        ++leadingZeroBits;
    return 8 * (modulus.size() - i) - leadingZeroBits;
}
