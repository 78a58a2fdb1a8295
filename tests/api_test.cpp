#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "tests/support/log_capture.h"
#include "tests/support/recording.h"
#include "zr_mp4_ext.h"

namespace {

// What the library says at level 3, without the words of the layers below the interface.
std::string Errors() {
  std::string text;
  for (const LogCapture::Line& line : LogCapture::lines()) {
    if (line.level == 3) text += line.module == "MP4" ? line.text : line.module + ":" + line.text;
  }
  return text;
}

class Arguments : public ::testing::Test {
 protected:
  LogCapture log;
  TempFile file;
};

TEST_F(Arguments, EachRuleOfTheConfiguration) {
  using C = zrMP4_CONFIG_S;
  const std::pair<void (*)(C&), std::string> kRules[] = {
      {[](C& c) { std::memset(c.aszFileName, 'a', 256); }, "file name illegal \n"},
      {[](C& c) { c.aszFileName[0] = '\0'; }, "file name or file fd null  \n"},
      {[](C& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(0); }, "file config type ilegal 0\n"},
      {[](C& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(3); }, "file config type ilegal 3\n"},
      {[](C& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(0xFFFFFFFF); }, "file config type ilegal -1\n"},
      {[](C& c) { c.stMuxerConfig.u32VBufSize = 0; }, "vbuf size illegal 0  \n"},
      {[](C& c) { c.stMuxerConfig.u32VBufSize = 1; }, ""},
      {[](C& c) { c.stMuxerConfig.u32VBufSize = 5242880; }, ""},
      {[](C& c) { c.stMuxerConfig.u32VBufSize = 5242881; }, "vbuf size illegal 5242881  \n"},
      {[](C& c) { c.stMuxerConfig.u32PreAllocUnit = 104857600; }, ""},
      {[](C& c) { c.stMuxerConfig.u32PreAllocUnit = 104857601; }, "u32PreAllocUnit size illegal 104857601  \n"},
      {[](C& c) { c.stMuxerConfig.u32BackupUnit = 524287; }, "u32BackupUnit size illegal 524287  \n"},
      {[](C& c) { c.stMuxerConfig.u32BackupUnit = 524288; }, ""},
      {[](C& c) { c.stMuxerConfig.u32BackupUnit = 524288000; }, ""},
      {[](C& c) { c.stMuxerConfig.u32BackupUnit = 524288001; }, "u32BackupUnit size illegal 524288001  \n"},
      {[](C& c) { c.stMuxerConfig.enFormatProfile = ZR_MP4_PROFILE_MOV; }, ""},
      {[](C& c) { c.stMuxerConfig.enFormatProfile = zrMP4_FORMAT_PROFILE_E(2); },
       "enFormatProfile enFormatProfile illegal 2  \n"},
      {[](C& c) { c.stMuxerConfig.bCo64Flag = c.stMuxerConfig.bConstantRate = 7; }, ""},
      {[](C& c) { c.enConfigType = ZR_MP4_CONFIG_DEMUXER, c.stDemuxerConfig.u32VBufSize = 0x80000000; },
       "vbuf size illegal -2147483648  \n"},
  };
  for (const auto& [change, message] : kRules) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    change(config);
    log.clear();
    EXPECT_EQ(Muxer(config).status(), message.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM) << message;
    EXPECT_EQ(Errors(), message.empty() ? "" : message + " mp4 cfg illegal\n");
    EXPECT_EQ(log.count("version: MORVALE MP4 MW Version: 2.0.1.0 build date: MORVALE MP4 Build Date:Aug 25 2020 "
                        "Time:20:52:29\n"), 1);
  }
  std::string longest = file.path();
  longest.insert(longest.rfind('/'), std::string(255 - longest.size(), '/'));
  EXPECT_EQ(Muxer(MuxerConfig(longest)).status(), 0u) << log.all();
}

