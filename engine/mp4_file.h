#pragma once

#include <map>
#include <mutex>
#include <string>

#include "box/trak_atom.h"
#include "engine/iso_base_media_file.h"
#include "engine/track_list.h"
#include "stream/sync_schedule.h"
#include "track/track.h"
#include "zr_mp4.h"

namespace zrmp4 {

class StblAtom;
class TbgpAtom;
class UserDefAtom;
class VemoAtom;
class RecordWalker;

// One MP4 file being recorded ("w"), read ("r") or repaired ("r+"): what a public handle stands for.
//
// The session lock serialises track creation, frames, user boxes and finalisation; queries take no lock. The files
// mp4_file_*.cpp hold one concern each.
class MP4File : public ISOBaseMediaFile {
 public:
  static constexpr ZR_U64 MP4_MAX_FILE_SIZE = 0xFF5C28F5;
  static constexpr ZR_U64 MP4_MAX_FILE_SIZE_CO64 = 0xFF5C28F400A3D70B;
  static constexpr ZR_U32 MP4_PADDING_BASE_SIZE = 131072;
  static constexpr ZR_U32 MP4_TIMESCALE = 120000;
  static constexpr ZR_U32 MP4_TIMESCALE_VIDEO = 120000;
  static constexpr ZR_U32 MP4_TIMESCALE_AUDIO = 48000;
  static constexpr ZR_U32 MP4_TIMESCALE_META = 120000;
  static constexpr ZR_U32 MP4_TIMESCALE_S2MS = 1000;

  MP4File() = default;
  ~MP4File() override;

  // Configuration, before Open.
  void setBackupUnit(ZR_U32 unit) { mBackupUnit = unit; }
  void setConstantRate(ZR_BOOL constantRate) { mConstantRate = constantRate; }
  void setFormatProfile(ZR_U32 profile) { mFormatProfile = profile; }
  void setUseCo64(ZR_BOOL useCo64) { mUseCo64 = useCo64; }
  void setMaxFileSize(ZR_U64 size) { mMaxFileSize = size; }
  void setRepairMode() { mRepairMode = ZR_TRUE; }

  // Session (mp4_file_session.cpp)
  ZR_U32 InitAfterOpen(const std::string& mode) override;
  Atom* ReadChild(IOStream* stream) override;
  Track* AddTrack(const zrMP4_TRACK_INFO_S* info);
  TrakAtom* CreateTrakAtom(const zrMP4_TRACK_INFO_S* info);
  static TrakAtom::CodecType GetTrakCodec(zrMP4_CODECID_E codec);
  static zrMP4_CODECID_E GetMp4Codec(TrakAtom::CodecType codec);
  bool TrackExist(const Track* track) const { return mTracks.contains(track); }
  void ReleaseTracks() { mTracks.clear(); }

  // Writing (mp4_file_write.cpp)
  ZR_U32 WriteFrame(Track* track, ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey);
  // Takes the box into the tree when it answers 0; it stays the caller's otherwise.
  ZR_U32 AddAtom(const std::string& path, UserDefAtom* box);
  ZR_U32 WriteFtyp();
  ZR_U32 WriteMdatHeader();
  ZR_U32 RewriteMdatSize();
  int WritePaddingBuf(ZR_S64 gap);
  int WriteFreeBox();

  // Crash safety (mp4_file_backup.cpp)
  ZR_U32 BackupAtom(const std::string& path, UserDefAtom* box);

  // The end (mp4_file_finish.cpp)
  ZR_U32 RemoveAllTrack();
  void setRemoveHook(ZR_MP4_DURATION_CALLBACK hook) { mRemoveHook = hook; }

  // Repair (mp4_file_repair.cpp)
  ZR_U32 Repair(ZR_BOOL parseExtraFrames);

  // Queries (mp4_file_query.cpp)
  // Queries for boxes may come side by side, and note in the boxes where they wrote them: each holds this lock.
  std::mutex& queryLock() { return mQueryLock; }
  Atom* GetAtom(const std::string& path);
  ZR_U32 ParseFileInfo();
  ZR_U32 Duration();
  ZR_U32 GetHandleName(std::string& name);
  ZR_U32 GetTimeScale(ZR_U32 index, ZR_U32* timeScale);
  ZR_U32 GetTrackCodecType(ZR_U32 index, zrMP4_CODECID_E* codec);
  ZR_U32 GetTrackInfo(ZR_U32 index, zrMP4_TRACK_INFO_S* info);
  // The track of the trak with this index, or null: what cannot be described has none.
  Track* GetTrackHandle(ZR_U32 index);
  ZR_U32 GetTrackMediaInfo(ZR_U32 index, zrMP4_CODECID_E codec, zrMP4_TRACK_INFO_S* info);
  // The most that a box can be: a file that was read may declare more than there is.
  ZR_U64 longestBox() const { return mWriting ? ~ZR_U64{0} : mFileSize; }
  ZR_BOOL useCo64() const { return mUseCo64; }
  ZR_U32 backupUnit() const { return mBackupUnit; }
  ZR_U32 trackCount() const { return mTracks.count(); }

 private:
  static constexpr ZR_U32 kInternalFailure = 0xFFFFFFFF;  // -1, where no public code names the cause

  int InitAtoms();
  Track* MakeTrack(const zrMP4_TRACK_INFO_S* info);
  bool Protect(const zrMP4_TRACK_INFO_S* info);
  int AllocPaddingBuf();
  void FreePaddingBuf() { mPaddingBuf.reset(); }
  ZR_U32 ReadTopAtoms();
  bool recording() const { return mWriting && !mFinishing; }

