#ifndef OXLI_STANDIN_VALUE_H
#define OXLI_STANDIN_VALUE_H

#include <string>

namespace standin {

// The value at `data`, of a field type such as "i4", as a string. Refuses m and unknown types.
std::string valueString(const std::string& type, const void* data);

}  // namespace standin

#endif  // OXLI_STANDIN_VALUE_H
