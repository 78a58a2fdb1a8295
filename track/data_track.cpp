#include "track/data_track.h"

namespace zrmp4 {

DataTrack::DataTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate)
    : Track(stream, trak, mdat, speed, constantRate) {
  if (!constantRate || frameRate == 0 || speed == 0.0f) return;
  ZR_S64 duration = 0;
  const bool fits = SampleClock::AtSpeed(trak->timeScale() / static_cast<ZR_U32>(frameRate), speed, &duration);
  mClock.setDuration(fits && duration > 0 ? static_cast<ZR_U32>(duration) : 0);
}

}  // namespace zrmp4
