#include <algorithm>

#include "tests/support/alloc_faults.h"
#include "tests/support/full_at.h"
#include "tests/support/session.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/system_calls.h"

// The library's calls while memory, the system or the disk fails them, at one place after another.

namespace {

enum class Effect { kNone, kOnce, kLasting };

// A session, and what must come of it whatever fails.
class Subject {
 public:
  explicit Subject(const Session& session) : mSession(session), mModel(session) {}

  const Session& session() const { return mSession; }
  std::size_t size() const { return mModel.whole().size(); }

  // What is refused is tried again at once, and when the cause is gone: the file is the same in the end, and was one
  // that repair makes whole in between.
  std::string record(const Cause& cause, Effect effect) {
    const MemoryFile file;
    Recorder recorder(mSession, file.path());
    std::shared_ptr<void> failing = cause();
    for (std::size_t step = 0; step < recorder.steps(); ++step) {
      ZR_U32 status = recorder.run(step);
      if (status == 0) continue;
      const std::string where = At("step", step);
      const bool closing = step + 1 == recorder.steps();
      if (failing && effect == Effect::kLasting && !closing && recorder.run(step) == 0) continue;
      if (!failing || effect == Effect::kNone || !Documented(status)) return where + At(": status", status);
      failing.reset();
      const std::string wrong = mSession.unit == 0 ? "" : repaired(file.bytes(), size());
      if (!wrong.empty()) return where + ", repaired: " + wrong;
      status = closing ? 0 : recorder.run(step);
      if (status != 0) return where + At(", tried again: status", status);
    }
    failing.reset();
    return mModel.difference(file.bytes(), size(), true);
  }

  // What a failed repair leaves is completed by the next.
  std::string repair(std::size_t cut, const Cause& cause, Effect effect) {
    mFile.set(mModel.whole(), cut);
    const std::string path = mFile.path();
    std::shared_ptr<void> failing = cause();
    const ZR_U32 status = ZR_MP4_RepairFile(path.c_str(), ZR_TRUE);
    failing.reset();
    if (status == 0 || effect == Effect::kNone) return difference(status, cut);
    return Documented(status) ? repaired(mFile.bytes(), cut) : At("status", status);
  }

  // Each answer is the one that is given when nothing fails, or a failure.
  std::string read(bool finished, const Cause& cause, Effect effect) {
    Play(mSession, mFile.path(), mSession.calls.size(), finished);
    const Data before = mFile.bytes();
    Questions questions(mFile.path());
    const std::vector<Answer> expected = questions.ask();
    const std::vector<Answer>& answers = questions.ask(cause);
    for (std::size_t i = 0; i < answers.size(); ++i) {
      const bool failed = effect != Effect::kNone && answers[i].status != 0 && Documented(answers[i].status);
      if (!failed && answers[i] != expected[i]) return At("answer", i) + At(": status", answers[i].status);
    }
    return mFile.bytes() == before ? "" : "reading changed the file";
  }

 private:
  std::string repaired(const Data& file, std::size_t cut) {
    mFile.set(file, file.size());
    return difference(ZR_MP4_RepairFile(mFile.path().c_str(), ZR_TRUE), std::min(file.size(), cut));
  }

  std::string difference(ZR_U32 status, std::size_t cut) {
    if (status != mModel.status(cut)) return At("status", status);
    return status == 0 ? mModel.difference(mFile.bytes(), cut, true) : "";
  }

  Session mSession;
  Model mModel;
  MemoryFile mFile;
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
  std::copy_if(Sessions().begin(), Sessions().end(), std::back_inserter(sessions), [&](const Session& session) {
    return all && !session.refuses && session.name != sessions[0].name;
  });
  return sessions;
}

}  // namespace

void Allocations(Sweep& sweep) {
  for (const Session& session : FaultSessions(sweep.full())) {
    Subject subject(session);
    for (const Scenario& scenario : ScenariosOf(subject)) {
      const auto fail = [&](std::size_t after, Effect effect) {
        return scenario.run([=] { return std::make_shared<AllocFaults>(after, effect == Effect::kOnce); }, effect);
      };
      fail(AllocFaults::kNever, Effect::kNone);
      const std::size_t count = AllocFaults::count();
      for (std::size_t n = 0; n < count; ++n) {
        for (const Effect effect : {Effect::kOnce, Effect::kLasting}) {
          const std::string state = session.name + ", " + scenario.name + At(", allocation", n) +
                                    (effect == Effect::kOnce ? "" : " and on");
          sweep.attempt(state, [&] { return fail(n, effect); });
        }
      }
    }
  }
}

namespace {

struct NamedFault {
  const char* name;
  SystemCalls::Fault fault;
  Effect effect;
};

constexpr NamedFault kFaults[] = {{"EIO", SystemCalls::Fault::kIo, Effect::kOnce},
                                  {"EIO and on", SystemCalls::Fault::kIo, Effect::kLasting},
                                  {"ENOSPC", SystemCalls::Fault::kNoSpace, Effect::kOnce},
                                  {"ENOSPC and on", SystemCalls::Fault::kNoSpace, Effect::kLasting},
                                  {"EINTR", SystemCalls::Fault::kInterrupted, Effect::kNone},
                                  {"short", SystemCalls::Fault::kShort, Effect::kNone}};

}  // namespace

void SystemCallFaults(Sweep& sweep) {
  for (const Session& session : FaultSessions(sweep.full())) {
    Subject subject(session);
    for (const Scenario& scenario : ScenariosOf(subject)) {
      std::vector<bool> transfers;
      const auto fail = [&](std::size_t after, const NamedFault& fault) {
        const auto cause = [&] {
          auto* calls = new SystemCalls;
          calls->failAfter(after, fault.fault, fault.effect == Effect::kLasting);
          return std::shared_ptr<void>(calls, [&, calls](void*) {
            transfers = calls->transfers();
            delete calls;
          });
        };
        return scenario.run(cause, fault.effect);
      };
      fail(0, {"", SystemCalls::Fault::kNone, Effect::kNone});
      const std::vector<bool> all = transfers;
      for (std::size_t n = 0; n < all.size(); ++n) {
        for (const NamedFault& fault : kFaults) {
          if (fault.fault == SystemCalls::Fault::kShort && !all[n]) continue;
          const std::string state = session.name + ", " + scenario.name + At(", call", n) + ", " + fault.name;
          sweep.attempt(state, [&] { return fail(n, fault); });
        }
      }
    }
  }
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
