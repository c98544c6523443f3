// The standard PKCS#11 entry points. Slot ZORVIK_CRYPTOKI_SLOT stands for the key's token in
// the backing module; session and object handles are the backing module's own.
#include <algorithm>
#include <cstring>

#include "cryptoki_log.h"
#include "cryptoki_module.h"
#include "zorvik_cryptoki.h"

using zcryptoki::Module;

namespace {

Module& M()
{
    return Module::instance();
}

CK_RV checkSlot(CK_SLOT_ID slot)
{
    if (!M().initialized())
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    return slot == ZORVIK_CRYPTOKI_SLOT ? CKR_OK : CKR_SLOT_ID_INVALID;
}

// The backing slot of the key's token, for calls that need a token.
CK_RV tokenSlot(CK_SLOT_ID slot, CK_SLOT_ID* backendSlot)
{
    CK_RV rv = checkSlot(slot);
    if (rv != CKR_OK)
        return rv;
    rv = M().lookAtKey(true, backendSlot);
    return rv == CKR_DEVICE_ERROR || rv == CKR_OK || rv == CKR_CRYPTOKI_NOT_INITIALIZED ? rv : CKR_TOKEN_NOT_PRESENT;
}

bool isSoSession(CK_SESSION_HANDLE session)
{
    CK_SESSION_INFO info{};
    return M().backend()->C_GetSessionInfo && M().backend()->C_GetSessionInfo(session, &info) == CKR_OK &&
           info.state == CKS_RW_SO_FUNCTIONS;
}

} // namespace

// Forwards a call on an open session to the backing module.
#define ZC_SESSION_CALL(name, session, ...)                                                                            \
    do {                                                                                                               \
        const CK_RV check_ = M().checkSession(session);                                                                \
        if (check_ != CKR_OK)                                                                                          \
            return check_;                                                                                             \
        if (!M().backend()->name)                                                                                      \
            return CKR_FUNCTION_NOT_SUPPORTED;                                                                         \
        return M().backend()->name(session, __VA_ARGS__);                                                              \
    } while (0)

