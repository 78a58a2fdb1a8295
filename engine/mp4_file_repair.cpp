#include <algorithm>
#include <cstring>

#include "base/log.h"
#include "base/make_or_null.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/sample_tables.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "engine/mp4_file.h"
#include "engine/snapshot_check.h"
#include "stream/field_io.h"
#include "track/record_walker.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kRecordReadAhead = 32;             // a private header and the head of what follows
constexpr ZR_U32 kSnapshotReadAhead = 8192;         // two tables of a thousand samples: most snapshots are no larger
constexpr ZR_U32 kSnapshotsAhead = 256;
constexpr ZR_U32 kSmallestUnit = 4096;              // anything less in a file is damage
constexpr ZR_U32 kLargestPreAllocUnit = 104857600;  // the most that a configuration may ask for
constexpr ZR_U32 kPage = 4096;                      // of a file, as it reaches the disk
constexpr ZR_U64 kMostUnsynced = 64u << 20;         // what may be written between two syncs

template <typename Table>
Table* TableOf(StblAtom* stbl, const char* type) {
  return stbl->Find<Table>(type);
}

// Sound and data that are not coded may well hold pages of zeros.
bool IsCoded(const Track& track) {
  const TrakAtom* trak = track.trak();
  return trak->trakType() != TrakAtom::TRAK_META && trak->codecType() < TrakAtom::CODEC_RESERVED;
}

// Whether groups, those of tracks beyond the configuration among them, make up the box to its end, where the records
// go on.
bool GroupsFillBox(IOStream* stream, const TbgpAtom& tbgp) {
  constexpr ZR_U32 kHeadSize = 12;
  constexpr ZR_U64 kTrackIdSize = 4;
  ZR_U64 at = tbgp.header().offset + kHeadSize;
  const ZR_U64 end = tbgp.header().offset + tbgp.header().size;
  for (ZR_U32 i = 0; i < tbgp.entryCount(); ++i) at += kTrackIdSize + tbgp.entry(i).stbl->header().size;
  while (at < end) {
    AtomHeader stbl;
    if (stream->seek(static_cast<long long>(at + kTrackIdSize), 0) != 0 || stbl.Read(stream) != 0) return false;
    if (stbl.type != "stbl" || stbl.size < stbl.Size() || stbl.size > end - at) return false;
    at += kTrackIdSize + stbl.size;
  }
  return at == end;
}

}  // namespace

ZR_U32 MP4File::Repair(ZR_BOOL parseExtraFrames) {
  if (mVemo == nullptr) {
    ZR_NOTE(1, "no vemoatom\n");
    return ZR_ERR_MP4_ATOM_NOT_FOUND;
  }
  if (!vemo()->complete() || !vemo()->credible()) {
    ZR_NOTE(1, "vemoatom not complete\n");
    return ZR_ERR_MP4_NO_TRACK_CFG;
  }
  if (IsFinished()) return 0;
  // A size that has no room for 64 bits was not written by a recorder, and could not tell where the frames end.
  if (mMdat->header().size != 1) {
    ZR_NOTE(1, "repair moov fail\n");
    return ZR_FAIL(ZR_ERR_MP4_REPAIR_MOOV, "mdat has no 64-bit size\n");
  }
  // The tail ends at a top-level box without a type: it is told before anything is cut off.
  for (const Atom* box = firstChild(); box != nullptr; box = box->nextSibling()) {
    if (!box->type().empty()) continue;
    ZR_NOTE(ZR_LOG_LEVEL_ERROR, "could not find child atom type error\n");
    ZR_NOTE(1, "repair file tail fail\n");
    return ZR_ERR_MP4_WRITE_TAIL;
  }
  RestoreConfiguration();
  if (CreateMoov() != 0) return ZR_ERR_MP4_NO_MEMORY;
  // Boxes that stand in front of the tracks in the tree are restored in front of them.
  if (RestoreLeadingUserAtoms() != 0) {
    ZR_NOTE(1, "repair moov fail\n");
    return ZR_ERR_MP4_REPAIR_MOOV;
  }
  if (CreateTraks() != 0) {
    ZR_NOTE(1, "create trakatom fail\n");
    return ZR_ERR_MP4_CREATE_TRACK;
  }
  if (RepairMoov(parseExtraFrames) != 0) {
    ZR_NOTE(1, "repair moov fail\n");
    return ZR_ERR_MP4_REPAIR_MOOV;
  }
  if (WriteTail() != 0) {
    ZR_NOTE(1, "repair file tail fail\n");
    return ZR_ERR_MP4_WRITE_TAIL;
  }
  return 0;
}

