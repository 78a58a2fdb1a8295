#include "tests/support/alloc_faults.h"
#include "tests/sweeps/judge.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"

// One bit of a file's structure is another.

namespace {

using Region = std::pair<std::uint64_t, std::uint64_t>;  // offset, bytes

// What the library reads of a file: track configuration, snapshots, private headers, the movie box.
std::vector<Region> StructureOf(const RecordedFile& file) {
  constexpr std::uint64_t kPrivateHeader = 20;
  std::vector<Region> regions;
  for (const Record& record : file.records()) {
    const bool isBox = record.kind == "vemo" || record.kind == "tbgp";
    regions.emplace_back(record.offset, isBox ? record.size : kPrivateHeader);
  }
  const Box* moov = file.find("moov");
  if (moov != nullptr) regions.emplace_back(moov->offset, moov->size);
  return regions;
}

class Flipped {
 public:
  Flipped(const Session& session, bool finished)
      : mJudge(session),
        mOutcome(Play(session, mJudge.file.path(), session.calls.size(), finished)),
        mQuestions(mJudge.file.path()),
        mWhole(mJudge.file.bytes()) {}

  std::vector<Region> structure() const { return StructureOf(RecordedFile(mJudge.file.path())); }

  std::string problemWith(std::uint64_t byte, int bit) {
    Data flipped = mWhole;
    flipped[byte] = static_cast<std::uint8_t>(flipped[byte] ^ 1u << bit);
    mJudge.file.set(flipped, flipped.size());
    for (const Answer& answer : mQuestions.ask([] { return std::make_shared<AllocFaults>(); })) {
      if (answer.status != 0 && !Documented(answer.status)) return At("read: status", answer.status);
    }
    if (AllocFaults::largest() > most()) return At("read: bytes at once", AllocFaults::largest());
    const std::string wrong = mJudge.valid(flipped, true);
    if (!wrong.empty()) return "repaired: " + wrong;
    return AllocFaults::largest() > most() ? At("repaired: bytes at once", AllocFaults::largest()) : "";
  }

 private:
  // Beside the buffer of the repair.
  std::size_t most() const { return (1u << 20) + 4 * mWhole.size(); }

  Judge mJudge;
  Outcome mOutcome;
  Questions mQuestions;
  Data mWhole;
};

}  // namespace

void BitFlips(Sweep& sweep) {
  std::uint64_t number = 0;
  for (std::size_t s = 0; s < sweep.choose<std::size_t>(2, Sessions().size()); ++s) {
    for (const bool finished : {false, true}) {
      Flipped file(Sessions()[s], finished);
      for (const auto& [offset, size] : file.structure()) {
        for (std::uint64_t bit = 0; bit < size * 8; ++bit) {
          if (++number % sweep.choose(41u, 1u) != 0) continue;
          const std::uint64_t byte = offset + bit / 8;
          const std::string state =
              Sessions()[s].name + (finished ? ", finished" : ", cut") + At(", byte", byte) + At(", bit", bit % 8);
          sweep.attempt(state, [&] { return file.problemWith(byte, static_cast<int>(bit % 8)); });
        }
      }
    }
  }
}
