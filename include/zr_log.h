/* zr_log.h - the logging sink of zrmp4.
 *
 * Every message of the library goes through ZR_LOG_Printf. The library calls it through the dynamic symbol and
 * brings a weak default, so an application that defines a function of this name receives all messages instead. */
#ifndef ZR_LOG_H
#define ZR_LOG_H

#if defined(__GNUC__)
#define ZR_LOG_API __attribute__((visibility("default")))
#define ZR_LOG_FORMAT(text, first) __attribute__((format(printf, text, first)))
#else
#define ZR_LOG_API
#define ZR_LOG_FORMAT(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Levels: trace (0), notice (1), error (3). Level 2 is not used. */
#define ZR_LOG_LEVEL_TRACE 0
#define ZR_LOG_LEVEL_NOTICE 1
#define ZR_LOG_LEVEL_ERROR 3

/* Receives one message.
 *   pszModule  "MP4" (logic) or "IO" (a transfer that moved fewer bytes than asked for)
 *   s32Level   one of the levels above
 *   pszFormat  printf format; most texts end in a newline
 * The default prints messages of level 3 to standard error; the environment variable ZR_LOG_LEVEL=n, read at the
 * first message, prints those of level n and up. The sink may be called from any thread that is inside a call of
 * the library, sometimes with a lock of the library held: it must not call the library back, and must not throw. */
ZR_LOG_API void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) ZR_LOG_FORMAT(3, 4);

#ifdef __cplusplus
}
#endif

#endif /* ZR_LOG_H */
