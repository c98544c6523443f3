/*
 * libqvlogger: the logger of the Zorvik platform libraries and the dashboard.
 *
 * One call writes one line "<local time with ms> <LEVEL> <component>: <text>" to the user
 * log, and lines of the platform libraries also to the system log when it can be written.
 * Safe from many threads and processes; a log file renamed away is started anew at its path.
 */
#ifndef QVLOGGER_H
#define QVLOGGER_H

#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Library levels: 0 critical, 1 error, 2 warning, 3 notice, 4 info, 5 debug. */
enum {
    QVLOGGER_CRITICAL = 0,
    QVLOGGER_ERROR = 1,
    QVLOGGER_WARNING = 2,
    QVLOGGER_NOTICE = 3,
    QVLOGGER_INFO = 4,
    QVLOGGER_DEBUG = 5
};

/* Parameters answered by qvlogger_get_param. */
enum {
    QVLOGGER_PARAM_USER_LOG_PATH = 3,
    QVLOGGER_PARAM_SYSTEM_LOG_PATH = 4
};

/* Formats with vswprintf and writes one line; returns 0 or -1 when nothing was written. */
int qvlogger_logw(int level, const char* component, const wchar_t* format, ...);

/* Narrow variant: formats with vsnprintf. */
int qvlogger_log(int level, const char* component, const char* format, ...);

/* Returns the text of a parameter (3: user log path, 4: system log path), or NULL for an
 * unknown parameter. The text stays valid until the process ends. */
const char* qvlogger_get_param(int param);

#ifdef __cplusplus
}
#endif

#endif /* QVLOGGER_H */
