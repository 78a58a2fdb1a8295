#include <cmath>

#include "base/log.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/user_def_atom.h"
#include "engine/mp4_file.h"
#include "stream/field_io.h"

namespace zrmp4 {

// Whether the boxes, whose sizes need to be settled only close to the limit, have reached it.
inline bool MP4File::IsFull() {
  if (header().largeSize < mSettleFrom) return false;
  SettleSizes();
  return header().largeSize >= mMaxFileSize;
}

inline ZR_U32 MP4File::WriteRecord(Track* track, const Track::Mp4Sample& sample, ZR_U64* offset) {
  if (mBackupUnit != 0 && track->WritePrivSampleHeader(sample) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  *offset = mStream->getCurPos();
  return track->WriteSample(sample);
}

ZR_U32 MP4File::WriteFrame(Track* track, ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey) {
  const std::lock_guard<std::mutex> lock(mLock);
  Track::Mp4Sample sample;
  if (!recording() || !TrackExist(track)) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "track not exist\n");
  if (track->FrameToSample(data, len, pts, isKey, &sample) != 0) {
    return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "frame is invalid\n");
  }
  // All that can refuse the frame comes before its first byte is written.
  const ZR_U32 refused = track->ExamineSample(sample);
  if (refused != 0) return refused;
  if (!OffsetFits(sample)) {
    return ZR_FAIL(ZR_ERR_MP4_FILE_SIZE, "filesize:%llu > maxsize:%llu\n",
                   static_cast<unsigned long long>(mStream->getCurPos()), 0xFFFFFFFFull);
  }
  if (mBackupUnit != 0 && PrepareBackup(sample) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  if (!track->ReserveEntries()) return ZR_ERR_MP4_NO_MEMORY;

  const RecordStart start = BeginRecord();
  ZR_U64 offset = 0;
  const ZR_U32 result = WriteRecord(track, sample, &offset);
  if (result != 0) {
    DropRecord(start);
    return result;
  }
  if (mBackupUnit != 0 && track->UpdateTmpStbl(offset, sample) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  WriteProc(track, pts);
  if (IsFull()) {
    return ZR_FAIL(ZR_ERR_MP4_FILE_SIZE, "filesize:%llu > maxsize:%llu\n",
                   static_cast<unsigned long long>(header().largeSize), static_cast<unsigned long long>(mMaxFileSize));
  }
  return 0;
}

void MP4File::SettleSizes() {
  for (Track* track : mTracks) track->settleSizes();
}

// Without 64-bit offsets no sample can begin beyond 4 GiB.
bool MP4File::OffsetFits(const Track::Mp4Sample& sample) {
  if (mUseCo64) return true;
  constexpr ZR_U64 kLastOffset = 0xFFFFFFFF;
  const ZR_U64 position = mStream->getCurPos();
  // Far from the limit, the table group that may come first does not matter.
  if (position < kLastOffset / 2) return true;
  ZR_U64 offset = position;
  if (mBackupUnit != 0) {
    if (NeedsFlush(position, sample.totalSize)) offset = NextBackupOffset() + TbgpSize();
    offset += Track::PrivSampleHeader::kSize;
  }
  return offset <= kLastOffset;
}

MP4File::RecordStart MP4File::BeginRecord() {
  return {mStream->getCurPos(), mMdat->header().largeSize, mBackupIndex};
}

void MP4File::DropRecord(const RecordStart& start) {
  mStream->dropFrom(start.position);
  ZR_U64 grown = mMdat->header().largeSize - start.mdatSize;
  constexpr ZR_U32 kMost = 0xFFFFFFFF;
  for (; grown > kMost; grown -= kMost) mMdat->DecreaseSize(kMost);
  mMdat->DecreaseSize(static_cast<ZR_U32>(grown));
  mBackupIndex = start.backupIndex;
}

ZR_U32 MP4File::AddAtom(const std::string& path, UserDefAtom* box) {
  const std::lock_guard<std::mutex> lock(mLock);
  if (mTailWritten) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "addAtom failed, file tail already written\n");
  // A repair restores boxes the same way; a finalisation that failed can be repeated with one more.
  if (!mWriting && mMode != "r+") return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "addAtom failed, not recording\n");
  Atom* parent = ParentAt(path);
  if (parent == nullptr) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "get pParentAtom[%s] failed\n", path.c_str());
  parent->AddChild(box);
  SettleSizes();
  return 0;
}

