#pragma once

#include <QString>

// The name and version of the operating system, written to the log and sent with support requests and
// error reports.
QString systemConfiguration();
