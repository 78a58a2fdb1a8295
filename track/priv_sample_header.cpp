#include "track/priv_sample_header.h"

#include "base/log.h"

namespace zrmp4 {
int PrivSampleHeader::Write(IOStream* stream) const {
  if (stream == nullptr) {
    LogNullArgument("Write");
    return -1;
  }
  ZR_U32 record[] = {trackId, isKey, static_cast<ZR_U32>(pts >> 32), static_cast<ZR_U32>(pts), size};
  static_assert(sizeof(record) == kSize, "as it stands in the file");
  IOStream::swapArrayOfBe32(record, kSize / 4);
  const ZR_U32 moved = stream->writeBytes(reinterpret_cast<const ZR_U8*>(record), kSize);
  if (moved == kSize) return 0;
  const long long offset = static_cast<long long>(stream->getCurPos());
  const bool inPts = moved >= 8 && moved < 16;
  return inPts ? ZR_IO_FAIL(-1, "offset:%lld, writeBe64 fail\n", offset)
               : ZR_IO_FAIL(-1, "offset:%lld, writeBe32 fail\n", offset);
}

}  // namespace zrmp4
