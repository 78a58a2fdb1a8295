#include <algorithm>
#include <functional>

#include "tests/support/alloc_faults.h"
#include "tests/support/full_at.h"
#include "tests/sweeps/judge.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/system_calls.h"

// The library's calls while memory, the system or the disk fails them, at one place after another.

namespace {

enum class Effect { kNone, kOnce, kLasting };

// A session, and what must come of it whatever fails.
class Subject {
 public:
  explicit Subject(const Session& session) : mJudge(session) {}

  const Session& session() const { return mJudge.session; }
  std::size_t size() const { return mJudge.model.whole().size(); }

  // What is refused is tried again at once, and when the cause is gone: the file is the same in the end, and was one
  // that repair makes whole in between.
  std::string record(const Cause& cause, Effect effect) {
    const MemoryFile file;
    Recorder recorder(session(), file.path());
    std::shared_ptr<void> failing = cause();
    for (std::size_t step = 0; step < recorder.steps(); ++step) {
      ZR_U32 status = recorder.run(step);
      if (status == 0) continue;
      const std::string where = At("step", step);
      const bool closing = step + 1 == recorder.steps();
      if (failing && effect == Effect::kLasting && !closing && recorder.run(step) == 0) continue;
      if (!failing || effect == Effect::kNone || !Documented(status)) return where + At(": status", status);
      failing.reset();
      const std::string wrong = session().unit == 0 ? "" : repaired(file.bytes(), size());
      if (!wrong.empty()) return where + ", repaired: " + wrong;
      status = closing ? 0 : recorder.run(step);
      if (status != 0) return where + At(", tried again: status", status);
    }
    failing.reset();
    return mJudge.model.difference(file.bytes(), size(), true);
  }

  // What a failed repair leaves is completed by the next.
  std::string repair(std::size_t cut, const Cause& cause, Effect effect) {
    MemoryFile file;
    file.set(mJudge.model.whole(), cut);
    const std::string path = file.path();
    std::shared_ptr<void> failing = cause();
    const ZR_U32 status = ZR_MP4_RepairFile(path.c_str(), ZR_TRUE);
    failing.reset();
    if (status == mJudge.model.status(cut)) {
      return status == 0 ? mJudge.model.difference(file.bytes(), cut, true) : "";
    }
    return effect != Effect::kNone && Documented(status) ? repaired(file.bytes(), cut) : At("status", status);
  }

  // Each answer is the one that is given when nothing fails, or a failure.
  std::string read(bool finished, const Cause& cause, Effect effect) {
    const MemoryFile file;
    Play(session(), file.path(), session().calls.size(), finished);
    const Data before = file.bytes();
    Questions questions(file.path());
    const std::vector<Answer> expected = questions.ask();
    const std::vector<Answer>& answers = questions.ask(cause);
    for (std::size_t i = 0; i < answers.size(); ++i) {
      const bool failed = effect != Effect::kNone && answers[i].status != 0 && Documented(answers[i].status);
      if (!failed && answers[i] != expected[i]) return At("answer", i) + At(": status", answers[i].status);
    }
    return file.bytes() == before ? "" : "reading changed the file";
  }

 private:
  std::string repaired(const Data& file, std::size_t cut) { return mJudge.exact(file, std::min(file.size(), cut)); }

