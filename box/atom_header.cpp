#include "box/atom_header.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "stream/field_io.h"

namespace zrmp4 {

int AtomHeader::Read(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!io.ok()) return -1;
  offset = stream->getCurPos();
  ZR_U8 name[5] = {};
  if (!io.be32(size) || !io.bytes(name, 4)) return -1;
  type = reinterpret_cast<const char*>(name);
  return size != 1 || io.be64(largeSize) ? 0 : -1;
}

int AtomHeader::Write(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!io.ok()) return -1;
  offset = stream->getCurPos();
  ZR_U8 name[4] = {};
  std::memcpy(name, type.data(), type.size() < 4 ? type.size() : 4);
  return io.be32(size) && io.bytes(name, 4) && (size != 1 || io.be64(largeSize)) ? 0 : -1;
}

ZR_U64 AtomHeader::Length(ZR_U64 streamSize) const {
  if (size == 0) return streamSize > offset ? streamSize - offset : 0;
  return size == 1 ? largeSize : size;
}

ZR_U64 AtomHeader::RemainingInBox(IOStream* stream) const {
  const ZR_U64 passed = stream->getCurPos() - offset;
  const ZR_U64 length = Length(stream->size());
  return length > passed ? length - passed : 0;
}

ZR_U64 AtomHeader::Remaining(IOStream* stream) const {
  const ZR_U64 inBox = RemainingInBox(stream);
  const ZR_U64 inStream = stream->remaining();
  return inBox < inStream ? inBox : inStream;
}

int AtomHeader::rewriteAtomSize(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!io.ok()) return -1;
  const ZR_U64 at = size == 1 ? offset + 8 : offset;
  if (stream->seek(static_cast<long long>(at), 0) != 0) {
    return ZR_FAIL(-1, "seek offset:%lld, whence(%d) fail:%d\n", static_cast<long long>(stream->getCurPos()), 0, errno);
  }
  return (size == 1 ? io.be64(largeSize) : io.be32(size)) ? 0 : -1;
}

}  // namespace zrmp4
