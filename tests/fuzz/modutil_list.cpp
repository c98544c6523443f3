// The output of `modutil -list`, searched for our module.
#include "sp_components.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    SP_Components::modutilListsLibrary(QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)),
                                       "libzorvik-cryptoki.so");
    return 0;
}
