#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Turns the time stamps of a track's samples into durations. It keeps a running time that advances by the durations
// given out and not to the time stamps, so that rounding never adds up, and a duration in force that small jitter
// does not change, so that the durations of a steady recording are all the same.
//
// Durations are divided by the speed in single precision, their lengths reckoned in double, each operation rounded, so
// that every platform gives the same.
class SampleClock {
 public:
  SampleClock(ZR_U32 timescale, float speed);

  // The time stamp of the first sample.
  void start(ZR_U64 pts);
  // The next sample's time stamp ends the sample before it: answers that one's duration, at least 1.
  ZR_U32 advanceTo(ZR_U64 pts) {
    if (pts - mNextPts - mKeptFrom >= mKeptSpan) return measure(pts);
    mNextPts += mStep;
    return mDuration;
  }
  // Advances as count calls of advanceTo did that answered this duration.
  void replay(ZR_U32 count, ZR_U32 duration);
  // Whether a time stamp can be that of the sample whose time has come, given the jitter that is let through.
  bool agreesWith(ZR_U64 pts) const;

  ZR_U64 nextPts() const { return mNextPts; }
  ZR_U32 duration() const { return mDuration; }
  void setDuration(ZR_U32 duration) {
    mDuration = duration;
    mKeptSpan = 0;
  }

  // ticks / speed, cut to an integer; false when that is no number of 32 bits and a sign.
  static bool AtSpeed(ZR_U32 ticks, float speed, ZR_S64* result);

 private:
  ZR_U32 measure(ZR_U64 pts);
  void noteKept(ZR_U64 step);
  bool candidateFor(ZR_U64 pts, ZR_S64* candidate) const;
  ZR_U64 stepOf(ZR_U32 duration) const;

  ZR_U64 mNextPts = 0;   // microseconds, the running time
  ZR_U32 mDuration = 0;  // in force, in ticks of the time scale; 0 before the first is decided
  ZR_U32 mTolerance;     // ticks of jitter that keep the duration in force
  float mSpeed;          // durations are divided by it; 0 makes each of them 1
  float mTimescale;
  ZR_U32 mTicks;  // mTicks ticks pass in mMicroseconds microseconds, in lowest terms
  ZR_U32 mMicroseconds;
  ZR_U64 mLongestStep;  // microseconds whose ticks fit in 32 bits
  ZR_U64 mStep = 0;     // microseconds that the duration in force lasts, known while mKeptSpan is not 0
  // Steps forward of the time stamps that are known to keep the duration in force: those from the shortest that did to
  // the longest, as the duration only grows or only shrinks with the step.
  ZR_U64 mKeptFrom = 0;
  ZR_U64 mKeptSpan = 0;
};

}  // namespace zrmp4
