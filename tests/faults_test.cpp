#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "tests/support/alloc_faults.h"
#include "tests/support/log_capture.h"
#include "tests/support/three_tracks.h"

namespace {

constexpr ZR_U32 kBackupUnit = 524288;

// One recording as steps that can each be tried again.
class Steps {
 public:
  explicit Steps(const std::string& path, ZR_U32 unit) : mConfig(MuxerConfig(path, unit)) {}
  Steps(const Steps&) = delete;
  Steps& operator=(const Steps&) = delete;
  ~Steps() { ZR_MP4_Destroy(mFile, nullptr); }

  static constexpr int kCount = 9;

  ZR_U32 run(int step) {
    switch (step) {
      case 0:
        return ZR_MP4_Create(&mFile, &mConfig);
      case 1:
        return ZR_MP4_CreateTrack(mFile, &mTracks[0], &mVideo);
      case 2:
        return ZR_MP4_CreateTrack(mFile, &mTracks[1], &mAudio);
      case 3:
        return write(0, mKey, ZR_TRUE);
      case 4:
        return write(1, mSound, ZR_FALSE);
      case 5:
        return box("/moov/trak[1]");
      case 6:
        return box("/");
      case 7:
        return write(0, mKey, ZR_TRUE);
      default:
        return ZR_MP4_DestroyAllTracks(mFile, nullptr);
    }
  }

  ZR_MP4_HANDLE file() const { return mFile; }

 private:
  ZR_U32 write(int track, Data& data, ZR_BOOL key) {
    const zrMP4_FRAME_DATA_S frame = {mTime += 40000, data.data(), static_cast<ZR_U32>(data.size()), key};
    return ZR_MP4_WriteFrame(mFile, mTracks[track], &frame);
  }
  ZR_U32 box(const char* path) {
    const zrMP4_ATOM_INFO_S info = {static_cast<ZR_U32>(mSound.size()), "note", mSound.data()};
    return ZR_MP4_AddAtom(mFile, path, &info);
  }

  zrMP4_CONFIG_S mConfig;
  zrMP4_TRACK_INFO_S mVideo = VideoTrack();
  zrMP4_TRACK_INFO_S mAudio = AudioTrack();
  Data mKey = KeyFrame();
  Data mSound = Data(50, 4);
  ZR_U64 mTime = 0;
  ZR_MP4_HANDLE mFile = 0;
  ZR_MP4_TRACK_HANDLE mTracks[2] = {};
};

bool TellsOfMemory(ZR_U32 status) {
  return status == ZR_ERR_MP4_NO_MEMORY || status == ZR_ERR_MP4_CREATE_TRACK || status == ZR_ERR_MP4_OPEN ||
         status == ZR_ERR_MP4_OPEN_FILE || status == ZR_ERR_MP4_ATOM_DATA || status == ZR_ERR_MP4_WRITE_BACKUP;
}

// Lets the allocations of one step fail from each one on, tries the step again with memory, and goes on.
void FailEachAllocationOf(int step, ZR_U32 unit) {
  for (std::size_t allowed = 0;; ++allowed) {
    SCOPED_TRACE("step " + std::to_string(step) + " with " + std::to_string(allowed) + " allocations");
    const TempFile file;
    Steps steps(file.path(), unit);
    for (int i = 0; i < step; ++i) ASSERT_EQ(steps.run(i), 0u);
    ZR_U32 status;
    bool reached;
    {
      const AllocFaults faults(allowed);
      status = steps.run(step);
      reached = AllocFaults::count() > allowed;
    }
    if (status != 0) {
      EXPECT_TRUE(reached && TellsOfMemory(status)) << std::hex << status;
      ASSERT_EQ(steps.run(step), 0u);
    } else if (step == Steps::kCount - 1) {
      steps.run(step);  // answers 0 whatever became of it
    }
    for (int i = step + 1; i < Steps::kCount; ++i) ASSERT_EQ(steps.run(i), 0u);
    ASSERT_EQ(ZR_MP4_Destroy(steps.file(), nullptr), 0u);

    const RecordedFile recorded(file.path());
    EXPECT_EQ(recorded.problem(), "");
    ASSERT_EQ(recorded.tracks().size(), 2u);
    EXPECT_EQ(recorded.tracks()[0].samples.size(), 2u);
    EXPECT_EQ(recorded.tracks()[1].samples.size(), 1u);
    EXPECT_EQ(recorded.outline(), "ftyp mdat moov note");
    EXPECT_EQ(recorded.find("moov/trak[1]")->children.back().type, "note");
    if (!reached) break;
  }
}

TEST(Faults, AnyAllocationMayFailAndTheCallCanBeTriedAgain) {
  LogCapture log;
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    for (int step = 0; step < Steps::kCount; ++step) FailEachAllocationOf(step, unit);
  }
}

