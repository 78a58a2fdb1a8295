#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/log_capture.h"
#include "tests/support/recording.h"

namespace {

class Statistics : public ::testing::Test {
 protected:
  void SetUp() override {
    EXPECT_EQ(MP4_PROC_Init(), 0u);
    config = MuxerConfig("/card/one.mp4");
    config.stMuxerConfig.u32PreAllocUnit = 4096;
    ASSERT_EQ(MP4_PROC_Add(&muxer, &config), 0u);
  }
  void TearDown() override {
    EXPECT_EQ(MP4_PROC_DestroyTrack(muxer), 0u);
    EXPECT_EQ(MP4_PROC_Remove(muxer), 0u);
    EXPECT_EQ(MP4_PROC_DelInit(), 0u);
  }

  zrMP4_PROC_TRACK_S* add(const zrMP4_TRACK_INFO_S& info) {
    zrMP4_PROC_TRACK_S* track = nullptr;
    EXPECT_EQ(MP4_PROC_CreateTrack(muxer, &track, &info), 0u);
    return track;
  }

  zrMP4_CONFIG_S config;
  zrMP4_PROC_MUXER_S* muxer = nullptr;
};

TEST_F(Statistics, ARecordStartsWithTheConfiguration) {
  EXPECT_STREQ(muxer->name, "/card/one.mp4");
  EXPECT_EQ(muxer->preAllocUnit, 4096u);
  EXPECT_EQ(muxer->trackSeq, 0);
  EXPECT_EQ(muxer->maxWriteTime, 0u);
  zrMP4_PROC_MUXER_S* reader = nullptr;
  zrMP4_CONFIG_S reading = DemuxerConfig("/card/two.mp4");
  reading.stMuxerConfig.u32PreAllocUnit = 4096;
  ASSERT_EQ(MP4_PROC_Add(&reader, &reading), 0u);
  EXPECT_EQ(reader->preAllocUnit, 0u);
  EXPECT_EQ(reader->next, muxer) << "the newest record comes first";
  EXPECT_EQ(MP4_PROC_Remove(reader), 0u);
}

TEST_F(Statistics, TheMuxerShowsItsLastTrackOfEachKind) {
  zrMP4_TRACK_INFO_S fast = VideoTrack(ZR_MP4_CODEC_H265);
  fast.fSpeed = 2.0f;
  fast.stVideoInfo.u32Width = 1920;
  fast.stVideoInfo.u32Height = 1080;
  const zrMP4_PROC_TRACK_S* tracks[] = {add(VideoTrack()), add(fast), add(AudioTrack(ZR_MP4_CODEC_AAC)),
                                        add(MetaTrack())};
  EXPECT_EQ(muxer->videoWidth, 1920u);
  EXPECT_EQ(muxer->videoHeight, 1080u);
  EXPECT_EQ(muxer->videoSpeed, 2.0f);
  EXPECT_EQ(muxer->audioSampleRate, 48000u);
  EXPECT_EQ(muxer->audioSamplesPerFrame, 1024u);
  EXPECT_EQ(muxer->trackSeq, 4);
  const zrMP4_CODECID_E codecs[] = {ZR_MP4_CODEC_H264, ZR_MP4_CODEC_H265, ZR_MP4_CODEC_AAC, ZR_MP4_CODEC_META};
  const zrMP4_TRACK_TYPE_E types[] = {ZR_MP4_TRACK_VIDEO, ZR_MP4_TRACK_VIDEO, ZR_MP4_TRACK_AUDIO, ZR_MP4_TRACK_META};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(tracks[i]->seq, i + 1);
    EXPECT_EQ(tracks[i]->codecId, codecs[i]);
    EXPECT_EQ(tracks[i]->trackType, types[i]);
    EXPECT_EQ(tracks[i]->next, i < 3 ? tracks[i + 1] : &muxer->tracks);
  }
}

TEST_F(Statistics, FramesCountForATrackOfThisMuxerOnly) {
  zrMP4_PROC_TRACK_S* track = add(VideoTrack());
  zrMP4_PROC_TRACK_S stranger = {};
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, track, 0, 10, 1), 0u);
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, track, 500, 20, 2), 0u);
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, track, 900, 30, 3), 0u);
  EXPECT_EQ(track->frameCount, 3u);
  EXPECT_EQ(track->firstPts, 500u) << "the first that is not 0";
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, &stranger, 1, 40, 4), 0u);
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, nullptr, 1, 50, 5), 0u);
  EXPECT_EQ(stranger.frameCount, 0u);
  EXPECT_EQ(track->frameCount, 3u);
  EXPECT_EQ(muxer->lastFrameSize, 50u);
  EXPECT_EQ(muxer->lastFrameValue, 5u);
}

TEST_F(Statistics, TheMaximaOnlyRiseAndAreFoundByName) {
  for (const ZR_U64 time : {5u, 9u, 3u}) {
    EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp4", time), 0u);
    EXPECT_EQ(MP4_PROC_UpdateAllocTime("/card/one.mp4", time * 2), 0u);
  }
  EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp", 100), 0u);
  EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp4x", 100), 0u);
  EXPECT_EQ(MP4_PROC_UpdateAllocTime(nullptr, 100), 0u);
  EXPECT_EQ(muxer->maxWriteTime, 9u);
  EXPECT_EQ(muxer->maxAllocTime, 18u);
}

TEST_F(Statistics, NullPointersAndUnknownRecords) {
  zrMP4_PROC_TRACK_S* track = nullptr;
  const zrMP4_TRACK_INFO_S info = VideoTrack();
  zrMP4_PROC_MUXER_S unknown = {};
  LogCapture log;
  const ZR_U32 answers[] = {
      MP4_PROC_Add(nullptr, &config),
      MP4_PROC_Add(&muxer, nullptr),
      MP4_PROC_Remove(nullptr),
      MP4_PROC_CreateTrack(nullptr, &track, &info),
      MP4_PROC_CreateTrack(muxer, nullptr, &info),
      MP4_PROC_CreateTrack(muxer, &track, nullptr),
      MP4_PROC_DestroyTrack(nullptr),
      MP4_PROC_WriteFrame(nullptr, nullptr, 0, 0, 0),
  };
  for (const ZR_U32 answer : answers) EXPECT_EQ(answer, ZR_ERR_MP4_NULL_PTR);
  EXPECT_EQ(MP4_PROC_Remove(&unknown), 0u);
  EXPECT_EQ(log.all(), "");
}

TEST_F(Statistics, DestroyedTracksLeaveTheMuxerReadyForMore) {
  add(VideoTrack());
  add(AudioTrack());
  EXPECT_EQ(MP4_PROC_DestroyTrack(muxer), 0u);
  EXPECT_EQ(add(MetaTrack())->seq, 3) << "numbers are not used again";
}

}  // namespace
