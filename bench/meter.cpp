#include "bench/meter.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

// The allocator's entry points with a count in front.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

std::atomic<uint64_t> liveBytes{0};
std::atomic<uint64_t> allocations{0};

void* Count(void* memory) {
  if (memory == nullptr) return nullptr;
  liveBytes.fetch_add(malloc_usable_size(memory), std::memory_order_relaxed);
  allocations.fetch_add(1, std::memory_order_relaxed);
  return memory;
}

void Uncount(void* memory) {
  if (memory != nullptr) liveBytes.fetch_sub(malloc_usable_size(memory), std::memory_order_relaxed);
}

}  // namespace

extern "C" {
void* malloc(size_t size) { return Count(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return Count(__libc_calloc(count, size)); }
void* realloc(void* memory, size_t size) {
  Uncount(memory);
  return Count(__libc_realloc(memory, size));
}
void* memalign(size_t alignment, size_t size) { return Count(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, size_t alignment, size_t size) {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
void free(void* memory) {
  Uncount(memory);
  __libc_free(memory);
}
}

namespace bench {
namespace {

constexpr const char* kPhases[] = {"frames", "finish", "repair"};

uint64_t Resident() {
  unsigned long pages = 0;
  if (FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%*u %lu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

double Seconds(const timeval& time) { return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6; }

uint64_t Nanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace

// A call that fails at once marks the place in a trace of system calls.
void BeginPhase(Phase phase) {
  char mark[64];
  std::snprintf(mark, sizeof(mark), "/bench-begin-%s", kPhases[static_cast<int>(phase)]);
  static_cast<void>(!access(mark, F_OK));
  const char* wanted = std::getenv("BENCH_PHASE");
  if (wanted != nullptr && std::string(wanted) == kPhases[static_cast<int>(phase)]) CALLGRIND_START_INSTRUMENTATION;
}

void EndPhase(Phase phase) {
  const char* wanted = std::getenv("BENCH_PHASE");
  if (wanted != nullptr && std::string(wanted) == kPhases[static_cast<int>(phase)]) CALLGRIND_STOP_INSTRUMENTATION;
  char mark[64];
  std::snprintf(mark, sizeof(mark), "/bench-end-%s", kPhases[static_cast<int>(phase)]);
  static_cast<void>(!access(mark, F_OK));
}

HeapFigures HeapNow() { return {liveBytes.load(), allocations.load()}; }

double Now() { return static_cast<double>(Nanoseconds()) / 1e9; }

Run Record(const Workload& work, Recorder& recorder, const std::string& name, const std::string& path, bool stamps) {
  ::unlink(path.c_str());
  // Every page of the frames is touched, so that none is met for the first time in a measured call.
  volatile uint8_t sum = 0;
  for (uint64_t at = 0; at < work.bytes; at += 4096) sum = static_cast<uint8_t>(sum + work.pool[at]);
  std::vector<uint32_t> calls(stamps ? work.frames.size() : 0);

  Run run;
  rusage before;
  rusage after;
  getrusage(RUSAGE_SELF, &before);
  const double started = Now();
  recorder.open(work, path);
  const uint64_t resident = Resident();
  const HeapFigures heap = HeapNow();
  BeginPhase(Phase::kFrames);
  if (stamps) {
    for (size_t i = 0; i < work.frames.size(); ++i) {
      const uint64_t call = Nanoseconds();
      recorder.write(work.frames[i]);
      calls[i] = static_cast<uint32_t>(std::min<uint64_t>(Nanoseconds() - call, 0xFFFFFFFF));
    }
  } else {
    for (const Frame& frame : work.frames) recorder.write(frame);
  }
  EndPhase(Phase::kFrames);
  const HeapFigures heapAfter = HeapNow();
  run.resident = static_cast<double>(Resident()) - static_cast<double>(resident);
  run.heap = static_cast<double>(heapAfter.live) - static_cast<double>(heap.live);
  run.allocations = static_cast<double>(heapAfter.allocations - heap.allocations);
  const double finishing = Now();
  BeginPhase(Phase::kFinish);
  recorder.finish();
  EndPhase(Phase::kFinish);
  run.finish = Now() - finishing;
  recorder.close();
  run.wall = Now() - started;
  getrusage(RUSAGE_SELF, &after);
  run.user = Seconds(after.ru_utime) - Seconds(before.ru_utime);
  run.system = Seconds(after.ru_stime) - Seconds(before.ru_stime);

  const double opening = Now();
  if (OpenForReading(name, path)) run.open = Now() - opening;
  ::unlink(path.c_str());
  if (stamps) {
    std::sort(calls.begin(), calls.end());
    const auto at = [&](double part) { return calls[static_cast<size_t>(part * static_cast<double>(calls.size() - 1))] / 1e9; };
    run.p50 = at(0.5);
    run.p99 = at(0.99);
    run.p999 = at(0.999);
    run.longest = at(1);
  }
  return run;
}

Run InChild(const std::function<Run()>& body) {
  int ends[2];
  if (::pipe(ends) != 0) std::_Exit(3);
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    const Run run = body();
    const bool sent = ::write(ends[1], &run, sizeof(run)) == static_cast<ssize_t>(sizeof(run));
    std::_Exit(sent ? 0 : 3);
  }
  ::close(ends[1]);
  Run run;
  const bool got = ::read(ends[0], &run, sizeof(run)) == static_cast<ssize_t>(sizeof(run));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!got || status != 0) {
    std::fprintf(stderr, "bench: a run failed\n");
    std::exit(3);
  }
  return run;
}

}  // namespace bench
