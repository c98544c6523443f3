#include "cryptoki_module.h"

#include <openssl/crypto.h>

#include <cstdio>
#include <cstring>

#include "cryptoki_log.h"
#include "vantrel_presence.h"

namespace zcryptoki {

namespace {
// Set on the thread that is inside the backing module's C_Initialize.
thread_local bool initializingThread = false;
// Entry points under way on this thread (a backend calling back into us nests them).
thread_local unsigned callsOnThisThread = 0;
} // namespace


namespace {

// How long a look at the key serves the calls that work on an open session.
constexpr std::chrono::milliseconds kLookReuse(300);
// How often a blocking C_WaitForSlotEvent looks.
constexpr std::chrono::milliseconds kEventPoll(250);

} // namespace

std::string hexCode(unsigned long code)
{
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%lX", code);
    return buf;
}

std::string hexBytes(const unsigned char* data, size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}

std::string paddedText(const unsigned char* field, size_t width)
{
    std::string s(reinterpret_cast<const char*>(field), width);
    const auto nul = s.find('\0');
    if (nul != std::string::npos)
        s.erase(nul);
    const auto end = s.find_last_not_of(' ');
    return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

void setPadded(unsigned char* field, size_t width, const std::string& text)
{
    std::memset(field, ' ', width);
    std::memcpy(field, text.data(), std::min(width, text.size()));
}

void SecretBuffer::assign(const unsigned char* data, size_t length)
{
    clear();
    bytes_.assign(data, data + length);
}

void SecretBuffer::clear()
{
    if (!bytes_.empty())
        OPENSSL_cleanse(bytes_.data(), bytes_.size());
    bytes_.clear();
    bytes_.shrink_to_fit();
}

void SecretBuffer::moveTo(SecretBuffer& other)
{
    other.clear();
    other.bytes_.swap(bytes_);
}

Module& Module::instance()
{
    static Module module;
    return module;
}

bool Module::initialized()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return initialized_ && !finalizing_;
}

bool Module::enterCall()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!initialized_ || finalizing_)
        return false;
    ++activeCalls_;
    ++callsOnThisThread;
    return true;
}

void Module::leaveCall()
{
    std::lock_guard<std::mutex> lock(mutex_);
    --activeCalls_;
    --callsOnThisThread;
    if (finalizing_)
        callsEnded_.notify_all();
}

CK_RV Module::initialize(CK_C_INITIALIZE_ARGS* args)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (initialized_)
        return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    if (args) {
        if (args->pReserved)
            return CKR_ARGUMENTS_BAD;
        const int given = !!args->CreateMutex + !!args->DestroyMutex + !!args->LockMutex + !!args->UnlockMutex;
        if (given != 0 && given != 4)
            return CKR_ARGUMENTS_BAD;
        // We lock with the operating system's primitives only.
        if (given == 4 && !(args->flags & CKF_OS_LOCKING_OK))
            return CKR_CANT_LOCK;
    }
    config_ = loadConfig();
    for (const std::string& w : config_.warnings)
        logWarning("configuration " + w);
    std::string why;
    if (!backend_.load(config_.backend, why)) {
        logError("cannot load the backing PKCS#11 module " + config_.backend + " (" + config_.backendFrom +
                 "): " + why);
        return CKR_GENERAL_ERROR;
    }
    CK_C_INITIALIZE_ARGS backendArgs{};
    backendArgs.flags = CKF_OS_LOCKING_OK;
    initializingThread = true;
    const CK_RV rv = backend_->C_Initialize(&backendArgs);
    initializingThread = false;
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
        logError("the backing PKCS#11 module " + config_.backend + " failed to initialise, code " + hexCode(rv));
        backend_.unload();
        return rv == CKR_CANT_LOCK ? CKR_GENERAL_ERROR : rv;
    }
    ownsBackendInit_ = rv == CKR_OK;
    initialized_ = true;
    ++generation_;
    haveLook_ = false;
    reportedPresent_ = false;
    backendSlotLogged_ = false;
    logInfo("initialised over " + config_.backend + (config_.noCards ? ", token available without a Vantrel" : ""));
    return CKR_OK;
}

CK_RV Module::finalize()
{
    // A backing module that finalises itself from inside its own C_Initialize reaches our
    // C_Finalize when its symbols are not bound to itself (sanitizer builds load it without
    // RTLD_DEEPBIND). That call is the backend's, not the application's: it must not wait
    // for the lock its own initialisation holds.
    if (initializingThread)
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!initialized_ || finalizing_)
            return CKR_CRYPTOKI_NOT_INITIALIZED;
        // NSS cancels a C_WaitForSlotEvent by finalising from another thread: wake it, and
        // let every call under way (bar this thread's own) leave the backend first.
        finalizing_ = true;
        wake_.notify_all();
        callsEnded_.wait(lock, [&] { return activeCalls_ == callsOnThisThread; });
        closeSessionsLocked();
        pin_.clear();
        if (ownsBackendInit_)
            backend_->C_Finalize(nullptr);
        backend_.unload();
        initialized_ = false;
        finalizing_ = false;
        haveLook_ = false;
    }
    releasePublicData();
    releasePresence();
    logDebug("finalised");
    return CKR_OK;
}

