#include "track/priv_sample_header.h"

#include "base/log.h"

namespace zrmp4 {

int PrivSampleHeader::writeThrough(IOStream* stream) const {
  if (stream == nullptr) {
    LogNullArgument("Write");
    return -1;
  }
  ZR_U8 record[kSize];
  store(record);
  const ZR_U32 moved = stream->writeBytes(record, kSize);
  if (moved == kSize) return 0;
  const long long offset = static_cast<long long>(stream->getCurPos());
  const bool inPts = moved >= 8 && moved < 16;
  return inPts ? ZR_IO_FAIL(-1, "offset:%lld, writeBe64 fail\n", offset)
               : ZR_IO_FAIL(-1, "offset:%lld, writeBe32 fail\n", offset);
}

}  // namespace zrmp4
