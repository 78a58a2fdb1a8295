#include "stream/field_io.h"

#include "base/log.h"

namespace zrmp4 {
namespace {

long long Offset(IOStream* stream) { return static_cast<long long>(stream->getCurPos()); }

}  // namespace

FieldIo::FieldIo(IOStream* stream, bool reading, const char* operation, int line) : mStream(stream), mReading(reading) {
  if (stream == nullptr) LogNullArgument(operation, line);
}

bool FieldIo::byte(ZR_U8& value) {
  if (mStream == nullptr) return false;
  if (mReading) return mStream->readByte(&value) == 1 || ZR_IO_FAIL(false, "offset:%lld, readByte fail\n", Offset(mStream));
  return mStream->writeByte(value) == 1 || ZR_IO_FAIL(false, "offset:%lld, writeByte fail\n", Offset(mStream));
}

bool FieldIo::be16(ZR_U16& value) {
  if (mStream == nullptr) return false;
  if (mReading) return mStream->readBe16(&value) == 2 || ZR_IO_FAIL(false, "offset:%lld, readBe16 fail\n", Offset(mStream));
  return mStream->writeBe16(value) == 2 || ZR_IO_FAIL(false, "offset:%lld, writeBe16 fail\n", Offset(mStream));
}

bool FieldIo::be24(ZR_U32& value) {
  if (mStream == nullptr) return false;
  if (mReading) return mStream->readBe24(&value) == 3 || ZR_IO_FAIL(false, "offset:%lld, readBe24 fail\n", Offset(mStream));
  return mStream->writeBe24(value) == 3 || ZR_IO_FAIL(false, "offset:%lld, writeBe24 fail\n", Offset(mStream));
}

bool FieldIo::be32(ZR_U32& value) {
  if (mStream == nullptr) return false;
  if (mReading) return mStream->readBe32(&value) == 4 || ZR_IO_FAIL(false, "offset:%lld, readBe32 fail\n", Offset(mStream));
  return mStream->writeBe32(value) == 4 || ZR_IO_FAIL(false, "offset:%lld, writeBe32 fail\n", Offset(mStream));
}

bool FieldIo::be64(ZR_U64& value) {
  if (mStream == nullptr) return false;
  if (mReading) return mStream->read64(&value) == 8 || ZR_IO_FAIL(false, "offset:%lld, readBe64 fail\n", Offset(mStream));
  return mStream->write64(value) == 8 || ZR_IO_FAIL(false, "offset:%lld, writeBe64 fail\n", Offset(mStream));
}

bool FieldIo::bytes(ZR_U8* data, ZR_U32 length) {
  if (mStream == nullptr) return false;
  if (mReading) {
    return mStream->readBytes(data, length) == length ||
           ZR_IO_FAIL(false, "offset:%lld, readBytes(%u) fail\n", Offset(mStream), length);
  }
  return mStream->writeBytes(data, length) == length ||
         ZR_IO_FAIL(false, "offset:%lld, writeBytes(%u) fail\n", Offset(mStream), length);
}

bool FieldIo::time(bool wide, ZR_U64& value) {
  if (wide) return be64(value);
  ZR_U32 low = static_cast<ZR_U32>(value);
  if (!be32(low)) return false;
  if (mReading) value = low;
  return true;
}

bool FieldIo::unityMatrix() {
  constexpr ZR_U32 kOne = 0x00010000;
  constexpr ZR_U32 kOneInLastRow = 0x40000000;
  return fixed32(kOne) && fixed32(0) && fixed32(0) &&  //
         fixed32(0) && fixed32(kOne) && fixed32(0) &&  //
         fixed32(0) && fixed32(0) && fixed32(kOneInLastRow);
}

}  // namespace zrmp4
