#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "tests/sweeps/judge.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/system_calls.h"

// The file as it would stand after a crash: cut after any write, inside it, or with pages that never reached the disk.

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kAll = static_cast<std::size_t>(-1);

// Does to a file in memory what the library did to one on disk, or the first bytes of it.
void Apply(Data& file, const FileOperation& operation, std::size_t bytes = kAll) {
  if (operation.kind == FileOperation::kTruncate) file.resize(operation.offset);
  if (operation.kind != FileOperation::kWrite) return;
  const std::size_t size = std::min(bytes, operation.bytes.size());
  if (size != 0 && operation.offset + size > file.size()) file.resize(operation.offset + size);
  std::copy_n(operation.bytes.begin(), size, file.begin() + static_cast<long>(operation.offset));
}

std::vector<FileOperation> OperationsOf(const Session& session) {
  const MemoryFile file;
  const SystemCalls calls;
  Play(session, file.path(), session.calls.size(), true);
  return calls.operations();
}

// Where a write may be torn: nothing of it, a little, a sector, a page, or every so many bytes.
std::set<std::size_t> TearsOf(const FileOperation& operation, std::size_t step = kAll) {
  std::set<std::size_t> tears = {0};
  if (operation.kind != FileOperation::kWrite) return tears;
  for (const std::size_t tear : {1, 7, 512, 4096}) {
    if (tear < operation.bytes.size()) tears.insert(tear);
  }
  for (std::size_t tear = 0; tear < operation.bytes.size() && step != kAll; tear += step) tears.insert(tear);
  return tears;
}

template <typename Check>
void Try(Sweep& sweep, const Session& session, const std::string& where, Check check) {
  for (const bool extraFrames : {false, true}) {
    sweep.attempt(session.name + ", " + where + (extraFrames ? ", extra frames" : ""),
                  [&] { return check(extraFrames); });
  }
}

}  // namespace

void TornWrites(Sweep& sweep) {
  for (std::size_t s = 0; s < sweep.choose<std::size_t>(4, Sessions().size()); ++s) {
    const Session& session = Sessions()[s];
    Judge judge(session);
    Data file;
    const std::vector<FileOperation> operations = OperationsOf(session);
    for (std::size_t i = 0; i < operations.size(); ++i) {
      for (const std::size_t tear : TearsOf(operations[i], sweep.choose<std::size_t>(kAll, 4))) {
        Data crashed = file;
        Apply(crashed, operations[i], tear);
        const std::uint64_t cut = std::min(crashed.size(), judge.model.whole().size());
        Try(sweep, session, At("call", i) + At(", torn at", tear),
            [&](bool extraFrames) { return judge.exact(crashed, cut, extraFrames); });
      }
      Apply(file, operations[i]);
    }
    Try(sweep, session, "finished",
        [&](bool extraFrames) { return judge.exact(file, judge.model.whole().size(), extraFrames); });
  }
}

namespace {

// Whether a byte that a cut would make the first one missing is worth a look of its own.
bool IsClose(const std::vector<std::uint64_t>& boundaries, std::size_t cut) {
  return std::any_of(boundaries.begin(), boundaries.end(),
                     [&](std::uint64_t at) { return cut + 1 >= at && cut <= at + 1; });
}

// A frame that was cut inside space that was reserved, which reads as zeros.
void CutInReservedSpace(Sweep& sweep, const Session& session, Judge& judge) {
  for (std::size_t cut = 0; cut < judge.model.whole().size(); cut += sweep.choose(5u, 1u)) {
    if (judge.model.keptCalls(cut, true) == 0) continue;
    for (const std::size_t zeros : {300, 700, 9000}) {
      sweep.attempt(session.name + At(", cut", cut) + At(", zeros", zeros), [&] { return judge.reserved(cut, zeros); });
    }
  }
}

}  // namespace

void EveryByte(Sweep& sweep) {
  for (const Session& session : Sessions()) {
    Judge judge(session);
    // What repairs are held against is a good file itself.
    for (std::size_t calls = 0; calls <= session.calls.size(); calls += calls < 8 ? 1 : sweep.choose(13, 1)) {
      sweep.attempt(session.name + At(", finished after call", calls), [&] { return judge.model.problemAfter(calls); });
    }
    const Data& whole = judge.model.whole();
    const std::vector<std::uint64_t> boundaries = judge.model.boundaries();
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      if (cut % sweep.choose(37u, 1u) != 0 && !IsClose(boundaries, cut)) continue;
      const Data crashed(whole.begin(), whole.begin() + static_cast<long>(cut));
      Try(sweep, session, At("cut", cut), [&](bool extraFrames) { return judge.exact(crashed, cut, extraFrames); });
    }
    if (session.telling) CutInReservedSpace(sweep, session, judge);
  }
}

// Lost pages
// -----------------------------------------------------------------------------------------------------------

namespace {

// What the disk may hold when power fails: of the pages written since the last sync any may be there.
class Disk {
 public:
  void apply(const FileOperation& operation) {
    if (operation.kind == FileOperation::kSync) {
      mDurable = mWritten;
      mPages.clear();
      return;
    }
    const std::size_t from = operation.offset / kPage;
    Apply(mWritten, operation);
    for (std::size_t page = from; page * kPage < operation.offset + operation.bytes.size(); ++page) mPages.insert(page);
  }

  const Data& durable() const { return mDurable; }
  std::size_t pages() const { return mPages.size(); }

  // Lengths that the file may have: that of the last sync, that of now, and one between.
  std::set<std::size_t> lengths() const {
    return {mDurable.size(), mWritten.size(), (mDurable.size() + mWritten.size()) / 2};
  }

