#pragma once

#include <QString>

// How long a critical error report may wait for its answer.
const int reportTimeoutMs = 30000;

// Sends a critical error report with the tail of the log to the support-report API,
// without asking the user; the answer is not looked at.
void reportError(const QString& text);

// The fatal path: log at ALERT, report, tell the user, exit with code 1 at once.
[[noreturn]] void criticalMessage(const QString& text);
