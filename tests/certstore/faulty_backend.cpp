// A backing PKCS#11 module for tests of libzorvik-cryptoki: the module named by
// FAULTY_BACKEND_TARGET (SoftHSM2) behind it, with faults a test switches on through the
// faulty_backend_* calls (faultyBackend() in certstore_helpers.h). It counts the calls under way inside it and notes
// a C_Finalize that arrives while any is.
#include <p11-kit/pkcs11.h>

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

CK_FUNCTION_LIST* target = nullptr;
CK_FUNCTION_LIST table;
std::atomic<int> growSlotListOnce{0}, slowTokenInfoMs{0}, callsInFlight{0}, finalizedUnderCalls{0};

struct InFlight
{
    InFlight() { ++callsInFlight; }
    ~InFlight() { --callsInFlight; }
};

// A pause point in the middle of an operation: the Nth object created or destroyed (or the
// Nth search started) waits until the test releases it, having pulled the key or stopped
// pcscd on the bench meanwhile. Released as pulled, that call and every later change fail
// as on a card that has gone, until the test arms the pause point again.
enum PauseAt { AtWrite = 0, AtFind = 1 };
std::mutex pauseMutex;
std::condition_variable pauseChanged;
int pauseKind = AtWrite, callsUntilPause = 0;
bool waiting = false, released = false, releaseAsPulled = false, pulled = false;

CK_RV pausePoint(int kind)
{
    std::unique_lock<std::mutex> lock(pauseMutex);
    if (kind == pauseKind && callsUntilPause > 0 && --callsUntilPause == 0) {
        waiting = true;
        pauseChanged.notify_all();
        pauseChanged.wait(lock, [] { return released; });
        waiting = released = false;
        pulled = releaseAsPulled;
    }
    return pulled && kind == AtWrite ? CKR_DEVICE_REMOVED : CKR_OK;
}

CK_RV getSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count)
{
    InFlight call;
    if (list && growSlotListOnce.exchange(0)) { // a slot came between the count and this listing
        *count += 1;
        return CKR_BUFFER_TOO_SMALL;
    }
    return target->C_GetSlotList(tokenPresent, list, count);
}

CK_RV getTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info)
{
    InFlight call;
    std::this_thread::sleep_for(std::chrono::milliseconds(slowTokenInfoMs.load()));
    return target->C_GetTokenInfo(slot, info);
}

CK_RV findObjectsInit(CK_SESSION_HANDLE s, CK_ATTRIBUTE_PTR templ, CK_ULONG count)
{
    InFlight call;
    pausePoint(AtFind);
    return target->C_FindObjectsInit(s, templ, count);
}

CK_RV createObject(CK_SESSION_HANDLE s, CK_ATTRIBUTE_PTR templ, CK_ULONG count, CK_OBJECT_HANDLE_PTR object)
{
    InFlight call;
    const CK_RV rv = pausePoint(AtWrite);
    return rv != CKR_OK ? rv : target->C_CreateObject(s, templ, count, object);
}

CK_RV destroyObject(CK_SESSION_HANDLE s, CK_OBJECT_HANDLE object)
{
    InFlight call;
    const CK_RV rv = pausePoint(AtWrite);
    return rv != CKR_OK ? rv : target->C_DestroyObject(s, object);
}

CK_RV finalize(CK_VOID_PTR reserved)
{
    finalizedUnderCalls += callsInFlight.load() > 0;
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
        table.C_CreateObject = createObject;
        table.C_DestroyObject = destroyObject;
        table.C_FindObjectsInit = findObjectsInit;
        target = &real;
    }
    *list = &table;
    return CKR_OK;
}

// The faults: a slot appears once between a count and its listing; each look at the token
// takes `slowTokenInfo` ms.
EXPORT int faulty_backend_set(int growSlotList, int slowTokenInfo)
{
    growSlotListOnce = growSlotList;
    slowTokenInfoMs = slowTokenInfo;
    return 0;
}

EXPORT int faulty_backend_calls_in_flight() { return callsInFlight.load(); }

EXPORT int faulty_backend_finalized_under_calls() { return finalizedUnderCalls.load(); }

// Arms the pause point before the `nth` call of a kind (AtWrite, AtFind) from now on; 0
// disarms it and plugs the key back.
EXPORT int faulty_backend_pause_at(int kind, int nth)
{
    std::lock_guard<std::mutex> lock(pauseMutex);
    pauseKind = kind;
    callsUntilPause = nth;
    pulled = false;
    return 0;
}

// Waits up to `ms` for a call to reach the pause point; 1 when one waits there.
EXPORT int faulty_backend_wait_for_pause(int ms)
{
    std::unique_lock<std::mutex> lock(pauseMutex);
    return pauseChanged.wait_for(lock, std::chrono::milliseconds(ms), [] { return waiting; });
}

// Lets the paused call (if any) go on; `asPulled`: as on a card that has gone.
EXPORT int faulty_backend_release(int asPulled)
{
    std::lock_guard<std::mutex> lock(pauseMutex);
    released = waiting;
    releaseAsPulled = asPulled != 0;
    pauseChanged.notify_all();
    return 0;
}
