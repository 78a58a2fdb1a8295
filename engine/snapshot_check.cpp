#include "engine/snapshot_check.h"

#include "box/sample_tables.h"
#include "track/priv_sample_header.h"

namespace zrmp4 {
namespace {

template <typename Table>
bool SizeAgrees(const Table& table, ZR_U32 emptySize, ZR_U32 entrySize) {
  return table.header().size == emptySize + static_cast<ZR_U64>(table.entries().count()) * entrySize;
}

bool DurationsAgree(const SttsAtom& stts, ZR_U32 samples, const SnapshotBounds& bounds) {
  ZR_U64 durations = 0;
  for (const SttsEntry& run : stts.entries()) durations += run.sampleCount;
  const bool withoutFirst = samples != 0 && bounds.samplesBefore == 0 && !bounds.firstHasDuration;
  return durations == samples - (withoutFirst ? 1u : 0u);
}

bool SyncNumbersAgree(const StssAtom& stss, ZR_U32 samples, const SnapshotBounds& bounds) {
  ZR_U64 previous = bounds.samplesBefore;
  const ZR_U64 last = static_cast<ZR_U64>(bounds.samplesBefore) + samples;
  for (const ZR_U32 number : stss.entries()) {
    if (number <= previous || number > last) return false;
    previous = number;
  }
  return true;
}

template <typename Offsets>
bool SamplesFit(const Offsets& offsets, const StszAtom& stsz, const SnapshotBounds& bounds) {
  ZR_U64 free = bounds.start;
  auto size = stsz.entries().begin();
  for (const auto offset : offsets.entries()) {
    if (offset < free + PrivSampleHeader::kSize) return false;
    free = offset + static_cast<ZR_U64>(*size);
    if (free > bounds.end) return false;
    ++size;
  }
  return true;
}

template <typename Offsets>
bool OffsetsAgree(StblAtom& stbl, const char* type, ZR_U32 entrySize, const StszAtom& stsz,
                  const SnapshotBounds& bounds) {
  const auto* offsets = stbl.Find<Offsets>(type);
  return offsets != nullptr && SizeAgrees(*offsets, 16, entrySize) &&
         offsets->entries().count() == stsz.entries().count() && SamplesFit(*offsets, stsz, bounds);
}

}  // namespace

bool SnapshotHolds(StblAtom& stbl, const SnapshotBounds& bounds) {
  const auto* stts = stbl.Find<SttsAtom>("stts");
  const auto* stsc = stbl.Find<StscAtom>("stsc");
  const auto* stsz = stbl.Find<StszAtom>("stsz");
  const auto* stss = stbl.Find<StssAtom>("stss");
  if (stts == nullptr || stsc == nullptr || stsz == nullptr || (stss == nullptr && bounds.tellsSync)) return false;
  const ZR_U32 samples = stsz->entries().count();
  if (!SizeAgrees(*stts, 16, 8) || !SizeAgrees(*stsc, 16, 12) || !SizeAgrees(*stsz, 20, 4)) return false;
  if (stss != nullptr && (!SizeAgrees(*stss, 16, 4) || !SyncNumbersAgree(*stss, samples, bounds))) return false;
  // Every chunk of a snapshot holds one sample.
  if (stsc->entries().count() != 1) return false;
  const StscEntry& run = stsc->entries().front();
  if (run.firstChunk != 1 || run.samplesPerChunk != 1 || run.sampleDescriptionIndex != 1) return false;
  return DurationsAgree(*stts, samples, bounds) &&
         (bounds.wide ? OffsetsAgree<Co64Atom>(stbl, "co64", 8, *stsz, bounds)
                      : OffsetsAgree<StcoAtom>(stbl, "stco", 4, *stsz, bounds));
}

}  // namespace zrmp4
