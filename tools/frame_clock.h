#pragma once

#include <cstdint>

namespace tool {

// Frames per second as an exact fraction in lowest terms.
struct Rate {
  uint32_t frames = 0;
  uint32_t seconds = 1;

  bool whole() const { return seconds == 1; }
  uint32_t rounded() const;  // whole frames per second, at least 1
};

// The time stamps of a track whose frames all last the same.
class FrameClock {
 public:
  FrameClock() = default;
  // A time scale is chosen in which one frame is a whole number of ticks.
  explicit FrameClock(Rate rate);
  // The time scale is the sample rate, so that a frame is as many ticks as it holds samples.
  FrameClock(uint32_t sampleRate, uint32_t samplesPerFrame);

  uint32_t timeScale() const { return mTimeScale; }
  uint64_t microseconds(uint64_t frame) const;

 private:
  uint32_t mTimeScale = 0;
  uint64_t mTicks = 0;  // of one frame
};

}  // namespace tool