// Behind a finished file's media data stands a whole movie box: the size of the data is the last thing that is written.
// Another writer may have put boxes in between, or the movie in front.
bool MP4File::IsFinished() {
  if (mMoov != nullptr && HoldsTracks(mMoov->header())) return true;
  const AtomHeader& mdat = mMdat->header();
  const ZR_U64 length = mdat.Length(mFileSize);
  if (length <= mdat.Size() || length >= mFileSize - mdat.offset) return false;
  AtomHeader box;
  for (ZR_U64 at = mdat.offset + length; at < mFileSize; at += box.Length(mFileSize)) {
    if (mStream->seek(static_cast<long long>(at), 0) != 0 || box.Read(mStream.get()) != 0) return false;
    if (box.Length(mFileSize) < box.Size() || box.Length(mFileSize) > mFileSize - at) return false;
    if (box.type == "moov") return HoldsTracks(box);
  }
  return false;
}

// Whether boxes make up a movie box to its end, a track among them. They are not looked into: that of a track without a
// key frame has a configuration that cannot be read.
bool MP4File::HoldsTracks(const AtomHeader& moov) {
  const ZR_U64 end = moov.offset + moov.Length(mFileSize);
  bool movieHeader = false;
  bool track = false;
  ZR_U64 at = moov.offset + moov.Size();
  while (at < end) {
    AtomHeader box;
    if (mStream->seek(static_cast<long long>(at), 0) != 0 || box.Read(mStream.get()) != 0) return false;
    if (box.size < box.Size() || box.size > end - at) return false;
    movieHeader = movieHeader || box.type == "mvhd";
    track = track || box.type == "trak";
    at += box.size;
  }
  return movieHeader && track;
}

// The configuration of the recording; figures that no recording can have are damage and count as none.
void MP4File::RestoreConfiguration() {
  mBackupUnit = vemo()->backupUnit() >= kSmallestUnit ? vemo()->backupUnit() : 0;
  mUseCo64 = vemo()->useCo64();
  mConstantRate = vemo()->constantRate();
  mPreAllocLen = vemo()->preAllocLen() <= kLargestPreAllocUnit ? vemo()->preAllocLen() : 0;
  constexpr ZR_U64 kMostSnapshots = 0xFFFFFFFF;
  mBackupIndex = mBackupUnit != 0 ? static_cast<ZR_U32>(std::min(mFileSize / mBackupUnit, kMostSnapshots)) : 0;
  mStream->setPreAllocUnit(mPreAllocLen);
}

ZR_U32 MP4File::CreateMoov() {
  auto moov = MakeOrNull<MoovAtom>();
  auto mvhd = MakeOrNull<MvhdAtom>(MP4_TIMESCALE, 0u, vemo()->trackCount() + 1);
  if (moov == nullptr || mvhd == nullptr) return ZR_ERR_MP4_NO_MEMORY;
  moov->AddChild(mvhd.release());
  mMoov = moov.get();
  AddChild(moov.release());
  return 0;
}

int MP4File::CreateTraks() {
  for (ZR_U32 i = 0; i < vemo()->trackCount(); ++i) {
    const TrackCfgS* config = vemo()->getTrackInfoByIndex(i);
    if (config == nullptr || MakeTrack(&config->info) == nullptr) return ZR_FAIL(-1, "repair create track fail\n");
  }
  return 0;
}

