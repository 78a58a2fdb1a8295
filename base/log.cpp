#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace zrmp4 {
namespace {

int LowestLevelPrinted() {
  const char* level = std::getenv("ZR_LOG_LEVEL");
  return level != nullptr ? std::atoi(level) : ZR_LOG_LEVEL_ERROR;
}

}  // namespace

void LogNullArgument(const char* operation, int line) {
  ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, "HvccAtom::%s:%d %s \n", operation, line, "input parameter null");
}

void LogTrackArgument(const char* className, const char* operation, const char* what, int line) {
  if (className == nullptr) {
    ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, "%s:%d %s \n", operation, line, what);
  } else {
    ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, "%s::%s:%d %s \n", className, operation, line, what);
  }
}

}  // namespace zrmp4

extern "C" __attribute__((weak)) void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) {
  static const int lowest = zrmp4::LowestLevelPrinted();
  if (s32Level < lowest) return;
  char line[512];
  va_list arguments;
  va_start(arguments, pszFormat);
  vsnprintf(line, sizeof(line), pszFormat, arguments);
  va_end(arguments);
  fprintf(stderr, "[%s] %s", pszModule, line);
}
