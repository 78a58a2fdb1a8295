#include "box/sample_tables.h"

#include <gtest/gtest.h>

#include <map>
#include <tuple>
#include <typeinfo>

#include "base/make_or_null.h"
#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/hevc_entry.h"
#include "box/prores_entry.h"
#include "box/stsd_atom.h"
#include "box/user_def_atom.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

using namespace zrmp4;

namespace {

using Values = std::vector<ZR_U64>;

void Append(Values& values, const SttsEntry& run) { values.insert(values.end(), {run.sampleCount, run.sampleDelta}); }
void Append(Values& values, const StscEntry& run) {
  values.insert(values.end(), {run.firstChunk, run.samplesPerChunk, run.sampleDescriptionIndex});
}
void Append(Values& values, ZR_U64 value) { values.push_back(value); }

// The entries of a table, their fields one behind the other.
template <typename Table>
Values Listed(const Table& table) {
  Values values;
  for (const auto& entry : table.entries()) Append(values, entry);
  return values;
}

ZR_U32 Low(ZR_U64 value) { return static_cast<ZR_U32>(value); }
bool AddTo(SttsAtom& table, const ZR_U64* fields) { return table.addEntry(Low(fields[0]), Low(fields[1])); }
bool AddTo(StscAtom& table, const ZR_U64* fields) {
  return table.addEntry(Low(fields[0]), Low(fields[1]), Low(fields[2]));
}
bool AddTo(Co64Atom& table, const ZR_U64* fields) { return table.addEntry(fields[0]); }
template <typename Table>
bool AddTo(Table& table, const ZR_U64* fields) {
  return table.addEntry(Low(fields[0]));
}

// A table grown entry by entry, each of that many fields.
template <typename Table, unsigned kWidth = 1, typename... Fields>
std::unique_ptr<Table> Grown(Fields... fields) {
  const Values values = {static_cast<ZR_U64>(fields)...};
  auto table = MakeOrNull<Table>();
  for (std::size_t i = 0; i < values.size(); i += kWidth) EXPECT_TRUE(AddTo(*table, &values[i]));
  return table;
}
template <typename... Fields>
std::unique_ptr<SttsAtom> Stts(Fields... fields) {
  return Grown<SttsAtom, 2>(fields...);
}
template <typename... Fields>
std::unique_ptr<StscAtom> Stsc(Fields... fields) {
  return Grown<StscAtom, 3>(fields...);
}

template <typename Table>
void ExpectHolds(const Table& table, const Values& entries, ZR_U32 size, int line = __builtin_LINE()) {
  EXPECT_EQ(Listed(table), entries) << "line " << line;
  EXPECT_EQ(table.header().size, size) << "line " << line;
}

std::unique_ptr<Atom> ReadStbl(const std::vector<std::uint8_t>& bytes) {
  ShortStream stream(bytes);
  auto stbl = MakeOrNull<StblAtom>();
  return stbl->Read(&stream) == 0 ? std::move(stbl) : nullptr;
}

std::vector<std::uint8_t> Written(Atom& box) {
  ShortStream stream;
  EXPECT_EQ(box.Write(&stream), 0);
  return stream.data();
}

Bytes Box(const char* type, const Bytes& payload) { return Bytes().be32(8 + payload.size()).type(type).add(payload); }

TEST(SampleTables, BytesInBothDirections) {
  const BoxCase kBoxes[] = {
      {"stts", [] { return Stts(10, 3000, 5, 3000, 1, 3001); },
       Bytes().be32(32).type("stts").be32(0).be32(2).be32(15).be32(3000).be32(1).be32(3001)},
      {"stsc", [] { return Stsc(1, 1, 1, 2, 1, 1, 3, 2, 1); },
       Bytes().be32(40).type("stsc").be32(0).be32(2).be32(1).be32(1).be32(1).be32(3).be32(2).be32(1)},
      {"stsz", [] { return Grown<StszAtom>(0x01020304, 7); },
       Bytes().be32(28).type("stsz").be32(0).be32(0).be32(2).be32(0x01020304).be32(7)},
      {"stco", [] { return Grown<StcoAtom>(48, 0xFFFFFFFF); },
       Bytes().be32(24).type("stco").be32(0).be32(2).be32(48).be32(0xFFFFFFFF)},
      {"co64", [] { return Grown<Co64Atom>(48, 0x0102030405060708); },
       Bytes().be32(32).type("co64").be32(0).be32(2).be64(48).be64(0x0102030405060708)},
      {"stss", [] { return Grown<StssAtom>(1, 31); }, Bytes().be32(24).type("stss").be32(0).be32(2).be32(1).be32(31)},
      {"empty stsz", [] { return MakeOrNull<StszAtom>(); }, Bytes().be32(20).type("stsz").be32(0).be32(0).be32(0)},
      {"empty stsd", [] { return MakeOrNull<StsdAtom>(); }, Bytes().be32(16).type("stsd").be32(0).be32(0)},
      {"gpmd", [] { return MakeOrNull<GpmdAtom>(); }, Bytes().be32(20).type("gpmd").be32(0).be32(1).be32(0)},
  };
  for (const BoxCase& box : kBoxes) CheckBox(box);
}

// Entries come in blocks of 128 and 1024; none may be lost or repeated where one ends.
TEST(SampleTables, AnyNumberOfEntriesComesBackWhole) {
  for (const ZR_U32 n : {1u, 127u, 128u, 129u, 256u, 1023u, 1024u, 1025u, 2048u, 3000u}) {
    SttsAtom stts;
    StscAtom stsc;
    StszAtom stsz;
    Co64Atom co64;
    Bytes runs, chunks, sizes, offsets;
    for (ZR_U32 i = 1; i <= n; ++i) {
      stts.addEntry(i, i ^ 0xABCD1234u);
      stsc.addEntry(i, i + 5, 1);
      stsz.addEntry(i * 65537u);
      co64.addEntry(i * 0x100000001u);
      runs.be32(i).be32(i ^ 0xABCD1234u);
      chunks.be32(i).be32(i + 5).be32(1);
      sizes.be32(i * 65537u);
      offsets.be64(i * 0x100000001u);
    }
    const std::pair<Atom*, Bytes> kTables[] = {
        {&stts, Box("stts", Bytes().be32(0).be32(n).add(runs))},
        {&stsc, Box("stsc", Bytes().be32(0).be32(n).add(chunks))},
        {&stsz, Box("stsz", Bytes().be32(0).be32(0).be32(n).add(sizes))},
        {&co64, Box("co64", Bytes().be32(0).be32(n).add(offsets))},
    };
    for (const auto& [table, bytes] : kTables) {
      SCOPED_TRACE(table->type() + " of " + std::to_string(n));
      EXPECT_EQ(bytes.difference(Written(*table)), "");
      const auto stbl = ReadStbl(Box("stbl", bytes));
      ASSERT_EQ(stbl->childCount(), 1u);
      EXPECT_EQ(bytes.difference(Written(*stbl->firstChild())), "");
    }
  }
}

TEST(SampleTables, WhatWasReadIsWrittenBackAsItWas) {
  const Bytes kTables[] = {
      // Equal durations stay apart, and a common sample size does not replace the list.
      Box("stts", Bytes().u8(1).be24(0x123456).be32(2).be32(1).be32(40).be32(2).be32(40)),
      Box("stsc", Bytes().u8(2).be24(7).be32(2).be32(1).be32(1).be32(1).be32(2).be32(1).be32(1)),
      Box("stsz", Bytes().u8(0).be24(1).be32(640).be32(2).be32(640).be32(641)),
      Box("stss", Bytes().be32(0xFF000001).be32(2).be32(9).be32(3)),
  };
  for (const Bytes& bytes : kTables) {
    const auto stbl = ReadStbl(Box("stbl", bytes));
    ASSERT_EQ(stbl->childCount(), 1u);
    EXPECT_EQ(Box("stbl", bytes).difference(Written(*stbl)), "");
  }
}

TEST(SampleTables, EveryTypeHasItsClassAndAnEmptyTableANotice) {
  const std::pair<const char*, const std::type_info&> kClasses[] = {
      {"stsd", typeid(StsdAtom)}, {"stts", typeid(SttsAtom)}, {"stsc", typeid(StscAtom)}, {"stsz", typeid(StszAtom)},
      {"stss", typeid(StssAtom)}, {"stco", typeid(StcoAtom)}, {"co64", typeid(Co64Atom)}, {"ctts", typeid(UserDefAtom)},
  };
  for (const auto& [type, kind] : kClasses) {
    const LogCapture log;
    const Bytes bytes = Box("stbl", Box(type, Bytes().fill(kind == typeid(StszAtom) ? 12 : 8)));
    const auto stbl = ReadStbl(bytes);
    ASSERT_EQ(stbl->childCount(), 1u) << type;
    const Atom& child = *stbl->firstChild();
    EXPECT_EQ(typeid(child), kind) << type;
    EXPECT_EQ(bytes.difference(Written(*stbl)), "");
    const bool isTable = kind != typeid(StsdAtom) && kind != typeid(UserDefAtom);
    EXPECT_EQ(log.all(), isTable ? std::string("MP4 1 no entry in ") + type + "\n" : "");
  }
}

// Counts that lead beyond the box or the file are refused before memory is taken for them.
TEST(SampleTables, HostileCountsTakeNoMemory) {
  const ZR_U32 kSize = 40;
  const ZR_U32 kBound = 0xFFFFFFFFu - kSize;
  const std::tuple<const char*, ZR_U32, const char*> kCases[] = {
      {"stts", kBound / 8 + 1, "stts entry count err\n"},
      {"stts", kBound / 8, "read 4294967248 bytes to stts buf failed\n"},  // this bound alone includes its limit
      {"stts", 4, "read 32 bytes to stts buf failed\n"},
      {"stsc", kBound / 12, nullptr},
      {"stsc", kBound / 12 - 1, "read 4294967232 bytes to stsc buf failed\n"},
      {"stsz", kBound / 4, nullptr},
      {"stsz", kBound / 4 - 1, "read 4294967248 bytes to stsz buf failed\n"},
      {"stsz", 6, "read 24 bytes to stsz buf failed\n"},
      {"stco", 0xFFFFFFFF, nullptr},
      {"stco", 0x10000000, "read 1073741824 bytes to stco buf failed\n"},
      {"co64", kBound / 8, nullptr},
      {"co64", 4, "read 32 bytes to co64 buf failed\n"},
      {"stss", kBound / 4, nullptr},
      {"stss", 7, "read 28 bytes to stss buf failed\n"},
  };
  for (const auto& [type, count, message] : kCases) {
    SCOPED_TRACE(std::string(type) + " " + std::to_string(count));
    Bytes payload = Bytes().be32(0);
    if (type == std::string("stsz")) payload.be32(0);
    payload.be32(count);
    Bytes table = Bytes().be32(kSize).type(type).add(payload).fill(kSize - 8 - payload.size(), 1);
    // What follows the box must not be taken for its entries, and is read again after the broken box.
    const Bytes bytes = Bytes().add(Box("stbl", table)).add(Box("free", Bytes().fill(64)));
    const LogCapture log;
    ShortStream stream(bytes.data());
    StblAtom stbl;
    {
      const AllocFaults memory;
      EXPECT_EQ(stbl.Read(&stream), 0);
      EXPECT_LT(memory.largest(), 1024u);
    }
    EXPECT_EQ(stbl.childCount(), 0u);
    EXPECT_EQ(stream.getCurPos(), 8 + kSize);
    const std::string why = message != nullptr ? std::string("MP4 3 ") + message : "";
    EXPECT_EQ(log.all(), why + "MP4 3 read data failed\n");
  }
}

TEST(SampleTables, EveryEntryGrowsTheBoxesAbove) {
  StblAtom stbl;
  SttsAtom* stts = new SttsAtom;
  StscAtom* stsc = new StscAtom;
  StszAtom* stsz = new StszAtom;
  StcoAtom* stco = new StcoAtom;
  Co64Atom* co64 = new Co64Atom;
  StssAtom* stss = new StssAtom;
  const ZR_U32 kEmpty = 8 + 5 * 16 + 20;
  for (Atom* table : {static_cast<Atom*>(stts), static_cast<Atom*>(stsc), static_cast<Atom*>(stsz),
                      static_cast<Atom*>(stco), static_cast<Atom*>(co64), static_cast<Atom*>(stss)}) {
    stbl.AddChild(table);
  }
  ASSERT_EQ(stbl.header().size, kEmpty);

  // Twice, because tables are emptied and filled again after every snapshot.
  for (int round = 0; round < 2; ++round) {
    ZR_U32 expected = kEmpty;
    const auto grows = [&](const Atom* table, ZR_U32 growth, bool added, ZR_U32 before) {
      EXPECT_TRUE(added);
      EXPECT_EQ(table->header().size, before + growth) << table->type();
      EXPECT_EQ(stbl.header().size, expected += growth) << table->type();
    };
    grows(stts, 8, stts->addEntry(10, 3000), 16);
    grows(stts, 0, stts->addEntry(5, 3000), 24);
    grows(stts, 8, stts->addEntry(1, 3001), 24);
    grows(stsc, 12, stsc->addEntry(1, 1, 1), 16);
    grows(stsc, 0, stsc->addEntry(2, 1, 1), 28);
    grows(stsc, 12, stsc->addEntry(3, 2, 1), 28);
    grows(stsc, 12, stsc->addEntry(4, 2, 2), 40);
    grows(stsz, 4, stsz->addEntry(700), 20);
    grows(stco, 4, stco->addEntry(48), 16);
    grows(co64, 8, co64->addEntry(48), 16);
    grows(stss, 4, stss->addEntry(1), 16);
    EXPECT_EQ(Listed(*stts), (Values{15, 3000, 1, 3001}));
    EXPECT_EQ(Listed(*stsc), (Values{1, 1, 1, 3, 2, 1, 4, 2, 2}));
    EXPECT_EQ(Written(stbl).size(), expected);

    stts->clear(), stsc->clear(), stsz->clear(), stco->clear(), co64->clear(), stss->clear();
    EXPECT_EQ(stbl.header().size, kEmpty);
    EXPECT_EQ(stsz->getCount(), 0u);
    // The memory is still there.
    const AllocFaults memory;
    EXPECT_TRUE(stts->reserve() && stsc->reserve() && stsz->reserve() && stco->reserve() && co64->reserve() &&
                stss->reserve());
    EXPECT_EQ(memory.count(), 0u);
  }
}

TEST(SampleTables, WhenMemoryIsOutNothingHasChanged) {
  const LogCapture log;
  StszAtom table;
  ASSERT_TRUE(table.reserve());
  const ZR_U32 room = table.room();
  for (ZR_U32 i = 0; i < room; ++i) {
    const AllocFaults memory(0);
    ASSERT_TRUE(table.addEntry(i));  // reserved, so it cannot fail
  }
  {
    const AllocFaults memory(0);
    EXPECT_FALSE(table.addEntry(1));
    EXPECT_FALSE(table.reserve());
  }
  EXPECT_EQ(log.all(), "MP4 3 no memory:stsz\nMP4 3 no memory:stsz\n");
  EXPECT_EQ(table.getCount(), room);
  EXPECT_EQ(table.header().size, 20u + 4 * room);
  ASSERT_TRUE(table.reserve());
  const AllocFaults memory(0);
  EXPECT_TRUE(table.addEntry(1));
  EXPECT_FALSE(StszAtom().merge(&table, 1, 1));
}

TEST(SampleTables, AFailedReadForLackOfMemoryLeavesAnEmptyTable) {
  ShortStream stream(Box("stsz", Bytes().be64(0).be32(3000).fill(12000)).data());
  StszAtom table;
  const LogCapture log;
  {
    const AllocFaults memory(3);  // the buffer of the bulk read and two blocks of four
    EXPECT_EQ(table.Read(&stream), -1);
  }
  EXPECT_EQ(log.all(), "MP4 3 no memory:stsz\nMP4 3 read data failed\n");
  EXPECT_EQ(table.getCount(), 0u);
}

TEST(SampleTables, TotalDurationWrapsEachProductIn32Bits) {
  EXPECT_EQ(SttsAtom().totalDuration(), 0u);
  EXPECT_EQ(Stts(0x10000, 0x10000)->totalDuration(), 0u);
  EXPECT_EQ(Stts(1, 0xFFFFFFFF, 1, 0xFFFFFFFE)->totalDuration(), 0x1FFFFFFFDu);
}

TEST(SampleTables, SizesByNumber) {
  const LogCapture log;
  StszAtom sizes;
  EXPECT_EQ(sizes.getSizeByNO(1), 0u);
  EXPECT_EQ(sizes.TotalSampleSize(), 0u);
  for (ZR_U32 i = 1; i <= 1500; ++i) sizes.addEntry(0xFFFFFFFF - i);
  EXPECT_EQ(sizes.TotalSampleSize(), 1500 * 0xFFFFFFFFull - 1500 * 1501 / 2);
  EXPECT_EQ(sizes.getSizeByNO(0), 0u);
  EXPECT_EQ(sizes.getSizeByNO(1501), 0u);
  EXPECT_TRUE(log.lines().empty());
  for (const ZR_U32 no : {1u, 2u, 1024u, 1025u, 1500u}) EXPECT_EQ(sizes.getSizeByNO(no), 0xFFFFFFFF - no);
  EXPECT_EQ(log.lines().size(), 5u);
  EXPECT_EQ(log.all().substr(0, log.all().find('\n') + 1), "MP4 0 frame no 1 frame size 4294967294\n");
}

TEST(SampleTables, PositionsByNumberMissDifferently) {
  const LogCapture log;
  const auto stco = Grown<StcoAtom>(100, 200);
  const auto co64 = Grown<Co64Atom>(100, 0x100000000);
  EXPECT_EQ(stco->getStartOffset(), 100u);
  EXPECT_EQ(co64->getStartOffset(), 100u);
  EXPECT_EQ(StcoAtom().getStartOffset(), 0u);
  EXPECT_EQ(Co64Atom().getStartOffset(), 0u);
  ZR_U64 position = 7;
  for (const ZR_U32 miss : {0u, 3u}) {
    stco->getPosByNO(miss, &position);
    EXPECT_EQ(position, 7u) << "left alone on purpose";
  }
  stco->getPosByNO(2, &position);
  EXPECT_EQ(position, 200u);
  EXPECT_TRUE(log.lines().empty());
  co64->getPosByNO(2, &position);
  EXPECT_EQ(position, 0x100000000u);
  for (const ZR_U32 miss : {0u, 3u}) {
    position = 7;
    co64->getPosByNO(miss, &position);
    EXPECT_EQ(position, 0u) << "cleared on purpose";
  }
  EXPECT_EQ(log.all(), "MP4 0 co64::getPosByNO fail\nMP4 0 co64::getPosByNO fail\n");
}

TEST(SampleTables, FramePositions) {
  // From, to, the start before and after, the length after.
  const std::tuple<ZR_U32, ZR_U32, ZR_U64, ZR_U64, ZR_U32> kCases[] = {
      {1, 3, 0, 1000, 3000}, {2, 3, 0, 1500, 2500}, {2, 2, 0, 1500, 0},
      {3, 2, 0, 0, 1500},    {9, 2, 0, 0, 1500},  // the end comes first, or alone
      {2, 9, 0, 1500, 77},                        // no such end: the length stays
      {2, 3, 5, 5, 4000},                         // a start that the caller brought does not count
  };
  const auto offsets = Grown<StcoAtom>(1000, 1500, 4000);
  for (const auto& [startNo, endNo, startBefore, startAfter, lengthAfter] : kCases) {
    ZR_U64 start = startBefore;
    ZR_U32 length = 77;
    offsets->getFramePos(startNo, endNo, &start, &length);
    EXPECT_EQ(start, startAfter) << startNo << "-" << endNo;
    EXPECT_EQ(length, lengthAfter) << startNo << "-" << endNo;
  }
  const LogCapture log;
  ZR_U64 start = 0;
  ZR_U32 length = 0;
  offsets->getFramePos(2, 3, &start, &length);
  EXPECT_EQ(log.all(),
            "MP4 0 start addr 1500 startNo 2 frameNumber 2 \n"
            "MP4 0 end  addr 4000  datalen 2500 endno 3 frameNumber 3\n");
}

TEST(SampleTables, ChunksByOffset) {
  struct Case {
    ZR_U64 offset;
    ZR_U32 next, next64, last;
    const char* hit;
  };
  const Case kCases[] = {
      {0, 1, 1, 0, "1"},
      {100, 1, 1, 0, "1"},
      {101, 2, 2, 1, "2"},
      {200, 2, 2, 1, "2"},
      {201, 3, 3, 2, "3"},
      {300, 3, 3, 2, "3"},
      {301, 3, 0, 3, ""},  // the 32-bit table answers its last one on
                           // purpose
      {0x100000000, 3, 0, 3, ""},
  };
  const auto stco = Grown<StcoAtom>(100, 200, 300);
  const auto co64 = Grown<Co64Atom>(100, 200, 300);
  for (const Case& at : kCases) {
    SCOPED_TRACE(at.offset);
    const LogCapture log;
    EXPECT_EQ(stco->getNextFrameNoByOffset(at.offset), at.next);
    EXPECT_EQ(stco->getLastFrameNoByOffset(at.offset), at.last);
    EXPECT_EQ(co64->getNextFrameNoByOffset(at.offset), at.next64);
    EXPECT_EQ(co64->getLastFrameNoByOffset(at.offset), at.last);
    const std::string hit = " frame offset " + std::to_string(at.offset) + " frame no " + at.hit;
    const bool found = *at.hit != '\0';
    EXPECT_EQ(log.all(),
              found ? "MP4 0 next" + hit + " \nMP4 0 last+1" + hit + " \nMP4 0 next" + hit + "\nMP4 0 next" + hit + "\n"
                    : "");
  }
  for (const ZR_U64 offset : {ZR_U64(0), ZR_U64(5)}) {
    EXPECT_EQ(StcoAtom().getNextFrameNoByOffset(offset), 0u);
    EXPECT_EQ(StcoAtom().getLastFrameNoByOffset(offset), 0u);
    EXPECT_EQ(Co64Atom().getNextFrameNoByOffset(offset), 0u);
    EXPECT_EQ(Co64Atom().getLastFrameNoByOffset(offset), 0u);
  }
}

TEST(SampleTables, NextSyncSample) {
  const auto syncs = Grown<StssAtom>(3, 11, 21);
  const std::pair<ZR_U32, ZR_U32> kCases[] = {{0, 3}, {3, 3}, {4, 11}, {11, 11}, {21, 21}, {22, 22}};
  for (const auto& [from, expected] : kCases) {
    ZR_U32 no = from;
    syncs->getIFrameNumber(&no);
    EXPECT_EQ(no, expected);
  }
  ZR_U32 no = 5;
  StssAtom().getIFrameNumber(&no);
  EXPECT_EQ(no, 5u);
}

TEST(SampleTables, MergeJoinsARange) {
  const auto stts = Stts(5, 1000);
  EXPECT_TRUE(stts->merge(Stts(3, 1000, 2, 900, 4, 800, 9, 700).get(), 1, 3));
  ExpectHolds(*stts, Values{8, 1000, 2, 900, 4, 800}, 16u + 3 * 8);  // the joined run took no space

  const auto stsc = Stsc(1, 1, 1);
  EXPECT_TRUE(stsc->merge(Stsc(1, 1, 1, 5, 2, 1, 7, 1, 1).get(), 1, 2));
  ExpectHolds(*stsc, Values{1, 1, 1, 5, 2, 1}, 16u + 2 * 12);

  const auto stsz = Grown<StszAtom>(1);
  EXPECT_TRUE(stsz->merge(Grown<StszAtom>(7, 8, 9, 10).get(), 2, 3));
  ExpectHolds(*stsz, Values{1, 8, 9}, 20u + 3 * 4);

  const auto stss = Grown<StssAtom>(1);
  EXPECT_TRUE(stss->merge(Grown<StssAtom>(1, 11, 21, 31).get(), 11, 21, 4));
  ExpectHolds(*stss, Values{1, 5, 15}, 16u + 3 * 4);  // what was sample 11 is now the first behind 4

  const auto stco = Grown<StcoAtom>(48);
  EXPECT_TRUE(stco->merge(Grown<StcoAtom>(1000, 1500, 4000).get(), 2, 3, 100));
  ExpectHolds(*stco, Values{48, 100, 2600}, 16u + 3 * 4);

  const auto co64 = Grown<Co64Atom>(48);
  EXPECT_TRUE(co64->merge(Grown<Co64Atom>(1000, 0x200000000, 0x200000010).get(), 1, 9, 1000));
  ExpectHolds(*co64, Values{48, 1000, 0x200000000, 0x200000010}, 16u + 4 * 8);  // from where they are: unchanged

  // Ranges that hold nothing.
  EXPECT_TRUE(stsz->merge(stsz.get(), 3, 2) && stsz->merge(stsz.get(), 4, 9));
  EXPECT_EQ(stsz->getCount(), 3u);
}

TEST(SampleTables, CropFillsANewTable) {
  const LogCapture log;
  StszAtom stsz;
  EXPECT_TRUE(stsz.crop2new(Grown<StszAtom>(7, 8, 9).get(), 2, 3));
  ExpectHolds(stsz, Values{8, 9}, 20u + 2 * 4);

  StssAtom stss;
  EXPECT_TRUE(stss.crop2new(Grown<StssAtom>(1, 11, 21).get(), 11, 20));
  ExpectHolds(stss, Values{1}, 16u + 4);

  StcoAtom stco;
  EXPECT_TRUE(stco.crop2new(Grown<StcoAtom>(1000, 1500, 4000).get(), 2, 3, 48));
  ExpectHolds(stco, Values{48, 2548}, 16u + 2 * 4);

  EXPECT_EQ(log.all(),
            "MP4 0 stsz 8\nMP4 0 stsz 9\nMP4 0 stss 1 \n"
            "MP4 0 stco inpos 1500 out pos 48 \nMP4 0 stco inpos 4000 out pos 2548 \n");
}

TEST(SampleTables, Co64CropGrowsTheBoxByHalfAnEntryOnPurpose) {
  const LogCapture log;
  Co64Atom co64;
  EXPECT_TRUE(co64.crop2new(Grown<Co64Atom>(1000, 1500, 0x100000000).get(), 1, 3, 48));
  ExpectHolds(co64, Values{48, 548, 0x100000000 - 952}, 16u + 12);
  EXPECT_TRUE(log.has("stco inpos 4294967296 out pos 4294966344\n")) << log.all();
}

TEST(SampleTables, StscCropIsAlwaysOneSampleAChunkOnPurpose) {
  for (const auto& source : {Stsc(), Stsc(1, 4, 1, 9, 3, 1)}) {
    StscAtom stsc;
    EXPECT_TRUE(stsc.crop2new(source.get()));
    ExpectHolds(stsc, Values{1, 1, 1}, 28u);
  }
}

TEST(SampleTables, RelocatedOffsetsEndSilentlyWhereTheyNoLongerFitOnPurpose) {
  const LogCapture log;
  const auto source = Grown<StcoAtom>(1000, 1100, 1101, 1050);
  StcoAtom merged, cropped;
  EXPECT_TRUE(merged.merge(source.get(), 1, 4, 0xFFFFFFFF - 100));
  EXPECT_EQ(Listed(merged), (Values{0xFFFFFFFF - 100, 0xFFFFFFFF}));
  EXPECT_EQ(log.all(), "");
  EXPECT_TRUE(cropped.crop2new(source.get(), 1, 4, 0xFFFFFFFF - 100));
  EXPECT_EQ(Listed(cropped), Listed(merged));
}

TEST(SampleTables, AnOffsetOfZeroCountsAsNoneBeforeOnPurpose) {
  StcoAtom stco;
  EXPECT_TRUE(stco.merge(Grown<StcoAtom>(0, 500, 700).get(), 1, 3, 48));
  EXPECT_EQ(Listed(stco), (Values{48, 48, 248}));
}

TEST(SampleTables, NullArgumentsAreLoggedAndChangeNothing) {
  const LogCapture log;
  SttsAtom stts;
  StscAtom stsc;
  StszAtom stsz;
  StcoAtom stco;
  Co64Atom co64;
  StssAtom stss;
  EXPECT_FALSE(stts.merge(nullptr, 1, 2) || stsc.merge(nullptr, 1, 2) || stsz.merge(nullptr, 1, 2) ||
               stco.merge(nullptr, 1, 2, 0) || co64.merge(nullptr, 1, 2, 0) || stss.merge(nullptr, 1, 2, 0));
  EXPECT_FALSE(stsc.crop2new(nullptr) || stsz.crop2new(nullptr, 1, 2) || stco.crop2new(nullptr, 1, 2, 0) ||
               co64.crop2new(nullptr, 1, 2, 0) || stss.crop2new(nullptr, 1, 2));
  EXPECT_TRUE(stsc.entries().empty());
  stco.getPosByNO(1, nullptr);
  co64.getPosByNO(1, nullptr);
  stss.getIFrameNumber(nullptr);
  stco.getFramePos(1, 1, nullptr, nullptr);
  EXPECT_EQ(stts.readData(nullptr), -1);
  EXPECT_EQ(co64.writeData(nullptr), -1);
  std::map<std::string, int> operations;
  for (const LogCapture::Line& line : log.lines()) ++operations[line.text.substr(0, line.text.find(':', 10))];
  const std::map<std::string, int> kExpected = {
      {"HvccAtom::merge", 6},           {"HvccAtom::crop2new", 5},    {"HvccAtom::getPosByNO", 2},
      {"HvccAtom::getIFrameNumber", 1}, {"HvccAtom::getFramePos", 1}, {"HvccAtom::readData", 1},
      {"HvccAtom::writeData", 1},
  };
  EXPECT_EQ(operations, kExpected) << log.all();
}

TEST(SampleDescription, NullStreamsNameTheirLines) {
  const LogCapture log;
  StsdAtom stsd;
  GpmdAtom gpmd;
  EXPECT_EQ(stsd.readData(nullptr), -1);
  EXPECT_EQ(stsd.writeData(nullptr), -1);
  EXPECT_EQ(stsd.ReadChild(nullptr), nullptr);
  EXPECT_EQ(gpmd.readData(nullptr), -1);
  EXPECT_EQ(gpmd.writeData(nullptr), -1);
  EXPECT_EQ(log.all(),
            "MP4 3 HvccAtom::readData:111 input parameter null \nMP4 3 HvccAtom::writeData:120 input parameter null \n"
            "MP4 3 HvccAtom::ReadChild:130 input parameter null \nMP4 3 HvccAtom::readData:967 input parameter null \n"
            "MP4 3 HvccAtom::writeData:976 input parameter null \n");
}

TEST(SampleDescription, EveryEntryTypeComesBackAsItsClass) {
  StsdAtom stsd;
  for (Atom* entry : std::initializer_list<Atom*>{new GpmdAtom, new Mp4aAtom, new AlawAtom, new UlawAtom, new Avc1Atom,
                                                  new Hvc1Atom, new UserDefAtom("hev1", 0)}) {
    if (auto* audio = dynamic_cast<AudioEntryAtom*>(entry)) audio->SetAudioConfig(2, 16, 48000, 1024);
    stsd.AddChild(entry);
  }
  for (const char* flavour : {"apch", "apcn", "apcs", "apco"}) stsd.AddChild(new ProresAtom(flavour, "name"));
  const std::vector<std::uint8_t> bytes = Written(stsd);
  ASSERT_EQ(bytes.size(), stsd.header().size);
  EXPECT_EQ(bytes[15], 11);

  const auto stbl = ReadStbl(Box("stbl", Bytes().add(bytes)));
  Atom* read = stbl->GetChild("stsd");
  ASSERT_EQ(read->childCount(), stsd.childCount());
  for (int i = 0; i < static_cast<int>(stsd.childCount()); ++i) {
    const Atom& was = *stsd.GetChild(i);
    const Atom& is = *read->GetChild(i);
    EXPECT_EQ(is.type(), was.type());
    EXPECT_EQ(typeid(is), typeid(was)) << was.type();
  }
  EXPECT_EQ(Written(*read), bytes);
}

TEST(SampleDescription, OfAnAacTrackTakes106Bytes) {
  StsdAtom stsd;
  Mp4aAtom* mp4a = new Mp4aAtom;
  mp4a->AddChild(new AacAtom);
  stsd.AddChild(mp4a);
  EXPECT_EQ(stsd.header().size, 106u);
  const std::vector<std::uint8_t> bytes = Written(stsd);
  EXPECT_EQ(bytes.size(), 106u);
  const Bytes start = Bytes().be32(106).type("stsd").be32(0).be32(1).be32(90).type("mp4a");
  EXPECT_EQ(start.difference({bytes.begin(), bytes.begin() + 24}), "");
}

TEST(SampleDescription, AnEntryWithoutMemoryIsNamed) {
  const LogCapture log;
  ShortStream stream(Box("gpmd", Bytes().fill(12)).data());
  StsdAtom stsd;
  {
    const AllocFaults memory(0);
    EXPECT_EQ(stsd.ReadChild(&stream), nullptr);
  }
  EXPECT_EQ(log.count("new gpmd atom no memory\n"), 1) << log.all();
}

}  // namespace
