#include <gtest/gtest.h>

#include <cstring>

#include "base/make_or_null.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/track_boxes.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

namespace zrmp4 {
namespace {

const Bytes kMatrix = Bytes().be32(0x10000).fill(12).be32(0x10000).fill(12).be32(0x40000000);

zrMP4_TRACK_INFO_S VideoInfo(const char* name) {
  zrMP4_TRACK_INFO_S info = {};
  info.enTrackType = ZR_MP4_TRACK_VIDEO;
  info.u32TimeScale = 90000;
  info.fSpeed = 1.0f;
  std::strcpy(info.aszHdlrName, name);
  info.stVideoInfo = {1920, 1080, 8000000, 30, ZR_MP4_CODEC_H265};
  return info;
}

std::unique_ptr<VemoAtom> MakeVemo() {
  auto vemo = MakeOrNull<VemoAtom>(0x100000u, ZR_TRUE, ZR_FALSE, 0x200000u);
  const zrMP4_TRACK_INFO_S video = VideoInfo("VideoHandler");
  zrMP4_TRACK_INFO_S audio = VideoInfo("");
  audio.enTrackType = ZR_MP4_TRACK_AUDIO;
  audio.stAudioInfo = {2, 48000, 1024, 16, ZR_MP4_CODEC_AAC};
  zrMP4_TRACK_INFO_S meta = VideoInfo("m");
  meta.enTrackType = ZR_MP4_TRACK_META;
  meta.stMetaInfo = {640, 480, 25, ZR_MP4_CODEC_META, 99};
  for (const auto& info : {video, audio, meta}) EXPECT_EQ(vemo->addTrackInfo(&info), 0);
  return vemo;
}

const ZR_U8 kXyz[] = {'x', 'y', 'z'};

const Bytes kSpeedOne = Bytes().be32(0x0000803F);  // Deliberate: the float's bytes, least significant first
const Bytes kVemo =
    Bytes().be32(26 + 52 + 40 + 37).type("vemo").be32(0x100000).u8(1).u8(0).be32(0x200000).be32(2).be32(3)
        .be32(52).be32(1).be32(1).be32(90000).be32(1).be32(1920).be32(1080).be32(8000000).be32(30)
        .add(kSpeedOne).text("VideoHandler")
        .be32(40).be32(2).be32(2).be32(90000).be32(7).be32(2).be32(48000).be32(1024).be32(16).add(kSpeedOne)
        .be32(37).be32(3).be32(3).be32(90000).be32(12).be32(640).be32(480).be32(25).add(kSpeedOne).text("m");

template <typename Box, typename... Arguments>
auto Makes(Arguments... arguments) {
  return [=] { return MakeOrNull<Box>(arguments...); };
}

const BoxCase kBoxes[] = {
    {"ftyp mp4", Makes<FtypAtom>(FtypAtom::FORMAT_MP4),
     Bytes().be32(24).type("ftyp").text("mp42").be32(0).text("mp42").text("isom")},
    {"ftyp mov", Makes<FtypAtom>(FtypAtom::FORMAT_MOV),
     Bytes().be32(20).type("ftyp").text("qt  ").be32(0x200).text("qt  "),
     [](const AtomHeader& header) { return MakeOrNull<FtypAtom>(header, FtypAtom::FORMAT_MOV); }},
    {"mvhd", Makes<MvhdAtom>(120000u, 0xFEDCBA98ull, 3u),
     Bytes().be32(108).type("mvhd").be32(0).any(8).be32(120000).be32(0xFEDCBA98).be32(0x10000).be16(0x100).fill(10)
         .add(kMatrix).fill(24).be32(3)},
    {"free", Makes<FreeAtom>(), Bytes().be32(8).type("free")},
    {"skip", Makes<SkipAtom>(), Bytes().be32(8).type("skip")},
    {"tkhd", Makes<TkhdAtom>(7u, 0xFFFFFFFFull, 1920u, 1080u),
     Bytes().be32(92).type("tkhd").be32(3).any(8).be32(7).be32(0).be32(0xFFFFFFFF).fill(12).be16(0x100).be16(0)
         .add(kMatrix).be32(0x07800000).be32(0x04380000)},
    {"elst, whose rate is always 1",
     [] { auto box = MakeOrNull<ElstAtom>(); box->update(5000, 2.0f); return box; },
     Bytes().be32(28).type("elst").be32(0).be32(1).be32(5000).be32(0).be32(0x10000)},
    {"mdhd of 32 bits", Makes<MdhdAtom>(90000u, ZR_FALSE),
     Bytes().be32(32).type("mdhd").be32(0).any(8).be32(90000).be32(0).be32(0)},
    {"mdhd of 64 bits",
     [] { auto box = MakeOrNull<MdhdAtom>(90000u, ZR_TRUE); box->setDuration(0x123456789A); return box; },
     Bytes().be32(44).type("mdhd").be32(0x01000000).any(16).be32(90000).be64(0x123456789A).be32(0)},
    {"hdlr of sound",
     [] { auto box = MakeOrNull<HdlrAtom>(); box->setHdlrAtom("soun", "SoundHandler"); return box; },
     Bytes().be32(45).type("hdlr").be32(0).text("mhlr").text("soun").fill(12).u8(12).text("SoundHandler")},
    {"hdlr without a name",
     [] { auto box = MakeOrNull<HdlrAtom>(); box->setHdlrAtom("meta", ""); return box; },
     Bytes().be32(33).type("hdlr").be32(0).text("dhlr").text("meta").fill(12).u8(0)},
    {"vmhd", Makes<VmhdAtom>(), Bytes().be32(20).type("vmhd").be32(1).fill(8)},
    {"smhd", Makes<SmhdAtom>(), Bytes().be32(16).type("smhd").be32(0).be16(0).be16(0)},
    {"gmin", Makes<GminAtom>(), Bytes().be32(24).type("gmin").be32(0).fill(12)},
    {"dref", [] { auto box = MakeOrNull<DrefAtom>(); box->addEntry("url ", 0, 1); return box; },
     Bytes().be32(28).type("dref").be32(0).be32(1).be32(12).type("url ").be32(1)},
    {"user box", [] { auto box = MakeOrNull<UserDefAtom>("abcd", 3u); box->InputData(kXyz, 3); return box; },
     Bytes().be32(11).type("abcd").text("xyz")},
    {"vemo", MakeVemo, kVemo},
};

TEST(BoxBytes, EveryBoxIsWrittenAndReadAndFailsWithItsStream) {
  for (const BoxCase& box : kBoxes) CheckBox(box);
}

// Reads a box of a class from bytes; null when it cannot be read.
template <typename Box>
std::unique_ptr<Box> ReadAs(ShortStream& stream) {
  AtomHeader header;
  EXPECT_EQ(header.Read(&stream), 0);
  auto box = MakeOrNull<Box>(header);
  return box->ReadContent(&stream) == 0 ? std::move(box) : nullptr;
}

TEST(FtypAtom, ReadsOneBrandOfOthersAndPassesOverTheRest) {
  const LogCapture log;
  ShortStream in(Bytes().be32(28).type("ftyp").text("isom").be32(1).text("avc1").text("mp41").text("iso2"));
  EXPECT_NE(ReadAs<FtypAtom>(in), nullptr);
  EXPECT_EQ(in.getCurPos(), 28u);
}

TEST(MvhdAtom, TellsMillisecondsThatFit) {
  const struct {
    ZR_U64 duration;
    ZR_U32 timeScale;
    ZR_U32 milliseconds;
  } kRows[] = {{90000, 90000, 1000}, {1, 0, 0}, {1ull << 42, 1, 0}, {(1ull << 61) + 5000, 1000, 0},
               {0xFFFFFFFF, 1000, 0xFFFFFFFF}, {0x100000000, 1000, 0}, {1999, 1000000, 1}};
  for (const auto& row : kRows) {
    EXPECT_EQ(MvhdAtom(row.timeScale, row.duration, 1).getDuration(), row.milliseconds) << row.duration;
  }
}

TEST(MvhdAndTkhd, DeliberatelyRefuseALongDurationWithoutAMessage) {
  const LogCapture log;
  ShortStream out;
  MvhdAtom mvhd(1000, 0, 1);
  mvhd.update(0x100000000, 1000, 2);
  EXPECT_EQ(mvhd.Write(&out), -1);
  EXPECT_EQ(TkhdAtom(1, 0x100000000, 0, 0).Write(&out), -1);
  EXPECT_EQ(log.all(), "");
}

TEST(TkhdAtom, DeliberatelyHasNoTimesInVersionOne) {
  const LogCapture log;
  const Bytes bytes = Bytes().be32(80).type("tkhd").be32(0x01000007).be32(9).fill(16).be16(0x100).be16(0).add(kMatrix)
                          .be32(0x02800000).be32(0x01E08000);
  ShortStream in(bytes);
  const auto tkhd = ReadAs<TkhdAtom>(in);
  ASSERT_NE(tkhd, nullptr);
  EXPECT_EQ(in.getCurPos(), 80u);
  EXPECT_EQ(tkhd->trackId(), 9u);
  EXPECT_EQ(tkhd->width(), 640u);
  EXPECT_EQ(tkhd->height(), 480u);  // the fraction is dropped
  ShortStream out;
  tkhd->setDuration(0x100000000);
  EXPECT_EQ(tkhd->Write(&out), 0);
  EXPECT_EQ(out.size(), 80u);
}

TEST(HdlrAtom, TakesTheNameInBothForms) {
  const Bytes kHead = Bytes().type("hdlr").be32(0).text("mhlr");
  const std::string kNul(1, '\0');
  const struct {
    Bytes field;
    const char* subType;
    ZR_S32 size;  // -1: what it is
    std::string name;
    HdlrAtom::Kind kind;
    const char* message;
    bool read;
  } kRows[] = {
      {Bytes().u8(12).text("VideoHandler"), "VIDE", -1, "VideoHandler", HdlrAtom::KIND_VIDEO, "", true},
      {Bytes().text("VideoHandler").u8(0), "soun", -1, "VideoHandler" + kNul, HdlrAtom::KIND_SOUND, "", true},
      {Bytes(), "meta", -1, "", HdlrAtom::KIND_META, "", true},
      {Bytes().u8(0), "text", -1, "", HdlrAtom::KIND_OTHER, "unkown mComponentSubtype\n", true},
      {Bytes().fill(255, 'n'), "vide", -1, std::string(255, 'n'), HdlrAtom::KIND_VIDEO, "", true},
      {Bytes().fill(256, 'n'), "vide", -1, "", HdlrAtom::KIND_VIDEO, "hdlr componentNameLen err:256\n", false},
      {Bytes().u8(0), "vide", 31, "", HdlrAtom::KIND_VIDEO, "hdlrAtom AtomLen error\n", false},
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    const std::size_t size = row.size < 0 ? 32 + row.field.size() : static_cast<std::size_t>(row.size);
    ShortStream in(Bytes().be32(size).add(kHead).text(row.subType).fill(12).add(row.field));
    const auto hdlr = ReadAs<HdlrAtom>(in);
    ASSERT_EQ(hdlr != nullptr, row.read) << row.subType;
    EXPECT_EQ(log.count(row.message), *row.message != 0) << log.all();
    if (hdlr == nullptr) continue;
    std::string name;
    hdlr->getHandlrName(name);
    EXPECT_EQ(name, row.name);
    EXPECT_EQ(hdlr->kind(), row.kind);
  }
}

TEST(HdlrAtom, RefusesAWrongTypeOrAnOverlongName) {
  const LogCapture log;
  HdlrAtom hdlr;
  EXPECT_EQ(hdlr.setHdlrAtom("video", "x"), -1);
  EXPECT_TRUE(log.has("pszCompSubType param invalid\n"));
  EXPECT_EQ(hdlr.setHdlrAtom("vide", std::string(256, 'n')), -1);
  EXPECT_TRUE(log.has("mComponentNameLen invalid\n"));
  EXPECT_EQ(hdlr.header().size, 32u);
  EXPECT_EQ(hdlr.setHdlrAtom("vide", std::string(255, 'n')), 0);
  EXPECT_EQ(hdlr.header().size, 32u + 256);
}

TEST(DrefAtom, PassesOverDataAndStaysInItsBox) {
  const Bytes kEntry = Bytes().type("url ").be32(0);
  const struct {
    Bytes body;
    bool read;
  } kRows[] = {
      {Bytes().be32(2).be32(20).add(kEntry).fill(8, 1).be32(12).add(kEntry), true},
      {Bytes().be32(1).be32(21).add(kEntry).fill(8, 1), false},
      {Bytes().be32(0xFFFFFFFF).be32(12).add(kEntry), false},
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    ShortStream in(Bytes().be32(12 + row.body.size()).type("dref").be32(0).add(row.body));
    EXPECT_EQ(ReadAs<DrefAtom>(in) != nullptr, row.read) << log.all();
    EXPECT_EQ(in.remaining() == 0, row.read);
  }
  const LogCapture log;
  EXPECT_EQ(DrefAtom().addEntry("url  ", 0, 1), -1);
  EXPECT_TRUE(log.has("memcpy entry type(url  ) error\n"));
}

TEST(VemoAtom, KeepsSixTracks) {
  const LogCapture log;
  VemoAtom vemo(0, ZR_FALSE, ZR_FALSE, 0);
  const zrMP4_TRACK_INFO_S info = VideoInfo("VideoHandler");
  for (ZR_U32 i = 1; i <= 6; ++i) {
    EXPECT_EQ(vemo.addTrackInfo(&info), 0);
    EXPECT_EQ(vemo.header().size, 26 + i * 52);
  }
  EXPECT_EQ(vemo.addTrackInfo(&info), -1);
  EXPECT_TRUE(log.has("track reach max number 6\n"));
  EXPECT_EQ(vemo.header().size, 26u + 6 * 52);
  ZR_U32 count = 0;
  EXPECT_EQ(vemo.getTrackInfo(&count)[5]->trackIndex, 6u);
  EXPECT_EQ(count, 6u);
  EXPECT_EQ(vemo.getTrackInfoByIndex(6), nullptr);
  EXPECT_TRUE(log.has("getTrackInfo fail, index:6\n"));
}

TEST(VemoAtom, GivesTheTracksBackAsTheCallerDescribedThem) {
  const LogCapture log;
  ShortStream in(kVemo);
  const auto vemo = ReadAs<VemoAtom>(in);
  ASSERT_NE(vemo, nullptr);
  zrMP4_TRACK_INFO_S info = vemo->getTrackInfoByIndex(0)->info;
  const zrMP4_TRACK_INFO_S expected = VideoInfo("VideoHandler");
  EXPECT_EQ(std::memcmp(&info, &expected, sizeof(info)), 0);
  EXPECT_EQ(vemo->getTrackInfoByIndex(1)->info.stAudioInfo.u16SampleSize, 16);
  EXPECT_EQ(vemo->getTrackInfoByIndex(2)->info.stMetaInfo.enCodecID, ZR_MP4_CODEC_META);
  EXPECT_EQ(vemo->getTrackInfoByIndex(3), nullptr);
  EXPECT_EQ(vemo->backupUnit(), 0x100000u);
  EXPECT_EQ(vemo->useCo64(), ZR_TRUE);
  EXPECT_EQ(vemo->constantRate(), ZR_FALSE);
  EXPECT_EQ(vemo->preAllocLen(), 0x200000u);
}

TEST(VemoAtom, HasNoRecordsWhenItCannotBeRead) {
  const struct {
    std::size_t at;
    ZR_U32 word;
    const char* message;
  } kRows[] = {
      {22, 7, "traknum:7, max:6\n"},                  // too many tracks
      {26, 39, "read trackConfig fail\n"},            // a record without room for its fields
      {26, 40 + 256, "read trackConfig fail\n"},      // a name that does not fit, if the box were longer
      {26 + 52 + 40, 38, "read trackConfig fail\n"},  // a record that ends behind the box
      {30, 4, "read trackConfig fail\n"},             // an unknown kind of track
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    std::vector<std::uint8_t> bytes = Bytes().add(kVemo).fill(500);
    const std::vector<std::uint8_t> word = Bytes().be32(row.word);
    std::copy(word.begin(), word.end(), bytes.begin() + static_cast<std::ptrdiff_t>(row.at));
    ShortStream in(bytes);
    AtomHeader header;
    ASSERT_EQ(header.Read(&in), 0);
    VemoAtom vemo(header);
    EXPECT_TRUE(vemo.complete());
    EXPECT_EQ(vemo.ReadContent(&in), -1);
    EXPECT_EQ(log.count(row.message), 1) << log.all();
    EXPECT_FALSE(vemo.complete());
    EXPECT_EQ(vemo.trackCount(), 0u);
    EXPECT_EQ(vemo.getTrackInfoByIndex(0), nullptr);
  }
}

// A snapshot of one track with as many sizes as asked for.
Bytes Snapshot(ZR_U32 samples) {
  return Bytes().be32(8 + 20 + 4 * samples).type("stbl").be32(20 + 4 * samples).type("stsz").be32(0).be32(0)
      .be32(samples).fill(4 * samples);
}

Bytes Tbgp(ZR_U32 userBoxes, const Bytes& groups) {
  return Bytes().be32(12 + groups.size()).type("tbgp").be32(userBoxes).add(groups);
}

const Bytes kTwoGroups = Bytes().be32(1).add(Snapshot(3)).be32(2).add(Snapshot(5));

struct TbgpRead {
  int result;
  ZR_U32 entries;
  ZR_U64 position;
};

TbgpRead ReadTbgp(const std::vector<std::uint8_t>& bytes, ZR_U32 expected) {
  ShortStream in(bytes);
  AtomHeader header;
  if (header.Read(&in) != 0) return {-1, 0, 0};
  TbgpAtom tbgp(header);
  tbgp.setExpectedEntries(expected);
  const int result = tbgp.ReadContent(&in);
  if (result == 0) {
    EXPECT_EQ(tbgp.userAtomNum(), 4u);
    for (ZR_U32 i = 0; i < tbgp.entryCount(); ++i) {
      EXPECT_EQ(tbgp.entry(i).trackId, i + 1);
      EXPECT_EQ(tbgp.entry(i).stbl->childCount(), 1u);
    }
  }
  return {result, tbgp.entryCount(), in.getCurPos()};
}

TEST(TbgpAtom, HoldsAGroupPerTrackAndEndsByItsSize) {
  const LogCapture log;
  const Bytes bytes = Tbgp(4, kTwoGroups);
  for (ZR_U32 expected : {0u, 1u, 2u}) {
    const TbgpRead read = ReadTbgp(Bytes().add(bytes).fill(40), expected);
    EXPECT_EQ(read.result, 0) << log.all();
    EXPECT_EQ(read.entries, expected);
    EXPECT_EQ(read.position, bytes.size());
  }
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    EXPECT_EQ(ReadTbgp({bytes.data().begin(), bytes.data().begin() + static_cast<std::ptrdiff_t>(cut)}, 2).result, -1);
  }
}

TEST(TbgpAtom, RefusesWhatIsNoSnapshot) {
  const struct {
    Bytes second;
    const char* message;
  } kRows[] = {
      {Bytes().be32(2).be32(8).type("stxl"), "stbl type error\n"},
      {Bytes().be32(2).be32(9).type("stbl"), "read stbl content fail\n"},           // ends behind the group
      {Bytes().be32(2).be32(0).type("stbl"), "read stbl content fail\n"},           // would run to the end of the file
      {Bytes().be32(2).be32(1).type("stbl").be64(15), "read stbl content fail\n"},  // ends inside its header
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    const Bytes bytes = Tbgp(4, Bytes().be32(1).add(Snapshot(3)).add(row.second));
    const TbgpRead read = ReadTbgp(Bytes().add(bytes).fill(40), 2);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.entries, 1u);
    EXPECT_EQ(log.count(row.message), 1) << log.all();
  }
}

