#include <gtest/gtest.h>

#include <cstring>

#include "base/make_or_null.h"
#include "box/child_types.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/track_boxes.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "engine/iso_base_media_file.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"

namespace zrmp4 {
namespace {

using Data = std::vector<std::uint8_t>;

// Every box -----------------------------------------------------------------------------------------------------------

const Bytes kMatrix = Bytes().be32(0x10000).fill(12).be32(0x10000).fill(12).be32(0x40000000);

zrMP4_TRACK_INFO_S VideoInfo(const char* name, zrMP4_TRACK_TYPE_E type = ZR_MP4_TRACK_VIDEO) {
  zrMP4_TRACK_INFO_S info = {};
  info.enTrackType = type;
  info.u32TimeScale = 90000;
  info.fSpeed = 1.0f;
  std::strcpy(info.aszHdlrName, name);
  info.stVideoInfo = {1920, 1080, 8000000, 30, ZR_MP4_CODEC_H265};
  return info;
}

std::unique_ptr<VemoAtom> MakeVemo() {
  auto vemo = MakeOrNull<VemoAtom>(0x100000u, ZR_TRUE, ZR_FALSE, 0x200000u);
  zrMP4_TRACK_INFO_S audio = VideoInfo("", ZR_MP4_TRACK_AUDIO), meta = VideoInfo("m", ZR_MP4_TRACK_META);
  audio.stAudioInfo = {2, 48000, 1024, 16, ZR_MP4_CODEC_AAC};
  meta.stMetaInfo = {640, 480, 25, ZR_MP4_CODEC_META, 99};
  for (const auto& info : {VideoInfo("VideoHandler"), audio, meta}) EXPECT_EQ(vemo->addTrackInfo(&info), 0);
  return vemo;
}

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

const ZR_U8 kXyz[] = {'x', 'y', 'z'};

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
     BoxBytes("abcd", Bytes().text("xyz"))},
    {"mdat", Makes<MdatAtom>(), Bytes().be32(1).type("mdat").be64(16),
     [](const AtomHeader& header) { return MakeOrNull<Atom>(header); }},
    {"vemo", MakeVemo, kVemo},
};

TEST(Boxes, AreWrittenAndReadAndFailWithTheirStream) {
  for (const BoxCase& box : kBoxes) CheckBox(box);
}

TEST(Boxes, DurationsThatDoNotFit) {
  const std::tuple<ZR_U64, ZR_U32, ZR_U32> kRows[] = {
      {90000, 90000, 1000}, {1, 0, 0},           {1ull << 42, 1, 0},         {(1ull << 61) + 5000, 1000, 0},
      {1999, 1000000, 1},   {1ull << 32, 1000, 0}, {0xFFFFFFFF, 1000, 0xFFFFFFFF}};
  for (const auto& [duration, timeScale, milliseconds] : kRows) {
    EXPECT_EQ(MvhdAtom(timeScale, duration, 1).getDuration(), milliseconds) << duration;
  }
  const LogCapture log;
  ShortStream out;
  MvhdAtom mvhd(1000, 0, 1);
  mvhd.update(0x100000000, 1000, 2);
  EXPECT_EQ(mvhd.Write(&out) + TkhdAtom(1, 0x100000000, 0, 0).Write(&out), -2);
  EXPECT_EQ(log.all(), "") << "deliberately";

  // Deliberate: no times in version 1, where any duration passes.
  const auto tkhd = ReadAs<TkhdAtom>(Bytes().be32(80).type("tkhd").be32(0x01000007).be32(9).fill(16).be16(0x100).be16(0)
                                         .add(kMatrix).be32(0x02800000).be32(0x01E08000));
  ASSERT_NE(tkhd, nullptr);
  EXPECT_TRUE(tkhd->trackId() == 9 && tkhd->width() == 640 && tkhd->height() == 480) << "the fraction is dropped";
  tkhd->setDuration(0x100000000);
  EXPECT_EQ(Written(*tkhd).size(), 80u);
}