int MP4File::RepairMoov(ZR_BOOL parseExtraFrames) {
  if (mStream == nullptr) return ZR_FAIL(-1, "HvccAtom::%s:%d %s \n", "RepairMoov", __LINE__, "m_ioStream null");
  if (mMdat == nullptr) return ZR_FAIL(-1, "HvccAtom::%s:%d %s \n", "RepairMoov", __LINE__, "m_mdat null");
  if (mVemo->SeekToEnd(mStream.get()) != 0) return ZR_FAIL(-1, "seekto end of vemoatom fail\n");
  mLastGoodEnd = mStream->getCurPos();
  mStream->setReadAhead(kRecordReadAhead);
  if (ParseMediaParameter() != 0) return ZR_FAIL(-1, "Parse sps/pps fail\n");
  ParseSnapshots();
  for (Track* track : mTracks) {
    if (track->RestoreAfterMerge() != 0) return -1;
  }
  if (mStream->seek(static_cast<long long>(mLastGoodEnd), 0) != 0) return ZR_FAIL(-1, "seekto end of last tbgp fail\n");

  ZR_U64 frameEnd = mLastGoodEnd;
  if (parseExtraFrames || mMergedTbgp == 0) ParseExtraFrame(&frameEnd);
  // What could not be read, or found no memory, is not damage: nothing is cut off for it.
  if (mStream->readFailed() || TakeMemoryOut()) return -1;

  if (mStream->seek(static_cast<long long>(frameEnd), 0) != 0) return ZR_FAIL(-1, "seekto end of frame fail\n");
  if (Truncate(frameEnd) != 0) return -1;
  mMdat->setExtendedSize(frameEnd - mMdat->header().offset);
  return 0;
}

// Boxes added before the first track stand in front of the track configuration.
int MP4File::RestoreLeadingUserAtoms() {
  RecordWalker walker(mStream.get(), 0, mMdat->dataStart(), mVemo->header().offset);
  while (walker.next() == RecordWalker::Record::kUserBox) {
    if (AddUserAtom(walker) != 0) return ZR_FAIL(-1, "addUserAtom fail\n");
  }
  return 0;
}

int MP4File::ParseMediaParameter() {
  for (Track* track : mTracks) {
    RecordWalker walker(mStream.get(), mBackupUnit, mLastGoodEnd, mFileSize);
    if (track->ParseMediaParameter(walker) != 0) {
      return ZR_FAIL(-1, "Parse track[%u] parameter fail\n", track->trackId());
    }
  }
  return 0;
}

// Snapshots ----------------------------------------------------------------------------------------------------------

void MP4File::ParseSnapshots() {
  RecordWalker cover(mStream.get(), mBackupUnit, mLastGoodEnd, mFileSize);
  ZR_U64 expected = 0;
  while (mParsedTbgp < mBackupIndex) {
    // Many are asked for before the first is looked at, so that the disk does not wait in between.
    while (expected < std::min<ZR_U64>(mBackupIndex, ZR_U64{mParsedTbgp} + kSnapshotsAhead)) {
      mStream->expect(++expected * mBackupUnit, kSnapshotReadAhead);
    }
    const ZR_U64 multiple = (static_cast<ZR_U64>(mParsedTbgp) + 1) * mBackupUnit;
    if (Covered(cover, multiple)) {
      ++mParsedTbgp;  // a record passed this multiple, so no snapshot can stand there
      continue;
    }
    if (FindAndParseNextTbgp() != 0) return;
    mLastGoodEnd = mStream->getCurPos();
    ++mMergedTbgp;
    cover = RecordWalker(mStream.get(), mBackupUnit, mLastGoodEnd, mFileSize);
  }
}