void Module::closeSessionsLocked()
{
    if (backend_.loaded() && backend_->C_CloseSession) {
        for (CK_SESSION_HANDLE h : sessions_)
            backend_->C_CloseSession(h);
    }
    sessions_.clear();
}

void Module::closeAllSessions()
{
    std::lock_guard<std::mutex> lock(mutex_);
    closeSessionsLocked();
}

CK_RV Module::lookAtKey(bool fresh, CK_SLOT_ID* backendSlot)
{
    std::lock_guard<std::mutex> looking(lookMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!initialized_)
            return CKR_CRYPTOKI_NOT_INITIALIZED;
        if (!fresh && haveLook_ && std::chrono::steady_clock::now() - lastLookAt_ < kLookReuse) {
            if (backendSlot)
                *backendSlot = lastSlot_;
            return lastRv_;
        }
    }

    CK_RV rv = CKR_TOKEN_NOT_PRESENT;
    CK_SLOT_ID slot = 0;
    std::string serial;
    std::string label;
    const CardState card = config_.noCards ? CardState::Present : vantrelPresence();
    if (card == CardState::Faulty) {
        rv = CKR_DEVICE_ERROR;
    } else if (card == CardState::Present) {
        // The key's token: the first initialised token of the backing module, or the one
        // carrying the configured label.
        std::vector<CK_SLOT_ID> slots;
        const CK_RV lr = listBackendSlots(slots);
        if (lr != CKR_OK) {
            logError("the backing module cannot list its slots, code " + hexCode(lr));
            rv = CKR_DEVICE_ERROR;
        }
        for (CK_SLOT_ID s : slots) {
            CK_TOKEN_INFO info{};
            if (backend_->C_GetTokenInfo(s, &info) != CKR_OK || !(info.flags & CKF_TOKEN_INITIALIZED))
                continue;
            const std::string l = paddedText(info.label, sizeof info.label);
            if (!config_.tokenLabel.empty() && l != config_.tokenLabel)
                continue;
            rv = CKR_OK;
            slot = s;
            serial = paddedText(info.serialNumber, sizeof info.serialNumber);
            label = l;
            break;
        }
    }

    std::lock_guard<std::mutex> lock(mutex_);
    if (!initialized_ || finalizing_)
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    const bool wasThere = haveLook_ && lastRv_ == CKR_OK;
    const bool isThere = rv == CKR_OK;
    if (wasThere && (!isThere || slot != lastSlot_)) {
        logInfo("the key's token is gone (" + std::string(isThere ? "token changed" : cardStateName(card)) +
                "); its sessions are closed");
        closeSessionsLocked();
        pin_.clear();
    }
    if (isThere && (!wasThere || slot != lastSlot_))
        logInfo("the key's token \"" + label + "\" is available (backing slot " + std::to_string(slot) + ")");
    if (card == CardState::Present && !isThere && rv == CKR_TOKEN_NOT_PRESENT && !backendSlotLogged_) {
        logWarning("a Vantrel is present but the backing module " + config_.backend + " holds no " +
                   (config_.tokenLabel.empty() ? std::string("initialised token")
                                               : "token labelled \"" + config_.tokenLabel + "\""));
        backendSlotLogged_ = true;
    }
    if (isThere)
        backendSlotLogged_ = false;
    // Slot events are changes after the first look.
    if (!haveLook_)
        reportedPresent_ = isThere;
    haveLook_ = true;
    lastRv_ = rv;
    lastSlot_ = slot;
    if (isThere)
        tokenSerial_ = serial;
    lastLookAt_ = std::chrono::steady_clock::now();
    if (backendSlot)
        *backendSlot = slot;
    return rv;
}

CK_RV Module::listBackendSlots(std::vector<CK_SLOT_ID>& slots)
{
    // A slot that comes between counting and listing (SoftHSM2 adds one whenever a token is
    // initialised) makes the list too small: count again rather than report no token.
    CK_RV rv = CKR_BUFFER_TOO_SMALL;
    for (int attempt = 0; attempt < 5 && rv == CKR_BUFFER_TOO_SMALL; ++attempt) {
        CK_ULONG count = 0;
        rv = backend_->C_GetSlotList(CK_TRUE, nullptr, &count);
        slots.assign(rv == CKR_OK ? count : 0, 0);
        if (rv == CKR_OK && count > 0) {
            rv = backend_->C_GetSlotList(CK_TRUE, slots.data(), &count);
            slots.resize(rv == CKR_OK ? count : 0);
        }
    }
    return rv;
}