extern "C" {

CK_RV C_Initialize(CK_VOID_PTR pInitArgs)
{
    return M().initialize(static_cast<CK_C_INITIALIZE_ARGS*>(pInitArgs));
}

CK_RV C_Finalize(CK_VOID_PTR pReserved)
{
    if (pReserved)
        return CKR_ARGUMENTS_BAD;
    return M().finalize();
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo)
{
    if (!M().initialized())
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (!pInfo)
        return CKR_ARGUMENTS_BAD;
    std::memset(pInfo, 0, sizeof *pInfo);
    pInfo->cryptokiVersion.major = 2;
    pInfo->cryptokiVersion.minor = 40;
    zcryptoki::setPadded(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Zorvik");
    zcryptoki::setPadded(pInfo->libraryDescription, sizeof pInfo->libraryDescription, "Zorvik Vantrel Cryptoki");
    pInfo->libraryVersion.major = 3;
    pInfo->libraryVersion.minor = 4;
    return CKR_OK;
}

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList);

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!pulCount)
        return CKR_ARGUMENTS_BAD;
    CK_ULONG n = 1;
    if (tokenPresent) {
        const CK_RV rv = M().lookAtKey(true);
        if (rv == CKR_CRYPTOKI_NOT_INITIALIZED)
            return rv;
        n = rv == CKR_OK ? 1 : 0;
    }
    if (!pSlotList) {
        *pulCount = n;
        return CKR_OK;
    }
    if (*pulCount < n) {
        *pulCount = n;
        return CKR_BUFFER_TOO_SMALL;
    }
    if (n)
        pSlotList[0] = ZORVIK_CRYPTOKI_SLOT;
    *pulCount = n;
    return CKR_OK;
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_RV rv = checkSlot(slotID);
    if (rv != CKR_OK)
        return rv;
    if (!pInfo)
        return CKR_ARGUMENTS_BAD;
    CK_SLOT_ID backendSlot = 0;
    rv = M().lookAtKey(true, &backendSlot);
    if (rv == CKR_CRYPTOKI_NOT_INITIALIZED)
        return rv;
    CK_SLOT_INFO backendInfo{};
    const bool present = rv == CKR_OK && M().backend()->C_GetSlotInfo(backendSlot, &backendInfo) == CKR_OK;
    std::memset(pInfo, 0, sizeof *pInfo);
    zcryptoki::setPadded(pInfo->slotDescription, sizeof pInfo->slotDescription, "Zorvik Vantrel");
    zcryptoki::setPadded(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Zorvik");
    pInfo->flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT | (present ? CKF_TOKEN_PRESENT : 0);
    if (present) {
        pInfo->hardwareVersion = backendInfo.hardwareVersion;
        pInfo->firmwareVersion = backendInfo.firmwareVersion;
    }
    return CKR_OK;
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = tokenSlot(slotID, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    if (!pInfo)
        return CKR_ARGUMENTS_BAD;
    rv = M().backend()->C_GetTokenInfo(backendSlot, pInfo);
    if (rv != CKR_OK)
        return rv;
    zcryptoki::setPadded(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Zorvik");
    zcryptoki::setPadded(pInfo->model, sizeof pInfo->model, "Vantrel");
    const zcryptoki::PinCounter counter = M().pinCounter();
    if (counter.enabled()) {
        const int failures = counter.failures();
        pInfo->flags &= ~(CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED);
        if (failures >= counter.limit())
            pInfo->flags |= CKF_USER_PIN_LOCKED;
        else if (failures == counter.limit() - 1)
            pInfo->flags |= CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_COUNT_LOW;
        else if (failures > 0)
            pInfo->flags |= CKF_USER_PIN_COUNT_LOW;
    }
    return CKR_OK;
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SLOT_ID backendSlot = 0;
    const CK_RV rv = tokenSlot(slotID, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    return M().backend()->C_GetMechanismList(backendSlot, pMechanismList, pulCount);
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SLOT_ID backendSlot = 0;
    const CK_RV rv = tokenSlot(slotID, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    return M().backend()->C_GetMechanismInfo(backendSlot, type, pInfo);
}

CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = tokenSlot(slotID, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    if (!M().sessions().empty())
        return CKR_SESSION_EXISTS;
    M().pinCounter().reset();
    rv = M().backend()->C_InitToken(backendSlot, pPin, ulPinLen, pLabel);
    if (rv == CKR_OK)
        zcryptoki::logInfo("the key's token was initialised anew");
    M().lookAtKey(true);
    return rv;
}

CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    const CK_RV rv = M().backend()->C_InitPIN(hSession, pPin, ulPinLen);
    if (rv == CKR_OK) {
        M().pinCounter().reset();
        zcryptoki::logInfo("user PIN set by the security officer");
    }
    return rv;
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen, CK_UTF8CHAR_PTR pNewPin,
               CK_ULONG ulNewLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    const bool so = isSoSession(hSession);
    if (!so && M().pinCounter().locked())
        return CKR_PIN_LOCKED;
    const CK_RV rv = M().backend()->C_SetPIN(hSession, pOldPin, ulOldLen, pNewPin, ulNewLen);
    if (rv == CKR_PIN_INCORRECT)
        return so ? CKR_PIN_INVALID : M().wrongUserPin();
    if (rv == CKR_OK && !so)
        M().pinCounter().reset();
    return rv;
}

CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR pApplication, CK_NOTIFY Notify,
                    CK_SESSION_HANDLE_PTR phSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = tokenSlot(slotID, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    if (!phSession)
        return CKR_ARGUMENTS_BAD;
    // Every session is serial; older callers leave the flag out.
    rv = M().backend()->C_OpenSession(backendSlot, flags | CKF_SERIAL_SESSION, pApplication, Notify, phSession);
    if (rv == CKR_OK)
        M().addSession(*phSession);
    return rv;
}

CK_RV C_CloseSession(CK_SESSION_HANDLE hSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const auto all = M().sessions();
    if (std::find(all.begin(), all.end(), hSession) == all.end())
        return CKR_SESSION_HANDLE_INVALID;
    const CK_RV rv = M().backend()->C_CloseSession(hSession);
    M().forgetSession(hSession);
    return rv == CKR_SESSION_HANDLE_INVALID || rv == CKR_DEVICE_REMOVED ? CKR_OK : rv;
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV rv = checkSlot(slotID);
    if (rv != CKR_OK)
        return rv;
    M().closeAllSessions();
    M().wipePin();
    return CKR_OK;
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    const CK_RV rv = M().backend()->C_GetSessionInfo(hSession, pInfo);
    if (rv == CKR_OK && pInfo)
        pInfo->slotID = ZORVIK_CRYPTOKI_SLOT;
    return rv;
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState, CK_ULONG_PTR pulOperationStateLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GetOperationState, hSession, pOperationState, pulOperationStateLen);
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState, CK_ULONG ulOperationStateLen,
                          CK_OBJECT_HANDLE hEncryptionKey, CK_OBJECT_HANDLE hAuthenticationKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SetOperationState, hSession, pOperationState, ulOperationStateLen, hEncryptionKey,
                    hAuthenticationKey);
}

CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    return M().login(hSession, userType, pPin, ulPinLen);
}

