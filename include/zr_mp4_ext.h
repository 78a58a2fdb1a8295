/* zr_mp4_ext.h - conveniences beside the interface of zr_mp4.h. They may grow; nothing in zr_mp4.h depends on them. */
#ifndef ZR_MP4_EXT_H
#define ZR_MP4_EXT_H

#include "zr_mp4.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The name of a status code as zr_mp4.h spells it, such as "ZR_ERR_MP4_OPEN" for 0xA1298043; "success" for 0 and
 * "unknown status" for anything else. Never null. The text is constant and lives as long as the library is loaded;
 * any thread may ask at any time. For messages: programs compare the codes themselves. */
ZR_API const char* ZR_MP4_StatusName(ZR_U32 u32Status) ZR_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* ZR_MP4_EXT_H */