CK_RV Module::checkSession(CK_SESSION_HANDLE session)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!initialized_)
            return CKR_CRYPTOKI_NOT_INITIALIZED;
        if (!sessions_.count(session))
            return CKR_SESSION_HANDLE_INVALID;
    }
    const CK_RV rv = lookAtKey(false);
    if (rv == CKR_OK || rv == CKR_CRYPTOKI_NOT_INITIALIZED)
        return rv;
    return rv == CKR_DEVICE_ERROR ? CKR_DEVICE_ERROR : CKR_DEVICE_REMOVED;
}

void Module::addSession(CK_SESSION_HANDLE session)
{
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.insert(session);
}

void Module::forgetSession(CK_SESSION_HANDLE session)
{
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.erase(session);
    // Without sessions the backing module forgets the login, and so do we.
    if (sessions_.empty())
        pin_.clear();
}

std::vector<CK_SESSION_HANDLE> Module::sessions()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return {sessions_.begin(), sessions_.end()};
}

PinCounter Module::pinCounter()
{
    std::lock_guard<std::mutex> lock(mutex_);
    PinCounter counter;
    counter.configure(tokenSerial_, config_.pinRetries);
    return counter;
}

void Module::storePin(const unsigned char* pin, size_t length)
{
    std::lock_guard<std::mutex> lock(mutex_);
    pin_.assign(pin, length);
}

void Module::takePin(SecretBuffer& into)
{
    std::lock_guard<std::mutex> lock(mutex_);
    pin_.moveTo(into);
}

bool Module::havePin()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return !pin_.empty();
}

void Module::wipePin()
{
    std::lock_guard<std::mutex> lock(mutex_);
    pin_.clear();
}

CK_RV Module::wrongUserPin()
{
    PinCounter counter = pinCounter();
    if (!counter.enabled()) {
        logWarning("wrong PIN");
        return CKR_PIN_INVALID;
    }
    const int n = counter.recordFailure();
    if (n >= counter.limit())
        logWarning("wrong PIN, " + std::to_string(n) + " in a row: the PIN is now locked");
    else
        logWarning("wrong PIN, " + std::to_string(counter.limit() - n) + " tries left");
    return CKR_PIN_INVALID;
}

CK_RV Module::login(CK_SESSION_HANDLE session, CK_USER_TYPE userType, const unsigned char* pin, size_t pinLength)
{
    const bool user = userType == CKU_USER || userType == CKU_CONTEXT_SPECIFIC;
    // The PIN of C_SetTokenPassword serves one login, this one.
    SecretBuffer stored;
    takePin(stored);
    if (user && pinCounter().locked()) {
        logWarning("login refused: the PIN is locked");
        return CKR_PIN_LOCKED;
    }
    if (!pin && pinLength == 0 && user && !stored.empty()) {
        pin = stored.data();
        pinLength = stored.size();
    }
    const CK_RV rv = backend_->C_Login(session, userType, const_cast<unsigned char*>(pin), pinLength);
    stored.clear();
    if (rv == CKR_PIN_INCORRECT)
        return user ? wrongUserPin() : CKR_PIN_INVALID;
    if (user && (rv == CKR_OK || rv == CKR_USER_ALREADY_LOGGED_IN))
        pinCounter().reset();
    if (rv == CKR_PIN_LOCKED)
        logWarning("login refused by the backing module: the PIN is locked");
    else if (rv != CKR_OK && rv != CKR_USER_ALREADY_LOGGED_IN)
        logWarning("login failed, code " + hexCode(rv));
    return rv;
}

CK_RV Module::waitForEvent(bool dontBlock)
{
    unsigned generation;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!initialized_ || finalizing_)
            return CKR_CRYPTOKI_NOT_INITIALIZED;
        generation = generation_;
    }
    const auto ended = [&] { return !initialized_ || finalizing_ || generation != generation_; };
    for (;;) {
        const CK_RV rv = lookAtKey(true);
        if (rv == CKR_CRYPTOKI_NOT_INITIALIZED)
            return rv;
        std::unique_lock<std::mutex> lock(mutex_);
        if (ended())
            return CKR_CRYPTOKI_NOT_INITIALIZED;
        const bool present = rv == CKR_OK;
        if (present != reportedPresent_) {
            reportedPresent_ = present;
            return CKR_OK;
        }
        if (dontBlock)
            return CKR_NO_EVENT;
        wake_.wait_for(lock, kEventPoll, ended);
    }
}

} // namespace zcryptoki
