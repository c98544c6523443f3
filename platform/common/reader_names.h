// The reader list PC/SC hands out: one multi-string, every name ended by a NUL and the list
// by an empty name.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zorvik_platform {

// The names in the first `length` bytes of `multiString`. The walk ends at the empty name or
// at the end of the bytes, whichever comes first, and never reads past them: a last name
// without its NUL runs to the end. nullptr gives no names.
std::vector<std::string> readerNames(const char* multiString, size_t length);

} // namespace zorvik_platform