TEST_F(Arguments, EachRuleOfTheTrackDescription) {
  using T = zrMP4_TRACK_INFO_S;
  struct Rule {
    T track;
    std::function<void(T&)> change;
    std::string messages;
  };
  const T video = VideoTrack(), audio = AudioTrack(), meta = MetaTrack();
  std::vector<Rule> rules = {
      {video, [](T& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(0); }, "stream info type illegal 0 \n"},
      {video, [](T& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(4), t.fSpeed = 0; }, "stream info type illegal 4 \n"},
      {video, [](T& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(0xFFFFFFFF); }, "stream info type illegal -1 \n"},
      {video, [](T& t) { t.fSpeed = -1.5f; }, "stream info fspeed illegal -1.500000 \n"},
      {video, [](T& t) { t.fSpeed = std::nanf(""); }, "stream info fspeed illegal nan \n"},
      {meta, [](T& t) { t.fSpeed = 0; }, "stream info fspeed illegal 0.000000 \n"},
      {audio, [](T& t) { t.fSpeed = 0; }, ""},
      {video, [](T& t) { t.fSpeed = 0, std::memset(t.aszHdlrName, 'h', 256); },
       "stream info fspeed illegal 0.000000 \n"},
      {audio, [](T& t) { t.u32TimeScale = 0, std::memset(t.aszHdlrName, 'h', 256); }, "handlr name illegal \n"},
      {audio, [](T& t) { std::memset(t.aszHdlrName, 'h', 255); }, ""},
      {meta, [](T& t) { t.u32TimeScale = 999; }, "track info timescale 999\n"},
      {meta, [](T& t) { t.u32TimeScale = 1000; }, ""},
      {video, [](T& t) { t.stVideoInfo.u32BitRate = 0; }, "video info illegal bitrate 0 framerate25\n"},
      {video, [](T& t) { t.stVideoInfo.u32FrameRate = 0; }, "video info illegal bitrate 1000000 framerate0\n"},
      {video, [](T& t) { t.stVideoInfo.u32Width = t.stVideoInfo.u32Height = 0; }, ""},
      {audio, [](T& t) { t.stAudioInfo.u32SamplePerFrame = 0; },
       "audio info  illegal u32SamplePerFrame 0 u16SampleSize:16\n"},
      {audio, [](T& t) { t.stAudioInfo.u16SampleSize = 0; },
       "audio info  illegal u32SamplePerFrame 1024 u16SampleSize:0\n"},
      {audio, [](T& t) { t.stAudioInfo.u32Channels = 0; }, "audio info illegal channels 0 samplerate48000 \n"},
      {audio, [](T& t) { t.stAudioInfo.u32SampleRate = 0; }, "audio info illegal channels 1 samplerate0 \n"},
      {meta, [](T& t) { t.stMetaInfo.u32FrameRate = 0; }, "meta info illegal framerate\n"},
      {meta, [](T& t) { t.stMetaInfo.enCodecID = ZR_MP4_CODEC_RESERVED_2; }, ""},
  };
  for (int codec = -1; codec <= 14; ++codec) {  // each kind of track takes its own codecs
    const std::string number = std::to_string(codec) + " \n";
    const auto refused = [&](const std::string& kind) {
      return kind + " codecid not support " + number + kind + " info codecid illegal " + number;
    };
    const bool isVideo = codec >= 0 && codec <= 6 && codec != 2, isAudio = codec >= 7 && codec <= 11 && codec != 9;
    rules.push_back({VideoTrack(zrMP4_CODECID_E(codec)), [](T&) {}, isVideo ? "" : refused("video")});
    rules.push_back({AudioTrack(zrMP4_CODECID_E(codec)), [](T&) {}, isAudio ? "" : refused("audio")});
  }
  for (const Rule& rule : rules) {
    Muxer muxer(MuxerConfig(file.path()));
    T track = rule.track;
    rule.change(track);
    log.clear();
    EXPECT_EQ(muxer.add(track) != 0, rule.messages.empty()) << rule.messages;
    EXPECT_EQ(muxer.status(), rule.messages.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_EQ(Errors(), rule.messages.empty() ? "" : rule.messages + "Check_TrackInfo error\n");
  }
}

TEST_F(Arguments, EachRuleOfAUserBox) {
  struct Rule {
    std::string path, type;
    ZR_U32 length;
    bool data;
    std::string message;
  };
  const std::string kType = "user define box type size illegal  \n";
  std::vector<Rule> rules = {
      {"/moov", "abcd", 0, true, "user define box  u32DataLen  illegal\n"},
      {"/moov", "abcd", 0, false, ""},
      {"/moov" + std::string(60, 'x'), "abcd", 1, true, "atom path length max :256 \n"},
      {"/moov", "abc", 512001, true, kType},
      {"/moov", "", 1, true, kType},
      {"/moov", "abcde", 1, true, kType},
      {"/moov", "ftyp", 1, true, "user define box type illegal ftyp \n"},
      {"/moov", "mdat", 1, true, "user define box type illegal mdat \n"},
      {"/moov", "moov", 1, true, "user define box type illegal moov\n"},
      {"/moov", "abcd", 512000, true, ""},
      {"/moov", "abcd", 512001, true, "user define box data len illegal 512001 \n"},
      {"/moov/trak", "abcd", 1, true, ""},
      {"/moov/trak[0]/mdia/minf/vmhd", "abcd", 1, true, ""},
      {"/", "abcd", 1, true, ""},
      // The first broken rule decides.
      {"/moov/stbl" + std::string(60, 'x'), "abc", 1, false, "user define box data null \n"},
      {"/moov/stbl/dref", "abc", 512001, true, "user define box path invalid dref \n"},
  };
  // A word anywhere in the path is enough.
  for (const std::string text :
       {" ftyp\n", "mdat\n", "mvhd \n", "tkhd \n", "mdhd \n", "hdlr \n", "smhd\n", "dinf \n", "dref \n", "stbl\n"}) {
    const std::string word = text.substr(text.find_first_not_of(' '), 4);
    rules.push_back({"/moov/" + word + "x", "abcd", 1, true, "user define box path invalid " + text});
  }
  Muxer muxer(MuxerConfig(file.path()));
  muxer.add(VideoTrack());
  Data payload(512001);
  for (const Rule& rule : rules) {
    zrMP4_ATOM_INFO_S box = {rule.length, "", rule.data ? payload.data() : nullptr};
    std::memcpy(box.aszType, rule.type.data(), rule.type.size());
    log.clear();
    EXPECT_EQ(ZR_MP4_AddAtom(muxer.handle(), rule.path.c_str(), &box),
              rule.message.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM) << rule.path << rule.message;
    EXPECT_EQ(Errors(), rule.message.empty() ? "" : rule.message + "MP4_CheckAtomInfo failed\n");
  }
  const std::string longest = "/" + std::string(63, 'x');  // allowed, but there is no such box
  log.clear();
  EXPECT_EQ(muxer.addBox(longest.c_str(), "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_TRUE(log.has("get pParentAtom[" + longest + "] failed\n") && log.has("addAtom failed\n")) << log.all();
  EXPECT_EQ(muxer.addBox("", "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
}

TEST_F(Arguments, OfQueriesFramesAndRepairs) {
  Muxer muxer(MuxerConfig(file.path()));
  const TempFile other;
  Muxer stranger(MuxerConfig(other.path()));
  const ZR_MP4_TRACK_HANDLE track = muxer.add(VideoTrack());
  const zrMP4_FRAME_DATA_S noFrame = {0, nullptr, 5, ZR_FALSE};
  const auto query = [&](const std::string& path, ZR_U32 length) {
    return [=, &muxer] {
      zrMP4_ATOM_INFO_S box = {length, "", nullptr};
      return ZR_MP4_GetAtom(muxer.handle(), path.c_str(), &box);
    };
  };
  const auto length = [](const char* number) {
    return std::string("input box pattern len: ") + number + " min:5 max 64\natom path illegal\n";
  };
  const struct {
    std::function<ZR_U32()> call;
    ZR_U32 status;
    std::string messages;
  } kRules[] = {
      {query("/moov", 1), ZR_ERR_MP4_NULL_PTR, "atom info buf null \n"},
      {query("/moo", 0), ZR_ERR_MP4_ILLEGAL_PARAM, length("4")},
      {query(std::string(65, '/'), 0), ZR_ERR_MP4_ILLEGAL_PARAM, length("65")},
      {query("/mdat", 0), ZR_ERR_MP4_ILLEGAL_PARAM, "can not read mdat atom out error \natom path illegal\n"},
      {query("/moov", 0), ZR_ERR_MP4_ATOM_BUF, ""},
      {query("/udta", 0), ZR_ERR_MP4_ATOM_NOT_FOUND, "atom not found\n"},
      {[&] { return ZR_MP4_WriteFrame(muxer.handle(), track, &noFrame); }, ZR_ERR_MP4_ILLEGAL_PARAM,
       "ZR_MP4_WriteFrame framedata error\n"},
      {[&] { return stranger.write(track, KeyFrame(), 0, true); }, ZR_ERR_MP4_ILLEGAL_PARAM, "track not exist\n"},
      {[&] { return muxer.write(track, {0, 0, 1}, 0); }, ZR_ERR_MP4_ILLEGAL_PARAM,
       "input video frame len(3) is too short\nframe is invalid\n"},
      {[&] { return ZR_MP4_RepairFile(std::string(256, 'a').c_str(), ZR_TRUE); }, ZR_ERR_MP4_ILLEGAL_PARAM,
       " file name reach max 256\n"},
      {[&] { return ZR_MP4_RepairFile(std::string(255, '/').c_str(), ZR_TRUE); }, ZR_ERR_MP4_OPEN_FILE,
       "MP4File open failed\n"},
  };
  for (const auto& rule : kRules) {
    log.clear();
    EXPECT_EQ(rule.call(), rule.status) << rule.messages;
    EXPECT_EQ(Errors(), rule.messages);
  }
}

TEST_F(Arguments, NullPointersAreAnsweredWithoutAMessage) {
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

}  // namespace
