#include "tools/frame_clock.h"

namespace tool {
namespace {

constexpr uint64_t kSecond = 1000000;  // microseconds

uint32_t TimeScaleFor(Rate rate) {
  // The slower the frames, the longer the recording: below one a second, few ticks leave more hours in 32 bits.
  constexpr uint32_t kPerFrame = 1000;
  if (rate.whole() || (rate.frames < rate.seconds && rate.frames <= kPerFrame)) return rate.frames * kPerFrame;
  constexpr uint32_t kUsual = 120000;
  if (kUsual % rate.frames == 0) return kUsual;
  constexpr uint32_t kFineEnough = 10000;
  return rate.frames * ((kFineEnough + rate.frames - 1) / rate.frames);
}

}  // namespace

uint32_t Rate::rounded() const {
  const uint32_t nearest = (frames + seconds / 2) / seconds;
  return nearest == 0 ? 1 : nearest;
}

FrameClock::FrameClock(Rate rate)
    : mTimeScale(TimeScaleFor(rate)), mTicks(uint64_t{mTimeScale / rate.frames} * rate.seconds) {}

FrameClock::FrameClock(uint32_t sampleRate, uint32_t samplesPerFrame)
    : mTimeScale(sampleRate), mTicks(samplesPerFrame) {}

// A recording measures the first frame from the time stamps, cutting off what is not a whole tick, and then follows
// with a clock of its own that advances by whole microseconds a frame. Stamps that keep in step with that clock, one
// microsecond ahead when a frame does not last whole microseconds, give the same duration to every frame for any
// length; stamps rounded from the exact time would run away from it and force a correction every few thousand frames.
uint64_t FrameClock::microseconds(uint64_t frame) const {
  if (frame == 0) return 0;
  const uint64_t duration = mTicks * kSecond;
  return frame * (duration / mTimeScale) + (duration % mTimeScale != 0);
}

}  // namespace tool
