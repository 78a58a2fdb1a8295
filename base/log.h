#pragma once

#include "zr_log.h"

// What is logged is rare: the paths to it stay out of the way of the others.
extern "C" [[gnu::cold]] ZR_LOG_API void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...);

namespace zrmp4 {

// Logs a notice that is not a failure; level 0 is trace, 1 notice.
#define ZR_NOTE(level, ...) ZR_LOG_Printf("MP4", (level), __VA_ARGS__)

// Logs why something failed, then yields the result: return ZR_FAIL(-1, "read tbgp data fail\n");
// A macro because the sink takes "..." only and the compiler checks the format against its arguments.
#define ZR_FAIL(result, ...) (ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, __VA_ARGS__), (result))

// The same for a transfer that moved fewer bytes than asked for.
#define ZR_IO_FAIL(result, ...) (ZR_LOG_Printf("IO", ZR_LOG_LEVEL_ERROR, __VA_ARGS__), (result))

// A null argument of a box operation: one format for every class, its class word included.
[[gnu::cold]] void LogNullArgument(const char* operation, int line = __builtin_LINE());

// The same of a track: "%s:%d %s \n", or with the class in front when one is given.
[[gnu::cold]] void LogTrackArgument(const char* className, const char* operation,
                                    const char* what = "input parameter null", int line = __builtin_LINE());

}  // namespace zrmp4
