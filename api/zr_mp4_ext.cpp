#include "zr_mp4_ext.h"

namespace {

#define ZR_NAMED(code) {code, #code}
constexpr struct {
  ZR_U32 status;
  const char* name;
} kNames[] = {
    {0, "success"},
    ZR_NAMED(ZR_ERR_MP4_NULL_PTR),
    ZR_NAMED(ZR_ERR_MP4_ILLEGAL_PARAM),
    ZR_NAMED(ZR_ERR_MP4_NO_MEMORY),
    ZR_NAMED(ZR_ERR_MP4_OPEN),
    ZR_NAMED(ZR_ERR_MP4_CLOSE),
    ZR_NAMED(ZR_ERR_MP4_WRITE_HEAD),
    ZR_NAMED(ZR_ERR_MP4_WRITE_TAIL),
    ZR_NAMED(ZR_ERR_MP4_HANDLE_INVALID),
    ZR_NAMED(ZR_ERR_MP4_WRITE_BACKUP),
    ZR_NAMED(ZR_ERR_MP4_REPAIR_MOOV),
    ZR_NAMED(ZR_ERR_MP4_CREATE_TRACK),
    ZR_NAMED(ZR_ERR_MP4_ATOM_NOT_FOUND),
    ZR_NAMED(ZR_ERR_MP4_ATOM_DATA),
    ZR_NAMED(ZR_ERR_MP4_ATOM_BUF),
    ZR_NAMED(ZR_ERR_MP4_NO_TRACK_CFG),
    ZR_NAMED(ZR_ERR_MP4_OPEN_FILE),
    ZR_NAMED(ZR_ERR_MP4_READ),
    ZR_NAMED(ZR_ERR_MP4_BACKUP),
    ZR_NAMED(ZR_ERR_MP4_FILE_SIZE),
};
#undef ZR_NAMED

}  // namespace

const char* ZR_MP4_StatusName(ZR_U32 u32Status) noexcept {
  for (const auto& entry : kNames) {
    if (entry.status == u32Status) return entry.name;
  }
  return "unknown status";
}
