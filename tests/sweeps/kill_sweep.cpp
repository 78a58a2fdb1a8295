#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <new>
#include <random>

#include "tests/sweeps/judge.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"

// Processes that record and repair at full speed and are killed at any moment.

namespace {

constexpr int kKilled = -1;

// Does work in a process of its own, which is killed so long after it began. Answers how it ended.
template <typename Work>
int KilledAfter(unsigned microseconds, const std::atomic<std::size_t>& begun, Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  while (begun == 0) usleep(20);
  usleep(microseconds);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : kKilled;
}

class Victim : private Judge {
 public:
  explicit Victim(const Session& recorded)
      : Judge(recorded),
        mSteps(new (mmap(nullptr, sizeof(*mSteps), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   std::atomic<std::size_t>(0)) {}
  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;
  ~Victim() { munmap(mSteps, sizeof(*mSteps)); }

  std::string killed(unsigned life, std::minstd_rand& random) {
    file.set({}, 0);
    *mSteps = 0;
    if (KilledAfter(life, *mSteps, [this] { return record(); }) != kKilled) return "recording failed";
    const std::uint64_t size = file.bytes().size();
    const std::size_t calls = *mSteps < 2 ? 0 : *mSteps - 2;  // behind opening and the tracks
    if (calls != 0 && size + session.buffer < model.endOf(calls)) {
      return At("only", size) + At(" bytes are there after call", calls);
    }
    // Repair has a little longer each time.
    for (unsigned tries = 1;; ++tries) {
      const int ended = KilledAfter(static_cast<unsigned>(random() % (1000 * tries)), *mSteps, [&] {
        return ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE) == model.status(size) ? 0 : 1;
      });
      if (ended > 0) return "repair failed";
      if (ended == 0) return model.status(size) == 0 ? model.difference(file.bytes(), size, true) : "";
    }
  }

 private:
  int record() {
    Recorder recorder(session, file.path());
    for (std::size_t step = 0; step + 2 < recorder.steps(); ++step) {
      if (recorder.run(step) != 0) return 1;
      *mSteps = step + 1;
    }
    return pause();
  }

  std::atomic<std::size_t>* mSteps;  // acknowledged; shared with the processes
};

}  // namespace

void Kills(Sweep& sweep) {
  Session session = LongIntervals(2000);
  session.buffer = 256;
  Victim victim(session);
  std::minstd_rand random(1);
  for (unsigned i = 0; i < sweep.choose(100u, 10000u); ++i) {
    const auto life = static_cast<unsigned>(2000 + random() % 48000);
    sweep.attempt(At("process", i) + At(", microseconds", life), [&] { return victim.killed(life, random); });
  }
}
