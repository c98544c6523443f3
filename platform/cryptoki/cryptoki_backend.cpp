#include "cryptoki_backend.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstring>

namespace zcryptoki {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZORVIK_NO_DEEPBIND 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZORVIK_NO_DEEPBIND 1
#endif
#endif

// Base address of this library, to recognise pointers into it.
void* ownBase()
{
    static void* base = [] {
        Dl_info info{};
        dladdr(reinterpret_cast<void*>(&ownBase), &info);
        return info.dli_fbase;
    }();
    return base;
}

bool pointsIntoUs(void* p)
{
    Dl_info info{};
    return p && dladdr(p, &info) && info.dli_fbase == ownBase();
}

// The names of the entries of CK_FUNCTION_LIST after `version`, in order.
const char* const kFunctionNames[] = {"C_Initialize",
                                      "C_Finalize",
                                      "C_GetInfo",
                                      "C_GetFunctionList",
                                      "C_GetSlotList",
                                      "C_GetSlotInfo",
                                      "C_GetTokenInfo",
                                      "C_GetMechanismList",
                                      "C_GetMechanismInfo",
                                      "C_InitToken",
                                      "C_InitPIN",
                                      "C_SetPIN",
                                      "C_OpenSession",
                                      "C_CloseSession",
                                      "C_CloseAllSessions",
                                      "C_GetSessionInfo",
                                      "C_GetOperationState",
                                      "C_SetOperationState",
                                      "C_Login",
                                      "C_Logout",
                                      "C_CreateObject",
                                      "C_CopyObject",
                                      "C_DestroyObject",
                                      "C_GetObjectSize",
                                      "C_GetAttributeValue",
                                      "C_SetAttributeValue",
                                      "C_FindObjectsInit",
                                      "C_FindObjects",
                                      "C_FindObjectsFinal",
                                      "C_EncryptInit",
                                      "C_Encrypt",
                                      "C_EncryptUpdate",
                                      "C_EncryptFinal",
                                      "C_DecryptInit",
                                      "C_Decrypt",
                                      "C_DecryptUpdate",
                                      "C_DecryptFinal",
                                      "C_DigestInit",
                                      "C_Digest",
                                      "C_DigestUpdate",
                                      "C_DigestKey",
                                      "C_DigestFinal",
                                      "C_SignInit",
                                      "C_Sign",
                                      "C_SignUpdate",
                                      "C_SignFinal",
                                      "C_SignRecoverInit",
                                      "C_SignRecover",
                                      "C_VerifyInit",
                                      "C_Verify",
                                      "C_VerifyUpdate",
                                      "C_VerifyFinal",
                                      "C_VerifyRecoverInit",
                                      "C_VerifyRecover",
                                      "C_DigestEncryptUpdate",
                                      "C_DecryptDigestUpdate",
                                      "C_SignEncryptUpdate",
                                      "C_DecryptVerifyUpdate",
                                      "C_GenerateKey",
                                      "C_GenerateKeyPair",
                                      "C_WrapKey",
                                      "C_UnwrapKey",
                                      "C_DeriveKey",
                                      "C_SeedRandom",
                                      "C_GenerateRandom",
                                      "C_GetFunctionStatus",
                                      "C_CancelFunction",
                                      "C_WaitForSlotEvent"};
constexpr size_t kFunctionCount = sizeof kFunctionNames / sizeof kFunctionNames[0];
static_assert(offsetof(CK_FUNCTION_LIST, C_WaitForSlotEvent) ==
                  offsetof(CK_FUNCTION_LIST, C_Initialize) + (kFunctionCount - 1) * sizeof(void*),
              "one name per entry of the function list");

} // namespace

bool Backend::load(const std::string& path, std::string& error)
{
    functions_ = nullptr;
    path_ = path;
    int flags = RTLD_NOW | RTLD_LOCAL;
#ifndef ZORVIK_NO_DEEPBIND
    // Backing modules export the same C_* names as we do; their own calls must stay theirs.
    flags |= RTLD_DEEPBIND;
#endif
    void* handle = dlopen(path.c_str(), flags);
    if (!handle) {
        const char* why = dlerror();
        error = why ? why : "dlopen failed";
        return false;
    }
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList"));
    if (!getList) {
        error = "it exports no C_GetFunctionList";
        return false;
    }
    if (pointsIntoUs(reinterpret_cast<void*>(getList))) {
        error = "it is this module itself";
        return false;
    }
    CK_FUNCTION_LIST* list = nullptr;
    const CK_RV rv = getList(&list);
    if (rv != CKR_OK || !list) {
        error = "its C_GetFunctionList failed with code " + std::to_string(rv);
        return false;
    }
    if (list->version.major != 2) {
        error = "it implements PKCS#11 version " + std::to_string(list->version.major) + "." +
                std::to_string(list->version.minor) + ", not 2.x";
        return false;
    }
    std::memcpy(&table_, list, sizeof table_);
    // A module whose list was filled by the dynamic linker may hold our entry points where
    // its own should be (our library exports the same names and may come first in the
    // global scope). Take such entries straight from the module.
    auto* entries = reinterpret_cast<void**>(&table_.C_Initialize);
    for (size_t i = 0; i < kFunctionCount; ++i) {
        if (pointsIntoUs(entries[i]))
            entries[i] = dlsym(handle, kFunctionNames[i]);
    }
    if (!table_.C_Initialize || !table_.C_Finalize || !table_.C_GetSlotList || !table_.C_OpenSession) {
        error = "its function list is incomplete";
        return false;
    }
    functions_ = &table_;
    return true;
}

} // namespace zcryptoki
