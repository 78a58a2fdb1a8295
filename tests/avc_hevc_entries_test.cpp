#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>

#include "box/avc_entry.h"
#include "box/hevc_entry.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/short_stream.h"

using namespace zrmp4;

namespace {

const Nal kAvcSps = {0x67, 0x64, 0x00, 0x0D, 0xAC, 0xD9};
const Nal kAvcPps = {0x68, 0xEB, 0xE3};
const Nal kSei = {0x4E, 0x01, 0x05, 0x01, 0xAA};

ZR_U16 Size(const Nal& nal) { return static_cast<ZR_U16>(nal.size()); }

int AddSps(AvccAtom& box, const Nal& nal) { return box.AddSps(nal.data(), Size(nal)); }
int AddPps(AvccAtom& box, const Nal& nal) { return box.AddPps(nal.data(), Size(nal)); }
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

Nal Written(Atom& box) {
  ShortStream out;
  EXPECT_EQ(box.Write(&out), 0);
  return out.data();
}

template <typename Box>
std::unique_ptr<Box> ReadFrom(const Nal& bytes) {
  ShortStream in(bytes);
  AtomHeader header;
  if (header.Read(&in) != 0) return nullptr;
  auto box = std::make_unique<Box>(header);
  return box->ReadContent(&in) == 0 ? std::move(box) : nullptr;
}

std::unique_ptr<Atom> ReadConfiguration(const Nal& bytes) {
  if (bytes[4] == 'a') return ReadFrom<AvccAtom>(bytes);
  return ReadFrom<HvccAtom>(bytes);
}

Bytes Box(const Bytes& typeAndBody) { return Bytes().be32(typeAndBody.size() + 4).add(typeAndBody); }

Bytes AvccBody() {
  return Bytes().type("avcC").add(Nal{1, 0x64, 0, 0x0D, 0xFF, 0xE1, 0, 6}).add(kAvcSps).add(Nal{1, 0, 3}).add(kAvcPps);
}

Bytes HvccBody(ZR_U8 arrays, ZR_U8 typeFlags = 0) {
  const Nal fixed = {1,    0x01, 0x60, 0,    0,    0,    0x90, 0,    0, 0, 0,    0,  60,
                     0xF0, 0,    0xFF, 0xFD, 0xF8, 0xF8, 0,    0,    0x0F};
  Bytes body = Bytes().type("hvcC").add(fixed).u8(arrays);
  ZR_U8 type = 32;
  for (const Nal& nal : {kHevcVps, kHevcSps, kHevcPps}) body.u8(typeFlags | type++).be16(1).be16(nal.size()).add(nal);
  return body;
}

const Bytes kAvcc = Box(AvccBody());
const Bytes kHvcc = Box(HvccBody(4).u8(39).be16(0));

std::unique_ptr<AvccAtom> MakeAvcc() {
  auto box = std::make_unique<AvccAtom>();
  EXPECT_EQ(AddSps(*box, kAvcSps) | AddPps(*box, kAvcPps), 0);
  return box;
}

std::unique_ptr<HvccAtom> MakeHvcc() {
  auto box = std::make_unique<HvccAtom>();
  EXPECT_EQ(Add(*box, kHevcVps) | Add(*box, kHevcSps) | Add(*box, kHevcPps), 0);
  box->settleSize();
  return box;
}

template <typename Entry>
std::unique_ptr<Entry> MakeEntry(std::unique_ptr<Atom> configuration) {
  auto entry = std::make_unique<Entry>();
  entry->setPicSize(320, 240);
  entry->AddChild(configuration.release());
  return entry;
}

Bytes EntryBytes(const char* type, const std::string& name, const Bytes& child) {
  const Nal resolutions = {0, 0x48, 0, 0, 0, 0x48, 0, 0};
  return Bytes().be32(86 + child.size()).type(type).fill(6).be16(1).fill(16).be16(320).be16(240).add(resolutions)
      .be32(0).be16(1).text(name).fill(32 - name.size()).be16(0x18).be16(0xFFFF).add(child);
}

}  // namespace

TEST(AvcHevcEntries, ConfigurationBytes) {
  CheckBox({"avcC", MakeAvcc, kAvcc});
  CheckBox({"hvcC", MakeHvcc, kHvcc});
}