Bytes Mdat(const Bytes& content) { return Bytes().be32(1).type("mdat").be64(16 + content.size()).add(content); }

Bytes UserRecord(ZR_U32 length) { return Bytes().be32(0).be32(0).be64(0).be32(length).fill(length, 'u'); }

TEST(MdatAtom, FindsItsTrackConfigurationBehindUserRecords) {
  const struct {
    const char* name;
    Bytes content;
    bool vemo;
    ZR_U64 recordsEnd;
  } kRows[] = {
      {"vemo first", Bytes().add(kVemo).fill(100), true, 16},
      {"two records first", Bytes().add(UserRecord(30)).add(UserRecord(9)).add(kVemo).fill(9), true, 16 + 50 + 29},
      {"a plain file", Bytes().be32(5).fill(50, 'x'), false, 16},
      {"zeros", Bytes().fill(64), false, 16},
      {"a record that is cut off", Bytes().add(UserRecord(30)).be32(0).be32(0).be64(0).be32(99).fill(5), false, 16 + 50},
      {"a key flag", Bytes().be32(0).be32(1).be64(0).be32(4).fill(4).add(kVemo), false, 16},
      {"a time stamp", Bytes().be32(0).be32(0).be64(1).be32(4).fill(4).add(kVemo), false, 16},
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    SCOPED_TRACE(row.name);
    ShortStream in(Mdat(row.content));
    const auto mdat = ReadAs<MdatAtom>(in);
    ASSERT_NE(mdat, nullptr);
    EXPECT_EQ(mdat->Find<VemoAtom>("vemo") != nullptr, row.vemo);
    EXPECT_EQ(log.count("no vemo atom\n"), row.vemo ? 0 : 1);
    EXPECT_EQ(mdat->leadingRecordsEnd(), row.recordsEnd);
    EXPECT_EQ(mdat->header().largeSize, 16 + row.content.size());
    EXPECT_EQ(in.remaining(), 0u);
  }
}

