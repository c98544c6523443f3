// The module's state: configuration, backing module, the key's token and our sessions.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <p11-kit/pkcs11.h>

#include "cryptoki_backend.h"
#include "cryptoki_config.h"
#include "pin_counter.h"

namespace zcryptoki {

// A PIN held between C_SetTokenPassword and the login that uses it; wiped on every exit.
class SecretBuffer
{
public:
    SecretBuffer() = default;
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;
    ~SecretBuffer() { clear(); }
    void assign(const unsigned char* data, size_t length);
    void clear();
    bool empty() const { return bytes_.empty(); }
    unsigned char* data() { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }
    // Moves the secret into `other` (which is cleared first); this one is left empty.
    void moveTo(SecretBuffer& other);

private:
    std::vector<unsigned char> bytes_;
};

class Module
{
public:
    static Module& instance();

    CK_RV initialize(CK_C_INITIALIZE_ARGS* args);
    // Refuses new calls, wakes C_WaitForSlotEvent and waits for every call under way (see
    // ActiveCall) before it finalises the backing module: no call runs on into a backend
    // that has been finalised under it.
    CK_RV finalize();
    bool initialized();
    // An entry point starts and ends its work on the module; false when the module is not
    // initialised or is being finalised.
    bool enterCall();
    void leaveCall();
    Backend& backend() { return backend_; }
    const Config& config() const { return config_; }

    // Looks for the key's token. CKR_OK with the backing module's slot; CKR_TOKEN_NOT_PRESENT
    // without a Vantrel or without a token; CKR_DEVICE_ERROR for a Vantrel that does not
    // answer properly; CKR_CRYPTOKI_NOT_INITIALIZED. With `fresh` false a look younger than
    // a few hundred milliseconds is reused. When the token goes away our sessions are closed.
    CK_RV lookAtKey(bool fresh, CK_SLOT_ID* backendSlot = nullptr);

    // Checks a session handle of ours: initialised, known, token still there
    // (CKR_DEVICE_REMOVED when it went away).
    CK_RV checkSession(CK_SESSION_HANDLE session);
    void addSession(CK_SESSION_HANDLE session);
    void forgetSession(CK_SESSION_HANDLE session);
    std::vector<CK_SESSION_HANDLE> sessions();

    // Closes every session of ours on the backing module.
    void closeAllSessions();

    PinCounter pinCounter();
    void storePin(const unsigned char* pin, size_t length);
    // Hands out the stored PIN (leaving none stored).
    void takePin(SecretBuffer& into);
    void wipePin();
    bool havePin();

    // Logs in on a backing session. A user login without a PIN uses the PIN of
    // C_SetTokenPassword; any login wipes that PIN. Counts wrong user PINs, refuses a locked
    // PIN, and reports a wrong PIN as CKR_PIN_INVALID.
    CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE userType, const unsigned char* pin, size_t pinLength);
    // Counts a wrong user PIN; returns the code to report (CKR_PIN_INVALID).
    CK_RV wrongUserPin();

    // C_WaitForSlotEvent: CKR_OK when the token came or went since the last report,
    // CKR_NO_EVENT (only with `dontBlock`), CKR_CRYPTOKI_NOT_INITIALIZED after C_Finalize.
    CK_RV waitForEvent(bool dontBlock);

private:
    Module() = default;
    void closeSessionsLocked();
    // The backing module's slots that hold a token.
    CK_RV listBackendSlots(std::vector<CK_SLOT_ID>& slots);

    std::mutex mutex_;     // guards the members below
    std::mutex lookMutex_; // one look at the key at a time
    std::condition_variable wake_;     // C_WaitForSlotEvent: time to give up waiting
    std::condition_variable callsEnded_;
    bool initialized_ = false;
    bool finalizing_ = false;
    unsigned activeCalls_ = 0;
    unsigned generation_ = 0; // counts C_Initialize calls, to end waits of an old one
    bool ownsBackendInit_ = false;
    Config config_;
    Backend backend_;
    std::set<CK_SESSION_HANDLE> sessions_;
    SecretBuffer pin_;

    // The last look at the key.
    bool haveLook_ = false;
    CK_RV lastRv_ = CKR_TOKEN_NOT_PRESENT;
    CK_SLOT_ID lastSlot_ = 0;
    std::string tokenSerial_;
    std::chrono::steady_clock::time_point lastLookAt_;
    bool reportedPresent_ = false; // the state C_WaitForSlotEvent last reported
    bool backendSlotLogged_ = false;
};

// Held by an entry point for its whole length, so that C_Finalize waits for it.
class ActiveCall
{
public:
    ActiveCall() : entered_(Module::instance().enterCall()) {}
    ~ActiveCall()
    {
        if (entered_)
            Module::instance().leaveCall();
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;
    explicit operator bool() const { return entered_; }

private:
    const bool entered_;
};

// Starts an entry point: returns `failure` unless the module is initialised.
#define ZC_ENTER(failure)                                                                                              \
    const zcryptoki::ActiveCall activeCall_;                                                                           \
    if (!activeCall_)                                                                                                  \
    return failure

// Called by C_Finalize: drops the public token data handed out last.
void releasePublicData();

// Trimmed text of a fixed-width, blank-padded PKCS#11 field.
std::string paddedText(const unsigned char* field, size_t width);
// Fills a fixed-width PKCS#11 field with `text`, blank-padded.
void setPadded(unsigned char* field, size_t width, const std::string& text);

} // namespace zcryptoki