CK_RV C_Logout(CK_SESSION_HANDLE hSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    M().wipePin();
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    return M().backend()->C_Logout(hSession);
}

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_CreateObject, hSession, pTemplate, ulCount, phObject);
}

CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                   CK_OBJECT_HANDLE_PTR phNewObject)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_CopyObject, hSession, hObject, pTemplate, ulCount, phNewObject);
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DestroyObject, hSession, hObject);
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GetObjectSize, hSession, hObject, pulSize);
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GetAttributeValue, hSession, hObject, pTemplate, ulCount);
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SetAttributeValue, hSession, hObject, pTemplate, ulCount);
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_FindObjectsInit, hSession, pTemplate, ulCount);
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject, CK_ULONG ulMaxObjectCount,
                    CK_ULONG_PTR pulObjectCount)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_FindObjects, hSession, phObject, ulMaxObjectCount, pulObjectCount);
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    if (check != CKR_OK)
        return check;
    return M().backend()->C_FindObjectsFinal(hSession);
}

CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_EncryptInit, hSession, pMechanism, hKey);
}

CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pEncryptedData,
                CK_ULONG_PTR pulEncryptedDataLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_Encrypt, hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen);
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen, CK_BYTE_PTR pEncryptedPart,
                      CK_ULONG_PTR pulEncryptedPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_EncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart, CK_ULONG_PTR pulLastEncryptedPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_EncryptFinal, hSession, pLastEncryptedPart, pulLastEncryptedPartLen);
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DecryptInit, hSession, pMechanism, hKey);
}

CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData,
                CK_ULONG_PTR pulDataLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_Decrypt, hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen);
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,
                      CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DecryptUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DecryptFinal, hSession, pLastPart, pulLastPartLen);
}

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DigestInit, hSession, pMechanism);
}

CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pDigest,
               CK_ULONG_PTR pulDigestLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_Digest, hSession, pData, ulDataLen, pDigest, pulDigestLen);
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DigestUpdate, hSession, pPart, ulPartLen);
}

CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DigestKey, hSession, hKey);
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DigestFinal, hSession, pDigest, pulDigestLen);
}

CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignInit, hSession, pMechanism, hKey);
}

CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
             CK_ULONG_PTR pulSignatureLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_Sign, hSession, pData, ulDataLen, pSignature, pulSignatureLen);
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignUpdate, hSession, pPart, ulPartLen);
}

CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignFinal, hSession, pSignature, pulSignatureLen);
}

CK_RV C_SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignRecoverInit, hSession, pMechanism, hKey);
}

CK_RV C_SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
                    CK_ULONG_PTR pulSignatureLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignRecover, hSession, pData, ulDataLen, pSignature, pulSignatureLen);
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_VerifyInit, hSession, pMechanism, hKey);
}

CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
               CK_ULONG ulSignatureLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_Verify, hSession, pData, ulDataLen, pSignature, ulSignatureLen);
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_VerifyUpdate, hSession, pPart, ulPartLen);
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_VerifyFinal, hSession, pSignature, ulSignatureLen);
}

CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_VerifyRecoverInit, hSession, pMechanism, hKey);
}

CK_RV C_VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen, CK_BYTE_PTR pData,
                      CK_ULONG_PTR pulDataLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_VerifyRecover, hSession, pSignature, ulSignatureLen, pData, pulDataLen);
}

CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                            CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DigestEncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
}

CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,
                            CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DecryptDigestUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
}

CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen, CK_BYTE_PTR pEncryptedPart,
                          CK_ULONG_PTR pulEncryptedPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SignEncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
}

CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,
                            CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DecryptVerifyUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
}

CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pTemplate,
                    CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GenerateKey, hSession, pMechanism, pTemplate, ulCount, phKey);
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pPublicKeyTemplate,
                        CK_ULONG ulPublicKeyAttributeCount, CK_ATTRIBUTE_PTR pPrivateKeyTemplate,
                        CK_ULONG ulPrivateKeyAttributeCount, CK_OBJECT_HANDLE_PTR phPublicKey,
                        CK_OBJECT_HANDLE_PTR phPrivateKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GenerateKeyPair, hSession, pMechanism, pPublicKeyTemplate, ulPublicKeyAttributeCount,
                    pPrivateKeyTemplate, ulPrivateKeyAttributeCount, phPublicKey, phPrivateKey);
}

CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hWrappingKey,
                CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_WrapKey, hSession, pMechanism, hWrappingKey, hKey, pWrappedKey, pulWrappedKeyLen);
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hUnwrappingKey,
                  CK_BYTE_PTR pWrappedKey, CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                  CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_UnwrapKey, hSession, pMechanism, hUnwrappingKey, pWrappedKey, ulWrappedKeyLen, pTemplate,
                    ulAttributeCount, phKey);
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hBaseKey,
                  CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_DeriveKey, hSession, pMechanism, hBaseKey, pTemplate, ulAttributeCount, phKey);
}

CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_SeedRandom, hSession, pSeed, ulSeedLen);
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    ZC_SESSION_CALL(C_GenerateRandom, hSession, RandomData, ulRandomLen);
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    return check != CKR_OK ? check : CKR_FUNCTION_NOT_PARALLEL;
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    const CK_RV check = M().checkSession(hSession);
    return check != CKR_OK ? check : CKR_FUNCTION_NOT_PARALLEL;
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!pSlot || pReserved)
        return CKR_ARGUMENTS_BAD;
    const CK_RV rv = M().waitForEvent(flags & CKF_DONT_BLOCK);
    if (rv == CKR_OK)
        *pSlot = ZORVIK_CRYPTOKI_SLOT;
    return rv;
}

static CK_FUNCTION_LIST functionList = {
    {2, 40},
    C_Initialize,
    C_Finalize,
    C_GetInfo,
    C_GetFunctionList,
    C_GetSlotList,
    C_GetSlotInfo,
    C_GetTokenInfo,
    C_GetMechanismList,
    C_GetMechanismInfo,
    C_InitToken,
    C_InitPIN,
    C_SetPIN,
    C_OpenSession,
    C_CloseSession,
    C_CloseAllSessions,
    C_GetSessionInfo,
    C_GetOperationState,
    C_SetOperationState,
    C_Login,
    C_Logout,
    C_CreateObject,
    C_CopyObject,
    C_DestroyObject,
    C_GetObjectSize,
    C_GetAttributeValue,
    C_SetAttributeValue,
    C_FindObjectsInit,
    C_FindObjects,
    C_FindObjectsFinal,
    C_EncryptInit,
    C_Encrypt,
    C_EncryptUpdate,
    C_EncryptFinal,
    C_DecryptInit,
    C_Decrypt,
    C_DecryptUpdate,
    C_DecryptFinal,
    C_DigestInit,
    C_Digest,
    C_DigestUpdate,
    C_DigestKey,
    C_DigestFinal,
    C_SignInit,
    C_Sign,
    C_SignUpdate,
    C_SignFinal,
    C_SignRecoverInit,
    C_SignRecover,
    C_VerifyInit,
    C_Verify,
    C_VerifyUpdate,
    C_VerifyFinal,
    C_VerifyRecoverInit,
    C_VerifyRecover,
    C_DigestEncryptUpdate,
    C_DecryptDigestUpdate,
    C_SignEncryptUpdate,
    C_DecryptVerifyUpdate,
    C_GenerateKey,
    C_GenerateKeyPair,
    C_WrapKey,
    C_UnwrapKey,
    C_DeriveKey,
    C_SeedRandom,
    C_GenerateRandom,
    C_GetFunctionStatus,
    C_CancelFunction,
    C_WaitForSlotEvent,
};

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList)
{
    if (!ppFunctionList)
        return CKR_ARGUMENTS_BAD;
    *ppFunctionList = &functionList;
    return CKR_OK;
}

} // extern "C"
