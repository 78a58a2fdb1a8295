// The small pieces of the frame path, one by one.

#include <benchmark/benchmark.h>

#include <vector>

#include "base/table_array.h"
#include "bench/frames.h"
#include "box/sample_tables.h"
#include "track/annexb.h"
#include "track/sample_clock.h"

namespace {

// Each way that this processor has to look for start codes, best first, over a frame of a given size.
void FindStartCode(benchmark::State& state) {
  zrmp4::StartCodeSearch searches[zrmp4::kMaxStartCodeSearches];
  if (static_cast<ZR_U32>(state.range(0)) >= zrmp4::StartCodeSearches(searches)) {
    state.SkipWithError("no such way on this processor");
    return;
  }
  static const bench::Workload work = bench::MakeWorkload("prores-hq", 0.1);
  const ZR_U8* from = work.pool.get() + 32;
  const ZR_U8* end = from + state.range(1);
  for (auto _ : state) {
    for (const ZR_U8* at = from; at != end;) {
      at = searches[state.range(0)](at, end);
      benchmark::DoNotOptimize(at);
      if (at != end) ++at;
    }
  }
  state.SetBytesProcessed(state.iterations() * state.range(1));
}
BENCHMARK(FindStartCode)->ArgNames({"way", "bytes"})->ArgsProduct({{0, 1, 2, 3}, {100, 8192, 262144}});

void AppendToTable(benchmark::State& state) {
  zrmp4::TableArray<ZR_U32> table;
  for (auto _ : state) {
    if (table.count() == 1u << 20) table.clear();
    benchmark::DoNotOptimize(table.append(table.count()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(AppendToTable);

void AddSampleSize(benchmark::State& state) {
  zrmp4::StszAtom stsz;
  for (auto _ : state) {
    if (stsz.getCount() == 1u << 20) stsz.clear();
    benchmark::DoNotOptimize(stsz.addEntry(100));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(AddSampleSize);

// Time stamps of a steady recording, and of one whose every frame is off by more than the tolerance.
void AdvanceClock(benchmark::State& state) {
  zrmp4::SampleClock clock(120000, 1.0f);
  ZR_U64 pts = 0;
  clock.start(pts);
  const ZR_U64 jitter = static_cast<ZR_U64>(state.range(0));
  for (auto _ : state) {
    pts += 33333 + (pts & 1 ? jitter : 0);
    benchmark::DoNotOptimize(clock.advanceTo(pts));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(AdvanceClock)->ArgName("jitter")->Arg(0)->Arg(5001);

}  // namespace

BENCHMARK_MAIN();
