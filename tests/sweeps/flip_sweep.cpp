#include <algorithm>

#include "tests/support/alloc_faults.h"
#include "tests/support/session.h"
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
      : mModel(session),
        mOutcome(Play(session, mFile.path(), session.calls.size(), finished)),
        mQuestions(mFile.path()),
        mWhole(mFile.bytes()) {}

  std::vector<Region> structure() const { return StructureOf(RecordedFile(mFile.path())); }

  std::string problemWith(std::uint64_t byte, int bit) {
    Data flipped = mWhole;
    flipped[byte] = static_cast<std::uint8_t>(flipped[byte] ^ 1u << bit);
    mFile.set(flipped, flipped.size());
    const std::string wrong = reading();
    return wrong.empty() ? repairing(flipped) : wrong;
  }

 private:
  std::string reading() {
    for (const Answer& answer : mQuestions.ask([] { return std::make_shared<AllocFaults>(); })) {
      if (answer.status != 0 && !Documented(answer.status)) return At("read: status", answer.status);
    }
    return memory("read");
  }

  std::string repairing(const Data& flipped) {
    const std::string path = mFile.path();
    ZR_U32 status;
    {
      const AllocFaults watch;
      status = ZR_MP4_RepairFile(path.c_str(), ZR_TRUE);
    }
    if (status != 0 && !Documented(status)) return At("repaired: status", status);
    const Data repaired = mFile.bytes();
    if (repaired == flipped) return memory("repaired");
    if (status != 0) return At("changed without success: status", status);
    const std::string problem = RecordedFile(path).problem();
    // What is left of a pre-allocated unit may be less than a box.
    if (!problem.empty() && problem.find("at the end of FILE") == std::string::npos) return problem;
    const auto start = static_cast<long>(mModel.mediaStart());
    const auto end = static_cast<long>(std::min<std::uint64_t>(mModel.mediaEnd(repaired), flipped.size()));
    if (!std::equal(repaired.begin() + start, repaired.begin() + end, flipped.begin() + start)) {
      return "media data was changed";
    }
    const bool same = ZR_MP4_RepairFile(path.c_str(), ZR_TRUE) == 0 && mFile.bytes() == repaired;
    return same ? memory("repaired") : "a second repair changed the file";
  }

  // Beside the buffer of the repair.
  std::string memory(const char* doing) const {
    return AllocFaults::largest() <= (1u << 20) + 4 * mWhole.size()
               ? ""
               : std::string(doing) + At(": bytes at once", AllocFaults::largest());
  }

  Model mModel;
  MemoryFile mFile;
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
