#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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

struct Options {
  int full = 0;
  std::uint64_t oneIn = 1;
  std::string results, name, state;
};

// Standard output as it was given; what the library prints goes nowhere.
std::FILE* gReport;

bool RunSweep(const Entry& entry, const Options& options) {
  const std::string file = options.results.empty() ? "" : options.results + "/" + entry.name;
  std::string line;
  if (options.full && std::getline(std::ifstream(file), line)) {
    std::fprintf(gReport, "%s\n", line.c_str());
    return line.find(" 0 failures") != std::string::npos;
  }
  Sweep sweep(entry.name, options.full, options.oneIn, options.state);
  const auto started = std::chrono::steady_clock::now();
  entry.run(sweep);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
  char text[120];
  std::snprintf(text, sizeof(text), "%-14s %9llu states %6llu failures %7.1f s", entry.name,
                static_cast<unsigned long long>(sweep.states()), static_cast<unsigned long long>(sweep.failures()),
                took.count());
  std::fprintf(gReport, "%s\n", text);
  if (!options.state.empty()) return sweep.states() != 0 && sweep.failures() == 0;
  if (!file.empty()) std::ofstream(file) << text << '\n';
  const bool enough = sweep.states() >= (options.full ? entry.fullStates : entry.quickStates) / options.oneIn;
  if (!enough) std::fprintf(gReport, "%s: fewer states than it should have\n", entry.name);
  return enough && sweep.failures() == 0;
}

}  // namespace

void Sweep::expect(const std::string& state, const std::string& problem) {
  if (problem.empty() || ++mFailures > 20) return;
  std::fprintf(gReport, "zrmp4_sweeps %s%s '%s': %s\n", mFull ? "--full " : "", mName.c_str(), state.c_str(),
               problem.c_str());
}

// What the library has to say is of no interest here.
extern "C" void ZR_LOG_Printf(const char*, int, const char*, ...) {}

int main(int count, char** arguments) {
  Options options;
  const option kOptions[] = {{"full", no_argument, &options.full, 1},
                             {"one-in", required_argument, nullptr, 'n'},
                             {"results", required_argument, nullptr, 'r'},
                             {}};
  for (int found; (found = getopt_long(count, arguments, "", kOptions, nullptr)) != -1;) {
    if (found == '?') return 2;
    if (found == 'n') options.oneIn = std::max(std::strtoull(optarg, nullptr, 10), 1ull);
    if (found == 'r') options.results = optarg;
  }
  if (optind < count) options.name = arguments[optind++];
  if (optind < count) options.state = arguments[optind];
  gReport = fdopen(dup(STDOUT_FILENO), "w");
  std::setvbuf(gReport, nullptr, _IOLBF, BUFSIZ);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  int failed = 0, tried = 0;
  for (const Entry& entry : kSweeps) {
    if (!options.name.empty() && options.name != entry.name) continue;
    ++tried;
    failed += !RunSweep(entry, options);
  }
  return tried != 0 && failed == 0 ? 0 : 1;
}
