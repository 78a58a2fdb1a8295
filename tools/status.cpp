#include "tools/status.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "zr_log.h"
#include "zr_mp4_ext.h"

namespace {

std::mutex sinkLock;
std::string lastError;  // the library's last message of level 3

// Messages reach the user as the cause in our own; ZR_LOG_LEVEL=n asks for all of them as they come.
int PrintedLevel() {
  static const char* const level = std::getenv("ZR_LOG_LEVEL");
  return level ? std::atoi(level) : ZR_LOG_LEVEL_ERROR + 1;
}

const struct {
  ZR_U32 status;
  const char* cause;
} kCauses[] = {
    {ZR_ERR_MP4_NULL_PTR, "an argument is missing"},
    {ZR_ERR_MP4_ILLEGAL_PARAM, "refused"},
    {ZR_ERR_MP4_NO_MEMORY, "memory is out"},
    {ZR_ERR_MP4_OPEN, "cannot be set up or read"},
    {ZR_ERR_MP4_CLOSE, "cannot be flushed and closed"},
    {ZR_ERR_MP4_WRITE_HEAD, "its head cannot be written"},
    {ZR_ERR_MP4_WRITE_TAIL, "its movie box cannot be written"},
    {ZR_ERR_MP4_HANDLE_INVALID, "the handle is not valid"},
    {ZR_ERR_MP4_WRITE_BACKUP, "a frame cannot be decoded or written"},
    {ZR_ERR_MP4_REPAIR_MOOV, "the movie box cannot be rebuilt"},
    {ZR_ERR_MP4_CREATE_TRACK, "a track cannot be created"},
    {ZR_ERR_MP4_ATOM_NOT_FOUND, "no such box"},
    {ZR_ERR_MP4_ATOM_DATA, "a box's payload cannot be taken"},
    {ZR_ERR_MP4_ATOM_BUF, "the buffer is too small for the box"},
    {ZR_ERR_MP4_NO_TRACK_CFG, "it holds no usable track configuration"},
    {ZR_ERR_MP4_OPEN_FILE, "cannot be opened"},
    {ZR_ERR_MP4_READ, "its boxes cannot be read"},
    {ZR_ERR_MP4_BACKUP, "crash-safety data cannot be written"},
    {ZR_ERR_MP4_FILE_SIZE, "the file has reached its size limit"},
};

const char* Cause(ZR_U32 status) {
  for (const auto& entry : kCauses) {
    if (entry.status == status) return entry.cause;
  }
  return "failed";
}

}  // namespace

void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, pszFormat);
  std::vsnprintf(text, sizeof text, pszFormat, arguments);
  va_end(arguments);
  if (s32Level >= PrintedLevel()) std::fprintf(stderr, "[%s:%d] %s", pszModule, s32Level, text);
  if (s32Level < ZR_LOG_LEVEL_ERROR) return;

  std::lock_guard<std::mutex> guard(sinkLock);
  lastError = text;
  while (!lastError.empty() && std::strchr(" \n", lastError.back())) lastError.pop_back();
}

namespace tool {

std::string Describe(const std::string& file, ZR_U32 status) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", status);
  std::lock_guard<std::mutex> guard(sinkLock);
  const std::string detail = lastError.empty() ? "" : " (" + lastError + ")";
  lastError.clear();
  return file + ": " + Cause(status) + detail + " [" + ZR_MP4_StatusName(status) + " " + code + "]";
}

void Check(const std::string& file, ZR_U32 status) {
  if (status != 0) throw Failure(Describe(file, status));
}

Failure SystemFailure(const std::string& file, const std::string& cause) {
  return Failure(file + ": " + cause + ": " + std::strerror(errno));
}

void Warn(const std::string& message) { std::fprintf(stderr, "zrmp4: %s\n", message.c_str()); }

}  // namespace tool
