#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "tests/support/log_capture.h"
#include "tests/support/recording.h"

namespace {

// What the library says at level 3, without the words of the layers below the interface.
std::string Errors() {
  std::string text;
  for (const LogCapture::Line& line : LogCapture::lines()) {
    if (line.level == 3) text += line.module == "MP4" ? line.text : line.module + ":" + line.text;
  }
  return text;
}

struct ConfigCase {
  const char* name;
  std::function<void(zrMP4_CONFIG_S&)> change;
  std::string messages;  // empty: accepted
};

void UseDemuxer(zrMP4_CONFIG_S& config) {
  config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
  config.stDemuxerConfig.u32VBufSize = 0;
}

const ConfigCase kConfigs[] = {
    {"a name of 256 characters", [](auto& c) { std::memset(c.aszFileName, 'a', 256); }, "file name illegal \n"},
    {"neither name nor descriptor", [](auto& c) { c.aszFileName[0] = '\0'; }, "file name or file fd null  \n"},
    {"type 0", [](auto& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(0); }, "file config type ilegal 0\n"},
    {"type 3", [](auto& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(3); }, "file config type ilegal 3\n"},
    {"type -1", [](auto& c) { c.enConfigType = zrMP4_CONFIG_TYPE_E(0xFFFFFFFF); }, "file config type ilegal -1\n"},
    {"no buffer", [](auto& c) { c.stMuxerConfig.u32VBufSize = 0; }, "vbuf size illegal 0  \n"},
    {"least buffer", [](auto& c) { c.stMuxerConfig.u32VBufSize = 1; }, ""},
    {"largest buffer", [](auto& c) { c.stMuxerConfig.u32VBufSize = 5242880; }, ""},
    {"too large a buffer", [](auto& c) { c.stMuxerConfig.u32VBufSize = 5242881; }, "vbuf size illegal 5242881  \n"},
    {"huge buffer", [](auto& c) { c.stMuxerConfig.u32VBufSize = 0xFFFFFFFF; }, "vbuf size illegal 4294967295  \n"},
    {"largest unit to reserve", [](auto& c) { c.stMuxerConfig.u32PreAllocUnit = 104857600; }, ""},
    {"too much to reserve", [](auto& c) { c.stMuxerConfig.u32PreAllocUnit = 104857601; },
     "u32PreAllocUnit size illegal 104857601  \n"},
    {"backup unit 1", [](auto& c) { c.stMuxerConfig.u32BackupUnit = 1; }, "u32BackupUnit size illegal 1  \n"},
    {"backup unit just too small", [](auto& c) { c.stMuxerConfig.u32BackupUnit = 524287; },
     "u32BackupUnit size illegal 524287  \n"},
    {"least backup unit", [](auto& c) { c.stMuxerConfig.u32BackupUnit = 524288; }, ""},
    {"largest backup unit", [](auto& c) { c.stMuxerConfig.u32BackupUnit = 524288000; }, ""},
    {"backup unit just too large", [](auto& c) { c.stMuxerConfig.u32BackupUnit = 524288001; },
     "u32BackupUnit size illegal 524288001  \n"},
    {"profile 1", [](auto& c) { c.stMuxerConfig.enFormatProfile = ZR_MP4_PROFILE_MOV; }, ""},
    {"profile 2", [](auto& c) { c.stMuxerConfig.enFormatProfile = zrMP4_FORMAT_PROFILE_E(2); },
     "enFormatProfile enFormatProfile illegal 2  \n"},
    {"profile -1", [](auto& c) { c.stMuxerConfig.enFormatProfile = zrMP4_FORMAT_PROFILE_E(0xFFFFFFFF); },
     "enFormatProfile enFormatProfile illegal -1  \n"},
    {"other flags", [](auto& c) { c.stMuxerConfig.bCo64Flag = c.stMuxerConfig.bConstantRate = 7; }, ""},
    {"reader with too large a buffer",
     [](auto& c) {
       UseDemuxer(c);
       c.stDemuxerConfig.u32VBufSize = 0x80000000;
     },
     "vbuf size illegal -2147483648  \n"},
};

TEST(Arguments, EachRuleOfTheConfiguration) {
  for (const ConfigCase& rule : kConfigs) {
    SCOPED_TRACE(rule.name);
    const TempFile file;
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    rule.change(config);
    LogCapture log;
    Muxer muxer(config);
    EXPECT_EQ(muxer.status(), rule.messages.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_EQ(Errors(), rule.messages.empty() ? "" : rule.messages + " mp4 cfg illegal\n");
    EXPECT_EQ(log.count("version: MORVALE MP4 MW Version: 2.0.1.0 build date: MORVALE MP4 Build Date:Aug 25 2020 "
                        "Time:20:52:29\n"),
              1);
  }
}

TEST(Arguments, AReaderNeedsNoBufferAndNamesMayBeAsLongAsTheirRoom) {
  const TempFile file;
  {
    Muxer muxer(MuxerConfig(file.path()));
    muxer.write(muxer.add(AudioTrack()), Data(10), 0);
    muxer.finish();
  }
  LogCapture log;
  EXPECT_EQ(Muxer(DemuxerConfig(file.path())).status(), 0u);
  // The same file by a path of exactly 255 characters.
  std::string longest = file.path();
  longest.insert(longest.rfind('/'), std::string(255 - longest.size(), '/'));
  EXPECT_EQ(Muxer(DemuxerConfig(longest)).status(), 0u) << log.all();
}

struct TrackCase {
  const char* name;
  zrMP4_TRACK_INFO_S (*track)();
  std::function<void(zrMP4_TRACK_INFO_S&)> change;
  std::string messages;
};

zrMP4_TRACK_INFO_S Video() { return VideoTrack(); }
zrMP4_TRACK_INFO_S Audio() { return AudioTrack(); }

const TrackCase kTracks[] = {
    {"type 0", Video, [](auto& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(0); }, "stream info type illegal 0 \n"},
    {"type 4", Video, [](auto& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(4); }, "stream info type illegal 4 \n"},
    {"type -1", Video, [](auto& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(0xFFFFFFFF); },
     "stream info type illegal -1 \n"},
    {"video speed 0", Video, [](auto& t) { t.fSpeed = 0; }, "stream info fspeed illegal 0.000000 \n"},
    {"video speed below 0", Video, [](auto& t) { t.fSpeed = -1.5f; }, "stream info fspeed illegal -1.500000 \n"},
    {"video speed no number", Video, [](auto& t) { t.fSpeed = std::nanf(""); }, "stream info fspeed illegal nan \n"},
    {"metadata speed 0", MetaTrack, [](auto& t) { t.fSpeed = 0; }, "stream info fspeed illegal 0.000000 \n"},
    {"audio speed 0", Audio, [](auto& t) { t.fSpeed = 0; }, ""},
    {"handler name of 256", Audio, [](auto& t) { std::memset(t.aszHdlrName, 'h', 256); }, "handlr name illegal \n"},
    {"handler name of 255", Audio, [](auto& t) { std::memset(t.aszHdlrName, 'h', 255); }, ""},
    {"time scale 999", MetaTrack, [](auto& t) { t.u32TimeScale = 999; }, "track info timescale 999\n"},
    {"time scale 1000", MetaTrack, [](auto& t) { t.u32TimeScale = 1000; }, ""},
    {"no bit rate", Video, [](auto& t) { t.stVideoInfo.u32BitRate = 0; }, "video info illegal bitrate 0 framerate25\n"},
    {"no frame rate", Video, [](auto& t) { t.stVideoInfo.u32FrameRate = 0; },
     "video info illegal bitrate 1000000 framerate0\n"},
    {"no picture size", Video, [](auto& t) { t.stVideoInfo.u32Width = t.stVideoInfo.u32Height = 0; }, ""},
    {"no samples per frame", Audio, [](auto& t) { t.stAudioInfo.u32SamplePerFrame = 0; },
     "audio info  illegal u32SamplePerFrame 0 u16SampleSize:16\n"},
    {"no sample size", Audio, [](auto& t) { t.stAudioInfo.u16SampleSize = 0; },
     "audio info  illegal u32SamplePerFrame 1024 u16SampleSize:0\n"},
    {"no channels", Audio, [](auto& t) { t.stAudioInfo.u32Channels = 0; },
     "audio info illegal channels 0 samplerate48000 \n"},
    {"no sample rate", Audio, [](auto& t) { t.stAudioInfo.u32SampleRate = 0; },
     "audio info illegal channels 1 samplerate0 \n"},
    {"no metadata rate", MetaTrack, [](auto& t) { t.stMetaInfo.u32FrameRate = 0; }, "meta info illegal framerate\n"},
    {"metadata codec of any kind", MetaTrack, [](auto& t) { t.stMetaInfo.enCodecID = ZR_MP4_CODEC_RESERVED_2; }, ""},
    {"type before speed", Video, [](auto& t) { t.enTrackType = zrMP4_TRACK_TYPE_E(9), t.fSpeed = 0; },
     "stream info type illegal 9 \n"},
    {"speed before name", Video, [](auto& t) { t.fSpeed = 0, std::memset(t.aszHdlrName, 'h', 256); },
     "stream info fspeed illegal 0.000000 \n"},
    {"name before time scale", Video, [](auto& t) { t.u32TimeScale = 0, std::memset(t.aszHdlrName, 'h', 256); },
     "handlr name illegal \n"},
    {"codec before rates", Video,
     [](auto& t) {
       t.stVideoInfo = {0, 0, 0, 0, ZR_MP4_CODEC_AAC};
     },
     "video codecid not support 7 \nvideo info codecid illegal 7 \n"},
};

void ExpectTrack(const zrMP4_TRACK_INFO_S& track, const std::string& messages) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  LogCapture log;
  const ZR_MP4_TRACK_HANDLE handle = muxer.add(track);
  EXPECT_EQ(muxer.status(), messages.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(handle != 0, messages.empty());
  EXPECT_EQ(Errors(), messages.empty() ? "" : messages + "Check_TrackInfo error\n");
}

TEST(Arguments, EachRuleOfTheTrackDescription) {
  for (const TrackCase& rule : kTracks) {
    SCOPED_TRACE(rule.name);
    zrMP4_TRACK_INFO_S track = rule.track();
    rule.change(track);
    ExpectTrack(track, rule.messages);
  }
}

TEST(Arguments, EachKindOfTrackTakesItsOwnCodecs) {
  for (int codec = -1; codec <= 14; ++codec) {
    SCOPED_TRACE(codec);
    const std::string number = std::to_string(codec) + " \n";
    const bool video = codec >= 0 && codec <= 6 && codec != 2;
    const bool audio = codec >= 7 && codec <= 11 && codec != 9;
    ExpectTrack(VideoTrack(zrMP4_CODECID_E(codec)),
                video ? "" : "video codecid not support " + number + "video info codecid illegal " + number);
    ExpectTrack(AudioTrack(zrMP4_CODECID_E(codec)),
                audio ? "" : "audio codecid not support " + number + "audio info codecid illegal " + number);
  }
}

struct BoxRule {
  std::string path;
  std::string type;
  ZR_U32 length;
  bool data;
  std::string message;
};

TEST(Arguments, EachRuleOfAUserBox) {
  std::vector<BoxRule> rules = {
      {"/moov", "abcd", 0, true, "user define box  u32DataLen  illegal\n"},
      {"/moov", "abcd", 1, false, "user define box data null \n"},
      {"/moov", "abcd", 0, false, ""},
      {"/moov" + std::string(60, 'x'), "abcd", 1, true, "atom path length max :256 \n"},
      {"/moov", "abc", 1, true, "user define box type size illegal  \n"},
      {"/moov", "", 1, true, "user define box type size illegal  \n"},
      {"/moov", "abcde", 1, true, "user define box type size illegal  \n"},
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
      {"/moov", "abc", 512001, true, "user define box type size illegal  \n"},
  };
  // A word anywhere in the path is enough.
  for (const char* message :
       {" ftyp\n", "mdat\n", "mvhd \n", "tkhd \n", "mdhd \n", "hdlr \n", "smhd\n", "dinf \n", "dref \n", "stbl\n"}) {
    const std::string text = message;
    const std::string word = text.substr(text.find_first_not_of(' '), 4);
    rules.push_back({"/moov/" + word + "x", "abcd", 1, true, "user define box path invalid " + text});
  }

  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  muxer.add(VideoTrack());
  Data payload(512001);
  for (const BoxRule& rule : rules) {
    SCOPED_TRACE(rule.path + " " + rule.type + " " + std::to_string(rule.length));
    zrMP4_ATOM_INFO_S box = {};
    box.u32DataLen = rule.length;
    std::memcpy(box.aszType, rule.type.data(), rule.type.size());
    box.pu8DataBuf = rule.data ? payload.data() : nullptr;
    LogCapture log;
    EXPECT_EQ(ZR_MP4_AddAtom(muxer.handle(), rule.path.c_str(), &box),
              rule.message.empty() ? 0u : ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_EQ(Errors(), rule.message.empty() ? "" : rule.message + "MP4_CheckAtomInfo failed\n");
  }
}

TEST(Arguments, APathOf64CharactersPassesAndAnEmptyOneDoesNot) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  const std::string longest = "/" + std::string(63, 'x');
  {
    LogCapture log;
    EXPECT_EQ(muxer.addBox(longest.c_str(), "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_TRUE(log.has("get pParentAtom[" + longest + "] failed\n")) << log.all();
    EXPECT_TRUE(log.has("addAtom failed\n"));
    EXPECT_FALSE(log.has("MP4_CheckAtomInfo failed\n"));
  }
  EXPECT_EQ(muxer.addBox("", "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
}

TEST(Arguments, EachRuleOfABoxQuery) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  struct Query {
    std::string path;
    ZR_U32 length;
    ZR_U32 status;
    std::string messages;
  } const queries[] = {
      {"/moov", 1, ZR_ERR_MP4_NULL_PTR, "atom info buf null \n"},
      {"/moo", 0, ZR_ERR_MP4_ILLEGAL_PARAM, "input box pattern len: 4 min:5 max 64\natom path illegal\n"},
      {"", 0, ZR_ERR_MP4_ILLEGAL_PARAM, "input box pattern len: 0 min:5 max 64\natom path illegal\n"},
      {std::string(65, '/'), 0, ZR_ERR_MP4_ILLEGAL_PARAM,
       "input box pattern len: 65 min:5 max 64\natom path illegal\n"},
      {"/mdat", 0, ZR_ERR_MP4_ILLEGAL_PARAM, "can not read mdat atom out error \natom path illegal\n"},
      {"/moov", 0, ZR_ERR_MP4_ATOM_BUF, ""},
      {"/udta", 0, ZR_ERR_MP4_ATOM_NOT_FOUND, "atom not found\n"},
  };
  for (const Query& query : queries) {
    SCOPED_TRACE(query.path);
    zrMP4_ATOM_INFO_S box = {};
    box.u32DataLen = query.length;
    LogCapture log;
    EXPECT_EQ(ZR_MP4_GetAtom(muxer.handle(), query.path.c_str(), &box), query.status);
    EXPECT_EQ(Errors(), query.messages);
  }
}

TEST(Arguments, FramesAreCheckedBeforeTheEngineSeesThem) {
  const TempFile file;
  Muxer muxer(MuxerConfig(file.path()));
  const ZR_MP4_TRACK_HANDLE track = muxer.add(VideoTrack());
  const zrMP4_FRAME_DATA_S frame = {0, nullptr, 5, ZR_FALSE};
  LogCapture log;
  EXPECT_EQ(ZR_MP4_WriteFrame(muxer.handle(), track, &frame), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(Errors(), "ZR_MP4_WriteFrame framedata error\n");
  const TempFile other;
  Muxer stranger(MuxerConfig(other.path()));
  log.clear();
  EXPECT_EQ(stranger.write(track, KeyFrame(), 0, true), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(Errors(), "track not exist\n");
  log.clear();
  EXPECT_EQ(muxer.write(track, {0, 0, 1}, 0), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(Errors(), "input video frame len(3) is too short\nframe is invalid\n");
}

TEST(Arguments, TheNameOfAFileToRepairHasAtMost255Characters) {
  LogCapture log;
  EXPECT_EQ(ZR_MP4_RepairFile(std::string(256, 'a').c_str(), ZR_TRUE), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(Errors(), " file name reach max 256\n");
  log.clear();
  EXPECT_EQ(ZR_MP4_RepairFile(("/tmp/" + std::string(250, '/')).c_str(), ZR_TRUE), ZR_ERR_MP4_OPEN_FILE);
  EXPECT_TRUE(log.has("MP4File open failed\n"));
}

TEST(Arguments, NullPointersAreAnsweredWithoutAMessage) {
  zrMP4_CONFIG_S config = {};
  zrMP4_TRACK_INFO_S track = {};
  zrMP4_FRAME_DATA_S frame = {};
  zrMP4_ATOM_INFO_S box = {};
  zrMP4_FILE_INFO_S info = {};
  ZR_MP4_HANDLE handle = 0;
  ZR_MP4_TRACK_HANDLE trackHandle = 0;
  // A handle that is not null, and must not be looked at.
  const ZR_MP4_HANDLE h = 8;
  LogCapture log;
  const ZR_U32 answers[] = {
      ZR_MP4_Create(nullptr, &config),
      ZR_MP4_Create(&handle, nullptr),
      ZR_MP4_Destroy(0, nullptr),
      ZR_MP4_DestroyAllTracks(0, nullptr),
      ZR_MP4_CreateTrack(0, &trackHandle, &track),
      ZR_MP4_CreateTrack(h, nullptr, &track),
      ZR_MP4_CreateTrack(h, &trackHandle, nullptr),
      ZR_MP4_WriteFrame(0, h, &frame),
      ZR_MP4_WriteFrame(h, 0, &frame),
      ZR_MP4_WriteFrame(h, h, nullptr),
      ZR_MP4_AddAtom(0, "/", &box),
      ZR_MP4_AddAtom(h, nullptr, &box),
      ZR_MP4_AddAtom(h, "/", nullptr),
      ZR_MP4_GetTrackByIndex(0, 0, &track, &trackHandle),
      ZR_MP4_GetTrackByIndex(h, 0, nullptr, &trackHandle),
      ZR_MP4_GetTrackByIndex(h, 0, &track, nullptr),
      ZR_MP4_GetAtom(0, "/moov", &box),
      ZR_MP4_GetAtom(h, nullptr, &box),
      ZR_MP4_GetAtom(h, "/moov", nullptr),
      ZR_MP4_GetFileInfo(0, &info),
      ZR_MP4_GetFileInfo(h, nullptr),
      ZR_MP4_RepairFile(nullptr, ZR_TRUE),
  };
  for (std::size_t i = 0; i < std::size(answers); ++i) EXPECT_EQ(answers[i], ZR_ERR_MP4_NULL_PTR) << "call " << i;
  EXPECT_EQ(log.all(), "");
}

}  // namespace
