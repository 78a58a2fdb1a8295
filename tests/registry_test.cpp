#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

#include "tests/support/log_capture.h"
#include "tests/support/recording.h"

namespace {

constexpr std::size_t kMostHandles = 32;

struct Opened {
  TempFile file;
  Muxer muxer{MuxerConfig(file.path())};
};

std::vector<std::unique_ptr<Opened>> OpenAll() {
  std::vector<std::unique_ptr<Opened>> opened;
  while (opened.size() < kMostHandles) opened.push_back(std::make_unique<Opened>());
  return opened;
}

TEST(Registry, Holds32HandlesAndNoMore) {
  LogCapture log;
  auto opened = OpenAll();
  EXPECT_EQ(opened.back()->muxer.status(), 0u);
  {
    const Opened oneMore;
    EXPECT_EQ(oneMore.muxer.status(), ZR_ERR_MP4_OPEN);
    EXPECT_EQ(log.count(" MP4 reach max count 32 \n"), 1);
    EXPECT_EQ(oneMore.muxer.handle(), 0u);
    EXPECT_EQ(RecordedFile(oneMore.file.path()).size(), 0u) << "the file must not be touched";
  }
  opened[7]->muxer.destroy();
  EXPECT_EQ(Opened().muxer.status(), 0u);
}

TEST(Registry, CreationsThatFailTakeNoPlace) {
  LogCapture log;
  for (std::size_t i = 0; i < 2 * kMostHandles; ++i) {
    const Muxer missing(DemuxerConfig("/nowhere/at/all.mp4"));
    ASSERT_EQ(missing.status(), ZR_ERR_MP4_OPEN_FILE);
    const Muxer refused(MuxerConfig(""));
    ASSERT_EQ(refused.status(), ZR_ERR_MP4_ILLEGAL_PARAM);
  }
  EXPECT_EQ(log.count("MP4File open failed\n"), static_cast<int>(2 * kMostHandles));
  EXPECT_EQ(OpenAll().back()->muxer.status(), 0u);
}

TEST(Registry, DestroyAnswersTheDurationAndEndsTheHandle) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  const ZR_MP4_TRACK_HANDLE track = muxer.add(VideoTrack());
  for (ZR_U64 i = 0; i < 3; ++i) muxer.write(track, i == 0 ? KeyFrame() : DeltaFrame(), i * 100000, i == 0);
  muxer.finish();
  ZR_U64 duration = 77;
  LogCapture log;
  EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), &duration), 0u);
  EXPECT_EQ(duration, 300u);
  duration = 77;
  EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), &duration), ZR_ERR_MP4_HANDLE_INVALID);
  EXPECT_EQ(log.count("ZR_MP4_Destroy cant find muxer \n"), 1);
  EXPECT_EQ(duration, 77u);
}

TEST(Registry, StaleHandlesAreRefusedInTheWordsOfEachCall) {
  const TempFile file;
  ZR_MP4_HANDLE stale = 0;
  ZR_MP4_TRACK_HANDLE track = 0;
  {
    Muxer muxer(MuxerConfig(file.path()));
    stale = muxer.handle();
    track = muxer.add(VideoTrack());
  }
  zrMP4_TRACK_INFO_S info = VideoTrack();
  zrMP4_FRAME_DATA_S frame = {};
  zrMP4_ATOM_INFO_S box = {};
  zrMP4_FILE_INFO_S fileInfo = {};
  struct Call {
    const char* message;
    std::function<ZR_U32()> call;
  } const calls[] = {
      {"ZR_MP4_Destroy cant find muxer \n", [&] { return ZR_MP4_Destroy(stale, nullptr); }},
      // Deliberate: these three speak in another function's name.
      {"ZR_MP4_CreateTrack cant find muxer \n", [&] { return ZR_MP4_DestroyAllTracks(stale, nullptr); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_GetTrackByIndex(stale, 0, &info, &track); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_GetFileInfo(stale, &fileInfo); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_WriteFrame(stale, track, &frame); }},
      {"can't find muxer\n", [&] { return ZR_MP4_CreateTrack(stale, &track, &info); }},
      {"can't find muxer\n", [&] { return ZR_MP4_AddAtom(stale, "/", &box); }},
      {"cant find muxer \n", [&] { return ZR_MP4_GetAtom(stale, "/moov", &box); }},
  };
  for (const Call& call : calls) {
    LogCapture log;
    EXPECT_EQ(call.call(), ZR_ERR_MP4_HANDLE_INVALID) << call.message;
    EXPECT_EQ(log.all(), std::string("MP4 3 ") + call.message);
  }
}

TEST(Registry, ThreadsRecordSideBySide) {
  LogCapture log;
  constexpr int kThreads = 4;
  constexpr ZR_U64 kFrames = 40;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 5; ++round) {
        const TempFile file;
        Muxer muxer(MuxerConfig(file.path(), 524288));
        const ZR_MP4_TRACK_HANDLE video = muxer.add(VideoTrack());
        const ZR_MP4_TRACK_HANDLE audio = muxer.add(AudioTrack());
        // Frames of two tracks and boxes arrive on three threads of the same file.
        std::thread sound([&] {
          for (ZR_U64 k = 0; k < kFrames; ++k) EXPECT_EQ(muxer.write(audio, Data(100, 5), k * 21333), 0u);
        });
        std::thread boxes([&] {
          for (int k = 0; k < 10; ++k) EXPECT_EQ(muxer.addBox("/moov", "abcd", Data(30)), 0u);
        });
        for (ZR_U64 k = 0; k < kFrames; ++k) {
          EXPECT_EQ(muxer.write(video, k % 10 == 0 ? KeyFrame() : DeltaFrame(), k * 33333, k % 10 == 0), 0u);
        }
        sound.join();
        boxes.join();
        muxer.finish();
        EXPECT_EQ(muxer.destroy(), 0u);
        const RecordedFile recorded(file.path());
        EXPECT_EQ(recorded.problem(), "");
        EXPECT_EQ(recorded.count("frame"), static_cast<int>(2 * kFrames));
        EXPECT_EQ(recorded.count("user"), 10);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
