#include "box/user_def_atom.h"

#include "base/annex_k.h"
#include "base/log.h"
#include "base/make_or_null.h"
#include "stream/field_io.h"

namespace zrmp4 {

int UserDefAtom::InputData(const ZR_U8* data, ZR_U32 size) {
  if ((data != nullptr) != (size != 0)) {
    return ZR_FAIL(-1, "input data(%p) is not match datasize(%u)\n", static_cast<const void*>(data), size);
  }
  if (size == 0) return 0;
  if (mData != nullptr) return ZR_FAIL(-1, "mData has already contains data\n");
  mData = MakeArrayOrNull<ZR_U8>(size);
  if (mData == nullptr) return ZR_FAIL(-1, "new data of %u bytes failed\n", size);
  if (memcpy_s(mData.get(), size, data, size) != 0) {
    mData.reset();
    return ZR_FAIL(-1, "memcpy_s data of %u bytes failed\n", size);
  }
  mDataLength = size;
  return 0;
}

int UserDefAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!io.ok()) return -1;
  // A box without payload, with a 64-bit size, or with a size that cannot be one.
  if (header().size - 9u > 0xFFFFFFEDu) return 0;
  const ZR_U32 length = header().size - 8;
  mData.reset();
  mDataLength = length;
  if (length > stream->remaining()) {
    return ZR_IO_FAIL(-1, "offset:%lld, readBytes(%u) fail\n", static_cast<long long>(stream->getCurPos()), length);
  }
  mData = MakeArrayOrNull<ZR_U8>(length);
  if (mData == nullptr) return ZR_FAIL(-1, "no memory\n");
  return io.bytes(mData.get(), length) ? 0 : -1;
}

int UserDefAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!io.ok()) return -1;
  return mData == nullptr || io.bytes(mData.get(), mDataLength) ? 0 : -1;
}

}  // namespace zrmp4
