#include "box/sample_tables.h"

namespace zrmp4 {
namespace {

template <typename Table>
bool Given(const Table* source, const char* operation, int line = __builtin_LINE()) {
  if (source == nullptr) LogNullArgument(operation, line);
  return source != nullptr;
}

// Calls take(entry) for the entries from-to, counted from 1, until it answers false.
template <typename Entries, typename Take>
bool ForRange(const Entries& entries, ZR_U32 from, ZR_U32 to, Take take) {
  ZR_U32 no = 0;
  for (const auto& entry : entries) {
    if (++no > to) break;
    if (no >= from && !take(entry)) return false;
  }
  return true;
}

// The same for the sync samples whose own numbers are from-to; they ascend.
template <typename Entries, typename Take>
bool ForSyncSamples(const Entries& entries, ZR_U32 from, ZR_U32 to, Take take) {
  for (const ZR_U32 sync : entries) {
    if (sync > to) break;
    if (sync >= from && !take(sync)) return false;
  }
  return true;
}

// Moves chunk offsets as a whole: the first goes to the start, the others keep their distances.
class Relocation {
 public:
  explicit Relocation(ZR_U64 start) : mTarget(start) {}

  ZR_U64 next(ZR_U64 offset) {
    // Deliberate: an offset of 0 counts as none before, so the entry behind it stays where the last one went.
    if (mPrevious != 0) mTarget += offset - mPrevious;
    mPrevious = offset;
    return mTarget;
  }

 private:
  ZR_U64 mTarget;
  ZR_U64 mPrevious = 0;
};

// Calls take(source offset, target) for the chunks from-to while the target fits in 32 bits. Deliberate: what does
// not fit ends the walk without a message, and is no failure.
template <typename Entries, typename Take>
bool RelocateTo32Bits(const Entries& entries, ZR_U32 from, ZR_U32 to, ZR_U64 start, Take take) {
  Relocation relocation(start);
  bool fits = true;
  const bool taken = ForRange(entries, from, to, [&](ZR_U32 offset) {
    const ZR_U64 target = relocation.next(offset);
    fits = target <= 0xFFFFFFFFu;
    return fits && take(offset, static_cast<ZR_U32>(target));
  });
  return taken || !fits;
}

}  // namespace

bool SttsAtom::merge(const SttsAtom* source, ZR_U32 from, ZR_U32 to) {
  if (!Given(source, "merge")) return false;
  return ForRange(source->entries(), from, to,
                  [&](const SttsEntry& run) { return addEntry(run.sampleCount, run.sampleDelta); });
}

bool StscAtom::merge(const StscAtom* source, ZR_U32 from, ZR_U32 to) {
  if (!Given(source, "merge")) return false;
  return ForRange(source->entries(), from, to, [&](const StscEntry& run) {
    return addEntry(run.firstChunk, run.samplesPerChunk, run.sampleDescriptionIndex);
  });
}

bool StscAtom::crop2new(const StscAtom* source) {
  if (!Given(source, "crop2new")) return false;
  // Deliberate: one sample in every chunk, whatever the source holds.
  return append({1, 1, 1});
}

bool StszAtom::merge(const StszAtom* source, ZR_U32 from, ZR_U32 to) {
  if (!Given(source, "merge")) return false;
  return ForRange(source->entries(), from, to, [&](ZR_U32 size) { return addEntry(size); });
}

bool StszAtom::crop2new(const StszAtom* source, ZR_U32 from, ZR_U32 to) {
  if (!Given(source, "crop2new")) return false;
  return ForRange(source->entries(), from, to, [&](ZR_U32 size) {
    ZR_NOTE(0, "stsz %u\n", size);
    return addEntry(size);
  });
}

bool StcoAtom::merge(const StcoAtom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start) {
  if (!Given(source, "merge")) return false;
  return RelocateTo32Bits(source->entries(), from, to, start, [&](ZR_U32, ZR_U32 target) { return addEntry(target); });
}

bool StcoAtom::crop2new(const StcoAtom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start) {
  if (!Given(source, "crop2new")) return false;
  return RelocateTo32Bits(source->entries(), from, to, start, [&](ZR_U32 offset, ZR_U32 target) {
    ZR_NOTE(0, "stco inpos %u out pos %llu \n", offset, static_cast<unsigned long long>(target));
    return addEntry(target);
  });
}

bool Co64Atom::merge(const Co64Atom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start) {
  if (!Given(source, "merge")) return false;
  Relocation relocation(start);
  return ForRange(source->entries(), from, to, [&](ZR_U64 offset) { return addEntry(relocation.next(offset)); });
}

bool Co64Atom::crop2new(const Co64Atom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start) {
  if (!Given(source, "crop2new")) return false;
  Relocation relocation(start);
  return ForRange(source->entries(), from, to, [&](ZR_U64 offset) {
    const ZR_U64 target = relocation.next(offset);
    ZR_NOTE(0, "stco inpos %llu out pos %llu\n", static_cast<unsigned long long>(offset),
            static_cast<unsigned long long>(target));
    constexpr ZR_U32 kGrowth = 4;  // Deliberate: half of what the entry takes
    return append(target, kGrowth);
  });
}

bool StssAtom::merge(const StssAtom* source, ZR_U32 from, ZR_U32 to, ZR_U32 base) {
  if (!Given(source, "merge")) return false;
  return ForSyncSamples(source->entries(), from, to, [&](ZR_U32 sync) { return addEntry(base + 1 - from + sync); });
}

bool StssAtom::crop2new(const StssAtom* source, ZR_U32 from, ZR_U32 to) {
  if (!Given(source, "crop2new")) return false;
  return ForSyncSamples(source->entries(), from, to, [&](ZR_U32 sync) {
    const ZR_U32 number = sync - from + 1;
    ZR_NOTE(0, "stss %u \n", number);
    return addEntry(number);
  });
}

}  // namespace zrmp4
