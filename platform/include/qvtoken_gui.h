/*
 * libqvtoken_gui: key-service ticket authentication by the Vantrel, and the user-interface
 * parameters of the token software.
 *
 * qvtoken_gui_authenticate has the key answer a one-time ticket of the key service and
 * presents ticket and answer to the key service over HTTPS (through the user's proxy
 * setting). The callback is called exactly once, on a thread of the library, with the key
 * service's result code (200 success, 403, 408, 421, ...), 605 when the exchange timed out,
 * 590 when it was cancelled by the user, or the library's own codes below. After
 * qvtoken_gui_release_instance has returned, no callback comes any more.
 */
#ifndef QVTOKEN_GUI_H
#define QVTOKEN_GUI_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void* qvtoken_gui_instance_t;
typedef void (*qvtoken_gui_callback_t)(int code, const char* text, void* context);

/* Result codes of the library itself (the key service's codes pass through unchanged). */
#define QVTOKEN_GUI_CANCELLED 590
#define QVTOKEN_GUI_TIMEOUT 605
#define QVTOKEN_GUI_NO_KEY 591      /* no Vantrel answered the ticket */
#define QVTOKEN_GUI_NETWORK 592     /* the key service could not be reached (TLS, proxy, refused) */
#define QVTOKEN_GUI_BAD_REPLY 593   /* the key service answered something unreadable */

/* Parameters for qvtoken_gui_get_data / qvtoken_gui_set_data (4-byte integers). */
#define QVTOKEN_GUI_PARAM_SIMPLE_CODES 8        /* the user's choice: 0 disallow, 1 allow, 2 none */
#define QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM 9 /* the system-wide default */

qvtoken_gui_instance_t qvtoken_gui_create_instance(void);

/* Starts the authentication; returns 0 when it was started (the callback will come), -1 for
 * bad arguments or an instance that is already authenticating (no callback then). */
int qvtoken_gui_authenticate(qvtoken_gui_instance_t instance, const char* ticket, int flags,
                             qvtoken_gui_callback_t callback, void* context);

/* Cancels a running authentication without calling back, waits for the library's thread to
 * end, and frees the instance. A callback under way is waited for; a key still in the middle
 * of answering the ticket, at most 3 seconds. May be called from the callback itself. */
void qvtoken_gui_release_instance(qvtoken_gui_instance_t instance);

/* 0 and the value on success; -1 when the parameter is unknown, not set, or (for parameter 8)
 * holds 2, "no choice of the user". The instance may be NULL. */
int qvtoken_gui_get_data(qvtoken_gui_instance_t instance, int param, void* data, int size);
/* 0 when stored (parameter 8 per user; 9 system-wide, usually not writable by the user). */
int qvtoken_gui_set_data(qvtoken_gui_instance_t instance, int param, const void* data, int size);

#ifdef __cplusplus
}
#endif

#endif /* QVTOKEN_GUI_H */