// Whether a whole record, or the last snapshot, lies across an offset. Only an offset where no table group stands is
// worth the walk.
bool MP4File::Covered(RecordWalker& cover, ZR_U64 offset) {
  if (offset < mLastGoodEnd) return true;
  ZR_U8 head[8];
  mStream->setReadAhead(kSnapshotReadAhead);
  const bool read = mStream->seek(static_cast<long long>(offset), 0) == 0 && mStream->readBytes(head, 8) == 8;
  mStream->setReadAhead(kRecordReadAhead);
  if (!read || std::memcmp(head + 4, "tbgp", 4) == 0) return false;
  while (cover.endOffset() <= offset) {
    const RecordWalker::Record record = cover.next();
    if (record == RecordWalker::Record::kEnd || record == RecordWalker::Record::kTableGroup) return false;
  }
  return cover.offset() < offset && cover.offset() >= mLastGoodEnd;
}

int MP4File::FindAndParseNextTbgp() {
  const ZR_U64 offset = (static_cast<ZR_U64>(mParsedTbgp) + 1) * mBackupUnit;
  if (mStream->seek(static_cast<long long>(offset), 0) != 0) return ZR_FAIL(-1, "seek to next tbgp fail\n");
  AtomHeader header;
  if (header.Read(mStream.get()) != 0) return ZR_FAIL(-1, "read tbgp header failed\n");
  if (header.type != "tbgp") return ZR_FAIL(-1, "atom header type[%s] is not tbgp\n", header.type.c_str());
  if (header.size > mFileSize - offset) return ZR_FAIL(-1, "read tbgp data fail\n");
  mStream->setReadAhead(header.size);  // the rest of the box in one go
  TbgpAtom tbgp(header);
  tbgp.setExpectedEntries(mTracks.count());
  const int result = tbgp.readData(mStream.get());
  mStream->setReadAhead(kRecordReadAhead);
  if (result != 0) return ZR_FAIL(-1, "read tbgp data fail\n");
  if (tbgp.entryCount() != mTracks.count()) return ZR_FAIL(-1, "stbl num error\n");
  if (CheckSnapshot(tbgp) != 0) {
    return ZR_FAIL(-1, "tbgp data is damaged, offset:%llu\n", static_cast<unsigned long long>(offset));
  }
  if (ParseUserDefAtom(tbgp.userAtomNum(), offset) != 0) return ZR_FAIL(-1, "ParseUserDefAtom error\n");
  for (ZR_U32 i = 0; i < tbgp.entryCount(); ++i) {
    if (RepairStbl(tbgp.entry(i).stbl.get(), tbgp.entry(i).trackId) != 0) return ZR_FAIL(-1, "repairStbl fail\n");
  }
  ++mParsedTbgp;
  if (mStream->seek(static_cast<long long>(offset + header.size), 0) != 0) {
    return ZR_FAIL(-1, "seek back to stbl group error\n");
  }
  return 0;
}

// The whole snapshot is checked before any of it is merged.
int MP4File::CheckSnapshot(TbgpAtom& tbgp) {
  if (!GroupsFillBox(mStream.get(), tbgp)) return -1;
  for (ZR_U32 i = 0; i < tbgp.entryCount(); ++i) {
    const Track* track = mTracks.at(i);
    const auto* stsz = track->trak()->Find<StszAtom>("mdia/minf/stbl/stsz");
    if (tbgp.entry(i).trackId != track->trackId() || stsz == nullptr) return -1;
    const bool tellsSync = track->trak()->Find<StssAtom>("mdia/minf/stbl/stss") != nullptr;
    const SnapshotBounds bounds = {mLastGoodEnd,   tbgp.header().offset, stsz->getCount(), track->isConstantRate(),
                                   mUseCo64 != 0, tellsSync};
    StblAtom& stbl = *tbgp.entry(i).stbl;
    if (!SnapshotHolds(stbl, bounds) || !EndsInRecord(stbl, track->trackId())) return -1;
  }
  return 0;
}

