#include "box/mdat_atom.h"

#include <cerrno>
#include <cstdio>

#include "base/log.h"
#include "base/make_or_null.h"
#include "stream/field_io.h"

namespace zrmp4 {

int TbgpAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!io.be32(mUserAtomNum)) return -1;
  while (mEntryCount < mExpectedEntries && mEntryCount < VemoAtom::MAX_TRACKS) {
    if (readEntry(stream) != 0) return -1;
  }
  return 0;
}

int TbgpAtom::readEntry(IOStream* stream) {
  TbgpEntry& entry = mEntries[mEntryCount];
  FieldIo io = FieldIo::Reading(stream);
  if (!io.be32(entry.trackId)) return -1;
  const ZR_U64 left = header().Remaining(stream);
  AtomHeader stblHeader;
  if (stblHeader.Read(stream) != 0) return ZR_FAIL(-1, "read stbl header fail\n");
  if (stblHeader.type != "stbl") {
    ZR_NOTE(ZR_LOG_LEVEL_ERROR, "stbl type error\n");
    return SeekToEnd(stream) == 0 ? -1 : ZR_FAIL(-1, "seekto tbgp end error\n");
  }
  const ZR_U64 length = stblHeader.Length(stream->size());
  if (length < stblHeader.Size() || length > left) return ZR_FAIL(-1, "read stbl content fail\n");
  auto stbl = MakeOrNull<StblAtom>(stblHeader);
  if (stbl == nullptr) return ZR_FAIL(-1, "new stbl failed\n");
  if (stbl->ReadContent(stream) != 0) return ZR_FAIL(-1, "read stbl content fail\n");
  entry.stbl = std::move(stbl);
  ++mEntryCount;
  return 0;
}

int TbgpAtom::Dump(IOStream*, ZR_U32 depth) {
  printf("+%s%s userAtomNum=%u\n", std::string(depth, '-').c_str(), type().c_str(), mUserAtomNum);
  return 0;
}

// A box that the caller adds before the first track is recorded in front of vemo: 20 bytes (track 0, no key flag, no
// time stamp, a length) and that many bytes.
int MdatAtom::skipLeadingRecords(IOStream* stream) {
  constexpr ZR_U64 kRecordHeaderSize = 20;
  FieldIo io = FieldIo::Reading(stream);
  if (!io.ok()) return -1;
  mLeadingRecordsEnd = stream->getCurPos();
  const ZR_U64 end = dataEnd(stream);
  while (mLeadingRecordsEnd + kRecordHeaderSize < end) {
    ZR_U32 track = 0;
    ZR_U32 key = 0;
    ZR_U64 pts = 0;
    ZR_U32 length = 0;
    if (!io.be32(track) || !io.be32(key) || !io.be64(pts) || !io.be32(length)) return -1;
    if (track != 0 || key != 0 || pts != 0 || length == 0 || length > end - stream->getCurPos()) break;
    if (stream->skip(length) != 0) break;
    mLeadingRecordsEnd = stream->getCurPos();
  }
  if (stream->seek(static_cast<long long>(mLeadingRecordsEnd), 0) == 0) return 0;
  return ZR_FAIL(-1, "seek offset:%lld, whence(%d) fail:%d\n", static_cast<long long>(stream->getCurPos()), 0, errno);
}

int MdatAtom::readData(IOStream* stream) {
  AtomHeader next;
  if (skipLeadingRecords(stream) != 0 || next.Read(stream) != 0) return -1;
  if (next.type == "vemo") {
    auto vemo = MakeOrNull<VemoAtom>(next);
    if (vemo == nullptr) return ZR_FAIL(-1, "new %s atom no memory\n", "vemo");
    // One that is cut short is kept, not complete, so that a repair can tell it from a plain file.
    static_cast<void>(vemo->ReadContent(stream));
    adopt(vemo.release());
  } else {
    ZR_NOTE(ZR_LOG_LEVEL_TRACE, "no vemo atom\n");
  }
  return SeekToEnd(stream);
}

int MdatAtom::Dump(IOStream* stream, ZR_U32 depth) {
  if (Atom::Dump(stream, depth) != 0) return -1;
  const int scanned = dumpTbgpAtoms(stream, depth + 1);
  if (scanned != 0) ZR_NOTE(ZR_LOG_LEVEL_NOTICE, "dump tbgp atoms:%x\n", static_cast<ZR_U32>(scanned));
  return 0;
}

ZR_U64 MdatAtom::dataEnd(IOStream* stream) const {
  const ZR_U64 streamSize = stream->size();
  const ZR_U64 length = header().Length(streamSize);
  // A recording that was cut off still has the size of its header alone: its data runs to the end of the file.
  const bool cutOff = length <= header().Size() || streamSize < header().offset;
  return cutOff || length > streamSize - header().offset ? streamSize : header().offset + length;
}

int MdatAtom::dumpTbgpAtoms(IOStream* stream, ZR_U32 depth) {
  const auto* vemo = Find<VemoAtom>("vemo");
  if (vemo == nullptr) return ZR_FAIL(static_cast<int>(ZR_ERR_MP4_ATOM_NOT_FOUND), "no vemoatom\n");
  if (!vemo->complete()) return ZR_FAIL(static_cast<int>(ZR_ERR_MP4_NO_TRACK_CFG), "vemoatom not complete\n");
  if (stream == nullptr) {
    LogNullArgument("dumpTbgpAtoms");
    return -1;
  }
  const ZR_U64 unit = vemo->backupUnit();
  if (unit == 0) return 0;
  const ZR_U64 end = dataEnd(stream);
  const ZR_U64 first = (dataStart() + unit - 1) / unit * unit;
  for (ZR_U64 position = first; position < end; position += unit) {
    if (dumpTbgpAt(stream, position, vemo->trackCount(), depth) != 0) return -1;
  }
  return 0;
}

int MdatAtom::dumpTbgpAt(IOStream* stream, ZR_U64 position, ZR_U32 trackCount, ZR_U32 depth) {
  if (stream->seek(static_cast<long long>(position), 0) != 0) return ZR_FAIL(-1, "seek to next tbgp fail\n");
  AtomHeader tbgpHeader;
  if (tbgpHeader.Read(stream) != 0) return ZR_FAIL(-1, "read tbgp header failed\n");
  if (tbgpHeader.type != "tbgp") return ZR_FAIL(-1, "tbgp type error\n");
  TbgpAtom tbgp(tbgpHeader);
  tbgp.setExpectedEntries(trackCount);
  if (tbgp.ReadContent(stream) != 0) return ZR_FAIL(-1, "read tbgp data fail\n");
  if (tbgp.entryCount() != trackCount) return ZR_FAIL(-1, "stbl num error\n");
  return tbgp.Dump(stream, depth);
}

}  // namespace zrmp4
