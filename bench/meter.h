#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bench/recorders.h"

namespace bench {

// One recording, measured.
struct Run {
  double wall = 0;    // seconds, all of it
  double user = 0;    // seconds
  double system = 0;  // seconds
  double finish = 0;  // seconds
  double open = 0;    // seconds to open the finished file, 0 when there is no reader
  double p50 = 0, p99 = 0, p999 = 0, longest = 0;  // seconds of a frame's call, 0 unless asked for
  double heap = 0;                                 // bytes that the frames added and still hold
  double resident = 0;                             // bytes that the frames added
  double allocations = 0;                          // while the frames were written
};

// What a recording costs is told phase by phase to the programs that watch from outside.
enum class Phase { kFrames, kFinish, kRepair };
void BeginPhase(Phase phase);
void EndPhase(Phase phase);

struct HeapFigures {
  uint64_t live;
  uint64_t allocations;
};
HeapFigures HeapNow();

double Now();  // seconds

// Records the workload; with stamps every call is timed.
Run Record(const Workload& work, Recorder& recorder, const std::string& name, const std::string& path, bool stamps);

// Calls it in a process of its own, so that one run does not meet the memory of another.
Run InChild(const std::function<Run()>& body);

}  // namespace bench
