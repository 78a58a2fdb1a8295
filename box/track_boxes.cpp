#include "box/track_boxes.h"

#include <strings.h>

#include <cstring>

#include "base/annex_k.h"
#include "base/log.h"
#include "box/child_types.h"
#include "box/sample_tables.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kDrefEntrySize = 12;  // without data

// 16.16 fixed point in the file, the integer part in memory.
bool Pixels(FieldIo& io, ZR_U32& pixels) {
  ZR_U32 fixed = pixels << 16;
  if (!io.be32(fixed)) return false;
  if (io.reading()) pixels = fixed >> 16;
  return true;
}

bool GraphicsMode(FieldIo& io, ZR_U16& mode, ZR_U16 (&opcolor)[3]) {
  return io.be16(mode) && io.be16(opcolor[0]) && io.be16(opcolor[1]) && io.be16(opcolor[2]);
}

}  // namespace

int TkhdAtom::writeData(IOStream* stream) {
  if (mVersion == 0 && mDuration > 0xFFFFFFFF) return -1;  // Deliberate: no 64-bit form, and no message
  return WriteFields(*this, stream);
}

bool TkhdAtom::fields(FieldIo& io) {
  if (!io.versionAndFlags(mVersion, mFlags)) return false;
  // Deliberate: version 1 has no times and no duration at all, in both directions.
  const bool timed = mVersion != 1;
  return (!timed || (io.time(false, mCreated) && io.time(false, mModified))) &&  //
         io.be32(mTrackId) && io.fixed32(0) &&                                   //
         (!timed || io.time(false, mDuration)) &&                                //
         io.fixed32(0) && io.fixed32(0) &&                                       //
         io.fixed16(0) && io.fixed16(0) &&                                       // layer, alternate group
         io.be16(mVolume) && io.fixed16(0) &&                                    //
         io.unityMatrix() && Pixels(io, mWidth) && Pixels(io, mHeight);
}

Atom* EdtsAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"elst", NewChild<ElstAtom>}};
  return ReadChildOf(stream, kChildren);
}

void ElstAtom::update(ZR_U32 segmentDuration, float rate) {
  mSegmentDuration = segmentDuration;
  mRate = rate;
}

bool ElstAtom::fields(FieldIo& io) {
  constexpr ZR_U32 kNormalRate = 0x00010000;  // Deliberate: whatever rate the owner gave
  return io.versionAndFlags(mVersion, mFlags) && io.fixed32(1) && io.be32(mSegmentDuration) && io.be32(mMediaTime) &&
         io.fixed32(kNormalRate);
}

Atom* MdiaAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {
      {"mdhd", NewChild<MdhdAtom>}, {"hdlr", NewChild<HdlrAtom>}, {"minf", NewChild<MinfAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool MdhdAtom::fields(FieldIo& io) {
  if (!io.versionAndFlags(mVersion, mFlags)) return false;
  const bool wide = mVersion == 1;
  return io.time(wide, mCreated) && io.time(wide, mModified) && io.be32(mTimeScale) && io.time(wide, mDuration) &&
         io.be16(mLanguage) && io.be16(mQuality);
}

int HdlrAtom::setHdlrAtom(const std::string& subType, const std::string& name) {
  if (subType.size() != sizeof(mComponentSubtype)) return ZR_FAIL(-1, "pszCompSubType param invalid\n");
  const bool media = subType == "vide" || subType == "soun";
  std::memcpy(mComponentSubtype, subType.data(), sizeof(mComponentSubtype));
  std::memcpy(mComponentType, media ? "mhlr" : "dhlr", sizeof(mComponentType));
  if (name.size() >= kNameSize) return ZR_FAIL(-1, "mComponentNameLen invalid\n");
  mNameLength = static_cast<ZR_U8>(name.size());
  if (CopyText(mName, sizeof(mName), name.data(), name.size()) != 0) {
    ZR_NOTE(ZR_LOG_LEVEL_ERROR, "snprintf_s component name error\n");
    mNameLength = 0;
  }
  IncreaseSize(mNameLength + 1u);
  return 0;
}

bool HdlrAtom::head(FieldIo& io) {
  return io.versionAndFlags(mVersion, mFlags) && io.bytes(mComponentType, sizeof(mComponentType)) &&
         io.bytes(mComponentSubtype, sizeof(mComponentSubtype));
}

bool HdlrAtom::tail(FieldIo& io) {
  return io.be32(mManufacturer) && io.be32(mComponentFlags) && io.be32(mComponentFlagsMask);
}

int HdlrAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!head(io) || !tail(io) || !io.byte(mNameLength)) return -1;
  return mNameLength == 0 || io.bytes(reinterpret_cast<ZR_U8*>(mName), mNameLength) ? 0 : -1;
}

int HdlrAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!head(io)) return -1;
  static constexpr struct {
    const char* subType;
    Kind kind;
  } kKinds[] = {{"vide", KIND_VIDEO}, {"soun", KIND_SOUND}, {"meta", KIND_META}};
  mKind = KIND_OTHER;
  for (const auto& known : kKinds) {
    if (strncasecmp(reinterpret_cast<const char*>(mComponentSubtype), known.subType, 4) == 0) mKind = known.kind;
  }
  if (mKind == KIND_OTHER) ZR_NOTE(ZR_LOG_LEVEL_TRACE, "unkown mComponentSubtype\n");
  return tail(io) ? readName(io) : -1;
}

int HdlrAtom::readName(FieldIo& io) {
  constexpr ZR_U32 kNameAt = 32;  // in the box
  if (header().size < kNameAt) return ZR_FAIL(-1, "hdlrAtom AtomLen error\n");
  const ZR_U32 length = header().size - kNameAt;
  if (length >= kNameSize) return ZR_FAIL(-1, "hdlr componentNameLen err:%u\n", length);
  char field[kNameSize] = {};
  if (length != 0 && !io.bytes(reinterpret_cast<ZR_U8*>(field), length)) return -1;
  // A counted string as QuickTime has it, otherwise the field as it stands, terminator included.
  const bool counted = length != 0 && static_cast<ZR_U8>(field[0]) == length - 1;
  const char* name = counted ? field + 1 : field;
  mNameLength = static_cast<ZR_U8>(counted ? length - 1 : length);
  if (CopyText(mName, sizeof(mName), name, mNameLength) != 0) return ZR_FAIL(-1, "set component name failed\n");
  return 0;
}

Atom* MinfAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"vmhd", NewChild<VmhdAtom>},
                                            {"smhd", NewChild<SmhdAtom>},
                                            {"gmhd", NewChild<GmhdAtom>},
                                            {"dinf", NewChild<DinfAtom>},
                                            {"stbl", NewChild<StblAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool VmhdAtom::fields(FieldIo& io) {
  return io.versionAndFlags(mVersion, mFlags) && GraphicsMode(io, mGraphicsMode, mOpcolor);
}

bool SmhdAtom::fields(FieldIo& io) {
  return io.versionAndFlags(mVersion, mFlags) && io.be16(mBalance) && io.fixed16(0);
}

Atom* GmhdAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"gmin", NewChild<GminAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool GminAtom::fields(FieldIo& io) {
  return io.versionAndFlags(mVersion, mFlags) && GraphicsMode(io, mGraphicsMode, mOpcolor) && io.be16(mBalance) &&
         io.fixed16(0);
}

Atom* DinfAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"dref", NewChild<DrefAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool DrefAtom::EntryFields(FieldIo& io, ZR_U32& size, Entry& entry) {
  return io.be32(size) && io.fourCharacters(entry.type) && io.versionAndFlags(entry.version, entry.flags);
}

int DrefAtom::append(const Entry& entry) { return mEntries.append(entry) ? 0 : ZR_FAIL(-1, "no memory:%s\n", "dref"); }

int DrefAtom::addEntry(const std::string& type, ZR_U8 version, ZR_U32 flags) {
  Entry entry = {{}, version, flags};
  // A shorter type is filled with zeros.
  if (memcpy_s(entry.type, sizeof(entry.type), type.data(), type.size()) != 0) {
    return ZR_FAIL(-1, "memcpy entry type(%s) error\n", type.c_str());
  }
  if (append(entry) != 0) return -1;
  IncreaseSize(kDrefEntrySize);
  return 0;
}

int DrefAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  ZR_U32 count = 0;
  if (!io.versionAndFlags(mVersion, mFlags) || !io.be32(count)) return -1;
  if (count > header().RemainingInBox(stream) / kDrefEntrySize) return ZR_FAIL(-1, "dref entry count err\n");
  for (ZR_U32 i = 0; i < count; ++i) {
    ZR_U32 size = 0;
    Entry entry;
    if (!EntryFields(io, size, entry)) return -1;
    const ZR_U32 data = size > kDrefEntrySize ? size - kDrefEntrySize : 0;
    const bool skipped = data == 0 || (data <= header().Remaining(stream) && stream->skip(data) == 0);
    if (!skipped) return ZR_FAIL(-1, "dref entry size err\n");
    if (append(entry) != 0) return -1;
  }
  return 0;
}

int DrefAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  ZR_U32 count = mEntries.count();
  if (!io.versionAndFlags(mVersion, mFlags) || !io.be32(count)) return -1;
  for (Entry entry : mEntries) {
    ZR_U32 size = kDrefEntrySize;  // the data of an entry that was read is not kept
    if (!EntryFields(io, size, entry)) return -1;
  }
  return 0;
}

}  // namespace zrmp4