// Whether the last sample of a snapshot stands where it says. The end of its tables is what a snapshot loses that was
// cut while it was written, in front of zeros that read as numbers too.
bool MP4File::EndsInRecord(StblAtom& stbl, ZR_U32 trackId) {
  const auto& sizes = TableOf<StszAtom>(&stbl, "stsz")->entries();
  if (sizes.empty()) return true;
  const ZR_U64 offset = mUseCo64 ? TableOf<Co64Atom>(&stbl, "co64")->entries().back()
                                 : TableOf<StcoAtom>(&stbl, "stco")->entries().back();
  PrivSampleHeader header;
  return mStream->seek(static_cast<long long>(offset - PrivSampleHeader::kSize), 0) == 0 &&
         header.Read(mStream.get()) == 0 && header.trackId == trackId && header.size == sizes.back();
}

// Restores the user boxes of the interval that a table group at end closes.
int MP4File::ParseUserDefAtom(ZR_U32 count, ZR_U64 end) {
  if (count == 0) return 0;
  RecordWalker walker(mStream.get(), mBackupUnit, mLastGoodEnd, end);
  for (ZR_U32 left = count; left != 0;) {
    const RecordWalker::Record record = walker.next();
    if (record == RecordWalker::Record::kEnd) {
      if (walker.unreadable()) return ZR_FAIL(-1, "read frame header fail\n");
      if (walker.cut()) ZR_NOTE(3, "user atom data not complete\n");
      // What is left of the interval is still worth having.
      ZR_NOTE(3, "not all userdef atom pased, remain :%u\n", left);
      return 0;
    }
    if (record != RecordWalker::Record::kUserBox) continue;
    if (AddUserAtom(walker) != 0) return ZR_FAIL(-1, "addUserAtom fail\n");
    --left;
  }
  return 0;
}

// Registers a box as the caller's call did. One that the call would have refused is damaged, and passed over: it costs
// no frame.
int MP4File::AddUserAtom(const RecordWalker& walker) {
  if (mStream->seek(static_cast<long long>(walker.dataOffset()), 0) != 0) return -1;
  AtomHeader header;
  if (header.Read(mStream.get()) != 0) return ZR_FAIL(-1, "read useratom head failed\n");
  auto box = MakeOrNull<UserDefAtom>(header);
  if (box == nullptr || box->ReadContent(mStream.get()) != 0) return ZR_FAIL(-1, "read useratom data failed\n");
  const ZR_U32 pathLength = walker.header().size - walker.userBoxSize();
  char path[kMaxUserBoxPath + 1] = {};
  if (pathLength >= sizeof(path)) {
    return ZR_FAIL(-1, "atom offset[%llu], pathlen err:%u\n", static_cast<unsigned long long>(walker.offset()),
                   pathLength);
  }
  if (mStream->readBytes(reinterpret_cast<ZR_U8*>(path), pathLength) != pathLength) {
    return ZR_FAIL(-1, "read useratom path failed\n");
  }
  char type[5] = {};
  header.type.copy(type, sizeof(type) - 1);
  // A path that was cut in front of zeros could name another parent.
  const bool whole = std::strlen(path) == pathLength && CheckUserBoxPath(path) == 0 && CheckUserBoxType(type) == 0;
  if (whole && AddAtom(path, box.get()) == 0) box.release();
  return 0;
}

int MP4File::RepairStbl(StblAtom* snapshot, ZR_U32 trackId) {
  Track* track = mTracks.at(trackId - 1);
  StblAtom* out = track != nullptr ? track->trak()->Find<StblAtom>("mdia/minf/stbl") : nullptr;
  if (out == nullptr) return ZR_FAIL(-1, "get stblAtomOut fail\n");
  return MergeStbl(out, snapshot) == 0 ? 0 : ZR_FAIL(-1, "mergeStbl fail\n");
}