TEST(HdlrAtom, TakesTheNameInBothForms) {
  const std::tuple<Bytes, const char*, const char*, HdlrAtom::Kind, const char*> kRows[] = {  // no name: refused
      {Bytes().u8(5).text("Video"), "VIDE", "Video", HdlrAtom::KIND_VIDEO, ""},
      {Bytes().text("Video").u8(0), "soun", "Video", HdlrAtom::KIND_SOUND, ""},
      {Bytes(), "meta", "", HdlrAtom::KIND_META, ""},
      {Bytes().u8(0), "text", "", HdlrAtom::KIND_OTHER, "unkown mComponentSubtype\n"},
      {Bytes().fill(256, 'n'), "vide", nullptr, HdlrAtom::KIND_VIDEO, "hdlr componentNameLen err:256\n"},
  };
  for (const auto& [field, subType, expected, kind, message] : kRows) {
    const LogCapture log;
    const auto hdlr =
        ReadAs<HdlrAtom>(BoxBytes("hdlr", Bytes().be32(0).text("mhlr").text(subType).fill(12).add(field)));
    ASSERT_EQ(hdlr != nullptr, expected != nullptr) << subType;
    EXPECT_EQ(log.count(message), *message != 0) << log.all();
    if (hdlr == nullptr) continue;
    std::string name;
    hdlr->getHandlrName(name);
    EXPECT_STREQ(name.c_str(), expected);
    EXPECT_EQ(hdlr->kind(), kind);
  }
  const LogCapture log;
  HdlrAtom hdlr;
  EXPECT_EQ(ReadAs<HdlrAtom>(Bytes().be32(31).type("hdlr").fill(40)), nullptr);
  EXPECT_EQ(hdlr.setHdlrAtom("video", "x") + hdlr.setHdlrAtom("vide", std::string(256, 'n')), -2);
  for (const char* message :
       {"hdlrAtom AtomLen error\n", "pszCompSubType param invalid\n", "mComponentNameLen invalid\n"}) {
    EXPECT_EQ(log.count(message), 1) << message;
  }
  EXPECT_EQ(hdlr.header().size, 32u);
  EXPECT_EQ(hdlr.setHdlrAtom("vide", std::string(255, 'n')), 0);
  EXPECT_EQ(hdlr.header().size, 32u + 256);
}

TEST(Boxes, OfOtherWritersArePassedOverToTheirEnd) {
  const LogCapture log;
  const Bytes kUrl = Bytes().type("url ").be32(0);
  ShortStream brands(Bytes().be32(28).type("ftyp").text("isom").be32(1).text("avc1").text("mp41").text("iso2"));
  EXPECT_NE(ReadAs<FtypAtom>(brands), nullptr);
  EXPECT_EQ(brands.remaining(), 0u);
  const std::pair<Bytes, bool> kEntries[] = {
      {Bytes().be32(2).be32(20).add(kUrl).fill(8, 1).be32(12).add(kUrl), true},
      {Bytes().be32(1).be32(21).add(kUrl).fill(8, 1), false},
      {Bytes().be32(0xFFFFFFFF).be32(12).add(kUrl), false},
  };
  for (const auto& [body, read] : kEntries) {
    ShortStream in(BoxBytes("dref", Bytes().be32(0).add(body)));
    EXPECT_EQ(ReadAs<DrefAtom>(in) != nullptr && in.remaining() == 0, read) << log.all();
  }
  EXPECT_EQ(DrefAtom().addEntry("url  ", 0, 1), -1);
  EXPECT_TRUE(log.has("memcpy entry type(url  ) error\n"));
}

// The boxes of a recording --------------------------------------------------------------------------------------------

TEST(VemoAtom, KeepsSixTracksAsTheCallerDescribedThem) {
  const LogCapture log;
  const zrMP4_TRACK_INFO_S info = VideoInfo("VideoHandler");
  const auto read = ReadAs<VemoAtom>(kVemo);
  ASSERT_NE(read, nullptr);
  const zrMP4_TRACK_INFO_S first = read->getTrackInfoByIndex(0)->info;
  EXPECT_EQ(std::memcmp(&first, &info, sizeof(info)), 0);
  EXPECT_EQ(read->getTrackInfoByIndex(3), nullptr);
  EXPECT_TRUE(read->backupUnit() == 0x100000 && read->useCo64() && !read->constantRate());
  EXPECT_EQ(read->preAllocLen(), 0x200000u);

  VemoAtom vemo(0, ZR_FALSE, ZR_FALSE, 0);
  for (ZR_U32 i = 1; i <= 6; ++i) EXPECT_EQ(vemo.addTrackInfo(&info), 0);
  EXPECT_EQ(vemo.addTrackInfo(&info), -1);
  EXPECT_EQ(vemo.header().size, 26u + 6 * 52);
  EXPECT_EQ(vemo.getTrackInfoByIndex(6), nullptr);
  EXPECT_EQ(log.all(), "MP4 3 track reach max number 6\nMP4 3 getTrackInfo fail, index:6\n");
}

