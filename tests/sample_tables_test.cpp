#include "box/sample_tables.h"

#include <gtest/gtest.h>

#include <tuple>

#include "box/stsd_atom.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"

using namespace zrmp4;

namespace {

using Values = std::vector<ZR_U64>;

using Equal = std::tuple<ZR_U32, ZR_U32>;
using Chunks = std::tuple<ZR_U32, ZR_U32, ZR_U32>;

// A table grown entry by entry.
template <typename Table, typename... Entries>
std::unique_ptr<Table> Grown(Entries... entries) {
  auto table = std::make_unique<Table>();
  [[maybe_unused]] const auto add = [&](auto... fields) { return table->addEntry(fields...); };
  EXPECT_TRUE((std::apply(add, std::tuple(entries)) && ...));
  return table;
}

template <typename Table>
Values Listed(const Table& table) {
  Values values;
  for (const auto& entry : table.entries()) values.push_back(entry);
  return values;
}

// Entries come in blocks of 8, then of 128 or 1024; none may be lost or repeated where one ends.
TEST(SampleTables, AnyNumberOfEntriesComesBackWhole) {
  for (const ZR_U32 n : {7u, 8u, 9u, 135u, 136u, 137u, 1031u, 1032u, 1033u, 3000u}) {
    SttsAtom stts;
    Co64Atom co64;
    Bytes runs = Bytes().be32(0).be32(n), offsets = runs;
    for (ZR_U32 i = 1; i <= n; ++i) {
      stts.addEntry(i, i ^ 0xABCD1234u);
      co64.addEntry(i * 0x100000001u);
      runs.be32(i).be32(i ^ 0xABCD1234u);
      offsets.be64(i * 0x100000001u);
    }
    const Bytes tables = Bytes().add(BoxBytes("stts", runs)).add(BoxBytes("co64", offsets));
    ShortStream stream(BoxBytes("stbl", tables).data());
    StblAtom stbl;
    EXPECT_EQ(stbl.Read(&stream), 0);
    EXPECT_EQ(BoxBytes("stbl", tables).difference(Written(stbl)), "") << n;
    EXPECT_EQ(tables.difference(Bytes().add(Written(stts)).add(Written(co64))), "") << n;
  }
}

TEST(SampleTables, ReservedEntriesNeedNoMemory) {
  const LogCapture log;
  StszAtom table;
  for (ZR_U32 expected = 20, round = 0; round < 3; ++round) {
    ASSERT_TRUE(table.reserve());
    const AllocFaults memory(0);
    for (ZR_U32 left = table.room(); left > 0; --left, expected += 4) ASSERT_TRUE(table.addEntry(left));
    EXPECT_FALSE(table.addEntry(1) || table.reserve());
    EXPECT_EQ(table.header().size, expected);
  }
}

TEST(SampleTables, Queries) {
  const LogCapture log;
  const auto stco = Grown<StcoAtom>(100u, 200u, 300u);
  const auto co64 = Grown<Co64Atom>(100u, 200u, 0x100000000u);
  const auto sizes = Grown<StszAtom>(7u, 0xFFFFFFFFu, 0xFFFFFFFEu, 0u, 0u, 0u, 0u, 0u, 0u, 9u);  // two blocks
  const auto position = [](const auto& table, ZR_U32 no) {
    ZR_U64 found = 7;
    table->getPosByNO(no, &found);
    return found;
  };
  const auto sync = [](ZR_U32 no) {
    Grown<StssAtom>(3u, 11u)->getIFrameNumber(&no);
    return ZR_U64{no};
  };
  const std::pair<ZR_U64, ZR_U64> kAnswers[] = {
      {Grown<SttsAtom>(Equal{0x10000, 0x10000})->totalDuration(), 0},  // each product has 32 bits
      {Grown<SttsAtom>(Equal{1, 0xFFFFFFFF}, Equal{1, 0xFFFFFFFE})->totalDuration(), 0x1FFFFFFFD},
      {sizes->TotalSampleSize(), 0x20000000D}, {sizes->getSizeByNO(0), 0}, {sizes->getSizeByNO(2), 0xFFFFFFFF},
      {sizes->getSizeByNO(10), 9}, {sizes->getSizeByNO(11), 0},
      {stco->getStartOffset(), 100}, {co64->getStartOffset(), 100}, {StcoAtom().getStartOffset(), 0},
      {position(stco, 0), 7}, {position(stco, 2), 200}, {position(stco, 4), 7},  // left alone on purpose
      {position(co64, 0), 0}, {position(co64, 3), 0x100000000}, {position(co64, 4), 0},  // cleared on purpose
      {sync(0), 3}, {sync(3), 3}, {sync(4), 11}, {sync(12), 12},
      {stco->getNextFrameNoByOffset(100), 1}, {stco->getLastFrameNoByOffset(100), 0},
      {stco->getNextFrameNoByOffset(101), 2}, {stco->getLastFrameNoByOffset(101), 1},
      {stco->getNextFrameNoByOffset(301), 3}, {stco->getLastFrameNoByOffset(301), 3},  // its last one on purpose
      {co64->getNextFrameNoByOffset(200), 2}, {co64->getLastFrameNoByOffset(200), 1},
      {co64->getNextFrameNoByOffset(0x100000001), 0}, {co64->getLastFrameNoByOffset(0x100000001), 3},
      {StcoAtom().getNextFrameNoByOffset(5) + StcoAtom().getLastFrameNoByOffset(5), 0},
      {Co64Atom().getNextFrameNoByOffset(5) + Co64Atom().getLastFrameNoByOffset(5), 0},
  };
  for (const auto& row : kAnswers) EXPECT_EQ(row.first, row.second) << "row " << &row - kAnswers;
  for (const char* line : {"frame no 2 frame size 4294967295\n", "co64::getPosByNO fail\n",
                           "next frame offset 101 frame no 2 \n", "last+1 frame offset 101 frame no 2 \n",
                           "next frame offset 200 frame no 2\n"})
    EXPECT_TRUE(log.has(line)) << line << log.all();
}

TEST(SampleTables, FramePositions) {
  // From, to, the start before and after, the length after.
  const std::tuple<ZR_U32, ZR_U32, ZR_U64, ZR_U64, ZR_U32> kCases[] = {
      {1, 3, 0, 1000, 3000}, {2, 3, 0, 1500, 2500}, {2, 2, 0, 1500, 0},
      {3, 2, 0, 0, 1500},    {9, 2, 0, 0, 1500},  // the end comes first, or alone
      {2, 9, 0, 1500, 77},                        // no such end: the length stays
      {2, 3, 5, 5, 4000},                         // a start that the caller brought does not count
  };
  const LogCapture log;
  for (const auto& [startNo, endNo, startBefore, startAfter, lengthAfter] : kCases) {
    ZR_U64 start = startBefore;
    ZR_U32 length = 77;
    Grown<StcoAtom>(1000u, 1500u, 4000u)->getFramePos(startNo, endNo, &start, &length);
    EXPECT_TRUE(start == startAfter && length == lengthAfter) << startNo << "-" << endNo << ": " << start << length;
  }
  EXPECT_EQ(log.count("start addr 1500 startNo 2 frameNumber 2 \n"), 3);
  EXPECT_EQ(log.count("end  addr 4000  datalen 2500 endno 3 frameNumber 3\n"), 1);
}

TEST(SampleTables, MergeJoinsARangeAndCropFillsANewTable) {
  const auto merged = [](auto table, auto source, auto... range) {
    EXPECT_TRUE(table->merge(source.get(), range...));
    return Listed(*table);
  };
  const auto cropped = [](auto source, auto... range) {
    typename decltype(source)::element_type table;
    EXPECT_TRUE(table.crop2new(source.get(), range...));
    EXPECT_EQ(table.header().size, 12u + 4 * (Listed(table).size() + (table.type() == "stsz" ? 2 : 1)));
    return Listed(table);
  };
  const auto far = [] { return Grown<StcoAtom>(1000u, 1100u, 1101u, 1050u); };
  constexpr ZR_U32 kFar = 0xFFFFFFFF - 100;
  const LogCapture log;
  const std::pair<Values, Values> kRows[] = {
      {merged(Grown<StszAtom>(1u), Grown<StszAtom>(7u, 8u, 9u, 10u), 2, 3), {1, 8, 9}},
      {merged(Grown<StszAtom>(1u), Grown<StszAtom>(7u), 2, 9), {1}},
      {merged(Grown<StssAtom>(1u), Grown<StssAtom>(1u, 11u, 21u, 31u), 11, 21, 4), {1, 5, 15}},
      {merged(Grown<StcoAtom>(48u), Grown<StcoAtom>(1000u, 1500u, 4000u), 2, 3, 100), {48, 100, 2600}},
      {merged(Grown<Co64Atom>(48u), Grown<Co64Atom>(1000u, 0x200000000u), 1, 9, 1000), {48, 1000, 0x200000000}},
      {merged(Grown<StcoAtom>(), Grown<StcoAtom>(0u, 500u, 700u), 1, 3, 48), {48, 48, 248}},  // 0: none before
      {merged(Grown<StcoAtom>(), far(), 1, 4, kFar), {kFar, 0xFFFFFFFF}},  // ends where they no longer fit
      {cropped(far(), 1, 4, kFar), {kFar, 0xFFFFFFFF}},
      {cropped(Grown<StszAtom>(7u, 8u, 9u), 2, 3), {8, 9}},
      {cropped(Grown<StssAtom>(1u, 11u, 21u), 11, 20), {1}},
      {cropped(Grown<StcoAtom>(1000u, 1500u, 4000u), 2, 3, 48), {48, 2548}},
      {cropped(Grown<Co64Atom>(1000u, 0x100000000u), 1, 2, 48), {48, 0x100000000 - 952}},  // grows by half its entries
  };
  for (const auto& [got, expected] : kRows) EXPECT_EQ(got, expected);
  for (const char* line : {"stsz 8\n", "stss 1 \n", "stco inpos 4000 out pos 2548 \n",
                           "stco inpos 4294967296 out pos 4294966344\n"})
    EXPECT_EQ(log.count(line), 1) << line << log.all();
  const auto stts = Grown<SttsAtom>(Equal{5, 1000});
  EXPECT_TRUE(stts->merge(Grown<SttsAtom>(Equal{3, 1000}, Equal{2, 900}, Equal{4, 800}, Equal{9, 700}).get(), 1, 3));
  const auto joined = Grown<SttsAtom>(Equal{8, 1000}, Equal{2, 900}, Equal{4, 800});
  EXPECT_EQ(Written(*stts), Written(*joined)) << "the joined run takes no space";
  const auto stsc = Grown<StscAtom>(Chunks{1, 1, 1});
  EXPECT_TRUE(stsc->merge(Grown<StscAtom>(Chunks{1, 1, 1}, Chunks{5, 2, 1}, Chunks{7, 1, 1}).get(), 1, 2));
  EXPECT_EQ(Written(*stsc), Written(*Grown<StscAtom>(Chunks{1, 1, 1}, Chunks{5, 2, 1})));
  StscAtom always;
  EXPECT_TRUE(always.crop2new(stsc.get()));
  EXPECT_EQ(Written(always), Written(*Grown<StscAtom>(Chunks{1, 1, 1}))) << "one sample a chunk, on purpose";
}

TEST(SampleTables, NullArgumentsAreLoggedAndChangeNothing) {
  const LogCapture log;
  SttsAtom stts;
  StscAtom stsc;
  StszAtom stsz;
  StcoAtom stco;
  Co64Atom co64;
  StssAtom stss;
  StsdAtom stsd;
  GpmdAtom gpmd;
  EXPECT_FALSE(stts.merge(nullptr, 1, 2) || stsc.merge(nullptr, 1, 2) || stsz.merge(nullptr, 1, 2) ||
               stco.merge(nullptr, 1, 2, 0) || co64.merge(nullptr, 1, 2, 0) || stss.merge(nullptr, 1, 2, 0) ||
               stsc.crop2new(nullptr) || stsz.crop2new(nullptr, 1, 2) || stco.crop2new(nullptr, 1, 2, 0) ||
               co64.crop2new(nullptr, 1, 2, 0) || stss.crop2new(nullptr, 1, 2));
  stco.getPosByNO(1, nullptr), co64.getPosByNO(1, nullptr), stss.getIFrameNumber(nullptr);
  ZR_U64 start = 0;
  stco.getFramePos(1, 1, &start, nullptr);
  std::string operations;
  for (const auto& line : log.lines()) operations += line.text.substr(10, line.text.find(':', 10) - 10) + " ";
  EXPECT_EQ(operations, "merge merge merge merge merge merge crop2new crop2new crop2new crop2new crop2new "
                        "getPosByNO getPosByNO getIFrameNumber getFramePos ");
  log.clear();
  EXPECT_EQ(stsd.readData(nullptr) + stsd.writeData(nullptr) + gpmd.readData(nullptr) + gpmd.writeData(nullptr), -4);
  EXPECT_EQ(stsd.ReadChild(nullptr), nullptr);
  for (const char* line : {"readData:111", "writeData:120", "ReadChild:130", "readData:967", "writeData:976"}) {
    EXPECT_EQ(log.count(std::string("HvccAtom::") + line + " input parameter null \n"), 1) << log.all();
  }
}

}  // namespace
