// The log of the environment.
#ifndef OXLI_STANDIN_LOG_H
#define OXLI_STANDIN_LOG_H

#include <string>

#include "standin/environment.h"

namespace standin {

// Opens the log that the setting `log` names; none if it is empty. If it refuses, the log is
// standard error.
void openLog(const std::string& setting) REQUIRES(sMutex);
void closeLog() REQUIRES(sMutex);

// Whether anything reads the log; costly lines are made only then.
bool isLogging() REQUIRES(sMutex);
void writeLog(const char* level, const std::string& line) REQUIRES(sMutex);
// Writes a line for each key that was not extracted.
void logUnknown(const char* function, const Settings& settings) REQUIRES(sMutex);
// The first 1000 characters of `string`, without line ends.
std::string oneLine(const std::string& string);

}  // namespace standin

#endif  // OXLI_STANDIN_LOG_H
