#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "tests/support/alloc_faults.h"
#include "tests/support/full_at.h"
#include "tests/support/log_capture.h"
#include "tests/support/session.h"
#include "zr_mp4_ext.h"

// What texts cannot say: addresses, many handles, many threads, the statistics, and times in any number.

namespace {

TEST(Arguments, NullPointersAreAnsweredWithoutAMessage) {
  const LogCapture log;
  zrMP4_CONFIG_S config = {};
  zrMP4_TRACK_INFO_S track = {};
  zrMP4_FRAME_DATA_S frame = {};
  zrMP4_ATOM_INFO_S box = {};
  zrMP4_FILE_INFO_S info = {};
  zrMP4_PROC_MUXER_S proc = {};
  zrMP4_PROC_MUXER_S* procs = nullptr;
  zrMP4_PROC_TRACK_S* procTrack = nullptr;
  ZR_MP4_HANDLE handle = 0;
  ZR_MP4_TRACK_HANDLE trackHandle = 0;
  const ZR_MP4_HANDLE h = 8;  // is not null, and must not be looked at
  const ZR_U32 answers[] = {
      ZR_MP4_Create(nullptr, &config), ZR_MP4_Create(&handle, nullptr), ZR_MP4_Destroy(0, nullptr),
      ZR_MP4_DestroyAllTracks(0, nullptr), ZR_MP4_CreateTrack(0, &trackHandle, &track),
      ZR_MP4_CreateTrack(h, nullptr, &track), ZR_MP4_CreateTrack(h, &trackHandle, nullptr),
      ZR_MP4_WriteFrame(0, h, &frame), ZR_MP4_WriteFrame(h, 0, &frame), ZR_MP4_WriteFrame(h, h, nullptr),
      ZR_MP4_AddAtom(0, "/", &box), ZR_MP4_AddAtom(h, nullptr, &box), ZR_MP4_AddAtom(h, "/", nullptr),
      ZR_MP4_GetTrackByIndex(0, 0, &track, &trackHandle), ZR_MP4_GetTrackByIndex(h, 0, nullptr, &trackHandle),
      ZR_MP4_GetTrackByIndex(h, 0, &track, nullptr), ZR_MP4_GetAtom(0, "/moov", &box),
      ZR_MP4_GetAtom(h, nullptr, &box), ZR_MP4_GetAtom(h, "/moov", nullptr), ZR_MP4_GetFileInfo(0, &info),
      ZR_MP4_GetFileInfo(h, nullptr), ZR_MP4_RepairFile(nullptr, ZR_TRUE),
      MP4_PROC_Add(nullptr, &config), MP4_PROC_Add(&procs, nullptr), MP4_PROC_Remove(nullptr),
      MP4_PROC_CreateTrack(nullptr, &procTrack, &track), MP4_PROC_CreateTrack(&proc, nullptr, &track),
      MP4_PROC_CreateTrack(&proc, &procTrack, nullptr), MP4_PROC_DestroyTrack(nullptr),
      MP4_PROC_WriteFrame(nullptr, nullptr, 0, 0, 0),
  };
  for (std::size_t i = 0; i < std::size(answers); ++i) EXPECT_EQ(answers[i], ZR_ERR_MP4_NULL_PTR) << "call " << i;
  EXPECT_EQ(log.all(), "");
}

TEST(Arguments, ALengthWithoutBytesIsRefused) {
  const TempFile file, other;
  Muxer muxer(MuxerConfig(file.path())), stranger(MuxerConfig(other.path()));
  const ZR_MP4_TRACK_HANDLE track = muxer.add(MetaTrack());
  LogCapture log;
  const zrMP4_FRAME_DATA_S frame = {0, nullptr, 5, ZR_FALSE};
  zrMP4_ATOM_INFO_S box = {1, "", nullptr};
  EXPECT_EQ(ZR_MP4_WriteFrame(muxer.handle(), track, &frame), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(ZR_MP4_GetAtom(muxer.handle(), "/moov", &box), ZR_ERR_MP4_NULL_PTR);
  EXPECT_EQ(stranger.write(track, {1}, 0), ZR_ERR_MP4_ILLEGAL_PARAM) << "the track of another recording";
  EXPECT_EQ(log.all(), "MP4 3 ZR_MP4_WriteFrame framedata error\nMP4 3 atom info buf null \nMP4 3 track not exist\n");
}

// Reads the header, so that a code that is added there cannot be forgotten here.
TEST(StatusNames, EveryCodeOfTheHeaderHasTheNameThatItHasThere) {
  std::ifstream header(ZRMP4_SOURCE_DIR "/include/zr_mp4.h");
  int codes = 0;
  for (std::string line; std::getline(header, line);) {
    char name[64];
    unsigned status = 0;
    if (std::sscanf(line.c_str(), "#define %63s 0x%x", name, &status) != 2) continue;
    EXPECT_STREQ(ZR_MP4_StatusName(status), name);
    ++codes;
  }
  EXPECT_EQ(codes, 19);
  EXPECT_STREQ(ZR_MP4_StatusName(0), "success");
  EXPECT_STREQ(ZR_MP4_StatusName(0xA1298003), "unknown status");
}

struct Opened {
  TempFile file;
  Muxer muxer{MuxerConfig(file.path())};
};

TEST(Registry, Holds32HandlesAndNoMore) {
  LogCapture log;
  for (int i = 0; i < 64; ++i) {  // creations that fail take no place
    ASSERT_EQ(Muxer(DemuxerConfig("/nowhere/at/all.mp4")).status(), ZR_ERR_MP4_OPEN_FILE);
    ASSERT_EQ(Muxer(MuxerConfig("")).status(), ZR_ERR_MP4_ILLEGAL_PARAM);
  }
  std::vector<std::unique_ptr<Opened>> opened;
  while (opened.size() < 32) opened.push_back(std::make_unique<Opened>());
  EXPECT_EQ(opened.back()->muxer.status(), 0u);
  EXPECT_EQ(log.count("version: MORVALE MP4 MW Version: 2.0.1.0 build date: MORVALE MP4 Build Date:Aug 25 2020 "
                      "Time:20:52:29\n"), 64 + 64 + 32);
  const Opened oneMore;
  EXPECT_EQ(oneMore.muxer.status(), ZR_ERR_MP4_OPEN);
  EXPECT_EQ(log.count(" MP4 reach max count 32 \n"), 1);
  EXPECT_TRUE(oneMore.muxer.handle() == 0 && RecordedFile(oneMore.file.path()).size() == 0) << "it is not touched";
  opened[7]->muxer.destroy();
  EXPECT_EQ(Opened().muxer.status(), 0u);
}

TEST(Registry, StaleHandlesAreRefusedInTheWordsOfEachCall) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  const ZR_MP4_HANDLE stale = muxer.handle();
  ZR_MP4_TRACK_HANDLE track = muxer.add(VideoTrack());
  for (ZR_U64 i = 0; i < 3; ++i) muxer.write(track, KeyFrame(), i * 100000, true);
  muxer.finish();
  ZR_U64 duration = 77;
  EXPECT_EQ(ZR_MP4_Destroy(stale, &duration), 0u);
  EXPECT_EQ(duration, 300u);
  zrMP4_TRACK_INFO_S info = VideoTrack();
  zrMP4_FRAME_DATA_S frame = {};
  zrMP4_ATOM_INFO_S box = {};
  zrMP4_FILE_INFO_S fileInfo = {};
  const std::pair<std::string, std::function<ZR_U32()>> kCalls[] = {
      {"ZR_MP4_Destroy cant find muxer \n", [&] { return ZR_MP4_Destroy(stale, &duration); }},
      // Deliberate: these three speak in another function's name.
      {"ZR_MP4_CreateTrack cant find muxer \n", [&] { return ZR_MP4_DestroyAllTracks(stale, nullptr); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_GetTrackByIndex(stale, 0, &info, &track); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_GetFileInfo(stale, &fileInfo); }},
      {"ZR_MP4_WriteFrame cant find muxer \n", [&] { return ZR_MP4_WriteFrame(stale, track, &frame); }},
      {"can't find muxer\n", [&] { return ZR_MP4_CreateTrack(stale, &track, &info); }},
      {"can't find muxer\n", [&] { return ZR_MP4_AddAtom(stale, "/", &box); }},
      {"cant find muxer \n", [&] { return ZR_MP4_GetAtom(stale, "/moov", &box); }},
  };
  for (const auto& [message, call] : kCalls) {
    LogCapture log;
    EXPECT_EQ(call(), ZR_ERR_MP4_HANDLE_INVALID) << message;
    EXPECT_EQ(log.all(), "MP4 3 " + message);
  }
  EXPECT_EQ(duration, 300u) << "left alone";
}

TEST(Registry, AHandleEndsWhateverFails) {
  const LogCapture log;
  for (const bool full : {false, true}) {
    const TempFile file;
    Muxer muxer(MuxerConfig(file.path()));
    EXPECT_EQ(muxer.write(muxer.add(MetaTrack()), Data(5000), 0), 0u);
    {
      std::unique_ptr<FullAt> card(full ? new FullAt(1000) : nullptr);
      std::unique_ptr<AllocFaults> memory(full ? nullptr : new AllocFaults(0));
      EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), nullptr), full ? ZR_ERR_MP4_CLOSE : 0u);
    }
    EXPECT_EQ(ZR_MP4_Destroy(muxer.handle(), nullptr), ZR_ERR_MP4_HANDLE_INVALID);
  }
}

