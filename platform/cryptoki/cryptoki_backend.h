// The backing PKCS#11 module: loaded once per path and never unloaded, since modules keep
// process-wide state (OpenSSL, singletons) that does not survive being unmapped.
#pragma once

#include <string>

#include <p11-kit/pkcs11.h>

namespace zcryptoki {

class Backend
{
public:
    // Loads the module at `path` and fetches its function list. On failure returns false
    // and `error` says why, in words fit for the log.
    bool load(const std::string& path, std::string& error);
    void unload() { functions_ = nullptr; }
    bool loaded() const { return functions_ != nullptr; }
    const std::string& path() const { return path_; }
    CK_FUNCTION_LIST* operator->() const { return functions_; }

private:
    std::string path_;
    CK_FUNCTION_LIST* functions_ = nullptr;
    CK_FUNCTION_LIST table_{}; // our copy of the backing module's list
};

} // namespace zcryptoki
