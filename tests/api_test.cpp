#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <random>
#include <sstream>

#include "tests/support/log_capture.h"
#include "tests/support/session.h"
#include "zr_mp4_ext.h"

// What texts cannot say: addresses, many handles, the statistics, and times in any number.

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

TEST(Arguments, LengthsWithoutBytesAndTracksOfOtherRecordingsAreRefused) {
  const TempFile file, other;
  Muxer muxer(MuxerConfig(file.path())), stranger(MuxerConfig(other.path()));
  const ZR_MP4_TRACK_HANDLE track = muxer.add(MetaTrack());
  const LogCapture log;
  const zrMP4_FRAME_DATA_S frame = {0, nullptr, 5, ZR_FALSE};
  zrMP4_ATOM_INFO_S box = {1, "", nullptr};
  EXPECT_EQ(ZR_MP4_WriteFrame(muxer.handle(), track, &frame), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(ZR_MP4_GetAtom(muxer.handle(), "/moov", &box), ZR_ERR_MP4_NULL_PTR);
  EXPECT_EQ(stranger.write(track, {1}, 0), ZR_ERR_MP4_ILLEGAL_PARAM);
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

TEST(Registry, Holds32HandlesAndNoMore) {
  const LogCapture log;
  const TempFile file, other;
  for (int i = 0; i < 64; ++i) {  // creations that fail take no place
    ASSERT_EQ(Muxer(DemuxerConfig("/nowhere/at/all.mp4")).status(), ZR_ERR_MP4_OPEN_FILE);
  }
  std::deque<Muxer> opened;
  while (opened.size() < 32) opened.emplace_back(MuxerConfig(file.path()));
  EXPECT_EQ(opened.back().status(), 0u);
  EXPECT_EQ(log.count("version: MORVALE MP4 MW Version: 2.0.1.0 build date: MORVALE MP4 Build Date:Aug 25 2020 "
                      "Time:20:52:29\n"), 64 + 32);
  const Muxer oneMore(MuxerConfig(other.path()));
  EXPECT_TRUE(oneMore.status() == ZR_ERR_MP4_OPEN && oneMore.handle() == 0);
  EXPECT_EQ(log.count(" MP4 reach max count 32 \n"), 1);
  EXPECT_EQ(RecordedFile(other.path()).size(), 0u) << "it is not touched";
  opened.pop_front();
  EXPECT_EQ(Muxer(MuxerConfig(other.path())).status(), 0u);
}

// Every figure of a record; of its tracks the number, kind, codec, frames and time of the first.
std::string Told(const zrMP4_PROC_MUXER_S& muxer) {
  std::ostringstream text;
  text << muxer.name << ' ' << muxer.preAllocUnit << ", " << muxer.trackSeq << " tracks, " << muxer.videoWidth << 'x'
       << muxer.videoHeight << '*' << muxer.videoSpeed << ", " << muxer.audioSampleRate << '/'
       << muxer.audioSamplesPerFrame << ", last " << muxer.lastFrameSize << ' ' << muxer.lastFrameValue << ", most "
       << muxer.maxWriteTime << ' ' << muxer.maxAllocTime;
  for (const auto* track = muxer.tracks.next; track != &muxer.tracks; track = track->next) {
    text << "; " << track->seq << ' ' << track->trackType << ' ' << track->codecId << ' ' << track->frameCount << ' '
         << track->firstPts;
  }
  return text.str();
}

TEST(Statistics, FollowTheCallsForKnownRecords) {
  zrMP4_PROC_MUXER_S *muxer = nullptr, *reader = nullptr, unknown = {};
  zrMP4_CONFIG_S config = MuxerConfig("/card/one.mp4"), reading = DemuxerConfig("/card/two.mp4");
  config.stMuxerConfig.u32PreAllocUnit = reading.stMuxerConfig.u32PreAllocUnit = 4096;
  ASSERT_EQ(MP4_PROC_Init() + MP4_PROC_Add(&muxer, &config) + MP4_PROC_Add(&reader, &reading), 0u);
  EXPECT_EQ(reader->next, muxer) << "the newest record comes first";
  EXPECT_EQ(Told(*muxer), "/card/one.mp4 4096, 0 tracks, 0x0*0, 0/0, last 0 0, most 0 0");
  EXPECT_EQ(Told(*reader), "/card/two.mp4 0, 0 tracks, 0x0*0, 0/0, last 0 0, most 0 0");
  EXPECT_EQ(MP4_PROC_Remove(reader) + MP4_PROC_Remove(&unknown), 0u);

  zrMP4_TRACK_INFO_S fast = VideoTrack(ZR_MP4_CODEC_H265);
  fast.fSpeed = 2.0f;
  zrMP4_PROC_TRACK_S *track = nullptr, stranger = {};
  for (const auto& info : {VideoTrack(), AudioTrack(ZR_MP4_CODEC_AAC), MetaTrack(), fast}) {
    EXPECT_EQ(MP4_PROC_CreateTrack(muxer, &track, &info), 0u);
  }
  for (const ZR_U64 pts : {0u, 500u, 900u}) EXPECT_EQ(MP4_PROC_WriteFrame(muxer, track, pts, 40, 3), 0u);
  EXPECT_EQ(MP4_PROC_WriteFrame(muxer, nullptr, 1, 41, 4) + MP4_PROC_WriteFrame(muxer, &stranger, 1, 42, 5), 0u);
  for (const ZR_U64 time : {5u, 9u, 3u}) {
    EXPECT_EQ(MP4_PROC_UpdateWriteTime("/card/one.mp4", time), 0u);
    EXPECT_EQ(MP4_PROC_UpdateAllocTime("/card/one.mp4", time * 2), 0u);
  }
  for (const char* name : {"/card/one.mp", "/card/one.mp4x"}) EXPECT_EQ(MP4_PROC_UpdateWriteTime(name, 100), 0u);
  EXPECT_EQ(MP4_PROC_UpdateAllocTime(nullptr, 100), 0u);
  EXPECT_EQ(Told(*muxer), "/card/one.mp4 4096, 4 tracks, 640x360*2, 48000/1024, last 42 5, most 9 18; "
                          "1 1 0 0 0; 2 2 7 0 0; 3 3 12 0 0; 4 1 1 3 500");
  EXPECT_EQ(stranger.frameCount, 0u);

  EXPECT_EQ(MP4_PROC_DestroyTrack(muxer) + MP4_PROC_CreateTrack(muxer, &track, &fast), 0u);
  EXPECT_EQ(track->seq, 5) << "numbers are not used again";
  EXPECT_EQ(MP4_PROC_DestroyTrack(muxer) + MP4_PROC_Remove(muxer) + MP4_PROC_DelInit(), 0u);
}

// Steady with jitter around the tolerance, or with steps that a recorder meets: small ones back, discontinuities.
TEST(Recording, IsRepairedToTheDurationsThatItHadWhateverItsTimes) {
  constexpr std::pair<ZR_S64, unsigned> kSteps[] = {  // microseconds and how many more at most
      {39000, 2000}, {0, 3000000}, {-900000, 900000}, {-102000000, 100000000}, {ZR_S64{1} << 40, 1}};
  const LogCapture log;
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    Session session;
    session.unit = 4096;
    session.tracks = {VideoTrack(), MetaTrack()};
    ZR_U64 now = seed % 3 == 0 ? 0 : ZR_U64{1} << 36;
    for (std::size_t calls = 1 + random() % 100; calls > 0; --calls) {
      const bool empty = random() % 8 == 0, key = !empty && random() % 4 == 0;
      const Data frame = empty ? Data() : key ? KeyFrame(200) : DeltaFrame(200);
      session.calls.push_back({random() % 4 == 0, frame, now, key, {}});
      const auto& [least, more] = kSteps[seed % 2 == 0 || random() % 4 != 0 ? 0 : random() % std::size(kSteps)];
      now += static_cast<ZR_U64>(least) + random() % more;
    }
    Model model(session);
    MemoryFile cut;
    cut.set(model.whole(), model.whole().size());
    ASSERT_EQ(ZR_MP4_RepairFile(cut.path().c_str(), ZR_TRUE), 0u);
    EXPECT_EQ(model.difference(cut.bytes(), model.whole().size(), true), "") << seed;
  }
}

}  // namespace