TEST(MdatAtom, KeepsATrackConfigurationThatIsCutShort) {
  const LogCapture log;
  for (std::size_t cut = 8; cut <= kVemo.size(); ++cut) {
    const std::vector<std::uint8_t> head(kVemo.data().begin(), kVemo.data().begin() + static_cast<std::ptrdiff_t>(cut));
    // As a recording leaves it, with the size of the header alone.
    ShortStream in(Bytes().be32(1).type("mdat").be64(16).add(head));
    const auto mdat = ReadAs<MdatAtom>(in);
    ASSERT_NE(mdat, nullptr);
    ASSERT_NE(mdat->Find<VemoAtom>("vemo"), nullptr);
    EXPECT_EQ(mdat->Find<VemoAtom>("vemo")->complete(), cut == kVemo.size());
    EXPECT_EQ(mdat->header().largeSize, 16u);
  }
}

TEST(MdatAtom, PatchesItsSizeInPlace) {
  ShortStream out;
  MdatAtom mdat;
  ASSERT_EQ(mdat.Write(&out), 0);
  EXPECT_EQ(Mdat(Bytes()).difference(out.data()), "");
  mdat.setExtendedSize(0x123456789ull);
  EXPECT_EQ(mdat.rewriteSize(&out), 0);
  EXPECT_EQ(Bytes().be32(1).type("mdat").be64(0x123456789ull).difference(out.data()), "");
}

