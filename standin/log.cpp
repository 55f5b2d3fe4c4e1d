#include "standin/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "utils/string_utils.h"

using namespace standin;

namespace {

int log(const char* function, const char* level, const char* string, va_list* args = nullptr) {
  return call(function, {string}, [&] {
    require(string, "the line is null");
    const std::string line = args ? oxutils::StringUtils::vformat(string, *args) : string;
    const MutexLock lock(sMutex);
    writeLog(level, line);
  });
}

}  // namespace

namespace standin {

void openLog(const std::string& setting) {
  if (setting.empty()) return;
  std::FILE*& log = environment().log;
  log = stderr;
  if (setting == "stderr") return;
  if (setting.compare(0, 5, "file:") != 0) {
    throw Refusal{OX_ERR_INVALIDARGUMENT, "log=" + setting + " is neither stderr nor file:PATH"};
  }
  std::FILE* const file = std::fopen(setting.c_str() + 5, "ae");
  if (!file) {
    throw Refusal{OX_ERR_INVALIDARGUMENT,
                  "log=" + setting + " cannot be opened: " + std::strerror(errno)};
  }
  log = file;
}

void closeLog() {
  std::FILE* const log = std::exchange(environment().log, nullptr);
  if (log && log != stderr) std::fclose(log);
}

bool isLogging() {
  return environment().log || environment().recording;
}

void writeLog(const char* level, const std::string& line) {
  Environment& env = environment();
  if (env.recording) env.logLines.push_back(std::string(level) + ": " + line);
  if (!env.log) return;
  std::fprintf(env.log, "%s: %s\n", level, line.c_str());
  std::fflush(env.log);
}

void logUnknown(const char* function, const Settings& settings) {
  if (!isLogging()) return;
  for (const auto& [key, value] : settings.left()) {
    const std::string name = settings.hasSecret() ? "" : ' ' + oneLine(key);
    writeLog("info", std::string(function) + ": unknown key" + name + " is ignored");
  }
}

std::string oneLine(const std::string& string) {
  constexpr std::size_t kMaxLength = 1000;
  std::string line = string.substr(0, kMaxLength);
  for (std::size_t at = 0; (at = line.find('\n', at)) != std::string::npos;) {
    line.replace(at, 1, "\\n");
  }
  return line;
}

}  // namespace standin

int ox_log_debugstr(const char* string) {
  return log(__func__, "debug", string);
}

int ox_log_tracestr(const char* string) {
  return log(__func__, "trace", string);
}

int ox_log_infostr(const char* string) {
  return log(__func__, "info", string);
}

int ox_log_errorstr(const char* string) {
  return log(__func__, "error", string);
}

int ox_log_info(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = log(__func__, "info", format, &args);
  va_end(args);
  return result;
}

int ox_log_error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = log(__func__, "error", format, &args);
  va_end(args);
  return result;
}
