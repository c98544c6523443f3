#pragma once

#include <QString>

// The operating-system description written to the log and sent with support requests and
// error reports.
QString systemConfiguration();