TEST(VemoAtom, HasNoRecordsWhenItCannotBeRead) {
  const std::tuple<std::size_t, ZR_U8, const char*> kRows[] = {
      {25, 7, "traknum:7, max:6\n"},                  // too many tracks
      {29, 39, "read trackConfig fail\n"},            // a record without room for its fields
      {28, 1, "read trackConfig fail\n"},             // a name that does not fit, if the box were longer
      {29 + 52 + 40, 38, "read trackConfig fail\n"},  // a record that ends behind the box
      {33, 4, "read trackConfig fail\n"},             // an unknown kind of track
  };
  for (const auto& [at, value, message] : kRows) {
    const LogCapture log;
    Data bytes = Bytes().add(kVemo).fill(500);
    bytes[at] = value;
    ShortStream in(bytes);
    VemoAtom vemo{AtomHeader()};
    EXPECT_EQ(vemo.Read(&in), -1);
    EXPECT_EQ(log.count(message), 1) << log.all();
    EXPECT_TRUE(!vemo.complete() && vemo.trackCount() == 0 && vemo.getTrackInfoByIndex(0) == nullptr);
  }
}

// A snapshot of one track with as many sizes as asked for.
Bytes Snapshot(ZR_U32 samples) {
  return BoxBytes("stbl", BoxBytes("stsz", Bytes().be64(0).be32(samples).fill(4 * samples)));
}

Bytes Tbgp(const Bytes& groups) { return BoxBytes("tbgp", Bytes().be32(4).add(groups)); }

TEST(TbgpAtom, HoldsAGroupPerTrackAndRefusesWhatIsNone) {
  const std::tuple<Bytes, ZR_U32, const char*> kRows[] = {  // the second group, how many are read
      {Bytes().be32(2).add(Snapshot(5)), 2, ""},
      {Bytes().be32(2).be32(8).type("stxl"), 1, "stbl type error\n"},
      {Bytes().be32(2).be32(9).type("stbl"), 1, "read stbl content fail\n"},           // ends behind the group
      {Bytes().be32(2).be32(0).type("stbl"), 1, "read stbl content fail\n"},           // would end with the file
      {Bytes().be32(2).be32(1).type("stbl").be64(15), 1, "read stbl content fail\n"},  // ends inside its header
  };
  for (const auto& [second, entries, message] : kRows) {
    const LogCapture log;
    const Bytes bytes = Tbgp(Bytes().be32(1).add(Snapshot(3)).add(second));
    ShortStream in(Bytes().add(bytes).fill(40));
    TbgpAtom tbgp{AtomHeader()};
    tbgp.setExpectedEntries(2);
    EXPECT_EQ(tbgp.Read(&in), *message == 0 ? 0 : -1);
    EXPECT_EQ(tbgp.entryCount(), entries);
    EXPECT_TRUE(tbgp.entry(0).trackId == 1 && tbgp.entry(0).stbl->childCount() == 1);
    EXPECT_TRUE(*message == 0 ? in.getCurPos() == bytes.size() : log.has(message)) << log.all();
  }
}

Bytes Mdat(const Bytes& content) { return Bytes().be32(1).type("mdat").be64(16 + content.size()).add(content); }

Bytes UserRecord(ZR_U32 length) { return Bytes().fill(16).be32(length).fill(length, 'u'); }

