// Chrome's preferences file, edited to switch the extension on: either one "0" becomes "1"
// or nothing changes.
#include "sp_components.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray before(reinterpret_cast<const char*>(data), int(size));
    QByteArray after = before;
    const bool enabled = enableExtensionInPrefs(after) == "Chrome extenstion enabled";
    int changed = 0;
    for (int i = 0; i < before.size(); ++i)
        changed += before[i] != after[i] ? 1 : 0;
    if (after.size() != before.size() || changed != (enabled ? 1 : 0))
        __builtin_trap();
    return 0;
}
