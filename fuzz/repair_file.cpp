// A recording is repaired. What could not be is as it was; what was plays, keeps its media data, and is left alone by
// a second repair.
#include "fuzz/fuzz.h"

namespace {

// Behind the media data repair may leave reserved space of any length.
std::pair<std::uint64_t, Data> Contents(const RecordedFile& file) { return {file.size(), file.bytes(0, 1 << 18)}; }

void CheckRepaired(const RecordedFile& original, const RecordedFile& repaired) {
  const std::vector<Box>& boxes = repaired.root().children;
  if (boxes.size() < 2 || boxes[0].type + boxes[1].type != "ftypmdat") return;  // no recorder began it like that
  const Box& mdat = *repaired.find("mdat");
  std::uint64_t end = mdat.payload();
  for (const Record& record : repaired.records()) {
    // A box of the user's may look like any other to the reader.
    if (record.kind == "user" && repaired.text(record.offset + 24, 4) != "note") return;
    end = record.offset + record.size;
  }
  // Damage in front of a snapshot hides from the reader which boxes are the user's.
  const std::string problem = end == mdat.end() ? ProblemOf(repaired) : "";
  // The duration that a damaged configuration gives to sound is multiplied in 32 bits.
  Require(problem.empty() || problem.find("duration is not the sum") != std::string::npos, problem);
  const std::uint64_t length = mdat.end() - mdat.payload();
  Require(repaired.bytes(mdat.payload(), length) == original.bytes(mdat.payload(), length),
          "the media data has changed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile before, file;
  before.set({data, data + size}, size);
  const RecordedFile original(before.path());
  for (const bool extraFrames : {false, true}) {
    file.set({data, data + size}, size);
    const auto repair = [&] {
      const MemoryBound bound(3 << 19, size);
      return ZR_MP4_RepairFile(file.path().c_str(), extraFrames);
    };
    const ZR_U32 status = repair();
    const RecordedFile repaired(file.path());
    const auto once = Contents(repaired);
    Require(status == 0 || once == Contents(original), "a repair that failed changed the file");
    if (once == Contents(original)) continue;
    CheckRepaired(original, repaired);
    const Muxer reader(DemuxerConfig(file.path()));  // whatever it answers
    Require(repair() == 0 && Contents(RecordedFile(file.path())) == once, "a second repair changed the file");
  }
  return 0;
}