  Judge mJudge;
};

struct Scenario {
  std::string name;
  std::function<std::string(const Cause&, Effect)> run;
};

std::vector<Scenario> ScenariosOf(Subject& subject) {
  std::vector<Scenario> all = {
      {"record", [&](const Cause& cause, Effect effect) { return subject.record(cause, effect); }}};
  if (subject.session().unit == 0) return all;
  for (std::size_t k = 2; k <= 8; k += 2) {
    const std::size_t cut = subject.size() * k / 8 - k % 8;
    all.push_back({At("cut", cut), [&subject, cut](const Cause& cause, Effect effect) {
                     return subject.repair(cut, cause, effect);
                   }});
  }
  for (const bool finished : {false, true}) {
    all.push_back({finished ? "read" : "read cut", [&subject, finished](const Cause& cause, Effect effect) {
                     return subject.read(finished, cause, effect);
                   }});
  }
  return all;
}

// One session with backups and without, or all of them but those that refuse frames of themselves, which cannot be
// told from those that fail.
std::vector<Session> FaultSessions(bool all) {
  std::vector<Session> sessions = {Sessions()[3], Sessions()[3]};
  sessions.back().name += ", no backups";
  sessions.back().unit = 0;
  sessions.back().buffer = 40;
  sessions.back().preAlloc = 131072;
  std::copy_if(Sessions().begin(), Sessions().end(), std::back_inserter(sessions), [&](const Session& session) {
    return all && !session.refuses && session.name != sessions[0].name;
  });
  return sessions;
}

// What may fail at each of a scenario's calls of some kind.
struct Fault {
  const char* name;
  Effect effect;
  // Fails the call after so many of them, or answers nothing where that call cannot fail so.
  std::function<Cause(std::size_t after)> causeAt;
};

// Each call of each scenario in turn; watch fails none, and count tells how many there were.
void FailEach(Sweep& sweep, const char* call, const Cause& watch, const std::function<std::size_t()>& count,
              const std::vector<Fault>& faults) {
  for (const Session& session : FaultSessions(sweep.full())) {
    Subject subject(session);
    for (const Scenario& scenario : ScenariosOf(subject)) {
      scenario.run(watch, Effect::kNone);
      for (std::size_t n = 0, calls = count(); n < calls; ++n) {
        for (const Fault& fault : faults) {
          const std::string state = session.name + ", " + scenario.name + ", " + At(call, n) + fault.name;
          const Cause cause = fault.causeAt(n);
          if (cause) sweep.attempt(state, [&] { return scenario.run(cause, fault.effect); });
        }
      }
    }
  }
}

}  // namespace

void Allocations(Sweep& sweep) {
  const auto failing = [](Effect effect) {
    return [=](std::size_t after) -> Cause {
      return [=] { return std::make_shared<AllocFaults>(after, effect == Effect::kOnce); };
    };
  };
  FailEach(sweep, "allocation", [] { return std::make_shared<AllocFaults>(); }, AllocFaults::count,
           {{"", Effect::kOnce, failing(Effect::kOnce)}, {" and on", Effect::kLasting, failing(Effect::kLasting)}});
}

void SystemCallFaults(Sweep& sweep) {
  using Kind = SystemCalls::Fault;
  std::vector<bool> transfers;
  const auto watch = [&] {
    return std::shared_ptr<SystemCalls>(new SystemCalls, [&](SystemCalls* calls) {
      transfers = calls->transfers();
      delete calls;
    });
  };
  const auto fault = [&](const char* name, Kind kind, Effect effect) {
    return Fault{name, effect, [&transfers, kind, effect](std::size_t after) -> Cause {
                   if (kind == Kind::kShort && !transfers[after]) return nullptr;
                   if (kind >= Kind::kUnknown && after != 0) return nullptr;
                   return [=] {
                     auto calls = std::make_shared<SystemCalls>();
                     calls->failAfter(after, kind, effect == Effect::kLasting || kind >= Kind::kUnknown);
                     return calls;
                   };
                 }};
  };
  FailEach(sweep, "call", watch, [&] { return transfers.size(); },
           {fault(", EIO", Kind::kIo, Effect::kOnce), fault(", EIO and on", Kind::kIo, Effect::kLasting),
            fault(", ENOSPC", Kind::kNoSpace, Effect::kOnce), fault(", ENOSPC and on", Kind::kNoSpace, Effect::kLasting),
            fault(", EINTR", Kind::kInterrupted, Effect::kNone), fault(", short", Kind::kShort, Effect::kNone),
            fault(" and on, ENOSYS", Kind::kUnknown, Effect::kNone),
            fault(" and on, not supported", Kind::kUnsupported, Effect::kNone)});
}

void FullDisk(Sweep& sweep) {
  Session session = LongIntervals(sweep.choose(56, 560));
  session.buffer = 5000;
  Subject subject(session);
  for (std::size_t room = 4096; room < subject.size(); room += 4096) {
    const Cause cause = [=] { return std::make_shared<FullAt>(room); };
    const std::string state = At("room for", room);
    sweep.attempt(state, [&] { return subject.record(cause, Effect::kLasting); });
    sweep.attempt(state + ", repair", [&] { return subject.repair(room, cause, Effect::kLasting); });
  }
}
