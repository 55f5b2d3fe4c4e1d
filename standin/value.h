#ifndef OXLI_STANDIN_VALUE_H
#define OXLI_STANDIN_VALUE_H

#include <string>

namespace standin {

// Returns the value at `data` as a string. `type` is a field type such as "i4"; m and unknown types
// are refused.
std::string valueString(const std::string& type, const void* data);

}  // namespace standin

#endif  // OXLI_STANDIN_VALUE_H
