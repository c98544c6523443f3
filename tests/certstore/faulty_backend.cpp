// A backing PKCS#11 module for tests of libzorvik-cryptoki: the module named by
// FAULTY_BACKEND_TARGET (SoftHSM2) behind it, with faults a test switches on through
// faulty_backend_set(). It counts the calls under way inside it and notes a C_Finalize that
// arrives while any is.
#include <p11-kit/pkcs11.h>

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

CK_FUNCTION_LIST* target = nullptr;
CK_FUNCTION_LIST table;
std::atomic<int> growSlotListOnce{0};
std::atomic<int> slowTokenInfoMs{0};
std::atomic<int> callsInFlight{0};
std::atomic<int> finalizedUnderCalls{0};

struct InFlight
{
    InFlight() { ++callsInFlight; }
    ~InFlight() { --callsInFlight; }
};

CK_RV getSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count)
{
    InFlight call;
    // A slot came between the caller's count and this listing.
    if (list && growSlotListOnce.exchange(0)) {
        *count += 1;
        return CKR_BUFFER_TOO_SMALL;
    }
    return target->C_GetSlotList(tokenPresent, list, count);
}

CK_RV getTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info)
{
    InFlight call;
    if (const int ms = slowTokenInfoMs.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return target->C_GetTokenInfo(slot, info);
}

CK_RV finalize(CK_VOID_PTR reserved)
{
    if (callsInFlight.load() > 0)
        ++finalizedUnderCalls;
    return target->C_Finalize(reserved);
}

} // namespace

EXPORT CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list)
{
    if (!target) {
        static CK_FUNCTION_LIST real;
        const char* path = std::getenv("FAULTY_BACKEND_TARGET");
        void* handle = path ? dlopen(path, RTLD_NOW | RTLD_LOCAL) : nullptr;
        auto get = handle ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList")) : nullptr;
        CK_FUNCTION_LIST* theirs = nullptr;
        if (!get || get(&theirs) != CKR_OK || !theirs)
            return CKR_GENERAL_ERROR;
        std::memcpy(&real, theirs, sizeof real);
        // Without RTLD_DEEPBIND (sanitizer builds) the target's list may hold the same-named
        // entry points of a module loaded before it: take those from the target itself.
        Dl_info targetInfo{};
        dladdr(reinterpret_cast<void*>(get), &targetInfo);
        for (void** e = reinterpret_cast<void**>(&real.C_Initialize);
             e != reinterpret_cast<void**>(&real.C_WaitForSlotEvent) + 1; ++e) {
            Dl_info info{};
            if (*e && dladdr(*e, &info) && info.dli_fbase != targetInfo.dli_fbase && info.dli_sname)
                *e = dlsym(handle, info.dli_sname);
        }
        table = real;
        table.C_GetSlotList = getSlotList;
        table.C_GetTokenInfo = getTokenInfo;
        table.C_Finalize = finalize;
        target = &real;
    }
    *list = &table;
    return CKR_OK;
}

EXPORT void faulty_backend_set(int growSlotList, int slowTokenInfo)
{
    growSlotListOnce = growSlotList;
    slowTokenInfoMs = slowTokenInfo;
}

EXPORT int faulty_backend_calls_in_flight()
{
    return callsInFlight.load();
}

EXPORT int faulty_backend_finalized_under_calls()
{
    return finalizedUnderCalls.load();
}
