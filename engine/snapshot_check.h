#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

class StblAtom;

// What one track's snapshot must agree with.
struct SnapshotBounds {
  ZR_U64 start;           // no record of the interval begins before this
  ZR_U64 end;             // nor ends behind this: the table group itself
  ZR_U32 samplesBefore;   // of the track, in all earlier intervals
  bool firstHasDuration;  // false where the track's very first sample waits for its duration
  bool wide;              // 64-bit chunk offsets
  bool tellsSync;         // not every sample is a sync sample
};

// Whether a snapshot read from a file can be trusted as a whole: all tables are there with the sizes that their
// headers declare, their counts agree, and the samples lie in ascending order inside the interval. A snapshot that
// was cut off while it was written, with zeros behind it, does not pass.
bool SnapshotHolds(StblAtom& stbl, const SnapshotBounds& bounds);

}  // namespace zrmp4
