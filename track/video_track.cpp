#include "track/video_track.h"

#include "base/log.h"
#include "base/make_or_null.h"
#include "track/record_walker.h"

namespace zrmp4 {

VideoTrack::VideoTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate,
                       ZR_BOOL constantRate)
    : Track(stream, trak, mdat, speed, constantRate) {
  mTables.stss = trak->Find<StssAtom>("mdia/minf/stbl/stss");
  if (constantRate && frameRate != 0) mClock.setDuration(trak->timeScale() / static_cast<ZR_U32>(frameRate));
}

int VideoTrack::CreateTmpStbl() {
  if (mTmpStbl != nullptr) return -1;
  if (Track::CreateTmpStbl() != 0) return ZR_FAIL(-1, "create tmp stbl error\n");
  if (everySampleIsSync()) return 0;
  auto stss = MakeOrNull<StssAtom>();
  if (stss == nullptr) {
    DestroyTmpStbl();
    return ZR_FAIL(-1, "new stss atom no memory\n");
  }
  mTmp.stss = stss.get();
  mTmpStbl->AddChild(stss.release());
  return 0;
}

int VideoTrack::UpdateTmpStbl(ZR_U64 chunkOffset, const Mp4Sample& sample) {
  if (addTmpSample(chunkOffset, sample, "update stts null\n", "update stsz null\n") != 0) return -1;
  const bool sync = sample.isKey && mTmp.stss != nullptr;
  return !sync || mTmp.stss->addEntry(mTrak->snapshotSamples()) ? 0 : -1;
}

int VideoTrack::parseStoredFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool* parsed) {
  *parsed = false;
  auto frame = MakeArrayOrNull<ZR_U8>(header.size);
  if (frame == nullptr) return ZR_FAIL(-1, "malloc frame buffer fail\n");
  const bool read = mStream->seek(static_cast<long long>(dataOffset), 0) == 0 &&
                    mStream->readBytes(frame.get(), header.size) == header.size;
  if (!read) return ZR_FAIL(-1, "read frame data fail\n");
  Mp4Sample sample;
  sample.partCount = 0;
  sample.totalSize = 0;
  sample.pts = header.pts;
  sample.isKey = header.isKey;
  if (cutStoredFrame(frame.get(), header.size, &sample) != 0) return ZR_FAIL(0, "frame to sample failed\n");
  *parsed = ParseSample(sample) == 0 || ZR_FAIL(false, "parse sample fail\n");
  return 0;
}

int VideoTrack::searchEnd(const RecordWalker& walker) {
  return walker.unreadable() ? ZR_FAIL(-1, "read video frame header fail\n") : 0;
}

}  // namespace zrmp4
