#include "track/priv_sample_header.h"

#include "base/log.h"

namespace zrmp4 {

void PrivSampleHeader::store(ZR_U8* to) const {
  IOStream::storeBe32(to, trackId);
  IOStream::storeBe32(to + 4, isKey);
  IOStream::storeBe32(to + 8, static_cast<ZR_U32>(pts >> 32));
  IOStream::storeBe32(to + 12, static_cast<ZR_U32>(pts));
  IOStream::storeBe32(to + 16, size);
}

int PrivSampleHeader::Write(IOStream* stream) const {
  if (stream == nullptr) {
    LogNullArgument("Write");
    return -1;
  }
  if (ZR_U8* space = stream->claim(kSize)) {
    store(space);
    return 0;
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
