#pragma once

#include <QString>

// Sends a critical error report to the support-report API.
void reportError(const QString& text);

// The fatal path: log at ALERT, report, tell the user, exit with code 1 at once.
[[noreturn]] void criticalMessage(const QString& text);
