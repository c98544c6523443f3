// The reader list of PC/SC, a multi-string handed over with its length.
#include "reader_names.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<char> list(data, data + size); // no NUL behind the last byte
    size_t used = 0;
    for (const std::string& name : zorvik_platform::readerNames(list.data(), list.size()))
        used += name.size() + 1;
    if (used > size + 1) // every name and its NUL come from the list
        __builtin_trap();
    return 0;
}
