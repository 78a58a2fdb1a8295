#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/sweeps/sweep.h"
#include "zr_log.h"

// zrmp4_sweeps [--full | --one-in N] [--results FOLDER] [NAME [STATE]]
//   runs the sweep of that name or all of them, quick or in full, or one state of it
//   --one-in tries every n-th state of a quick crash sweep, for processors that are emulated
//   --results leaves a line for each in the folder; a sweep in full that has its line there already is not run again

namespace {

struct Entry {
  const char* name;
  void (*run)(Sweep& sweep);
  std::uint64_t quickStates;  // at least so many must be tried
  std::uint64_t fullStates;
};

constexpr Entry kSweeps[] = {
    {"torn-writes", TornWrites, 10000, 100000},
    {"every-byte", EveryByte, 20000, 20000},
    {"lost-pages", LostPages, 10000, 300000},
    {"cut-repair", CutRepair, 2000, 100000},
    {"allocations", Allocations, 1, 1},
    {"system-calls", SystemCallFaults, 1, 1},
    {"full-disk", FullDisk, 100, 1000},
    {"bit-flips", BitFlips, 5000, 100000},
    {"kill", Kills, 100, 10000},
    {"threads", Threads, 32, 1000},
    {"long", Long, 2, 3},
};

bool RunSweep(const Entry& entry, bool full, std::uint64_t oneIn, const std::string& results,
              const std::string& only) {
  const std::string file = results.empty() ? "" : results + "/" + entry.name;
  std::string line;
  if (full && std::getline(std::ifstream(file), line)) {
    std::puts(line.c_str());
    return line.find(" 0 failures") != std::string::npos;
  }
  Sweep sweep(entry.name, full, oneIn, only);
  const auto started = std::chrono::steady_clock::now();
  entry.run(sweep);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
  char text[120];
  std::snprintf(text, sizeof(text), "%-14s %9llu states %6llu failures %7.1f s", entry.name,
                static_cast<unsigned long long>(sweep.states()), static_cast<unsigned long long>(sweep.failures()),
                took.count());
  std::puts(text);
  std::fflush(stdout);
  const bool enough = !only.empty() || sweep.states() >= (full ? entry.fullStates : entry.quickStates) / oneIn;
  if (!enough) std::printf("%s: fewer states than it should have\n", entry.name);
  if (!file.empty() && only.empty()) std::ofstream(file) << text << '\n';
  return enough && sweep.failures() == 0;
}

}  // namespace

void Sweep::expect(const std::string& state, const std::string& problem) {
  if (problem.empty()) return;
  if (++mFailures <= 20) {
    std::printf("zrmp4_sweeps %s%s '%s': %s\n", mFull ? "--full " : "", mName.c_str(), state.c_str(), problem.c_str());
    std::fflush(stdout);
  }
}

// What the library has to say is of no interest here.
extern "C" void ZR_LOG_Printf(const char*, int, const char*, ...) {}

int main(int count, char** arguments) {
  bool full = false;
  std::uint64_t oneIn = 1;
  std::string results, name, state;
  for (int i = 1; i < count; ++i) {
    if (std::strcmp(arguments[i], "--full") == 0) {
      full = true;
    } else if (std::strcmp(arguments[i], "--one-in") == 0 && i + 1 < count) {
      oneIn = std::max<std::uint64_t>(std::strtoull(arguments[++i], nullptr, 10), 1);
    } else if (std::strcmp(arguments[i], "--results") == 0 && i + 1 < count) {
      results = arguments[++i];
    } else {
      (name.empty() ? name : state) = arguments[i];
    }
  }
  bool good = true;
  bool found = false;
  for (const Entry& entry : kSweeps) {
    if (!name.empty() && name != entry.name) continue;
    found = true;
    good = RunSweep(entry, full, oneIn, results, state) && good;
  }
  return found && good ? 0 : 1;
}