TEST(MdatAtom, FindsItsTrackConfigurationBehindUserRecords) {
  const std::tuple<const char*, Bytes, bool, ZR_U64> kRows[] = {  // whether it is found, where the user boxes end
      {"vemo first", Bytes().add(kVemo).fill(100), true, 16},
      {"two records first", Bytes().add(UserRecord(30)).add(UserRecord(9)).add(kVemo).fill(9), true, 16 + 50 + 29},
      {"a plain file", Bytes().be32(5).fill(50, 'x'), false, 16},
      {"zeros", Bytes().fill(64), false, 16},
      {"a record that is cut off", Bytes().add(UserRecord(30)).fill(16).be32(99).fill(5), false, 16 + 50},
      {"a key flag", Bytes().be32(0).be32(1).be64(0).be32(4).fill(4).add(kVemo), false, 16},
      {"a time stamp", Bytes().be32(0).be32(0).be64(1).be32(4).fill(4).add(kVemo), false, 16},
  };
  for (const auto& [name, content, found, recordsEnd] : kRows) {
    const LogCapture log;
    ShortStream in(Mdat(content));
    const auto mdat = ReadAs<MdatAtom>(in);
    ASSERT_NE(mdat, nullptr) << name;
    EXPECT_EQ(mdat->Find<VemoAtom>("vemo") != nullptr, found) << name;
    EXPECT_EQ(log.count("no vemo atom\n"), found ? 0 : 1) << name;
    EXPECT_EQ(mdat->leadingRecordsEnd(), recordsEnd) << name;
    EXPECT_TRUE(mdat->header().largeSize == 16 + content.size() && in.remaining() == 0) << name;
  }
  for (std::size_t cut = 8; cut <= kVemo.size(); ++cut) {
    Data file = Mdat(kVemo);
    file[15] = 16;  // as a recording leaves it, with the size of the header alone
    file.resize(16 + cut);
    const auto mdat = ReadAs<MdatAtom>(file);
    ASSERT_TRUE(mdat != nullptr && mdat->Find<VemoAtom>("vemo") != nullptr) << cut;
    EXPECT_EQ(mdat->Find<VemoAtom>("vemo")->complete(), cut == kVemo.size()) << cut;
    EXPECT_EQ(mdat->header().largeSize, 16u);
  }
}

TEST(MdatAtom, DumpsTheTableGroupsInsideIt) {
  const Bytes kOneTrack = Bytes().be32(26 + 40).type("vemo").be32(256).be16(0).be32(0).be32(2).be32(1)
                              .be32(40).be32(2).be32(1).fill(28);
  const Bytes kTbgp = Tbgp(Bytes().be32(1).add(Snapshot(3)));
  const Bytes kUntilFirst = Bytes().add(kOneTrack).fill(256 - 16 - kOneTrack.size(), 'f');
  const Bytes kUntilNext = Bytes().add(kTbgp).fill(256 - kTbgp.size(), 'f');
  const std::string kHead = "+-mdat\n+--vemo backupUnit=256, preAllocLen=0, trackCount=1\n";
  const std::string kGroup = "+--tbgp userAtomNum=4\n";
  const Bytes kThree = Bytes().add(kUntilFirst).add(kUntilNext).add(kUntilNext).add(kUntilNext);
  const std::tuple<const char*, Bytes, std::string, std::string> kRows[] = {
      {"three and a half units", Mdat(kThree), kHead + kGroup + kGroup + kGroup, ""},
      {"moov behind mdat", Mdat(Bytes().add(kUntilFirst).add(kUntilNext)).fill(300, 'm'), kHead + kGroup, ""},
      {"cut off", Bytes().be32(1).type("mdat").be64(16).add(kUntilFirst).add(kUntilNext), kHead + kGroup, ""},
      {"a damaged one ends the scan, not the dump", Mdat(Bytes().add(kUntilFirst).fill(256).add(kUntilNext)), kHead,
       "tbgp type error\n"},
      {"a group too few", Mdat(Bytes().add(kUntilFirst).add(Tbgp(Bytes().be32(1)))), kHead, "read stbl header fail\n"},
      {"no vemo", Mdat(Bytes().fill(600, 'f')), "+-mdat\n", "no vemoatom\n"},
  };
  for (const auto& [name, file, printed, message] : kRows) {
    const LogCapture log;
    ShortStream in(file);
    const auto mdat = ReadAs<MdatAtom>(in);
    ASSERT_NE(mdat, nullptr) << name;
    testing::internal::CaptureStdout();
    EXPECT_EQ(mdat->Dump(&in, 1), 0) << name;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed) << name;
    EXPECT_EQ(log.count(message), !message.empty()) << name << log.all();
  }
}

