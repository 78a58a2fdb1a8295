#include "box/sample_tables.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/alloc_faults.h"
#include "tests/support/log_capture.h"

// What no session with the library reaches: tests/cases read, write and join tables.

using namespace zrmp4;

namespace {

using Values = std::vector<ZR_U64>;

// A table grown entry by entry.
template <typename Table>
std::unique_ptr<Table> Grown(const Values& entries) {
  auto table = std::make_unique<Table>();
  using Entry = std::decay_t<decltype(table->entries().front())>;
  for (const ZR_U64 entry : entries) EXPECT_TRUE(table->addEntry(static_cast<Entry>(entry)));
  return table;
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
  const auto stco = Grown<StcoAtom>({100, 200, 300});
  const auto co64 = Grown<Co64Atom>({100, 200, 0x100000000});
  const auto sizes = Grown<StszAtom>({7, 0xFFFFFFFF, 0xFFFFFFFE, 0, 0, 0, 0, 0, 0, 9});  // two blocks
  const auto position = [](const auto& table, ZR_U32 no) {
    ZR_U64 found = 7;
    table->getPosByNO(no, &found);
    return found;
  };
  const auto sync = [](ZR_U32 no) {
    Grown<StssAtom>({3, 11})->getIFrameNumber(&no);
    return ZR_U64{no};
  };
  const auto next = [](const auto& table, ZR_U64 offset) { return ZR_U64{table->getNextFrameNoByOffset(offset)}; };
  const auto last = [](const auto& table, ZR_U64 offset) { return ZR_U64{table->getLastFrameNoByOffset(offset)}; };
  SttsAtom wraps, runs;
  EXPECT_TRUE(wraps.addEntry(0x10000, 0x10000) && runs.addEntry(1, 0xFFFFFFFF) && runs.addEntry(1, 0xFFFFFFFE));
  const std::pair<ZR_U64, ZR_U64> kAnswers[] = {
      {wraps.totalDuration(), 0}, {runs.totalDuration(), 0x1FFFFFFFD},  // each product has 32 bits
      {sizes->TotalSampleSize(), 0x20000000D}, {sizes->getSizeByNO(0), 0}, {sizes->getSizeByNO(2), 0xFFFFFFFF},
      {sizes->getSizeByNO(10), 9}, {sizes->getSizeByNO(11), 0},
      {stco->getStartOffset(), 100}, {co64->getStartOffset(), 100}, {StcoAtom().getStartOffset(), 0},
      {position(stco, 0), 7}, {position(stco, 2), 200}, {position(stco, 4), 7},  // left alone on purpose
      {position(co64, 0), 0}, {position(co64, 3), 0x100000000}, {position(co64, 4), 0},  // cleared on purpose
      {sync(0), 3}, {sync(3), 3}, {sync(4), 11}, {sync(12), 12},
      {next(stco, 100), 1}, {next(stco, 101), 2}, {next(stco, 301), 3},  // its last one on purpose
      {last(stco, 100), 0}, {last(stco, 101), 1}, {last(stco, 301), 3},
      {next(co64, 200), 2}, {next(co64, 0x100000001), 0}, {last(co64, 200), 1}, {last(co64, 0x100000001), 3},
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
    Grown<StcoAtom>({1000, 1500, 4000})->getFramePos(startNo, endNo, &start, &length);
    EXPECT_TRUE(start == startAfter && length == lengthAfter) << startNo << "-" << endNo << ": " << start << length;
  }
  EXPECT_EQ(log.count("start addr 1500 startNo 2 frameNumber 2 \n"), 3);
  EXPECT_EQ(log.count("end  addr 4000  datalen 2500 endno 3 frameNumber 3\n"), 1);
}

template <typename Table>
Values Listed(const Table& table) {
  Values values;
  for (const auto& entry : table.entries()) values.push_back(entry);
  return values;
}

template <typename Table, typename... Range>
Values Merged(const Values& before, const Values& source, Range... range) {
  const auto table = Grown<Table>(before), from = Grown<Table>(source);
  EXPECT_TRUE(table->merge(from.get(), range...));
  return Listed(*table);
}

template <typename Table, typename... Range>
Values Cropped(const Values& source, Range... range) {
  Table table;
  EXPECT_TRUE(table.crop2new(Grown<Table>(source).get(), range...));
  EXPECT_EQ(table.header().size, Table().header().size + 4 * Listed(table).size());
  return Listed(table);
}

TEST(SampleTables, MergeJoinsARangeAndCropFillsANewTable) {
  constexpr ZR_U32 kFar = 0xFFFFFFFF - 100;
  const LogCapture log;
  const std::pair<Values, Values> kRows[] = {
      {Merged<StszAtom>({1}, {7, 8, 9, 10}, 2, 3), {1, 8, 9}},
      {Merged<StszAtom>({1}, {7}, 2, 9), {1}},
      {Merged<StssAtom>({1}, {1, 11, 21, 31}, 11, 21, 4), {1, 5, 15}},
      {Merged<StcoAtom>({48}, {1000, 1500, 4000}, 2, 3, 100), {48, 100, 2600}},
      {Merged<Co64Atom>({48}, {1000, 0x200000000}, 1, 9, 1000), {48, 1000, 0x200000000}},
      {Merged<StcoAtom>({}, {0, 500, 700}, 1, 3, 48), {48, 48, 248}},  // 0: none before
      {Merged<StcoAtom>({}, {1000, 1100, 1101, 1050}, 1, 4, kFar), {kFar, 0xFFFFFFFF}},  // as long as they fit
      {Cropped<StcoAtom>({1000, 1100, 1101, 1050}, 1, 4, kFar), {kFar, 0xFFFFFFFF}},
      {Cropped<StcoAtom>({1000, 1500, 4000}, 2, 3, 48), {48, 2548}},
      {Cropped<Co64Atom>({1000, 0x100000000}, 1, 2, 48), {48, 0x100000000 - 952}},  // grows by half its entries
      {Cropped<StszAtom>({7, 8, 9}, 2, 3), {8, 9}},
      {Cropped<StssAtom>({1, 11, 21}, 11, 20), {1}},
  };
  for (const auto& [got, expected] : kRows) EXPECT_EQ(got, expected);
  StscAtom runs, always;
  EXPECT_TRUE(runs.addEntry(5, 2, 1) && always.crop2new(&runs) && always.entries().count() == 1);
  EXPECT_EQ(always.entries().front().samplesPerChunk, 1u) << "one sample a chunk, on purpose";
  for (const char* line : {"stsz 8\n", "stss 1 \n", "stco inpos 4000 out pos 2548 \n",
                           "stco inpos 4294967296 out pos 4294966344\n"})
    EXPECT_EQ(log.count(line), 1) << line << log.all();
}

TEST(SampleTables, NullArgumentsAreLoggedAndChangeNothing) {
  const LogCapture log;
  EXPECT_FALSE(SttsAtom().merge(nullptr, 1, 2) || StscAtom().merge(nullptr, 1, 2) || StszAtom().merge(nullptr, 1, 2) ||
               StcoAtom().merge(nullptr, 1, 2, 0) || Co64Atom().merge(nullptr, 1, 2, 0) ||
               StssAtom().merge(nullptr, 1, 2, 0) || StscAtom().crop2new(nullptr) ||
               StszAtom().crop2new(nullptr, 1, 2) || StcoAtom().crop2new(nullptr, 1, 2, 0) ||
               Co64Atom().crop2new(nullptr, 1, 2, 0) || StssAtom().crop2new(nullptr, 1, 2));
  ZR_U64 start = 0;
  StcoAtom().getPosByNO(1, nullptr), Co64Atom().getPosByNO(1, nullptr), StssAtom().getIFrameNumber(nullptr);
  StcoAtom().getFramePos(1, 1, &start, nullptr);
  std::string operations;
  for (const auto& line : log.lines()) operations += line.text.substr(10, line.text.find(':', 10) - 10) + " ";
  EXPECT_EQ(operations, "merge merge merge merge merge merge crop2new crop2new crop2new crop2new crop2new "
                        "getPosByNO getPosByNO getIFrameNumber getFramePos ");
}

}  // namespace