TEST(MdatAtom, DumpsTheTableGroupsInsideIt) {
  const Bytes kOneTrack = Bytes().be32(26 + 40).type("vemo").be32(256).be16(0).be32(0).be32(2).be32(1)
                              .be32(40).be32(2).be32(1).fill(28);
  const Bytes kTbgp = Tbgp(4, Bytes().be32(1).add(Snapshot(3)));
  const Bytes kUntilFirst = Bytes().add(kOneTrack).fill(256 - 16 - kOneTrack.size(), 'f');
  const Bytes kUntilNext = Bytes().add(kTbgp).fill(256 - kTbgp.size(), 'f');
  const std::string kHead = "+-mdat\n+--vemo backupUnit=256, preAllocLen=0, trackCount=1\n";
  const std::string kGroup = "+--tbgp userAtomNum=4\n";
  const Bytes kThree = Bytes().add(kUntilFirst).add(kUntilNext).add(kUntilNext).add(kUntilNext);
  const struct {
    const char* name;
    Bytes file;
    std::string printed;
    std::string message;
  } kRows[] = {
      {"three and a half units", Mdat(kThree), kHead + kGroup + kGroup + kGroup, ""},
      {"moov behind mdat", Mdat(Bytes().add(kUntilFirst).add(kUntilNext)).fill(300, 'm'), kHead + kGroup, ""},
      {"cut off", Bytes().be32(1).type("mdat").be64(16).add(kUntilFirst).add(kUntilNext), kHead + kGroup, ""},
      {"a damaged one ends the scan, not the dump", Mdat(Bytes().add(kUntilFirst).fill(256).add(kUntilNext)), kHead,
       "tbgp type error\n"},
      {"no vemo", Mdat(Bytes().fill(600, 'f')), "+-mdat\n", "no vemoatom\n"},
      {"vemo cut short", Bytes().be32(1).type("mdat").be64(16).add(kOneTrack.data()).type("").be32(0),
       "+-mdat\n+--vemo backupUnit=256, preAllocLen=0, trackCount=1\n", ""},
  };
  for (const auto& row : kRows) {
    const LogCapture log;
    SCOPED_TRACE(row.name);
    ShortStream in(row.file);
    const auto mdat = ReadAs<MdatAtom>(in);
    ASSERT_NE(mdat, nullptr);
    testing::internal::CaptureStdout();
    const int result = mdat->Dump(&in, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(log.count(row.message), !row.message.empty()) << log.all();
  }
}

}  // namespace
}  // namespace zrmp4
