#include "track/track.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "base/make_or_null.h"
#include "box/add_box.h"

namespace zrmp4 {
namespace {

constexpr ZR_U64 kUnknownPts = ZR_U64{1} << 63;  // further than a duration from any time stamp

}  // namespace

Track::Track(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, ZR_BOOL constantRate)
    : mStream(stream),
      mMdat(mdat),
      mTrak(trak),
      mStbl(trak->GetDescendant("mdia/minf/stbl")),
      mConstantRate(constantRate),
      mClock(trak->timeScale(), speed) {
  mTables.stts = trak->Find<SttsAtom>("mdia/minf/stbl/stts");
  mTables.stsc = trak->Find<StscAtom>("mdia/minf/stbl/stsc");
  mTables.stsz = trak->Find<StszAtom>("mdia/minf/stbl/stsz");
  if (trak->useCo64()) {
    mTables.co64 = trak->Find<Co64Atom>("mdia/minf/stbl/co64");
  } else {
    mTables.stco = trak->Find<StcoAtom>("mdia/minf/stbl/stco");
  }
}

// Tables -------------------------------------------------------------------------------------------------------------

bool Track::Tables::reserve() const {
  if (stts == nullptr || stsc == nullptr || stsz == nullptr || (stco == nullptr && co64 == nullptr)) return false;
  return stts->reserve() && stsc->reserve() && stsz->reserve() &&
         (co64 != nullptr ? co64->reserve() : stco->reserve()) && (stss == nullptr || stss->reserve());
}

inline void Track::Tables::addChunkOffset(ZR_U64 offset) const {
  if (co64 != nullptr) {
    co64->addEntry(offset);
  } else {
    stco->addEntry(static_cast<ZR_U32>(offset));
  }
}

ZR_U32 Track::Tables::chunkCount() const { return co64 != nullptr ? co64->entries().count() : stco->entries().count(); }

ZR_U32 Track::Tables::room() const {
  const ZR_U32 perSample = std::min({stts->room(), stsc->room(), stsz->room()});
  const ZR_U32 perChunk = co64 != nullptr ? co64->room() : stco->room();
  return std::min({perSample, perChunk, stss != nullptr ? stss->room() : perSample});
}

bool Track::reserveMore() {
  if (!mTables.reserve() || (mTmpStbl != nullptr && !mTmp.reserve())) return false;
  mRoom = mTmpStbl != nullptr ? std::min(mTables.room(), mTmp.room()) : mTables.room();
  settleSizes();
  return true;
}

void Track::keepSizes() {
  for (Atom* table = mStbl->firstChild(); table != nullptr; table = table->nextSibling()) {
    if (table->type() != "stsd") table->keepGrowth();  // parameter sets are rare, and may be large
  }
}

void Track::settleSizes() {
  if (mStbl == nullptr) return;
  for (Atom* table = mStbl->firstChild(); table != nullptr; table = table->nextSibling()) table->settleGrowth();
}

inline void Track::AddSampleToChunk(ZR_S64 offset, ZR_U32 size, ZR_U64 pts) {
  Chunk& chunk = mCurChunk;
  const bool contiguous = chunk.sampleCount != 0 && chunk.offset + chunk.size == offset;
  const bool joins =
      contiguous && static_cast<ZR_U64>(chunk.size) + size < kMaxChunkSize && pts - chunk.startPts < kMaxChunkDuration;
  if (!joins) return openChunk(offset, size, pts);
  chunk.size += size;
  ++chunk.sampleCount;
}

void Track::openChunk(ZR_S64 offset, ZR_U32 size, ZR_U64 pts) {
  Chunk& chunk = mCurChunk;
  closeChunk();
  chunk.offset = offset;
  chunk.size = size;
  chunk.sampleCount = 1;
  chunk.startPts = pts;
  ++chunk.chunkCount;
}

void Track::closeChunk() {
  if (mCurChunk.sampleCount == 0) return;
  mTables.stsc->addEntry(mCurChunk.chunkCount, mCurChunk.sampleCount, 1);
  mTables.addChunkOffset(static_cast<ZR_U64>(mCurChunk.offset));
  mCurChunk.sampleCount = 0;
}

inline void Track::record(const Mp4Sample& sample, ZR_U64 offset, bool sync) {
  AddSamplePts(sample.pts);
  AddSampleToChunk(static_cast<ZR_S64>(offset), sample.totalSize, sample.pts);
  mTables.stsz->addEntry(sample.totalSize);
  ++mSampleCount;
  --mRoom;
  if (sync && mTables.stss != nullptr) mTables.stss->addEntry(mSampleCount);
}

int Track::FinishWrite() {
  if (mFinished || mSampleCount == 0) return 0;
  if (!mTables.reserve()) return -1;
  mFinished = true;
  // The last sample lasts as long as the one before it.
  if (!mConstantRate) mTables.stts->addEntry(1, mClock.duration());
  closeChunk();
  return 0;
}

// Frames -------------------------------------------------------------------------------------------------------------

int Track::FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
  if ((data == nullptr) != (len == 0)) return ZR_FAIL(-1, "frame is invalid\n");
  out->partCount = data != nullptr ? 1 : 0;
  out->partData[0] = data;
  out->partSize[0] = len;
  out->totalSize = len;
  out->pts = pts;
  out->isKey = isKey;
  return 0;
}

