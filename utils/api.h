#ifndef OXLI_UTILS_API_H
#define OXLI_UTILS_API_H

// Exports a class or function to other native code in the process.
#define OXUTILS_API __attribute__((visibility("default")))

#endif  // OXLI_UTILS_API_H
