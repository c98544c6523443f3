// Loads libzorvik-cryptoki as any program would and prints what the module made of its
// environment: which backing module it loaded, whether it offers the token, and where it logs.
#include <cstdio>
#include <cstring>

#include "qvlogger.h"
#include "zorvik_cryptoki.h"

namespace {

bool mapped(const char* library)
{
    FILE* maps = std::fopen("/proc/self/maps", "re");
    char line[4096];
    bool found = false;
    while (maps && !found && std::fgets(line, sizeof line, maps))
        found = std::strstr(line, library) != nullptr;
    if (maps)
        std::fclose(maps);
    return found;
}

} // namespace

int main()
{
    const CK_RV rv = C_Initialize(nullptr);
    std::printf("initialize=%lu\n", static_cast<unsigned long>(rv));
    std::printf("tokens=%lu\n", static_cast<unsigned long>(C_GetAvailableTokensCount()));
    std::printf("softhsm=%d\n", mapped("libsofthsm2") ? 1 : 0);
    std::printf("user_log=%s\n", qvlogger_get_param(QVLOGGER_PARAM_USER_LOG_PATH));
    std::printf("system_log=%s\n", qvlogger_get_param(QVLOGGER_PARAM_SYSTEM_LOG_PATH));
    C_Finalize(nullptr);
    return 0;
}
