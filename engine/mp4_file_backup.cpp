#include "base/clock.h"
#include "base/log.h"
#include "box/mdat_atom.h"
#include "box/sample_tables.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "engine/mp4_file.h"
#include "stream/field_io.h"

namespace zrmp4 {
int MP4File::WriteVemoAtom() {
  if (mVemoWritten) return 0;
  if (mVemo == nullptr) return ZR_FAIL(-1, "get vemoatom fail\n");
  const ZR_U64 position = mStream->getCurPos();
  if (mVemo->Write(mStream.get()) != 0) {
    mStream->dropFrom(position);
    return ZR_FAIL(-1, "failed to write vemoatom\n");
  }
  if (RebuildTmpStbl() != 0) {
    mStream->dropFrom(position);
    return ZR_FAIL(-1, "createTmpStbl fail\n");
  }
  // Multiples that boxes in front of the tracks have passed are none to wait for.
  mBackupIndex = PassedMultiples(mStream->getCurPos());
  // Repair is possible from here on. What cannot be flushed yet stays in the buffer for the next try.
  mVemoWritten = true;
  return Flush();
}

// Empty temporary tables for the next interval; their memory is kept.
int MP4File::RebuildTmpStbl() {
  for (Track* track : mTracks) {
    if (track->tmpStbl() == nullptr) {
      if (track->CreateTmpStbl() != 0) return -1;
    } else {
      track->ClearTmpStbl();
    }
  }
  mUserAtomNum = 0;
  return 0;
}

ZR_U32 MP4File::TbgpSize() {
  ZR_U32 size = 12;
  for (Track* track : mTracks) size += 4 + (track->tmpStbl() != nullptr ? track->tmpStbl()->header().size : 0);
  return size;
}

int MP4File::WriteTbgp() {
  for (Track* track : mTracks) {
    if (track->tmpStbl() == nullptr) return ZR_FAIL(-1, "find stbl null\n");
  }
  ZR_U32 size = TbgpSize();
  ZR_U8 type[] = {'t', 'b', 'g', 'p'};
  FieldIo io = FieldIo::Writing(mStream.get());
  if (!io.be32(size) || !io.bytes(type, 4) || !io.be32(mUserAtomNum)) return -1;
  for (Track* track : mTracks) {
    if (!io.fixed32(track->trackId()) || track->tmpStbl()->Write(mStream.get()) != 0) return -1;
  }
  mMdat->IncreaseSize(size);
  return 0;
}

ZR_U32 MP4File::FlushTbgp() {
  const RecordStart start = BeginRecord();
  ++mBackupIndex;
  const ZR_U64 target = static_cast<ZR_U64>(mBackupUnit) * mBackupIndex;
  const ZR_S64 gap = static_cast<ZR_S64>(target - start.position);
  // Deliberate: compared with the gap, not the position, so it never trips for a position beyond the target; that
  // one asks for a negative padding, which fails, and the next frame aims at the next multiple to come.
  if (static_cast<ZR_S64>(target) < gap) {
    return ZR_FAIL(ZR_ERR_MP4_BACKUP, "cur file size is over next backup offset\n");
  }
  if (WritePaddingBuf(gap) != 0) {
    if (gap >= 0) DropRecord(start);
    if (gap < 0) mBackupIndex = PassedMultiples(start.position);
    return ZR_FAIL(ZR_ERR_MP4_BACKUP, "zero padding failed\n");
  }
  mMdat->IncreaseSize(static_cast<ZR_U32>(gap));
  // A snapshot on the disk must not speak of frames that are not, so those come first. The snapshot itself is handed
  // to the kernel at once, and when anything of this fails the whole of it is tried again by the next frame.
  if (MakeDurable() != 0 || WriteTbgp() != 0 || Flush() != 0) {
    DropRecord(start);
    return ZR_ERR_MP4_BACKUP;
  }
  ++mTbgpCount;
  return RebuildTmpStbl() == 0 ? 0 : ZR_ERR_MP4_BACKUP;
}

// Where a record ends on a multiple, a table group can still stand there.
ZR_U32 MP4File::PassedMultiples(ZR_U64 position) const {
  return static_cast<ZR_U32>((position - 1) / mBackupUnit);
}

bool MP4File::NeedsFlush(ZR_U64 position, ZR_U32 size) const {
  return NextBackupOffset() < position + Track::PrivSampleHeader::kSize + size;
}

int MP4File::MakeDurable() {
  if (!mStream->syncs()) return Flush();
  const ZR_U64 started = NowMicroseconds();
  if (Sync() != 0) return -1;
  const ZR_U64 now = NowMicroseconds();
  mSyncSchedule.done(mStream->getCurPos(), mLastPts, now, now - started);
  return 0;
}

// What has to stand in front of a frame's private header, and what is due before it.
ZR_U32 MP4File::PrepareBackup(const Track::Mp4Sample& sample) {
  if (WriteVemoAtom() != 0) return ZR_ERR_MP4_WRITE_BACKUP;
  const ZR_U64 position = mStream->getCurPos();
  mLastPts = sample.pts;
  int result = 0;
  if (NeedsFlush(position, sample.totalSize)) {
    result = FlushTbgp() == 0 ? 0 : -1;
  } else if (mStream->syncs() && mSyncSchedule.due(position, sample.pts, NowMicroseconds)) {
    result = MakeDurable();
  }
  return result == 0 ? 0 : ZR_ERR_MP4_WRITE_BACKUP;
}

ZR_U32 MP4File::BackupAtom(const std::string& path, UserDefAtom* box) {
  const std::lock_guard<std::mutex> lock(mLock);
  if (!recording() || mBackupUnit == 0) return 0;
  const ZR_U32 length = box->header().size + static_cast<ZR_U32>(path.size());
  if (mTracks.count() != 0) {
    if (WriteVemoAtom() != 0) {
      return ZR_FAIL(ZR_ERR_MP4_WRITE_BACKUP, "write vemo atom fail when backup user atom\n");
    }
    // Deliberate: the next offset wraps in 32 bits here, unlike for a frame.
    const ZR_U32 next = static_cast<ZR_U32>(NextBackupOffset());
    if (next < mStream->getCurPos() + Track::PrivSampleHeader::kSize + length && FlushTbgp() != 0) {
      return ZR_FAIL(ZR_ERR_MP4_WRITE_BACKUP, "flush tbgp fail when backup user atom\n");
    }
  }
  const RecordStart start = BeginRecord();
  if (WriteUserRecord(path, box, length) != 0) {
    DropRecord(start);
    return ZR_ERR_MP4_BACKUP;
  }
  ++mUserAtomNum;
  return 0;
}

int MP4File::WriteUserRecord(const std::string& path, UserDefAtom* box, ZR_U32 length) {
  Track::PrivSampleHeader record(0, ZR_FALSE, 0, length);
  if (record.Write(mStream.get()) != 0) return ZR_FAIL(-1, "write private header fail when back up user atom\n");
  mMdat->IncreaseSize(Track::PrivSampleHeader::kSize);
  if (box->Write(mStream.get()) != 0) return -1;
  const ZR_U32 pathLength = static_cast<ZR_U32>(path.size());
  if (mStream->writeBytes(reinterpret_cast<const ZR_U8*>(path.data()), pathLength) != pathLength) {
    return ZR_FAIL(-1, "write atom path (%u bytes) failed\n", pathLength);
  }
  mMdat->IncreaseSize(length);
  return 0;
}

}  // namespace zrmp4