// The tree ------------------------------------------------------------------------------------------------------------

// The types of a box's children, in order.
std::string Children(const Atom& box) {
  std::string types;
  for (Atom* child = box.firstChild(); child != nullptr; child = child->nextSibling()) types += child->type() + " ";
  return types;
}

TEST(AtomTree, SizesFollowUpTheChain) {
  Atom root("root", 0);  // to the end of the stream: has no size to change
  Atom *top = new Atom("mdat", 1), *inner = new Atom("inn ", 8), *leaf = new UserDefAtom("leaf", 0x18);
  root.AddChild(top);
  top->AddChild(inner);
  const auto expect = [&](ZR_U64 size) {
    EXPECT_TRUE(root.header().size == 0 && top->header().largeSize == size) << size;
    EXPECT_EQ(inner->header().size, static_cast<ZR_U32>(size));
  };
  expect(8);
  inner->AddChild(leaf);
  expect(40);
  inner->AddChildToFront(new Atom("big ", 1));  // Deliberate: only the 32-bit field counts
  expect(41);
  inner->RemoveChild(leaf);
  expect(9);
  EXPECT_EQ(leaf->parent(), nullptr);
  inner->RemoveChild(leaf);  // Deliberate: also when it was not there
  expect(ZR_U64{9} - 32);
  delete leaf;
}

TEST(AtomTree, NullArgumentsHaveOneMessage) {
  const LogCapture log;
  Atom box("moov", 8);
  box.AddChild(nullptr);
  box.AddChildToFront(nullptr);
  box.InsertChild(1, nullptr);
  box.RemoveChild(nullptr);
  EXPECT_EQ(box.ReadContent(nullptr) + box.SeekToEnd(nullptr), -2);
  EXPECT_EQ(log.all(),
            "MP4 3 HvccAtom::AddChild:174 input parameter null \n"
            "MP4 3 HvccAtom::AddChildToFront:182 input parameter null \n"
            "MP4 3 HvccAtom::InsertChild:191 input parameter null \n"
            "MP4 3 HvccAtom::RemoveChild:203 input parameter null \n"
            "MP4 3 HvccAtom::ReadContent:118 input parameter null \n"
            "MP4 3 HvccAtom::SeekToEnd:91 input parameter null \n");
  EXPECT_EQ(box.header().size, 8u);
}

TEST(AtomTree, FindsBoxesByTypeIndexAndPath) {
  RootAtom root("root", 8);
  auto* moov = new MoovAtom;
  root.AddChild(moov);
  moov->AddChild(new Atom("mvhd", 8));
  Atom* traks[] = {new Atom("trak", 8), new Atom("trak", 8)};
  for (Atom* trak : traks) {
    moov->AddChild(trak);
    trak->AddChild(new TkhdAtom(1, 0, 0, 0));
  }
  EXPECT_EQ(root.GetDescendant("moov/trak[1]/tkhd"), traks[1]->firstChild());
  EXPECT_EQ(root.GetDescendant("moov/trak/tkhd"), traks[0]->firstChild());
  EXPECT_EQ(moov->GetChild(2), traks[1]);
  EXPECT_TRUE(moov->GetChild(3) == nullptr && moov->GetChild(-1) == nullptr);
  EXPECT_EQ(moov->Find<MvhdAtom>("mvhd"), nullptr) << "of another class";
  const std::pair<const char*, const char*> kMisses[] = {
      {"moov/trak[2]", ""},
      {"moov/udta/meta", ""},
      {"moov/trak[a]", "MP4 3 childType[trak[a]] invalid\n"},
      {"moov/trak(1)", "MP4 3 childType[trak(1)] invalid\n"},
      {"moov/tra", "MP4 3 childType[tra] len err\n"},
      {"moov/trak[10]", "MP4 3 childType[trak[10]] len err\n"},
      {"/moov", "MP4 3 childType[] len err\n"},
      {"moov/", "MP4 3 childType[] len err\n"},
      {"moov//trak", "MP4 3 childType[] len err\n"},
  };
  for (const auto& [path, message] : kMisses) {
    const LogCapture log;
    EXPECT_EQ(root.GetDescendant(path), nullptr) << path;
    EXPECT_EQ(log.all(), message);
  }
  const LogCapture log;
  moov->AddChildToFront(new Atom("", 8));
  EXPECT_EQ(moov->GetChild("trak"), nullptr);
  EXPECT_EQ(log.all(), "MP4 3 child pAtom type is NULL\n");
}