// The box that a path leads to, or null. A look past many boxes is long: each path is looked up once, and a file that is
// repaired, which can ask for as many as it has records, has so many.
Atom* MP4File::ParentAt(const std::string& path) {
  constexpr ZR_U32 kMostLookups = 1024;
  if (path == "/") return this;
  const auto known = mParents.find(path);
  if (known != mParents.end()) return known->second;
  if (path.empty() || (mRepairMode && ++mLookups > kMostLookups)) return nullptr;
  Atom* parent = GetDescendant(path.substr(1));
  if (parent != nullptr) mParents.emplace(path, parent);
  return parent;
}

ZR_U32 MP4File::WriteFtyp() {
  if (mFtyp == nullptr || mStream == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return mFtyp->Write(mStream.get()) == 0 ? 0 : ZR_ERR_MP4_WRITE_HEAD;
}

ZR_U32 MP4File::WriteMdatHeader() {
  if (mMdat == nullptr || mStream == nullptr) return ZR_ERR_MP4_NULL_PTR;
  // The tree already counts a vemo box that is not written yet; the file starts with the header alone.
  const ZR_U64 size = mMdat->header().largeSize;
  mMdat->header().largeSize = mMdat->header().Size();
  const int result = mMdat->WriteHeader(mStream.get());
  mMdat->header().largeSize = size;
  return result == 0 ? 0 : ZR_ERR_MP4_WRITE_HEAD;
}

ZR_U32 MP4File::RewriteMdatSize() {
  if (mMdat == nullptr || mStream == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return mMdat->rewriteSize(mStream.get()) == 0 && Flush() == 0 ? 0 : ZR_ERR_MP4_WRITE_TAIL;
}

int MP4File::WritePaddingBuf(ZR_S64 gap) {
  // A negative gap would ask for its low 32 bits, more than the buffer holds: it fails as that write does.
  if (gap < 0) {
    return ZR_IO_FAIL(-1, "offset:%lld, writeBytes(%u) fail\n", static_cast<long long>(mStream->getCurPos()),
                      static_cast<ZR_U32>(gap));
  }
  FieldIo io = FieldIo::Writing(mStream.get());
  constexpr ZR_S64 kWhole = MP4_PADDING_BASE_SIZE;
  for (; gap > kWhole; gap -= kWhole) {
    if (!io.bytes(mPaddingBuf.get(), MP4_PADDING_BASE_SIZE)) return -1;
  }
  return gap == 0 || io.bytes(mPaddingBuf.get(), static_cast<ZR_U32>(gap)) ? 0 : -1;
}

// What is left of the last pre-allocated unit.
ZR_U32 MP4File::FreeGap(ZR_U64 position) const {
  if (mPreAllocLen == 0) return 0;
  const double units = std::ceil(static_cast<double>(position) / mPreAllocLen);
  // Deliberate: the target is reckoned in 32 bits, as is its distance, so that it is right beyond 4 GiB too.
  const ZR_U32 target = static_cast<ZR_U32>(mPreAllocLen * static_cast<ZR_U64>(units));
  return target - static_cast<ZR_U32>(position);
}

int MP4File::WriteFreeBox() {
  const ZR_U64 position = mStream->getCurPos();
  ZR_U32 gap = FreeGap(position);
  if (mPreAllocLen != 0 && gap + static_cast<ZR_U32>(position) == 0xFFFFFFFF) {
    return ZR_FAIL(-1, "%s:%d multi failed\n", "WriteFreeBox", 201);
  }
  if (gap == 0) return 0;
  // Deliberate: no allowance is made for a gap smaller than the header.
  ZR_U8 type[] = {'f', 'r', 'e', 'e'};
  FieldIo io = FieldIo::Writing(mStream.get());
  return io.be32(gap) && io.bytes(type, 4) ? 0 : -1;
}

}  // namespace zrmp4
