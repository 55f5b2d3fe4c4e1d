#ifndef OXLI_STANDIN_VALUE_H
#define OXLI_STANDIN_VALUE_H

#include <string>

namespace standin {

// The value of a field of that type as a string; refuses types that have none, such as m.
std::string valueString(const std::string& type, const void* data);

}  // namespace standin

#endif  // OXLI_STANDIN_VALUE_H
