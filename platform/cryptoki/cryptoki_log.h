// Log lines of the module: qvlogger, component "cryptoki". Never given a PIN.
#pragma once

#include <string>

#include "qvlogger.h"

namespace zcryptoki {

inline void logLine(int level, const std::string& text)
{
    qvlogger_log(level, "cryptoki", "%s", text.c_str());
}

inline void logError(const std::string& text)
{
    logLine(QVLOGGER_ERROR, text);
}
inline void logWarning(const std::string& text)
{
    logLine(QVLOGGER_WARNING, text);
}
inline void logInfo(const std::string& text)
{
    logLine(QVLOGGER_INFO, text);
}
inline void logDebug(const std::string& text)
{
    logLine(QVLOGGER_DEBUG, text);
}

// "0x" and the code in hexadecimal, the way PKCS#11 return values are usually quoted.
std::string hexCode(unsigned long code);
// Bytes as upper-case hexadecimal without separators.
std::string hexBytes(const unsigned char* data, size_t length);

} // namespace zcryptoki
