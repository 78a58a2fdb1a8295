#include "box/user_def_atom.h"

#include <cstring>

#include "base/annex_k.h"
#include "base/log.h"
#include "base/make_or_null.h"
#include "stream/field_io.h"

namespace zrmp4 {
namespace {

// A word that may not stand anywhere in a path or type, not even inside a longer name.
struct ForbiddenWord {
  char word[5];
  const char* message;
};

constexpr ForbiddenWord kForbiddenInPath[] = {
    {"ftyp", "user define box path invalid  ftyp\n"}, {"mdat", "user define box path invalid mdat\n"},
    {"mvhd", "user define box path invalid mvhd \n"}, {"tkhd", "user define box path invalid tkhd \n"},
    {"mdhd", "user define box path invalid mdhd \n"}, {"hdlr", "user define box path invalid hdlr \n"},
    {"smhd", "user define box path invalid smhd\n"},  {"dinf", "user define box path invalid dinf \n"},
    {"dref", "user define box path invalid dref \n"}, {"stbl", "user define box path invalid stbl\n"},
};

constexpr ForbiddenWord kForbiddenAsType[] = {
    {"ftyp", "user define box type illegal ftyp \n"},
    {"mdat", "user define box type illegal mdat \n"},
    {"moov", "user define box type illegal moov\n"},
};

template <std::size_t kCount>
int CheckForbidden(const char* text, const ForbiddenWord (&words)[kCount]) {
  for (const ForbiddenWord& forbidden : words) {
    if (std::strstr(text, forbidden.word) != nullptr) return ZR_FAIL(-1, "%s", forbidden.message);
  }
  return 0;
}

}  // namespace

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

int CheckUserBoxPath(const char* path) {
  // Deliberate: the number printed is not the limit.
  if (std::strlen(path) > kMaxUserBoxPath) return ZR_FAIL(-1, "atom path length max :%d \n", 256);
  return CheckForbidden(path, kForbiddenInPath);
}

int CheckUserBoxType(const char (&type)[5]) {
  if (std::memchr(type, '\0', sizeof(type)) != type + 4) return ZR_FAIL(-1, "user define box type size illegal  \n");
  return CheckForbidden(type, kForbiddenAsType);
}

}  // namespace zrmp4
