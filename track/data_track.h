#pragma once

#include "track/track.h"

namespace zrmp4 {

// Timed metadata, byte for byte; a sample may be empty.
class DataTrack : public Track {
 public:
  DataTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);
};

}  // namespace zrmp4
