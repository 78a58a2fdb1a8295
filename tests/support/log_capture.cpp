#include "tests/support/log_capture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "tests/support/alloc_faults.h"
#include "zr_log.h"

namespace {

std::mutex gMutex;

std::vector<LogCapture::Line>& Lines() {
  static std::vector<LogCapture::Line> lines;
  return lines;
}

}  // namespace

extern "C" void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, pszFormat);
  std::vsnprintf(text, sizeof(text), pszFormat, arguments);
  va_end(arguments);
  const AllocFaults::Pause ownMemory;
  const std::lock_guard<std::mutex> lock(gMutex);
  Lines().push_back({pszModule, s32Level, text});
}

void LogCapture::clear() {
  const std::lock_guard<std::mutex> lock(gMutex);
  Lines().clear();
}

std::vector<LogCapture::Line> LogCapture::lines() {
  const std::lock_guard<std::mutex> lock(gMutex);
  return Lines();
}

int LogCapture::count(const std::string& text) {
  const std::vector<Line> all = lines();
  return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const Line& line) { return line.text == text; }));
}

std::string LogCapture::all() {
  std::string text;
  for (const Line& line : lines()) text += line.module + " " + std::to_string(line.level) + " " + line.text;
  return text;
}