TEST(Faults, DestroyEndsTheHandleWithoutMemory) {
  LogCapture log;
  const TempFile file;
  Steps steps(file.path(), kBackupUnit);
  for (int i = 0; i < 5; ++i) ASSERT_EQ(steps.run(i), 0u);
  {
    const AllocFaults faults(0);
    ZR_U64 duration;
    ZR_MP4_Destroy(steps.file(), &duration);
  }
  EXPECT_EQ(ZR_MP4_Destroy(steps.file(), nullptr), ZR_ERR_MP4_HANDLE_INVALID);
}

// The card is full at this size, until the object goes.
class FullAt {
 public:
  explicit FullAt(std::uint64_t size) : mSignal(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &mLimit);
    const rlimit limit = {size, mLimit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullAt(const FullAt&) = delete;
  FullAt& operator=(const FullAt&) = delete;
  ~FullAt() {
    setrlimit(RLIMIT_FSIZE, &mLimit);
    std::signal(SIGXFSZ, mSignal);
  }

 private:
  rlimit mLimit;
  void (*mSignal)(int);
};

class FullCard : public ::testing::Test {
 protected:
  LogCapture log;
  TempFile file;
};

TEST_F(FullCard, LetsTheRecordingGoOnAfterAWriteThatFailedAnywhereInAFrame) {
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    for (std::uint64_t room = 0; room < 110; room += 3) {
      SCOPED_TRACE(std::to_string(room) + " bytes of room");
      zrMP4_CONFIG_S config = MuxerConfig(file.path(), unit);
      config.stMuxerConfig.u32VBufSize = 1;
      Muxer muxer(config);
      ThreeTracks tracks(muxer);
      tracks.write(3);
      {
        const FullAt full(RecordedFile(file.path()).size() + room);
        EXPECT_EQ(muxer.write(tracks.video, DeltaFrame(120), 3 * kFrameTime), ZR_ERR_MP4_WRITE_BACKUP);
        EXPECT_EQ(muxer.write(tracks.audio, AacFrame(120), 3 * kFrameTime), ZR_ERR_MP4_WRITE_BACKUP);
        EXPECT_EQ(muxer.write(tracks.meta, Data(120), 3 * kFrameTime), ZR_ERR_MP4_WRITE_BACKUP);
      }
      tracks.write(3);
      muxer.finish();
      EXPECT_EQ(muxer.destroy(), 0u);
      const RecordedFile recorded(file.path());
      tracks.findIn(recorded);
      if (unit != 0) {
        EXPECT_EQ(recorded.count("frame"), 18);
      }
    }
  }
}

TEST_F(FullCard, EndsTheHandleAllTheSame) {
  Muxer muxer(MuxerConfig(file.path()));
  EXPECT_EQ(muxer.write(muxer.add(MetaTrack()), Data(5000), 0), 0u);
  const FullAt full(1000);
  EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), nullptr), ZR_ERR_MP4_CLOSE);
  EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), nullptr), ZR_ERR_MP4_HANDLE_INVALID);
}

int gHookCalls;

TEST_F(FullCard, CanBeFinishedAgainWhenThereIsRoom) {
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), unit);
    config.stMuxerConfig.u32VBufSize = 1;
    Muxer muxer(config);
    ThreeTracks tracks(muxer);
    tracks.write(20);
    {
      const FullAt full(RecordedFile(file.path()).size() + 500);  // less than a movie box
      for (int i = 0; i < 3; ++i) EXPECT_EQ(muxer.finish(), 0u);
      EXPECT_EQ(muxer.write(tracks.audio, AacFrame(), 0), ZR_ERR_MP4_ILLEGAL_PARAM);
    }
    gHookCalls = 0;
    muxer.finish([](ZR_MP4_HANDLE, ZR_U32, ZR_U64*) -> ZR_U32 { return static_cast<ZR_U32>(++gHookCalls); });
    EXPECT_EQ(gHookCalls, 3) << "once per track";
    EXPECT_EQ(muxer.destroy(), 0u);
    tracks.findIn(RecordedFile(file.path()));
  }
}

}  // namespace