int MP4File::MergeStbl(StblAtom* out, StblAtom* in) {
  const auto* stszIn = TableOf<StszAtom>(in, "stsz");
  if (stszIn == nullptr) return ZR_FAIL(-1, "get stszAtomIn fail\n");
  const auto* sttsIn = TableOf<SttsAtom>(in, "stts");
  if (sttsIn == nullptr) return ZR_FAIL(-1, "get sttsAtomIn fail\n");
  const auto* stscIn = TableOf<StscAtom>(in, "stsc");
  if (stscIn == nullptr) return ZR_FAIL(-1, "get stscAtomIn fail\n");
  auto* stszOut = TableOf<StszAtom>(out, "stsz");
  if (stszOut == nullptr) return ZR_FAIL(-1, "get stszAtomOut fail\n");
  auto* sttsOut = TableOf<SttsAtom>(out, "stts");
  if (sttsOut == nullptr) return ZR_FAIL(-1, "get sttsAtomOut fail\n");
  auto* stscOut = TableOf<StscAtom>(out, "stsc");
  if (stscOut == nullptr) return ZR_FAIL(-1, "get stscAtomOut fail\n");

  const ZR_U32 samples = stszIn->getCount();
  const ZR_U32 before = stszOut->getCount();
  if (samples == 0) return 0;
  if (!stscOut->merge(stscIn, 1, samples) || !sttsOut->merge(sttsIn, 1, samples)) return -1;
  const auto* stssIn = TableOf<StssAtom>(in, "stss");
  auto* stssOut = TableOf<StssAtom>(out, "stss");
  if (stssIn != nullptr && stssOut != nullptr &&
      !stssOut->merge(stssIn, before + 1, before + samples, before)) {
    return -1;
  }
  if (!stszOut->merge(stszIn, 1, samples)) return -1;
  return mUseCo64 ? MergeCo64(out, in, samples) : MergeStco(out, in, samples);
}

int MP4File::MergeCo64(StblAtom* out, StblAtom* in, ZR_U32 samples) {
  const auto* co64In = TableOf<Co64Atom>(in, "co64");
  if (co64In == nullptr) return ZR_FAIL(-1, "get co64AtomIn fail\n");
  auto* co64Out = TableOf<Co64Atom>(out, "co64");
  if (co64Out == nullptr) return ZR_FAIL(-1, "get co64AtomOut fail\n");
  return co64Out->merge(co64In, 1, samples, co64In->getStartOffset()) ? 0 : -1;
}

int MP4File::MergeStco(StblAtom* out, StblAtom* in, ZR_U32 samples) {
  const auto* stcoIn = TableOf<StcoAtom>(in, "stco");
  if (stcoIn == nullptr) return ZR_FAIL(-1, "mergeStbl get stcoAtomIn fail \n");
  auto* stcoOut = TableOf<StcoAtom>(out, "stco");
  if (stcoOut == nullptr) return ZR_FAIL(-1, "mergeStbl get stcoAtomOut fail \n");
  return stcoOut->merge(stcoIn, 1, samples, stcoIn->getStartOffset()) ? 0 : -1;
}

// Frames after the last snapshot -------------------------------------------------------------------------------------

void MP4File::ParseExtraFrame(ZR_U64* end) {
  mStream->setReadAhead(kRecordReadAhead);
  RecordWalker walker(mStream.get(), mBackupUnit, *end, mFileSize);
  for (;;) {
    switch (walker.next()) {
      case RecordWalker::Record::kUserBox:
        if (AddUserAtom(walker) != 0) return ZR_NOTE(3, "addUserAtom fail\n");
        break;
      case RecordWalker::Record::kFrame:
        if (!RecoverFrame(walker)) return;
        break;
      case RecordWalker::Record::kTableGroup:  // one that could not be trusted: what follows has lost its tables
      case RecordWalker::Record::kEnd:
        if (walker.unreadable()) ZR_NOTE(3, "read frameheader fail\n");
        if (walker.cut()) ZR_NOTE(3, "frame not complete\n");
        return;
    }
    *end = walker.endOffset();
  }
}

// Appends a frame to its track as the recorder did. False when it and all that follows is to be dropped.
bool MP4File::RecoverFrame(const RecordWalker& walker) {
  Track* track = mTracks.at(walker.header().trackId - 1);
  if (track == nullptr) {
    // A track that the configuration does not protect is stepped over where its records go on; anything else is not
    // a record of this file.
    return FollowedByRecord(walker) || ZR_FAIL(false, "illegal track ID\n");
  }
  const bool emptyAudio = track->trak()->trakType() == TrakAtom::TRAK_AUDIO && walker.header().size == 0;
  if (emptyAudio || (IsCoded(*track) && HasLostPage(walker)) ||
      !track->RecoverFrame(walker.header(), walker.dataOffset(), ZerosFollow(walker.endOffset()))) {
    return false;
  }
  return UpdateTrack(track, walker) == 0 || ZR_FAIL(false, "updateTrack fail\n");
}

