#include "box/file_boxes.h"

#include <cstring>

#include "base/annex_k.h"
#include "base/log.h"
#include "box/child_types.h"
#include "box/trak_atom.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kLargest = 0xFFFFFFFF;

void SetBrand(ZR_U8 (&brand)[4], const char* text) { std::memcpy(brand, text, sizeof(brand)); }

}  // namespace

FtypAtom::FtypAtom(const AtomHeader& header, FormatType format) : Atom(header), mFormat(format) {
  const bool mp4 = format == FORMAT_MP4;
  mMinorVersion = mp4 ? 0 : 0x200;
  SetBrand(mMajorBrand, mp4 ? "mp42" : "qt  ");
  SetBrand(mCompatibleBrands[0], mp4 ? "mp42" : "qt  ");
  SetBrand(mCompatibleBrands[1], mp4 ? "isom" : "    ");
}

bool FtypAtom::head(FieldIo& io) {
  return io.fourCharacters(mMajorBrand) && io.be32(mMinorVersion) && io.fourCharacters(mCompatibleBrands[0]);
}

int FtypAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!head(io)) return -1;
  char major[sizeof(mMajorBrand) + 1] = {};
  if (memcpy_s(major, sizeof(major), mMajorBrand, sizeof(mMajorBrand)) != 0) {
    return ZR_FAIL(-1, "read major brand of ftyp atom error\n");
  }
  const bool second = std::strcmp(major, "mp42") == 0;
  if (second && !io.fourCharacters(mCompatibleBrands[1])) return -1;
  return SeekToEnd(stream);  // over any further brands
}

int FtypAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  return head(io) && (mFormat != FORMAT_MP4 || io.fourCharacters(mCompatibleBrands[1])) ? 0 : -1;
}

Atom* MoovAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"mvhd", NewChild<MvhdAtom>}, {"trak", NewChild<TrakAtom>}};
  Atom* child = ReadChildOf(stream, kChildren);
  if (child != nullptr && child->type() == "trak") ++mTrackCount;
  return child;
}

bool MvhdAtom::head(FieldIo& io) {
  return io.versionAndFlags(mVersion, mFlags) && io.be32(mCreated) && io.be32(mModified) && io.be32(mTimeScale);
}

// Deliberate: the 32-bit layout whatever the version says, since the library reads back what it wrote itself.
int MvhdAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  ZR_U8 reservedMatrixAndPredefined[70];
  const bool done = head(io) && io.time(false, mDuration) && io.be32(mRate) && io.be16(mVolume) &&
                    io.bytes(reservedMatrixAndPredefined, sizeof(reservedMatrixAndPredefined)) && io.be32(mNextTrackId);
  return done ? 0 : -1;
}

int MvhdAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!head(io)) return -1;
  if (mDuration > kLargest) return -1;  // Deliberate: no 64-bit form, and no message
  const bool done = io.time(false, mDuration) && io.be32(mRate) && io.be16(mVolume) &&  //
                    io.fixed16(0) && io.fixed32(0) && io.fixed32(0) &&                  //
                    io.unityMatrix() &&                                                 //
                    io.fixed32(0) && io.fixed32(0) && io.fixed32(0) &&                  //
                    io.fixed32(0) && io.fixed32(0) && io.fixed32(0) && io.be32(mNextTrackId);
  return done ? 0 : -1;
}

void MvhdAtom::update(ZR_U64 duration, ZR_U32 timeScale, ZR_U32 nextTrackId) {
  mDuration = duration;
  mTimeScale = timeScale;
  mNextTrackId = nextTrackId;
}

ZR_U32 MvhdAtom::getDuration() const {
  constexpr ZR_U64 kMaxTicks = ~static_cast<ZR_U64>(0) / 1000;  // what is beyond does not fit for any time scale
  if (mTimeScale == 0 || mDuration > kMaxTicks) return 0;
  const ZR_U64 milliseconds = mDuration * 1000 / mTimeScale;
  return milliseconds > kLargest ? 0 : static_cast<ZR_U32>(milliseconds);
}

}  // namespace zrmp4
