#ifndef OXLI_UTILS_API_H
#define OXLI_UTILS_API_H

// Marks what other native code in the process may call.
#define OXUTILS_API __attribute__((visibility("default")))

#endif  // OXLI_UTILS_API_H
