// A recording is repaired. What could not be is as it was; what was plays, keeps its media data, and is left alone by
// a second repair.
#include "fuzz/fuzz.h"

namespace {

// Behind the media data repair may leave reserved space of any length.
struct Contents {
  explicit Contents(const RecordedFile& file) : size(file.size()), bytes(file.bytes(0, kMost)) {}
  bool operator==(const Contents& other) const { return size == other.size && bytes == other.bytes; }

  static constexpr std::uint64_t kMost = 1 << 18;

  std::uint64_t size;
  Data bytes;
};

void CheckRepaired(const MemoryFile& file, const Data& before) {
  const RecordedFile repaired(file.path());
  if (repaired.outline().compare(0, 9, "ftyp mdat") != 0) return;  // no recorder began it like that
  for (const Record& record : repaired.records()) {
    // A box of the user's may look like any other to the reader.
    if (record.kind == "user" && repaired.text(record.offset + 24, 4) != "note") return;
  }
  const std::string problem = ProblemOf(repaired);
  // The duration that a damaged configuration gives to sound is multiplied in 32 bits.
  Require(problem.empty() || problem.find("duration is not the sum") != std::string::npos, problem);
  const Box& mdat = *repaired.find("mdat");
  Require(mdat.end() <= std::max<std::size_t>(before.size(), mdat.payload()), "the media data has grown");
  const auto media = before.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(mdat.payload(), before.size()));
  const Data kept(media,
                  before.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(mdat.end(), before.size())));
  Require(repaired.bytes(mdat.payload(), mdat.end() - mdat.payload()) == kept, "the media data has changed");
  ZR_MP4_HANDLE handle = 0;
  const zrMP4_CONFIG_S config = DemuxerConfig(file.path());
  if (ZR_MP4_Create(&handle, &config) == 0) ZR_MP4_Destroy(handle, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  const Data before(data, data + size);
  file.set(before, size);
  const Contents original{RecordedFile(file.path())};
  for (const bool extraFrames : {false, true}) {
    file.set(before, size);
    const auto repair = [&] {
      const MemoryBound bound(3 << 19, size);
      return ZR_MP4_RepairFile(file.path().c_str(), extraFrames);
    };
    const ZR_U32 status = repair();
    const Contents once{RecordedFile(file.path())};
    Require(status == 0 || once == original, "a repair that failed changed the file");
    if (once == original) continue;
    CheckRepaired(file, before);
    Require(repair() == 0 && Contents{RecordedFile(file.path())} == once, "a second repair changed the file");
  }
  return 0;
}