  // The file with some of the pages; the others hold what they held before, or else zeros or stale bytes.
  Data with(const std::vector<bool>& kept, std::size_t length, bool zeros) const {
    Data file = mDurable;
    if (file.size() < mWritten.size()) {
      const std::size_t from = file.size();
      file.resize(mWritten.size());
      if (!zeros) std::generate(file.begin() + static_cast<long>(from), file.end(), std::minstd_rand(7));
    }
    std::size_t number = 0;
    for (const std::size_t page : mPages) {
      const std::size_t from = page * kPage;
      if (!kept[number++] || from >= mWritten.size()) continue;
      std::copy_n(mWritten.begin() + static_cast<long>(from), std::min(kPage, mWritten.size() - from),
                  file.begin() + static_cast<long>(from));
    }
    file.resize(length);
    return file;
  }

 private:
  Data mDurable;
  Data mWritten;
  std::set<std::size_t> mPages;  // written since the last sync
};

// All subsets of a few pages; of many each alone lost, each alone kept, and some by chance.
std::vector<std::vector<bool>> SubsetsOf(std::size_t pages, std::size_t seed) {
  std::vector<std::vector<bool>> subsets;
  if (pages <= 10) {
    for (std::size_t mask = 0; mask < std::size_t{1} << pages; ++mask) {
      std::vector<bool> kept(pages);
      for (std::size_t i = 0; i < pages; ++i) kept[i] = (mask >> i & 1) != 0;
      subsets.push_back(kept);
    }
    return subsets;
  }
  std::minstd_rand random(static_cast<unsigned>(seed) + 1);
  for (std::size_t i = 0; i < pages; ++i) {
    for (const bool others : {false, true}) {
      std::vector<bool> kept(pages, others);
      kept[i] = !others;
      subsets.push_back(kept);
    }
    std::vector<bool> kept(pages);
    for (std::size_t k = 0; k < pages; ++k) kept[k] = random() % 8 != 0;
    subsets.push_back(kept);
  }
  return subsets;
}

void LosePagesOf(Sweep& sweep, const Session& session, bool syncing) {
  Judge judge(session);
  Disk disk;
  const std::vector<FileOperation> operations = OperationsOf(session);
  std::size_t number = 0;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    disk.apply(operations[i]);
    const std::uint64_t sure = std::min(disk.durable().size(), judge.model.whole().size());
    std::size_t subset = 0;
    for (const std::vector<bool>& kept : SubsetsOf(disk.pages(), i)) {
      ++subset;
      for (const std::size_t length : disk.lengths()) {
        for (const bool zeros : {true, false}) {
          if (++number % sweep.choose(311u, 5u) != 0) continue;
          const Data crashed = disk.with(kept, length, zeros);
          const std::string where = At("call", i) + At(", pages", subset) + At(", length", length) +
                                    (zeros ? ", zeros" : ", stale bytes") + (syncing ? "" : ", no syncs");
          Try(sweep, session, where, [&](bool extraFrames) {
            return syncing ? judge.atLeast(crashed, sure, extraFrames, zeros) : judge.valid(crashed, extraFrames);
          });
        }
      }
    }
  }
}

}  // namespace

void LostPages(Sweep& sweep) {
  std::vector<Session> sessions = Sessions();
  sessions.insert(sessions.begin(), LongIntervals());
  sessions.resize(sweep.choose<std::size_t>(5, sessions.size()));
  for (const Session& session : sessions) LosePagesOf(sweep, session, true);
  setenv("ZR_MP4_SYNC", "off", 1);
  for (const Session& session : sessions) LosePagesOf(sweep, session, false);
  unsetenv("ZR_MP4_SYNC");
}

// Cut repairs
// ----------------------------------------------------------------------------------------------------------

namespace {

// Repairs a file, cuts the repair after every write, and does the same to what comes of it, so many times.
void CutRepairsOf(Sweep& sweep, Judge& judge, const Data& crashed, std::uint64_t cut, bool extraFrames, int depth,
                  const std::string& where) {
  std::vector<FileOperation> operations;
  {
    judge.file.set(crashed, crashed.size());
    const SystemCalls calls;
    ZR_MP4_RepairFile(judge.file.path().c_str(), extraFrames);
    operations = calls.operations();
  }
  Data file = crashed;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    for (const std::size_t tear : TearsOf(operations[i])) {
      Data again = file;
      Apply(again, operations[i], tear);
      const std::string state = where + At(", call", i) + At(" torn at", tear);
      sweep.attempt(state, [&] { return judge.exact(again, cut, extraFrames); });
      // What a first write left is met by the second repair as it was by the first.
      if (depth > 1 && i + depth >= 2) CutRepairsOf(sweep, judge, again, cut, extraFrames, depth - 1, state);
    }
    Apply(file, operations[i]);
  }
}

}  // namespace

void CutRepair(Sweep& sweep) {
  for (const Session& session : Sessions()) {
    Judge judge(session);
    const Data& whole = judge.model.whole();
    const std::size_t step = whole.size() / sweep.choose<std::size_t>(15, 40);
    for (std::size_t cut = step; cut <= whole.size(); cut += step) {
      const Data crashed(whole.begin(), whole.begin() + static_cast<long>(cut));
      for (const bool extraFrames : {false, true}) {
        CutRepairsOf(sweep, judge, crashed, cut, extraFrames, sweep.choose(1, cut % 8 == 0 ? 3 : 2),
                     session.name + At(", cut", cut) + (extraFrames ? ", extra frames" : ""));
      }
    }
  }
}
