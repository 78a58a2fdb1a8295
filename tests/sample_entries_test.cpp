#include <gtest/gtest.h>

#include "base/make_or_null.h"
#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/hevc_entry.h"
#include "box/prores_entry.h"
#include "codec/aac_parser.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"

using namespace zrmp4;

namespace {

const Nal kAvcSps = {0x67, 0x64, 0x00, 0x0D, 0xAC, 0xD9};
const Nal kAvcPps = {0x68, 0xEB, 0xE3};
const Nal kSei = {0x4E, 0x01, 0x05, 0x01, 0xAA};
const std::string kLongestName = "0123456789abcdefghijklmnopqrstu";

ZR_U16 Size(const Nal& nal) { return static_cast<ZR_U16>(nal.size()); }

int Add(AvccAtom& box, const Nal& nal) {
  return (nal[0] & 0x1F) == 7 ? box.AddSps(nal.data(), Size(nal)) : box.AddPps(nal.data(), Size(nal));
}
int Add(HvccAtom& box, const Nal& nal) {
  switch (nal[0] >> 1) {
    case 32: return box.AddVps(nal.data(), Size(nal));
    case 33: return box.AddSps(nal.data(), Size(nal));
    case 34: return box.AddPps(nal.data(), Size(nal));
    default: return box.AddSei(nal.data(), Size(nal));
  }
}

// The same set, made another one by bytes that no parser looks at.
Nal Variant(Nal nal, unsigned number) {
  nal.push_back(static_cast<ZR_U8>(0x80 | number >> 8));
  nal.push_back(static_cast<ZR_U8>(number));
  return nal;
}

Bytes AvccBody() {
  return Bytes().add(Nal{1, 0x64, 0, 0x0D, 0xFF, 0xE1, 0, 6}).add(kAvcSps).add(Nal{1, 0, 3}).add(kAvcPps);
}
Bytes HvccBody(ZR_U8 arrays, ZR_U8 typeFlags = 0) {
  Bytes body = Bytes().add(Nal{1,    0x01, 0x60, 0,    0,    0,    0x90, 0,    0, 0, 0,    0,  60,
                               0xF0, 0,    0xFF, 0xFD, 0xF8, 0xF8, 0,    0,    0x0F}).u8(arrays);
  ZR_U8 type = 32;
  for (const Nal& nal : {kHevcVps, kHevcSps, kHevcPps}) body.u8(typeFlags | type++).be16(1).be16(nal.size()).add(nal);
  return body;
}

template <typename Box, typename... Nals>
std::unique_ptr<Box> Configuration(const Nals&... nals) {
  auto box = std::make_unique<Box>();
  EXPECT_EQ((Add(*box, nals) | ...), 0);
  return box;
}
std::unique_ptr<HvccAtom> MakeHvcc() {
  auto box = Configuration<HvccAtom>(kHevcVps, kHevcSps, kHevcPps);
  box->settleSize();
  return box;
}

template <typename Box>
std::unique_ptr<Box> AudioEntry(ZR_U32 sampleRate) {
  auto entry = std::make_unique<Box>();
  entry->SetAudioConfig(2, 24, sampleRate, 1152);
  return entry;
}

Bytes EntryHead(ZR_U32 size, const char* type) { return Bytes().be32(size).type(type).fill(6).be16(1); }

Bytes VideoEntry(const char* type, const std::string& name, const Bytes& child = Bytes()) {
  return EntryHead(86 + static_cast<ZR_U32>(child.size()), type).fill(16).be16(320).be16(240).be32(0x480000)
      .be32(0x480000).be32(0).be16(1).text(name).fill(32 - name.size()).be16(0x18).be16(0xFFFF).add(child);
}
template <typename Entry, typename... Arguments>
std::unique_ptr<Entry> PictureEntry(ZR_U16 width, ZR_U16 height, Arguments... arguments) {
  auto entry = std::make_unique<Entry>(arguments...);
  entry->setPicSize(width, height);
  return entry;
}
Bytes ProresEntry(ZR_U32 size, ZR_U8 nameLength, const std::string& name) {
  return EntryHead(size, "apcn").fill(4).text("appl").be32(0).be32(1023).be16(1920).be16(1080).be32(0x480000)
      .be32(0x480000).be32(0).be16(1).u8(nameLength).text(name).fill(31 - name.size()).be16(24).be16(0xFFFF);
}
Bytes Mp4aEntry(ZR_U32 size, ZR_U16 sampleSize) {
  return EntryHead(size, "mp4a").fill(8).be16(2).be16(sampleSize).be16(0xFFFE).be16(0).be32(48000u << 16);
}

const Bytes kAacEsds = Bytes().be32(54).type("esds").be32(0)
    .u8(3).be32(0x80808025).be16(0).u8(0)
    .u8(4).be32(0x80808017).u8(0x40).u8(0x15).be24(8192).be32(128000).be32(128000)
    .u8(5).be32(0x80808005).be16(0x1208).fill(3)
    .u8(6).be32(0x80808001).u8(2);

std::unique_ptr<Atom> ReadEsds(const AtomHeader& header) { return std::make_unique<EsdsAtom>(header); }

const BoxCase kBoxes[] = {
    {"avcC", [] { return Configuration<AvccAtom>(kAvcSps, kAvcPps); }, BoxBytes("avcC", AvccBody())},
    {"hvcC", MakeHvcc, BoxBytes("hvcC", HvccBody(4).u8(39).be16(0))},
    {"colr", [] { return MakeOrNull<ColrAtom>(); }, Bytes().be32(18).type("colr").text("nclc").be16(1).be16(1).be16(1)},
    {"fiel", [] { return MakeOrNull<FielAtom>(); }, Bytes().be32(10).type("fiel").u8(1).u8(0)},
    {"pasp", [] { return MakeOrNull<PaspAtom>(); }, Bytes().be32(16).type("pasp").be32(1).be32(1)},
    {"mp4a", [] { return AudioEntry<Mp4aAtom>(48000); }, Mp4aEntry(36, 24)},
    {"mp4a, deliberately with the low 16 bits of a high rate", [] { return AudioEntry<Mp4aAtom>(96000); },
     EntryHead(36, "mp4a").fill(8).be16(2).be16(24).be16(0xFFFE).be16(0).be16(96000 - 65536).be16(0)},
    {"alaw", [] { return AudioEntry<AlawAtom>(8000); },
     EntryHead(36, "alaw").fill(8).be16(2).be16(24).be16(0).be16(0).be16(8000).be16(0)},
    {"ulaw, deliberately with the low 16 bits of a high rate", [] { return AudioEntry<UlawAtom>(96000); },
     EntryHead(36, "ulaw").fill(8).be16(2).be16(24).be16(0).be16(0).be16(96000 - 65536).be16(0)},
    {"esds of AAC", [] { auto box = MakeOrNull<AacAtom>(); box->SetAudioConfig(1, 44100, 1024); return box; },
     kAacEsds, ReadEsds},
    {"esds of MP3", [] { auto box = MakeOrNull<Mp3Atom>(); box->setBitrates(320000, 192000); return box; },
     Bytes().be32(44).type("esds").be32(0)
         .u8(3).be32(0x8080801B).be16(0).u8(0)
         .u8(4).be32(0x8080800D).u8(0x6B).u8(0x15).be24(0).be32(320000).be32(192000)
         .u8(6).be32(0x80808001).u8(2), ReadEsds},
};

TEST(SampleEntries, BytesInBothDirections) {
  for (const BoxCase& box : kBoxes) CheckBox(box);
}

template <typename Entry>
std::unique_ptr<Atom> ReadEntry(const Nal& bytes) {
  return ReadAs<Entry>(bytes);
}

TEST(SampleEntries, CutInsideTheirCompressorNamesSaySo) {
  const struct {
    std::unique_ptr<Atom> made;
    Bytes bytes;
    std::unique_ptr<Atom> (*read)(const Nal&);
    const char *notWritten, *notRead;
  } kCases[] = {
      {PictureEntry<Avc1Atom>(320, 240), VideoEntry("avc1", "\nAVC Coding"), ReadEntry<Avc1Atom>,
       "write avc1 compressor error\n", "skip avc1 compressor error\n"},
      {PictureEntry<Hvc1Atom>(320, 240), VideoEntry("hvc1", "\vHEVC Coding"), ReadEntry<Hvc1Atom>,
       "write hvc1 compressor error\n", "skip hvc1 compressor error\n"},
      {PictureEntry<ProresAtom>(1920, 1080, "apcn", kLongestName), ProresEntry(86, 31, kLongestName),
       ReadEntry<ProresAtom>, "write prores compressor failed\n", "Read prores compressor failed\n"},
  };
  for (const auto& test : kCases) {
    const Nal bytes = Written(*test.made);
    EXPECT_EQ(test.bytes.difference(bytes), "");
    EXPECT_EQ(test.bytes.difference(Written(*test.read(bytes))), "");
    for (std::size_t cut = 8; cut < bytes.size(); ++cut) {
      const bool inName = cut >= 50 && cut < 82;
      const LogCapture log;
      ShortStream full({}, cut);
      EXPECT_EQ(test.made->Write(&full), -1) << cut;
      EXPECT_EQ(test.read(Nal(bytes.begin(), bytes.begin() + static_cast<long>(cut))), nullptr) << cut;
      EXPECT_TRUE(log.has(test.notWritten) == inName && log.has(test.notRead) == inName) << cut << log.all();
    }
  }
  const LogCapture log;
  ShortStream out;
  EXPECT_EQ(ProresAtom("apcn", kLongestName + "v").Write(&out), -1);
  EXPECT_EQ(ReadAs<ProresAtom>(ProresEntry(86, 32, kLongestName)), nullptr);
  EXPECT_EQ(log.count("Prores compress name length:32 is illegal\n"), 2);
}

TEST(SampleEntries, FilesOfOtherWritersAreKeptWhole) {
  const Bytes kUnknown = BoxBytes("wave", Bytes().text("xyz"));
  const Bytes kPicture = Bytes().be32(10).type("fiel").u8(2).u8(9).be32(18).type("colr").text("nclc").be16(9).be16(16)
                             .be16(9).be32(16).type("pasp").be32(4).be32(3);
  const struct {
    Bytes bytes;
    std::unique_ptr<Atom> (*read)(const Nal&);
    ZR_U32 children;
  } kCases[] = {
      {ProresEntry(86 + 44 + 11, 4, "Name").add(kPicture).add(kUnknown), ReadEntry<ProresAtom>, 4},
      {VideoEntry("avc1", "\nAVC Coding", BoxBytes("avcC", AvccBody())), ReadEntry<Avc1Atom>, 1},
      {VideoEntry("hvc1", "\vHEVC Coding", BoxBytes("hvcC", HvccBody(4).u8(39).be16(0))), ReadEntry<Hvc1Atom>, 1},
      {Mp4aEntry(36 + 11 + 54, 16).add(kUnknown).add(kAacEsds), ReadEntry<Mp4aAtom>, 2},
      {BoxBytes("avcC", AvccBody().add(Nal{0xFD, 0xF8, 0xF8, 0x00})), ReadEntry<AvccAtom>, 0},  // of a high profile
      {BoxBytes("avcC", Bytes().add(Nal{1, 1, 2, 3, 0xFF, 0xE2, 0, 1, 9, 0, 1, 9, 1, 0, 1, 8})),  // the same SPS twice
       ReadEntry<AvccAtom>, 0},
      {BoxBytes("hvcC", HvccBody(3, 0x80)), ReadEntry<HvccAtom>, 0},
      {BoxBytes("hvcC", HvccBody(5).u8(39).be16(0).u8(40).be16(1).be16(5).add(kSei)), ReadEntry<HvccAtom>, 0},
      {BoxBytes("hvcC", Bytes().fill(13).u8(0xF0).u8(0).u8(0xFC).u8(0xFC).u8(0xF8).u8(0xF8).fill(4)),  // no array
       ReadEntry<HvccAtom>, 0},
  };
  for (const auto& test : kCases) {
    const std::unique_ptr<Atom> read = test.read(test.bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(test.bytes.difference(Written(*read)), "");
    if (auto* hvcc = dynamic_cast<HvccAtom*>(read.get())) hvcc->settleSize();
    EXPECT_EQ(read->header().size, test.bytes.size());
    EXPECT_EQ(read->childCount(), test.children);
  }
}

TEST(SampleEntries, DamagedConfigurationsAreRefused) {
  const auto avcc = [](const Nal& sets) { return BoxBytes("avcC", Bytes().add(Nal{1, 1, 2, 3, 0xFF}).add(sets)); };
  const auto hvcc = [](const Nal& arrays) { return BoxBytes("hvcC", Bytes().fill(22).add(arrays)); };
  const struct {
    Bytes box;
    const char* message;
  } kCases[] = {
      {avcc({0xE0}), "sps count(224) rec in file is illegal\n"},
      {avcc({0x01}), "sps count(1) rec in file is illegal\n"},
      {avcc({0xE1, 0, 0}), "sps size(0) rec in file is illegal\n"},
      {avcc({0xE1, 0, 3, 9, 9}), "offset:16, readBytes(3) fail\n"},
      {avcc({0xE1, 0, 1, 9, 0}), "pps count(0) rec in file is illegal\n"},
      {avcc({0xE1, 0, 1, 9, 1, 0, 0}), "pps size(0) rec in file is illegal\n"},
      {hvcc({1, 32, 0, 17}), "hvcc parameter set[0] count is invalid[17]\n"},
      {hvcc({2, 39, 0, 0, 0x80 | 33, 0, 17}), "hvcc parameter set[1] count is invalid[17]\n"},
      {hvcc({1, 34, 1, 0}), "hvcc parameter set[0] count is invalid[256]\n"},
      {hvcc({1, 34, 0, 1, 0xFF, 0xFF, 1}), "offset:36, readBytes(65535) fail\n"},
  };
  for (const auto& test : kCases) {
    const LogCapture log;
    const Bytes file = Bytes().add(test.box).fill(0x20000);  // more of the file follows, which is not the box's
    EXPECT_TRUE(file.data()[4] == 'a' ? ReadAs<AvccAtom>(file) == nullptr : ReadAs<HvccAtom>(file) == nullptr);
    EXPECT_TRUE(log.has(test.message)) << test.message << log.all();
  }
}

TEST(AvccAtom, KeepsEachSetOnceUpToItsCountsAndTheProfileOfTheLast) {
  const LogCapture log;
  const auto box = Configuration<AvccAtom>(kAvcSps, kAvcPps, kAvcSps, kAvcPps);
  EXPECT_EQ(log.all(), "MP4 0 avc sps is already exist\nMP4 0 avc pps is already exist\n");
  EXPECT_EQ(box->header().size, 15u + 2 + 6 + 2 + 3);
  const std::pair<Nal, Nal> kProfiles[] = {
      {{0x67, 0x00, 0x00, 0x03, 0x1E, 0xAA}, {0x00, 0x00, 0x1E}},  // an emulation prevention byte among the three
      {{0x67, 0x4D, 0x40, 0x29}, {0x4D, 0x40, 0x29}},
      {{0x67, 0x42}, {0x42, 0x00, 0x00}},
  };
  for (const auto& [sps, profile] : kProfiles) {
    ASSERT_EQ(Add(*box, sps), 0);
    const Nal written = Written(*box);
    EXPECT_EQ(Nal(written.begin() + 9, written.begin() + 12), profile);
    EXPECT_EQ(written.size(), box->header().size);
  }
  EXPECT_TRUE(box->IsParamentSetExist(kAvcSps.data(), Size(kAvcSps), box->sps()));
  EXPECT_FALSE(box->IsParamentSetExist(kAvcSps.data(), Size(kAvcSps), box->pps()) ||
               box->IsParamentSetExist(nullptr, 3, box->sps()));

  for (unsigned i = 4; i < 31; ++i) ASSERT_EQ(Add(*box, Variant(kAvcSps, i)), 0);
  for (unsigned i = 1; i < 255; ++i) ASSERT_EQ(Add(*box, Variant(kAvcPps, i)), 0);
  const Nal full = Written(*box);
  EXPECT_EQ(Add(*box, Variant(kAvcSps, 31)) + Add(*box, Variant(kAvcPps, 255)), -2);
  EXPECT_EQ(box->AddSps(nullptr, 4) + box->AddPps(kAvcPps.data(), 0), -2);
  EXPECT_EQ(Written(*box), full);
  EXPECT_TRUE(log.has("avc sps has reach max cnt[31]\n") && log.has("avc pps has reach max cnt[255]\n"));
}

// Deliberate: a VPS adds an array header as long as there is no PPS. What is written has always four.
TEST(HvccAtom, SizeWhileSetsAreAddedAndWhenSettled) {
  const std::pair<const char*, ZR_U32> kCases[] = {{"", 0},     {"vsp", 9}, {"vspe", 12},  {"vvsp", 12},
                                                   {"pvs", 6}, {"vpvee", 9}, {"ppss", 6}};
  for (const auto& [order, headers] : kCases) {
    Hvc1Atom entry;
    auto* box = new HvccAtom;
    entry.AddChild(box);
    ZR_U32 sets = 0;
    for (const char* kind = order; *kind != '\0'; ++kind) {
      const Nal& plain = *kind == 'v' ? kHevcVps : *kind == 's' ? kHevcSps : *kind == 'p' ? kHevcPps : kSei;
      const Nal set = Variant(plain, static_cast<unsigned>(kind - order));
      ASSERT_EQ(Add(*box, set) | Add(*box, set), 0);
      sets += 2 + Size(set);
    }
    EXPECT_EQ(box->header().size, 31 + headers + sets) << order;
    box->settleSize();
    EXPECT_EQ(box->header().size, 31 + 12 + sets) << order;
    EXPECT_EQ(entry.header().size, Written(entry).size()) << order;
  }
}

TEST(HvccAtom, SummarisesItsSets) {
  HevcSpsBits high;  // high tier, level 93, two temporal layers, 4:4:4, 10 and 12 bits, segmentation 100
  high.compatibility = "01100000" + Times(24, "0");
  HevcSpsBits main = high;
  main.profile = "00 0 00011";
  main.level = "01111000";  // 120
  main.compatibility = "00110000" + Times(24, "1");
  main.constraints = Times(24, "1") + Times(12, "01");
  const auto box = Configuration<HvccAtom>(main.bytes(), high.bytes());
  // Deliberate: the segmentation stays 0. The level is that of the higher tier, though it is lower.
  const Bytes summary = Bytes().u8(1).u8(0x63).be32(0x20000000).be32(0x90FFFF55).be16(0x5555).u8(93).be16(0xF000)
                            .u8(0xFC).u8(0xFF).u8(0xFA).u8(0xFC).be16(0).u8(0x17).u8(4);
  const Nal written = Written(*box);
  EXPECT_EQ(summary.difference(Nal(written.begin() + 8, written.begin() + 31)), "");

  const std::pair<const char*, ZR_U8> kParallel[] = {{"0 0", 1}, {"1 0", 2}, {"0 1", 3}, {"1 1", 0}};
  for (const auto& [tilesAndSync, type] : kParallel) {
    const std::string pps = "0 100010 000000 001 1 1 0 0 000 1 0 1 010 00100 0 1 1 011 1 00100 0 1 0 0";
    ASSERT_EQ(Add(*box, FromBits(pps + tilesAndSync + "0000 1")), 0);
    EXPECT_EQ(Written(*box)[23], 0xFC | type) << tilesAndSync;
  }
}

TEST(HvccAtom, ARefusedSetChangesNothing) {
  const LogCapture log;
  HvccAtom box;
  const Nal empty = Written(box);
  for (const Nal& bad : {Nal{0x40, 1, 2}, Nal{0x42, 1, 2}, Nal{0x44, 1}}) EXPECT_EQ(Add(box, bad), -1);
  for (const Nal& nal : {kHevcVps, kHevcSps, kHevcPps, kSei}) {
    const AllocFaults noMemory(1);
    EXPECT_EQ(Add(box, nal), -1);
  }
  EXPECT_EQ(Written(box), empty);
  for (unsigned i = 0; i < 16; ++i) EXPECT_EQ(Add(box, Variant(kHevcVps, i)) | Add(box, Variant(kHevcSps, i)), 0);
  for (unsigned i = 0; i < 64; ++i) EXPECT_EQ(Add(box, Variant(kHevcPps, i)), 0);
  const Nal full = Written(box);
  EXPECT_EQ(Add(box, Variant(kHevcVps, 16)) + Add(box, Variant(kHevcSps, 16)) + Add(box, Variant(kHevcPps, 64)), -3);
  EXPECT_EQ(box.AddSei(nullptr, 5) + box.AddVps(kHevcVps.data(), 0), -2);
  EXPECT_EQ(Written(box), full);
  for (const char* message : {"HevcParser Parse vps error\n", "HevcParser Parse sps error\n", "Parse sps fail\n",
                              "HevcParser Parse pps error\n", "Parse pps fail\n", "hevc vps has reach max cnt[16]\n",
                              "hevc sps has reach max cnt[16]\n", "hevc pps has reach max cnt[64]\n"}) {
    EXPECT_EQ(log.count(message), 1) << message << log.all();
  }
}

TEST(HvccAtom, CollectsSeiUntilItsCountIsFull) {
  HvccAtom box;
  for (unsigned i = 0; i < 0x10010; ++i) {
    const Nal sei = {0x4E, 0x01, static_cast<ZR_U8>(i >> 16), static_cast<ZR_U8>(i >> 8), static_cast<ZR_U8>(i)};
    EXPECT_EQ(Add(box, sei), 0);
  }
  box.settleSize();
  EXPECT_EQ(box.header().size, 31u + 12 + 0xFFFF * 7);
  EXPECT_EQ(Written(box).size(), box.header().size);
}

TEST(AudioEntries, KeepAHighRateAndReadASampleSizeOfNothingAs16) {
  const auto ulaw = AudioEntry<UlawAtom>(96000);
  Written(*ulaw);
  EXPECT_EQ(ulaw->sampleRate(), 96000u) << "when written";
  const auto entry = ReadAs<Mp4aAtom>(Mp4aEntry(36, 0));
  EXPECT_EQ(entry->sampleSize(), 16);
  EXPECT_EQ(entry->channels(), 2);
  EXPECT_EQ(entry->sampleRate(), 48000u);
}

TEST(PictureBoxes, FollowTheFrame) {
  ColrAtom colr;
  FielAtom fiel;
  PaspAtom pasp;
  const auto colour = [&](ZR_U32 code) {
    colr.setColr(code);
    return Written(colr);
  };
  const auto field = [&](ZR_U32 mode) {
    fiel.setFiel(mode);
    return Written(fiel);
  };
  const auto shape = [&](ZR_U32 width, ZR_U32 height) {
    pasp.setPasp(width, height);
    return Written(pasp);
  };
  const auto nclc = [](ZR_U16 primaries, ZR_U16 transfer, ZR_U16 matrix) {
    return BoxBytes("colr", Bytes().text("nclc").be16(primaries).be16(transfer).be16(matrix));
  };
  const auto fields = [](ZR_U8 count, ZR_U8 order) { return BoxBytes("fiel", Bytes().u8(count).u8(order)); };
  const auto ratio = [](ZR_U32 x, ZR_U32 y) { return BoxBytes("pasp", Bytes().be32(x).be32(y)); };
  const std::pair<Nal, Bytes> kRows[] = {
      {colour(1), nclc(1, 1, 1)}, {colour(5), nclc(5, 1, 6)}, {colour(6), nclc(6, 1, 6)},
      {colour(9), nclc(9, 1, 6)},  // Deliberate: the matrix is 6, not 9.
      {colour(11), nclc(9, 16, 9)}, {colour(12), nclc(9, 18, 9)},
      {colour(2), nclc(9, 18, 9)}, {colour(13), nclc(9, 18, 9)},  // unknown: as before
      {field(1), fields(2, 9)}, {field(2), fields(2, 14)}, {field(3), fields(2, 14)}, {field(0), fields(1, 0)},
      {field(0x100), fields(1, 0)},
      {shape(1280, 1080), ratio(3, 2)}, {shape(960, 720), ratio(4, 3)}, {shape(1920, 1080), ratio(1, 1)},
      {shape(1440, 1080), ratio(4, 3)}, {shape(1280, 720), ratio(1, 1)},
  };
  for (const auto& [written, expected] : kRows) EXPECT_EQ(expected.difference(written), "");
}

// A descriptor as other writers leave it: lengths in 1 to 4 bytes, in 5 for one that does not end, and any rest.
Bytes ForeignEsds(int width, std::size_t restSize, ZR_U32 maxBitrate) {
  const auto length = [&](ZR_U8 value) {
    return Bytes().fill(static_cast<std::size_t>(width - 1), 0x80).add(width < 5 ? Bytes().u8(value) : Bytes());
  };
  return BoxBytes("esds", Bytes().be32(0x01000203).u8(3).add(length(0x7F)).be16(7).u8(0x1F).u8(4).add(length(0x11))
                              .u8(0x6B).u8(0x15).be24(0xABCDEF).be32(maxBitrate).be32(64000).fill(restSize, 0x5C));
}

TEST(EsdsAtom, FromAFileIsWrittenBackByteForByte) {
  for (int width = 1; width <= 5; ++width) {
    for (const std::size_t rest : {0, 3, 400}) {
      const Bytes bytes = ForeignEsds(width, rest, 96000);
      const auto esds = ReadAs<EsdsAtom>(Bytes().add(bytes).fill(50));  // its box, not the stream, ends it
      ASSERT_NE(esds, nullptr) << width;
      EXPECT_EQ(bytes.difference(Written(*esds)), "") << width;
      EXPECT_EQ(esds->objectTypeIndication(), 0x6B);
      esds->setBitrates(123456, 64000);
      EXPECT_EQ(ForeignEsds(width, rest, 123456).difference(Written(*esds)), "") << width;
    }
  }
  const std::tuple<Bytes, ZR_U32, ZR_U8> kLengths[] = {
      {Bytes().be16(0x8101), 129, 2},
      {Bytes().be32(0xFFFFFF7F), (1u << 28) - 1, 4},
      {Bytes().be32(0x80818280), 0x4100, 5},  // the fourth byte is the last, whatever it says
  };
  for (const auto& [bytes, size, width] : kLengths) {
    ShortStream in(Bytes().add(bytes).u8(0x11)), out;
    ZR_U32 readSize = 99;
    ZR_U8 readWidth = 99;
    ASSERT_EQ(EsdsAtom::ReadTagSize(&in, readSize, readWidth), 0);
    EXPECT_TRUE(readSize == size && readWidth == width && in.getCurPos() == bytes.size()) << size;
    ASSERT_EQ(EsdsAtom::WriteTagSize(&out, size, width), 0);
    EXPECT_EQ(bytes.difference(out.data()), "");
  }
}

ZR_U32 AudioSpecificConfig(AacAtom& esds) {
  const Nal bytes = Written(esds);
  return static_cast<ZR_U32>(bytes[43] << 8 | bytes[44]);
}

TEST(AacAtom, ConfigurationNamesTheRateOfTheTableOrTheOneThatDecodersTake) {
  const struct {
    ZR_U32 rate;
    ZR_U8 index;
    bool exact;
  } kRates[] = {
      {96000, 0, true}, {88200, 1, true}, {64000, 2, true}, {48000, 3, true}, {44100, 4, true}, {32000, 5, true},
      {24000, 6, true}, {22050, 7, true}, {16000, 8, true}, {12000, 9, true}, {11025, 10, true}, {8000, 11, true},
      {7350, 12, true}, {0xFFFFFFFF, 0, false}, {92017, 0, false}, {92016, 1, false}, {37566, 4, false},
      {37565, 5, false}, {44099, 4, false}, {9391, 10, false}, {9390, 11, false}, {7349, 11, false}, {0, 11, false},
  };
  AacAtom esds;
  for (const auto& row : kRates) {
    const LogCapture log;
    ZR_U8 index = 99;
    EXPECT_EQ(AacParser::SampleRatesToFreqIndex(row.rate, &index) == 0, row.exact) << row.rate;
    EXPECT_EQ(index, row.index) << row.rate;
    esds.SetAudioConfig(2, row.rate, 1024);
    EXPECT_EQ(AudioSpecificConfig(esds), 0x1010u | row.index << 7) << row.rate;
    EXPECT_EQ(log.lines().size(), row.exact ? 0u : 1u) << "a notice";
  }
  AacAtom channels;
  channels.SetAudioConfig(0xFFF2, 48000, 1024);
  channels.setFrequencyIndex(4);  // what the stream says wins
  EXPECT_EQ(AudioSpecificConfig(channels), 0x1210u) << "too many channels spoil no other field";
  channels.SetAudioConfig(8, 48000, 1024);
  EXPECT_EQ(AudioSpecificConfig(channels), 0x11C0u) << "deliberately 8, the number of channels";
}

}  // namespace
