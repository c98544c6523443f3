#include "reader_names.h"

#include <cstring>

namespace zorvik_platform {

std::vector<std::string> readerNames(const char* multiString, size_t length)
{
    std::vector<std::string> names;
    if (!multiString)
        return names;
    size_t pos = 0;
    while (pos < length && multiString[pos] != '\0') {
        const void* nul = std::memchr(multiString + pos, '\0', length - pos);
        const size_t end = nul ? static_cast<size_t>(static_cast<const char*>(nul) - multiString) : length;
        names.emplace_back(multiString + pos, end - pos);
        pos = end + 1;
    }
    return names;
}

} // namespace zorvik_platform