// Whether a page of what was written last never reached the disk: pages do in any order, and one that did not reads as
// zeros. Codecs make them in such numbers only to fill a frame up to its end.
bool MP4File::HasLostPage(const RecordWalker& walker) {
  constexpr ZR_U32 kProbe = 8;
  ZR_U8 bytes[kPage];
  const auto allZero = [&](ZR_U64 at, ZR_U64 size) {
    const ZR_U32 length = static_cast<ZR_U32>(size);
    return mStream->peek(at, bytes, length) && std::count(bytes, bytes + length, 0) == static_cast<long>(length);
  };
  ZR_U64 from = walker.dataOffset();
  if (mFileSize > kMostUnsynced) from = std::max(from, mFileSize - kMostUnsynced);
  const ZR_U64 end = walker.endOffset();
  if (from < end) mStream->expect(from, static_cast<ZR_U32>(end - from));
  bool zeros = false;
  for (ZR_U64 page = (from + kPage - 1) / kPage * kPage; page < end; page += kPage) {
    const ZR_U64 length = std::min<ZR_U64>(kPage, mFileSize - page);
    if (length >= kProbe && allZero(page, kProbe) && allZero(page, length)) {
      zeros = true;
    } else if (zeros && !allZero(page, std::min<ZR_U64>(kPage, end - page))) {
      return true;
    }
  }
  return zeros && !FollowedByRecord(walker);
}

int MP4File::UpdateTrack(Track* track, const RecordWalker& walker) {
  Track::Mp4Sample sample;
  sample.partCount = 0;
  sample.totalSize = walker.header().size;
  sample.pts = walker.header().pts;
  sample.isKey = walker.header().isKey;
  if (!mUseCo64 && walker.dataOffset() > 0xFFFFFFFFu) return -1;  // the recorder writes none there
  if (!track->ReserveEntries() || mStream->seek(static_cast<long long>(walker.dataOffset()), 0) != 0) return -1;
  return track->update(sample);
}

// Space that was reserved and never written reads as zeros, where a header cannot be. Less than a header of zeros may
// as well be the beginning of one, and a table group that was begun tells that zeros in front of it are padding.
bool MP4File::ZerosFollow(ZR_U64 offset) {
  ZR_U8 head[PrivSampleHeader::kSize];
  if (mFileSize - offset < sizeof(head)) return false;
  const auto isZero = [](ZR_U8 byte) { return byte == 0; };
  // Of the next frame the track's number says enough.
  for (const ZR_U32 length : {4u, PrivSampleHeader::kSize}) {
    if (!mStream->peek(offset, head, length) || !std::all_of(head, head + length, isZero)) return false;
  }
  const ZR_U64 multiple = mBackupUnit != 0 ? (offset + mBackupUnit - 1) / mBackupUnit * mBackupUnit : mFileSize;
  if (mFileSize <= multiple || mFileSize - multiple < 8) return true;
  ZR_U32 size = 0;
  ZR_U32 type = 0;
  if (mStream->seek(static_cast<long long>(multiple), 0) != 0) return false;
  return mStream->readBe32(&size) == 4 && mStream->readBe32(&type) == 4 && (size | type) == 0;
}

bool MP4File::FollowedByRecord(const RecordWalker& walker) {
  constexpr ZR_U32 kMostTracks = 256;
  if (walker.header().trackId > kMostTracks) return false;
  RecordWalker after(mStream.get(), mBackupUnit, walker.endOffset(), mFileSize);
  return after.next() != RecordWalker::Record::kEnd && after.header().trackId <= kMostTracks;
}

}  // namespace zrmp4
