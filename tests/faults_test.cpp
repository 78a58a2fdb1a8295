#include <gtest/gtest.h>

#include "tests/support/alloc_faults.h"
#include "tests/support/full_at.h"
#include "tests/support/log_capture.h"
#include "tests/support/three_tracks.h"

namespace {

constexpr ZR_U32 kBackupUnit = 524288;

TEST(Faults, DestroyEndsTheHandleWithoutMemory) {
  LogCapture log;
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path(), kBackupUnit));
  EXPECT_EQ(muxer.write(muxer.add(MetaTrack()), Data(50), 0), 0u);
  {
    const AllocFaults faults(0);
    ZR_U64 duration;
    ZR_MP4_Destroy(muxer.handle(), &duration);
  }
  EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), nullptr), ZR_ERR_MP4_HANDLE_INVALID);
}

class FullCard : public ::testing::Test {
 protected:
  LogCapture log;
  TempFile file;
};

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