  // Where a record begins: what has to be put back when the stream fails inside it.
  struct RecordStart {
    ZR_U64 position;
    ZR_U64 mdatSize;
    ZR_U32 backupIndex;
  };
  RecordStart BeginRecord();
  void DropRecord(const RecordStart& start);
  bool IsFull();
  void SettleSizes();
  static void SettleBoxes(Track* track);
  Atom* ParentAt(const std::string& path);
  bool OffsetFits(const Track::Mp4Sample& sample);
  ZR_U32 WriteRecord(Track* track, const Track::Mp4Sample& sample, ZR_U64* offset);
  void WriteProc(Track*, ZR_U64) {}

  VemoAtom* vemo() { return static_cast<VemoAtom*>(mVemo); }
  ZR_U64 NextBackupOffset() const { return (static_cast<ZR_U64>(mBackupIndex) + 1) * mBackupUnit; }
  int WriteVemoAtom();
  int RebuildTmpStbl();
  ZR_U32 TbgpSize();
  int WriteTbgp();
  ZR_U32 FlushTbgp();
  ZR_U32 PassedMultiples(ZR_U64 position) const;
  bool NeedsFlush(ZR_U64 position, ZR_U32 size) const;
  int MakeDurable();
  ZR_U32 PrepareBackup(const Track::Mp4Sample& sample);
  int WriteUserRecord(const std::string& path, UserDefAtom* box, ZR_U32 length);

  ZR_U32 WriteMoov();
  int FinishTracks();
  ZR_U32 SettleMovieTimes();
  ZR_U32 SettleTrack(Track* track, ZR_U32 movieTimeScale);
  ZR_U32 WriteUserAtom();
  ZR_U32 FreeGap(ZR_U64 position) const;
  ZR_U32 WriteTail();

  ZR_U32 TrakCount() const;
  void FillFromTrackConfig(ZR_U32 index, zrMP4_TRACK_INFO_S* info);
  ZR_U32 FillAudioInfo(ZR_U32 index, zrMP4_CODECID_E codec, zrMP4_AUDIO_INFO_S* audio);

  bool IsFinished();
  bool HoldsTracks(const AtomHeader& moov);
  void RestoreConfiguration();
  ZR_U32 CreateMoov();
  int CreateTraks();
  int RepairMoov(ZR_BOOL parseExtraFrames);
  int RestoreLeadingUserAtoms();
  int ParseMediaParameter();
  void ParseSnapshots();
  bool Covered(RecordWalker& cover, ZR_U64 offset);
  int FindAndParseNextTbgp();
  int CheckSnapshot(TbgpAtom& tbgp);
  bool EndsInRecord(StblAtom& stbl, ZR_U32 trackId);
  int ParseUserDefAtom(ZR_U32 count, ZR_U64 end);
  int AddUserAtom(const RecordWalker& walker);
  int RepairStbl(StblAtom* snapshot, ZR_U32 trackId);
  int MergeStbl(StblAtom* out, StblAtom* in);
  int MergeCo64(StblAtom* out, StblAtom* in, ZR_U32 samples);
  int MergeStco(StblAtom* out, StblAtom* in, ZR_U32 samples);
  void ParseExtraFrame(ZR_U64* end);
  bool RecoverFrame(const RecordWalker& walker);
  bool HasLostPage(const RecordWalker& walker);
  int UpdateTrack(Track* track, const RecordWalker& walker);
  bool ZerosFollow(ZR_U64 offset);
  bool FollowedByRecord(const RecordWalker& walker);

  std::string mMode;
  bool mWriting = false;      // mMode is "w"
  ZR_U64 mMovieDuration = 0;  // movie time scale
  ZR_BOOL mUseCo64 = ZR_FALSE;
  ZR_BOOL mConstantRate = ZR_FALSE;
  ZR_U32 mFormatProfile = 2;  // until a muxer's configuration sets it
  ZR_U32 mMovieTimeScale = MP4_TIMESCALE;
  std::mutex mLock;
  std::mutex mQueryLock;
  ZR_U32 mTbgpCount = 0;
  ZR_MP4_DURATION_CALLBACK mRemoveHook = nullptr;
  bool mFinishing = false;    // finalisation was tried: no more frames
  bool mTailWritten = false;  // and it succeeded
  ZR_BOOL mRepairMode = ZR_FALSE;
  ZR_U32 mBackupUnit = 0;
  ZR_U32 mBackupIndex = 0;  // table groups written; in repair, those expected
  std::map<std::string, Atom*> mParents;  // of user boxes, by their paths; boxes of the tree stay where they are
  ZR_U32 mLookups = 0;
  ZR_U32 mUserAtomNum = 0;  // user-box records since the last table group
  bool mVemoWritten = false;
  Atom* mVemo = nullptr;
  ZR_U64 mLastGoodEnd = 0;    // repair: behind the last intact recovery structure
  ZR_U32 mParsedTbgp = 0;     // repair: multiples of the unit done with
  ZR_U32 mMergedTbgp = 0;     // repair: table groups merged
  ZR_U64 mMaxFileSize = MP4_MAX_FILE_SIZE;
  ZR_U64 mSettleFrom = 0;  // a file size from which the boxes, with what the tables keep, may have reached the limit
  std::unique_ptr<ZR_U8[]> mPaddingBuf;
  SyncSchedule mSyncSchedule;
  ZR_U64 mLastPts = 0;  // of the last frame prepared
  TrackList mTracks;
};

}  // namespace zrmp4