TEST(AtomTree, AContainerSurvivesWhatItHolds) {
  const Bytes good = BoxBytes("mdhd", Bytes().fill(24));
  const std::tuple<const char*, Bytes, const char*> kRows[] = {
      {"known and unknown", Bytes().add(good).add(BoxBytes("abcd", Bytes().text("kept"))), "mdhd abcd "},
      {"an unreadable child ends it", Bytes().add(good).add(BoxBytes("hdlr", Bytes().fill(24 + 256))).add(good),
       "mdhd "},
      {"a child that runs past the stream", Bytes().add(good).be32(5000).type("mdhd").fill(24), "mdhd mdhd "},
      {"a child longer than its bytes", Bytes().add(good).be32(5000).type("abcd").text("x"), "mdhd "},
      {"a child to the end", Bytes().add(good).be32(0).type("minf"), "mdhd minf "},
      {"a child of 64 bits", Bytes().be32(1).type("mdhd").be64(40).fill(24).add(good), "mdhd mdhd "},
      {"a child that ends inside its header", Bytes().add(good).be32(7).type("mdhd").fill(8), "mdhd "},
      {"the same with 64 bits", Bytes().add(good).be32(1).type("mdhd").be64(15).fill(8), "mdhd "},
      {"a rest too short for a header", Bytes().add(good).fill(3), "mdhd "},
  };
  for (const auto& [name, payload, children] : kRows) {
    const LogCapture log;
    const Bytes box = BoxBytes("mdia", payload);
    for (const Bytes& file : {box, Bytes().add(box).add(BoxBytes("next", Bytes()))}) {  // also with one behind it
      const auto mdia = ReadAs<MdiaAtom>(file);
      ASSERT_NE(mdia, nullptr) << name;
      EXPECT_EQ(Children(*mdia), children) << name << log.all();
      EXPECT_EQ(mdia->header().size, 8 + payload.size());
    }
  }
  // Where a size that grew by the child's would become one of the two special ones, and shrink no more.
  for (const ZR_U32 size : {0u, 16u, 0xFFFFFFF8u, 0xFFFFFFF9u}) {
    const auto mdia = ReadAs<MdiaAtom>(Bytes().be32(size).type("mdia").be32(8).type("abcd"));
    EXPECT_EQ(Children(*mdia), "abcd ");
    EXPECT_TRUE(mdia->header().size == size && mdia->header().largeSize == 0);
  }
}

TEST(ISOBaseMediaFile, IsOneWithAMovieBox) {
  const LogCapture log;
  ISOBaseMediaFile file;
  file.AddChild(new Atom("mdat", 8));
  EXPECT_EQ(file.IsISOBaseMediaFile(), 0);
  EXPECT_TRUE(log.has("have no moov box error\n"));
  file.AddChild(new Atom("MOOV", 8));
  EXPECT_EQ(file.IsISOBaseMediaFile(), 1);
}

TEST(UserDefAtom, TakesItsPayloadOnce) {
  const LogCapture log;
  UserDefAtom box("abcd", 3);
  EXPECT_EQ(box.InputData(nullptr, 0), 0);
  EXPECT_EQ(box.InputData(nullptr, 5) + box.InputData(kXyz, 0), -2);
  EXPECT_EQ(box.InputData(kXyz, 3), 0);
  EXPECT_EQ(box.InputData(kXyz, 2), -1);
  EXPECT_TRUE(log.has("mData has already contains data\n"));
  EXPECT_EQ(BoxBytes("abcd", Bytes().text("xyz")).difference(Written(box)), "");
  for (const ZR_U32 size : {7u, 1u, 0u, 0xFFFFFFF7u, 0xFFFFFFF6u}) {  // the last is one, but not in the stream
    ShortStream in(Bytes().fill(30, 'x'));
    EXPECT_EQ(UserDefAtom(AtomHeader("abcd", size)).readData(&in), size == 0xFFFFFFF6 ? -1 : 0);
    EXPECT_EQ(in.getCurPos(), 0u) << size;
  }
}

}  // namespace
}  // namespace zrmp4
