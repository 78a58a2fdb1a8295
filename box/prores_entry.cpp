#include "box/prores_entry.h"

#include <cstring>

#include "base/log.h"
#include "box/child_types.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kNameRoom = 31;

bool RefuseNameLength(ZR_U32 length) { return ZR_FAIL(false, "Prores compress name length:%u is illegal\n", length); }

}  // namespace

bool ProresAtom::fields(FieldIo& io) {
  return io.fixed32(0) && io.fixed16(0) && io.fixed16(1) &&                                               //
         io.be16(mVersion) && io.be16(mRevision) && io.bytes(mVendor, sizeof(mVendor)) &&                 //
         io.be32(mTemporalQuality) && io.be32(mSpatialQuality) && io.be16(mWidth) && io.be16(mHeight) &&  //
         io.be32(mHorizontalResolution) && io.be32(mVerticalResolution) && io.be32(mDataSize) &&          //
         io.be16(mFrameCount) && (io.reading() ? readCompressorName(io) : writeCompressorName(io)) &&     //
         io.be16(mDepth) && io.be16(mColorTableId);
}

bool ProresAtom::readCompressorName(FieldIo& io) {
  ZR_U8 length = 0;
  char name[kNameRoom] = {};
  if (!io.byte(length)) return ZR_FAIL(false, "Read prores compressor failed\n");
  if (length > kNameRoom) return RefuseNameLength(length);
  if (!io.bytes(reinterpret_cast<ZR_U8*>(name), kNameRoom)) return ZR_FAIL(false, "Read prores compressor failed\n");
  mCompressorName.assign(name, length);
  return true;
}

bool ProresAtom::writeCompressorName(FieldIo& io) {
  const ZR_U32 length = static_cast<ZR_U32>(mCompressorName.size());
  if (length > kNameRoom) return RefuseNameLength(length);
  ZR_U8 name[kNameRoom] = {};
  std::memcpy(name, mCompressorName.data(), length);
  const bool written = io.fixed8(static_cast<ZR_U8>(length)) && io.bytes(name, kNameRoom);
  return written || ZR_FAIL(false, "write prores compressor failed\n");
}

Atom* ProresAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {
      {"fiel", NewChild<FielAtom>}, {"colr", NewChild<ColrAtom>}, {"pasp", NewChild<PaspAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool ColrAtom::fields(FieldIo& io) {
  return io.bytes(mParameterType, sizeof(mParameterType)) && io.be16(mPrimaries) && io.be16(mTransferFunction) &&
         io.be16(mMatrix);
}

void ColrAtom::setColr(ZR_U32 colour) {
  struct Row {
    ZR_U32 colour;
    ZR_U16 primaries, transferFunction, matrix;
  };
  // Deliberate: 9 is BT.2020 with the matrix of BT.601.
  static constexpr Row kRows[] = {{1, 1, 1, 1}, {5, 5, 1, 6},   {6, 6, 1, 6},
                                  {9, 9, 1, 6}, {11, 9, 16, 9}, {12, 9, 18, 9}};
  for (const Row& row : kRows) {
    if (row.colour != colour) continue;
    mPrimaries = row.primaries;
    mTransferFunction = row.transferFunction;
    mMatrix = row.matrix;
  }
}

bool FielAtom::fields(FieldIo& io) { return io.byte(mFieldCount) && io.byte(mFieldOrdering); }

void FielAtom::setFiel(ZR_U32 mode) {
  constexpr ZR_U8 kOrderings[] = {0, 9, 14};
  if (mode >= sizeof(kOrderings)) return;
  mFieldCount = mode == 0 ? 1 : 2;
  mFieldOrdering = kOrderings[mode];
}

bool PaspAtom::fields(FieldIo& io) { return io.be32(mHorizontalSpacing) && io.be32(mVerticalSpacing); }

void PaspAtom::setPasp(ZR_U32 width, ZR_U32 height) {
  mHorizontalSpacing = mVerticalSpacing = 1;
  if (width == 1280 && height == 1080) {
    mHorizontalSpacing = 3;
    mVerticalSpacing = 2;
  } else if ((width == 960 && height == 720) || (width == 1440 && height == 1080)) {
    mHorizontalSpacing = 4;
    mVerticalSpacing = 3;
  }
}

}  // namespace zrmp4
