#include "codec/nal_unit.h"

namespace zrmp4 {

ZR_U32 GenSodpByRbsp(const ZR_U8* rbsp, ZR_U32 size, ZR_U8* out) {
  if (rbsp == nullptr || out == nullptr) return 0;
  ZR_U32 written = 0;
  unsigned zeros = 0;
  for (ZR_U32 i = 0; i < size; ++i) {
    const ZR_U8 byte = rbsp[i];
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out[written++] = byte;
  }
  return written;
}

}  // namespace zrmp4
