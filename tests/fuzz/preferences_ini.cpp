// A preferences file: read, written back, and read again to the same entries.
#include "preferences_ini.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const PreferencesIni::Entries entries =
        PreferencesIni::parse(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    if (PreferencesIni::parse(PreferencesIni::format("com.zorvik.qvtransport", entries)) != entries)
        __builtin_trap();
    return 0;
}