// An entry is a container, so a child that is cut off costs the child alone.
TEST(AvcHevcEntries, EntryBytes) {
  const struct {
    std::unique_ptr<Atom> made;
    Bytes bytes;
    std::unique_ptr<Atom> (*read)(const Nal&);
    const char* notWritten;
    const char* notSkipped;
  } cases[] = {
      {MakeEntry<Avc1Atom>(MakeAvcc()), EntryBytes("avc1", "\nAVC Coding", kAvcc),
       [](const Nal& from) -> std::unique_ptr<Atom> { return ReadFrom<Avc1Atom>(from); },
       "write avc1 compressor error\n", "skip avc1 compressor error\n"},
      {MakeEntry<Hvc1Atom>(MakeHvcc()), EntryBytes("hvc1", "\vHEVC Coding", kHvcc),
       [](const Nal& from) -> std::unique_ptr<Atom> { return ReadFrom<Hvc1Atom>(from); },
       "write hvc1 compressor error\n", "skip hvc1 compressor error\n"},
  };
  constexpr std::size_t kName = 8 + 42, kFixed = 86;
  for (const auto& test : cases) {
    const LogCapture log;
    const Nal& bytes = test.bytes;
    EXPECT_EQ(test.bytes.difference(Written(*test.made)), "");
    const auto whole = test.read(bytes);
    ASSERT_NE(whole, nullptr);
    EXPECT_EQ(test.bytes.difference(Written(*whole)), "");
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      const bool inName = cut >= kName && cut < kName + 32;
      log.clear();
      ShortStream full({}, cut);
      EXPECT_EQ(test.made->Write(&full), -1) << cut;
      EXPECT_EQ(log.transferFailures(), 1) << cut << log.all();
      EXPECT_EQ(log.has(test.notWritten), inName) << cut;
      log.clear();
      const auto read = test.read(Nal(bytes.begin(), bytes.begin() + static_cast<long>(cut)));
      ASSERT_EQ(read != nullptr, cut >= kFixed) << cut;
      EXPECT_TRUE(read == nullptr || read->firstChild() == nullptr) << cut;
      EXPECT_EQ(log.transferFailures() + log.has(test.notSkipped), cut == kFixed ? 0 : 1) << cut << log.all();
      EXPECT_EQ(log.has(test.notSkipped), inName) << cut;
    }
  }
}

TEST(AvcHevcEntries, FilesOfOtherWritersAreKeptWhole) {
  const Bytes suffixSei = Bytes().u8(40).be16(1).be16(kSei.size()).add(kSei);
  const Bytes boxes[] = {
      Box(AvccBody().add(Nal{0xFD, 0xF8, 0xF8, 0x00})),  // what high profiles append
      Box(Bytes().type("avcC").add(Nal{1, 1, 2, 3, 0xFF, 0xE2, 0, 1, 9, 0, 1, 9, 1, 0, 1, 8})),  // the same SPS twice
      Box(HvccBody(3, 0x80)),
      Box(HvccBody(5).u8(39).be16(0).add(suffixSei)),
      Box(Bytes().type("hvcC").fill(13).u8(0xF0).u8(0).u8(0xFC).u8(0xFC).u8(0xF8).u8(0xF8).fill(4)),  // no array
  };
  for (const Bytes& box : boxes) {
    const std::unique_ptr<Atom> read = ReadConfiguration(box);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(box.difference(Written(*read)), "");
    if (auto* hvcc = dynamic_cast<HvccAtom*>(read.get())) hvcc->settleSize();
    EXPECT_EQ(read->header().size, box.size());
  }
}

