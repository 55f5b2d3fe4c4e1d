// The log of the environment.
#ifndef OXLI_STANDIN_LOG_H
#define OXLI_STANDIN_LOG_H

#include <string>

#include "standin/environment.h"

namespace standin {

// Opens the log for a value of the setting `log`; opens none if the value is empty. If the value is
// refused, the log is standard error until closeLog().
void openLog(const std::string& setting) REQUIRES(sMutex);
void closeLog() REQUIRES(sMutex);

// Returns whether lines are written or recorded. Lines that are costly to make are made only then.
bool isLogging() REQUIRES(sMutex);
void writeLog(const char* level, const std::string& line) REQUIRES(sMutex);
// Writes a line for each key that was not extracted.
void logUnknown(const char* function, const Settings& settings) REQUIRES(sMutex);
// Returns the first 1000 characters of `string`, with each line feed written as "\n".
std::string oneLine(const std::string& string);

}  // namespace standin

#endif  // OXLI_STANDIN_LOG_H