ZR_U32 Track::WritePrivSampleHeader(const Mp4Sample& sample) {
  PrivSampleHeader header(trackId(), sample.isKey, sample.pts, sample.totalSize);
  if (header.Write(mStream) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  mMdat->IncreaseSize(PrivSampleHeader::kSize);
  return 0;
}

ZR_U32 Track::WriteSample(const Mp4Sample& sample) {
  const ZR_U64 offset = mStream->getCurPos();
  if (writePieces(sample) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  record(sample, offset, sample.isKey && sample.totalSize != 0);
  mMdat->IncreaseSize(sample.totalSize);
  return 0;
}

int Track::update(const Mp4Sample& sample) {
  // Deliberate: a key frame without bytes is a sync sample here, and none when it is recorded.
  record(sample, mStream->getCurPos(), sample.isKey);
  return 0;
}

int Track::writePieces(const Mp4Sample& sample) {
  for (ZR_U32 i = 0; i < sample.partCount; ++i) {
    if (!writeBytes(sample.partData[i], sample.partSize[i])) return -1;
  }
  return 0;
}

bool Track::writeBytes(const ZR_U8* data, ZR_U32 size) {
  return mStream->writeBytes(data, size) == size ||
         ZR_IO_FAIL(false, "offset:%lld, writeBytes(%u) fail\n", static_cast<long long>(mStream->getCurPos()), size);
}

// Temporary tables ---------------------------------------------------------------------------------------------------

int Track::CreateTmpStbl() {
  if (mTmpStbl != nullptr) return -1;
  auto stbl = MakeOrNull<StblAtom>();
  if (stbl == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "stbl");
  Tables tables;
  tables.stts = AddBox<SttsAtom>(*stbl, "stts");
  if (tables.stts == nullptr) return -1;
  tables.stsc = AddBox<StscAtom>(*stbl, "stsc");
  if (tables.stsc == nullptr || !tables.stsc->addEntry(1, 1, 1)) return -1;
  tables.stsz = AddBox<StszAtom>(*stbl, "stsz");
  if (tables.stsz == nullptr) return -1;
  if (mTrak->useCo64()) {
    tables.co64 = AddBox<Co64Atom>(*stbl, "co64");
    if (tables.co64 == nullptr) return -1;
  } else {
    tables.stco = AddBox<StcoAtom>(*stbl, "stco");
    if (tables.stco == nullptr) return -1;
  }
  mTmp = tables;
  mTmpStbl = std::move(stbl);
  mRoom = 0;
  return 0;
}

int Track::UpdateTmpStbl(ZR_U64 chunkOffset, const Mp4Sample& sample) {
  return addTmpSample(chunkOffset, sample, "stts null\n", "stsz null\n");
}

inline int Track::addTmpChunkOffset(ZR_U64 chunkOffset) {
  if (mTrak->useCo64()) {
    if (mTmp.co64 == nullptr) return ZR_FAIL(-1, "no co64\n");
    return mTmp.co64->addEntry(chunkOffset) ? 0 : -1;
  }
  if (chunkOffset > 0xFFFFFFFFu) {
    return ZR_FAIL(-1, "chunkOffset (%llu) exceeds ZR_U32 maximum\n", static_cast<unsigned long long>(chunkOffset));
  }
  if (mTmp.stco == nullptr) return ZR_FAIL(-1, "no stco\n");
  return mTmp.stco->addEntry(static_cast<ZR_U32>(chunkOffset)) ? 0 : -1;
}

int Track::addTmpSample(ZR_U64 chunkOffset, const Mp4Sample& sample, const char* noStts, const char* noStsz) {
  mTrak->setSnapshotSamples(mTrak->snapshotSamples() + 1);
  if (addTmpChunkOffset(chunkOffset) != 0) return -1;
  if (mTmp.stts == nullptr) return ZR_FAIL(-1, "%s", noStts);
  if (mTmp.stsz == nullptr) return ZR_FAIL(-1, "%s", noStsz);
  // The first sample of a recording has no duration before the second arrives.
  const bool timed = mConstantRate || mSampleCount != 1;
  if (timed && !mTmp.stts->addEntry(1, mClock.duration())) return -1;
  return mTmp.stsz->addEntry(sample.totalSize) ? 0 : -1;
}

void Track::ClearTmpStbl() {
  if (mTmpStbl == nullptr) return;
  // stsc never has more than its one entry.
  mTmp.stts->clear();
  mTmp.stsz->clear();
  if (mTmp.co64 != nullptr) mTmp.co64->clear();
  if (mTmp.stco != nullptr) mTmp.stco->clear();
  if (mTmp.stss != nullptr) mTmp.stss->clear();
}

void Track::DestroyTmpStbl() {
  mTmpStbl.reset();
  mTmp = Tables();
}

// Repair -------------------------------------------------------------------------------------------------------------

int Track::RestoreAfterMerge() {
  if (!mTables.reserve()) return -1;
  mRoom = 0;
  mSampleCount = mTables.stsz->getCount();
  mTrak->setSnapshotSamples(mSampleCount);
  mCurChunk = Chunk();
  mCurChunk.chunkCount = mTables.chunkCount();
  if (mSampleCount == 0 || mConstantRate) return 0;
  if (mTables.co64 != nullptr) {
    restoreClock(mTables.co64->entries());
  } else {
    restoreClock(mTables.stco->entries());
  }
  return 0;
}

// Every merged sample is a chunk of its own behind its private header, which has its time stamp. A header that was
// damaged since makes the time less exact, no more.
template <typename Offsets>
void Track::restoreClock(const Offsets& offsets) {
  PrivSampleHeader first;
  PrivSampleHeader last;
  const bool hasFirst = !offsets.empty() && readHeaderAt(offsets.front(), &first);
  const bool hasLast = !offsets.empty() && readHeaderAt(offsets.back(), &last);
  mFirstPts = first.pts;
  mClock.start(first.pts);
  for (const SttsEntry& run : mTables.stts->entries()) mClock.replay(run.sampleCount, run.sampleDelta);
  if (!hasLast) return hasFirst ? void() : mClock.start(kUnknownPts);
  if (hasFirst && mClock.agreesWith(last.pts)) return;
  // A discontinuity of the time stamps does not show in the durations: then only the time stamps tell.
  const ZR_U32 duration = mClock.duration();
  if (!hasFirst || !replayTimeStamps(offsets)) mClock.start(last.pts);
  mClock.setDuration(duration);
}

template <typename Offsets>
bool Track::replayTimeStamps(const Offsets& offsets) {
  mClock.setDuration(0);
  mClock.start(mFirstPts);
  bool first = true;
  for (const ZR_U64 offset : offsets) {
    PrivSampleHeader header;
    if (!first && !readHeaderAt(offset, &header)) return false;
    if (!first) mClock.advanceTo(header.pts);
    first = false;
  }
  return true;
}

bool Track::readHeaderAt(ZR_U64 dataOffset, PrivSampleHeader* header) {
  const bool read = dataOffset >= PrivSampleHeader::kSize &&
                    mStream->seek(static_cast<long long>(dataOffset - PrivSampleHeader::kSize), 0) == 0 &&
                    header->Read(mStream) == 0 && header->trackId == trackId();
  return read || ZR_FAIL(false, "read frame header fail\n");
}

bool Track::RecoverFrame(const PrivSampleHeader& header, ZR_U64 /*dataOffset*/, bool lastBeforeZeros) {
  return header.size != 0 || !lastBeforeZeros;
}

bool Track::endsInData(const PrivSampleHeader& header, ZR_U64 dataOffset) {
  ZR_U8 byte = 0;
  return mStream->seek(static_cast<long long>(dataOffset + header.size - 1), 0) == 0 && mStream->readByte(&byte) == 1 &&
         byte != 0;
}

// Figures ------------------------------------------------------------------------------------------------------------

ZR_U64 Track::Duration() const { return mTables.stts != nullptr ? mTables.stts->totalDuration() : 0; }

ZR_U64 Track::TotalSampleSize() const { return mTables.stsz != nullptr ? mTables.stsz->TotalSampleSize() : 0; }

ZR_U32 Track::AvgBitrate() const {
  const ZR_U64 duration = Duration();
  if (duration == 0) return 0;
  const ZR_U64 bitrate = TotalSampleSize() * 8 * mTrak->timeScale() / duration;
  return bitrate <= 0xFFFFFFFFu ? static_cast<ZR_U32>(bitrate) : 0;
}

}  // namespace zrmp4
