// The log of the environment.
#ifndef OXLI_STANDIN_LOG_H
#define OXLI_STANDIN_LOG_H

#include <string>

#include "standin/environment.h"

namespace standin {

// Opens the log that the setting `log` names, which may be empty. A refusal leaves a log on
// standard error.
void openLog(const std::string& setting) REQUIRES(sMutex);
void closeLog() REQUIRES(sMutex);

// Whether a line is read by anybody: lines that take time to make are made only then.
bool isLogging() REQUIRES(sMutex);
void writeLog(const char* level, const std::string& line) REQUIRES(sMutex);
// Writes a line for each key that was not extracted.
void logUnknown(const char* function, const Settings& settings) REQUIRES(sMutex);
// `string` on one line, and no longer than anybody reads.
std::string oneLine(const std::string& string);

}  // namespace standin

#endif  // OXLI_STANDIN_LOG_H
