#include "box/picture_fields.h"

#include <cstring>

#include "base/annex_k.h"
#include "base/log.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kNameBytes = 32;

bool SkipName(IOStream& stream, const CompressorName& name) {
  return (stream.remaining() >= kNameBytes && stream.skip(kNameBytes) == 0) || ZR_FAIL(false, "%s", name.notSkipped);
}

bool WriteName(FieldIo& io, const CompressorName& name) {
  ZR_U8 bytes[kNameBytes] = {};
  if (memcpy_s(bytes, kNameBytes, name.text, std::strlen(name.text)) != 0)
    return ZR_FAIL(false, "%s", name.notPrepared);
  return io.bytes(bytes, kNameBytes) || ZR_FAIL(false, "%s", name.notWritten);
}

}  // namespace

bool PictureFields::fields(FieldIo& io, const CompressorName& name) {
  return io.be16(width) && io.be16(height) && io.be32(horizontalResolution) && io.be32(verticalResolution) &&
         io.be32(dataSize) && io.be16(frameCount) &&
         (io.reading() ? SkipName(*io.stream(), name) : WriteName(io, name)) && io.be16(depth) && io.be16(preDefined);
}

}  // namespace zrmp4