TEST(AvcHevcEntries, DamagedConfigurationsAreRefused) {
  const auto avcc = [](const Nal& counted) { return Bytes().type("avcC").add(Nal{1, 1, 2, 3, 0xFF}).add(counted); };
  const auto hvcc = [](const Nal& arrays) { return Bytes().type("hvcC").fill(22).add(arrays); };
  const struct {
    Bytes box;
    const char* message;
  } cases[] = {
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
  for (const auto& test : cases) {
    const LogCapture log;
    // More of the file follows, which is not the box's.
    const Bytes file = Box(test.box).fill(0x20000);
    EXPECT_EQ(ReadConfiguration(file), nullptr) << test.message;
    EXPECT_TRUE(log.has(test.message)) << test.message << log.all();
  }
}

TEST(AvccAtom, KeepsEachSetOnceAndTheProfileOfTheLast) {
  const LogCapture log;
  AvccAtom box;
  EXPECT_FALSE(box.hasSps() || box.hasPps());
  EXPECT_EQ(AddSps(box, kAvcSps) | AddPps(box, kAvcPps), 0);
  EXPECT_EQ(AddSps(box, kAvcSps) | AddPps(box, kAvcPps), 0);
  EXPECT_TRUE(box.hasSps() && box.hasPps());
  EXPECT_EQ(log.count("avc sps is already exist\n"), 1);
  EXPECT_EQ(log.count("avc pps is already exist\n"), 1);
  EXPECT_EQ(log.lines()[0].level, 0);
  EXPECT_EQ(box.header().size, 15u + 2 + 6 + 2 + 3);

  const struct {
    Nal sps, profile;
  } cases[] = {
      {{0x67, 0x00, 0x00, 0x03, 0x1E, 0xAA}, {0x00, 0x00, 0x1E}},  // an emulation prevention byte among the three
      {{0x67, 0x4D, 0x40, 0x29}, {0x4D, 0x40, 0x29}},
      {{0x67, 0x42}, {0x42, 0x00, 0x00}},
  };
  for (const auto& test : cases) {
    ASSERT_EQ(AddSps(box, test.sps), 0);
    const Nal written = Written(box);
    EXPECT_EQ(Nal(written.begin() + 9, written.begin() + 12), test.profile);
    EXPECT_EQ(written.size(), box.header().size);
  }
  const auto read = ReadFrom<AvccAtom>(Written(box));
  EXPECT_TRUE(read->IsParamentSetExist(kAvcSps.data(), Size(kAvcSps), read->sps()));
  EXPECT_FALSE(read->IsParamentSetExist(kAvcSps.data(), Size(kAvcSps), read->pps()));
  EXPECT_FALSE(read->IsParamentSetExist(nullptr, 3, read->sps()));
}

TEST(AvccAtom, RefusesSetsBeyondTheirCounts) {
  const LogCapture log;
  AvccAtom box;
  for (unsigned i = 0; i < 31; ++i) ASSERT_EQ(AddSps(box, Variant(kAvcSps, i)), 0);
  for (unsigned i = 0; i < 255; ++i) ASSERT_EQ(AddPps(box, Variant(kAvcPps, i)), 0);
  const Nal before = Written(box);
  EXPECT_EQ(AddSps(box, Variant(kAvcSps, 31)), -1);
  EXPECT_EQ(AddPps(box, Variant(kAvcPps, 255)), -1);
  EXPECT_EQ(AddSps(box, Variant(kAvcSps, 30)), 0);
  EXPECT_EQ(box.AddSps(nullptr, 4), -1);
  EXPECT_EQ(box.AddPps(kAvcPps.data(), 0), -1);
  EXPECT_EQ(Written(box), before);
  EXPECT_TRUE(log.has("avc sps has reach max cnt[31]\n"));
  EXPECT_TRUE(log.has("avc pps has reach max cnt[255]\n"));
}

// Deliberate: a VPS adds an array header as long as there is no PPS. What is written has always four.
TEST(HvccAtom, SizeWhileSetsAreAddedAndWhenSettled) {
  const struct {
    const char* order;
    ZR_U32 headers;
  } cases[] = {{"", 0}, {"vsp", 9}, {"vspe", 12}, {"vvsp", 12}, {"pvs", 6}, {"vpvee", 9}, {"ppss", 6}};
  for (const auto& test : cases) {
    Hvc1Atom entry;
    auto* box = new HvccAtom;
    entry.AddChild(box);
    ZR_U32 sets = 0;
    for (const char* kind = test.order; *kind != '\0'; ++kind) {
      const Nal& plain = *kind == 'v' ? kHevcVps : *kind == 's' ? kHevcSps : *kind == 'p' ? kHevcPps : kSei;
      const Nal set = Variant(plain, static_cast<unsigned>(kind - test.order));
      ASSERT_EQ(Add(*box, set) | Add(*box, set), 0);
      sets += 2 + Size(set);
    }
    EXPECT_EQ(box->header().size, 31 + test.headers + sets) << test.order;
    EXPECT_EQ(entry.header().size, 86 + box->header().size);
    box->settleSize();
    EXPECT_EQ(box->header().size, 31 + 12 + sets) << test.order;
    EXPECT_EQ(entry.header().size, Written(entry).size()) << test.order;
  }
}

TEST(HvccAtom, SummarisesItsSets) {
  HvccAtom box;
  HevcSpsBits high;  // high tier, level 93, two temporal layers, 4:4:4, 10 and 12 bits, segmentation 100
  high.compatibility = "01100000" + Times(24, "0");
  HevcSpsBits main = high;
  main.profile = "00 0 00011";
  main.level = "01111000";  // 120
  main.compatibility = "00110000" + Times(24, "1");
  main.constraints = Times(24, "1") + Times(12, "01");
  ASSERT_EQ(Add(box, main.bytes()) | Add(box, high.bytes()), 0);
  // Deliberate: the segmentation stays 0. The level is that of the higher tier, though it is lower.
  const Bytes summary = Bytes()
                            .u8(1)
                            .u8(0x63)
                            .be32(0x20000000)
                            .be32(0x90FFFF55)
                            .be16(0x5555)
                            .u8(93)  //
                            .be16(0xF000)
                            .u8(0xFC)
                            .u8(0xFF)
                            .u8(0xFA)
                            .u8(0xFC)
                            .be16(0)
                            .u8(0x17)
                            .u8(4);
  const Nal written = Written(box);
  EXPECT_EQ(summary.difference(Nal(written.begin() + 8, written.begin() + 31)), "");
}

TEST(HvccAtom, TellsHowSlicesMayBeDecodedInParallel) {
  const struct {
    const char* tilesAndSync;
    ZR_U8 type;
  } cases[] = {{"0 0", 1}, {"1 0", 2}, {"0 1", 3}, {"1 1", 0}};
  HvccAtom box;
  for (const auto& test : cases) {
    const std::string pps = "0 100010 000000 001 1 1 0 0 000 1 0 1 010 00100 0 1 1 011 1 00100 0 1 0 0";
    ASSERT_EQ(Add(box, FromBits(pps + test.tilesAndSync + "0000 1")), 0);
    EXPECT_EQ(Written(box)[23], 0xFC | test.type) << test.tilesAndSync;
  }
}

TEST(HvccAtom, ARefusedSetChangesNothing) {
  const LogCapture log;
  HvccAtom box;
  EXPECT_EQ(Add(box, kHevcVps) | Add(box, kHevcSps) | Add(box, kHevcPps), 0);
  for (unsigned i = 1; i < 16; ++i) EXPECT_EQ(Add(box, Variant(kHevcVps, i)) | Add(box, Variant(kHevcSps, i)), 0);
  const Nal before = Written(box);
  for (const Nal& bad : {Nal{0x40, 1}, Nal{0x42, 1, 1}, Variant(kHevcVps, 16), Variant(kHevcSps, 16)}) {
    EXPECT_EQ(Add(box, bad), -1);
  }
  EXPECT_TRUE(log.has("hevc vps has reach max cnt[16]\n"));
  EXPECT_TRUE(log.has("hevc sps has reach max cnt[16]\n"));
  for (const Nal& bad : {Nal{0x44, 1}, Nal{0x44, 0}}) EXPECT_EQ(Add(box, bad), -1);
  EXPECT_EQ(log.count("HevcParser Parse pps error\n"), 2);
  EXPECT_EQ(log.count("Parse pps fail\n"), 2);
  EXPECT_EQ(box.AddSei(nullptr, 5), -1);
  EXPECT_EQ(box.AddVps(kHevcVps.data(), 0), -1);
  EXPECT_EQ(Written(box), before);
  for (unsigned i = 1; i < 64; ++i) EXPECT_EQ(Add(box, Variant(kHevcPps, i)), 0);
  EXPECT_EQ(Add(box, Variant(kHevcPps, 64)), -1);
  EXPECT_TRUE(log.has("hevc pps has reach max cnt[64]\n"));

  HvccAtom fresh;
  const Nal empty = Written(fresh);
  for (const Nal& nal : {kHevcVps, kHevcSps, kHevcPps, kSei}) {
    for (std::size_t allocations = 0; allocations < 2; ++allocations) {
      const AllocFaults noMemory(allocations);
      EXPECT_EQ(Add(fresh, nal), -1);
    }
  }
  EXPECT_EQ(Add(fresh, {0x40, 1, 2}), -1);
  EXPECT_EQ(Add(fresh, {0x42, 1, 2}), -1);
  EXPECT_TRUE(log.has("HevcParser Parse vps error\n"));
  EXPECT_TRUE(log.has("HevcParser Parse sps error\n"));
  EXPECT_TRUE(log.has("Parse sps fail\n"));
  EXPECT_EQ(Written(fresh), empty);
}

TEST(HvccAtom, CollectsSeiUntilItsCountIsFullWithoutGettingSlower) {
  const Nal known = {0x4E, 0x01, 0x00, 0x12, 0x34};
  HvccAtom box;
  auto addUpTo = [&, next = 0u](ZR_U32 end) mutable {
    const std::clock_t start = std::clock();
    for (; next < end; ++next) {
      const Nal sei = {0x4E, 0x01, static_cast<ZR_U8>(next >> 16), static_cast<ZR_U8>(next >> 8),
                       static_cast<ZR_U8>(next)};
      EXPECT_EQ(Add(box, sei), 0);
    }
    return std::clock() - start;
  };
  const std::clock_t first = addUpTo(0x2000);
  addUpTo(0xDFFF);
  const std::clock_t last = addUpTo(0xFFFF);
  EXPECT_LT(last, 8 * first + CLOCKS_PER_SEC / 10);
  const ZR_U32 full = box.header().size;
  addUpTo(0x10010);
  EXPECT_EQ(box.header().size, full);
  box.settleSize();
  EXPECT_EQ(Written(box).size(), 31u + 12 + 0xFFFF * 7);
  EXPECT_EQ(box.header().size, 31u + 12 + 0xFFFF * 7);
  const LogCapture log;
  {
    const AllocFaults noMemory(0);
    EXPECT_EQ(box.AddSei(known.data(), Size(known)), 0);
  }
  EXPECT_TRUE(log.has("hevc sei is already exist\n"));
}