TEST(Registry, ThreadsRecordSideBySide) {
  LogCapture log;
  constexpr ZR_U64 kFrames = 40;
  const auto record = [] {
    for (int round = 0; round < 5; ++round) {
      const TempFile file;
      Muxer muxer(MuxerConfig(file.path(), 524288));
      const ZR_MP4_TRACK_HANDLE video = muxer.add(VideoTrack()), audio = muxer.add(AudioTrack());
      // Frames of two tracks and boxes arrive on three threads of the same file.
      std::thread sound([&] {
        for (ZR_U64 k = 0; k < kFrames; ++k) EXPECT_EQ(muxer.write(audio, Data(100, 5), k * 21333), 0u);
      });
      std::thread boxes([&] {
        for (int k = 0; k < 10; ++k) EXPECT_EQ(muxer.addBox("/moov", "abcd", Data(30)), 0u);
      });
      for (ZR_U64 k = 0; k < kFrames; ++k) EXPECT_EQ(muxer.write(video, KeyFrame(), k * 33333, true), 0u);
      sound.join();
      boxes.join();
      muxer.finish();
      EXPECT_EQ(muxer.destroy(), 0u);
      const RecordedFile recorded(file.path());
      EXPECT_EQ(recorded.problem(), "");
      EXPECT_TRUE(recorded.count("frame") == 2 * kFrames && recorded.count("user") == 10);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(record);
  for (std::thread& thread : threads) thread.join();
}

TEST(Statistics, FollowTheCallsForKnownRecords) {
  EXPECT_EQ(MP4_PROC_Init(), 0u);
  zrMP4_PROC_MUXER_S *muxer = nullptr, *reader = nullptr, unknown = {};
  zrMP4_CONFIG_S config = MuxerConfig("/card/one.mp4"), reading = DemuxerConfig("/card/two.mp4");
  config.stMuxerConfig.u32PreAllocUnit = reading.stMuxerConfig.u32PreAllocUnit = 4096;
  ASSERT_EQ(MP4_PROC_Add(&muxer, &config) + MP4_PROC_Add(&reader, &reading), 0u);
  EXPECT_EQ(reader->next, muxer) << "the newest record comes first";
  EXPECT_STREQ(muxer->name, "/card/one.mp4");
  EXPECT_TRUE(muxer->preAllocUnit == 4096 && reader->preAllocUnit == 0 && muxer->trackSeq == 0);
  EXPECT_EQ(MP4_PROC_Remove(reader) + MP4_PROC_Remove(&unknown), 0u);

  zrMP4_TRACK_INFO_S fast = VideoTrack(ZR_MP4_CODEC_H265);
  fast.fSpeed = 2.0f;
  fast.stVideoInfo.u32Width = 1920;
  zrMP4_PROC_TRACK_S *tracks[4], stranger = {};
  int seq = 0;
  for (const auto& info : {VideoTrack(), fast, AudioTrack(ZR_MP4_CODEC_AAC), MetaTrack()}) {
    zrMP4_PROC_TRACK_S*& track = tracks[seq++];
    EXPECT_EQ(MP4_PROC_CreateTrack(muxer, &track, &info), 0u);
    EXPECT_TRUE(track->seq == seq && track->trackType == info.enTrackType && track->next == &muxer->tracks);
    EXPECT_TRUE(seq == 1 || tracks[seq - 2]->next == track);
  }
  EXPECT_TRUE(tracks[1]->codecId == ZR_MP4_CODEC_H265 && tracks[2]->codecId == ZR_MP4_CODEC_AAC &&
              tracks[3]->codecId == ZR_MP4_CODEC_META && muxer->trackSeq == 4);
  EXPECT_TRUE(muxer->videoWidth == 1920 && muxer->videoHeight == 360 && muxer->videoSpeed == 2.0f &&
              muxer->audioSampleRate == 48000 && muxer->audioSamplesPerFrame == 1024);

  const std::pair<ZR_U64, zrMP4_PROC_TRACK_S*> kFrames[] = {
      {0, tracks[0]}, {500, tracks[0]}, {900, tracks[0]}, {1, &stranger}, {1, nullptr}};
  for (const auto& [pts, track] : kFrames) EXPECT_EQ(MP4_PROC_WriteFrame(muxer, track, pts, 41, 4), 0u);
  EXPECT_TRUE(tracks[0]->frameCount == 3 && tracks[0]->firstPts == 500) << "the first that is not 0";
  EXPECT_TRUE(stranger.frameCount == 0 && muxer->lastFrameSize == 41 && muxer->lastFrameValue == 4);
  for (const ZR_U64 time : {5u, 9u, 3u}) {
    EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp4", time), 0u);
    EXPECT_EQ(MP4_PROC_UpdateAllocTime("/card/one.mp4", time * 2), 0u);
  }
  EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp", 100) + MP4_PROC_UpdateWriteTime("/card/one.mp4x", 100), 0u);
  EXPECT_EQ(MP4_PROC_UpdateAllocTime(nullptr, 100), 0u);
  EXPECT_TRUE(muxer->maxWriteTime == 9 && muxer->maxAllocTime == 18) << "they only rise";

  EXPECT_EQ(MP4_PROC_DestroyTrack(muxer), 0u);
  EXPECT_EQ(MP4_PROC_CreateTrack(muxer, &tracks[0], &fast), 0u);
  EXPECT_EQ(tracks[0]->seq, 5) << "numbers are not used again";
  EXPECT_EQ(MP4_PROC_DestroyTrack(muxer) + MP4_PROC_Remove(muxer) + MP4_PROC_DelInit(), 0u);
}

// Steady with jitter around the tolerance, or with steps that a recorder meets: small ones back, discontinuities.
TEST(Recording, IsRepairedToTheDurationsThatItHadWhateverItsTimes) {
  const LogCapture log;
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    Session session;
    session.unit = 4096;
    session.tracks = {VideoTrack(), MetaTrack()};
    ZR_U64 now = seed % 3 == 0 ? 0 : ZR_U64{1} << 36;
    for (std::size_t i = 0, calls = 1 + random() % 100; i < calls; ++i) {
      const bool empty = random() % 8 == 0, key = !empty && random() % 4 == 0;
      const int track = random() % 4 == 0;
      session.calls.push_back({track, empty ? Data() : key ? KeyFrame(200) : DeltaFrame(200), now, key, {}});
      const unsigned step = seed % 2 == 0 ? 16 : random() % 16;
      now += step == 0 ? random() % 3000000 : step == 1 ? ZR_U64{0} - random() % 900000 : 39000 + random() % 2000;
      if (step == 2) now -= 2000000 + random() % 100000000;
      if (step == 3 && random() % 4 == 0) now += ZR_U64{1} << 40;
    }
    Model model(session);
    MemoryFile cut;
    cut.set(model.whole(), model.whole().size());
    ASSERT_EQ(ZR_MP4_RepairFile(cut.path().c_str(), ZR_TRUE), 0u);
    EXPECT_EQ(model.difference(cut.bytes(), model.whole().size(), true), "") << seed;
  }
}

}  // namespace
