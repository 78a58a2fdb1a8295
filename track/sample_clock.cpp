#include "track/sample_clock.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

namespace zrmp4 {
namespace {

constexpr ZR_U32 kSecond = 1000000;  // microseconds
constexpr float kTwoTo32 = 4294967296.0f;
constexpr double kTwoTo63 = 9223372036854775808.0;

// A result in the precision of its type also where the processor computes in more.
template <typename T>
inline T Rounded(T value) {
#if FLT_EVAL_METHOD == 0
  return value;
#else
  volatile T stored = value;
  return stored;
#endif
}

}  // namespace

SampleClock::SampleClock(ZR_U32 timescale, float speed)
    : mTolerance(timescale / 1000), mSpeed(speed), mTimescale(Rounded(static_cast<float>(timescale))) {
  // In lowest terms most products fit in 32 bits, where a division is cheap.
  const ZR_U32 divisor = std::gcd(timescale, kSecond);
  mTicks = timescale / divisor;
  mMicroseconds = kSecond / divisor;
  constexpr ZR_U64 kTooManyTicks = ZR_U64{1} << 32;
  mLongestStep = mTicks != 0 ? (kTooManyTicks * mMicroseconds - 1) / mTicks : 0;
}

void SampleClock::start(ZR_U64 pts) { mNextPts = pts; }

ZR_U32 SampleClock::measure(ZR_U64 pts) {
  ZR_S64 candidate = 0;
  if (!candidateFor(pts, &candidate)) {
    // No duration leads there: the time goes on from the new stamp.
    if (mDuration == 0) setDuration(1);
    mNextPts = pts;
    return mDuration;
  }
  const ZR_S64 change = candidate - static_cast<ZR_S64>(mDuration);
  if (mDuration == 0 || change > mTolerance || -change > mTolerance) {
    setDuration(candidate > 0 ? static_cast<ZR_U32>(candidate) : 1);
  }
  if (mKeptSpan == 0) mStep = stepOf(mDuration);
  const ZR_U64 step = pts - mNextPts;
  if (candidate > 0 && static_cast<ZR_S64>(step) >= 0) noteKept(step);
  mNextPts += mStep;
  return mDuration;
}

void SampleClock::noteKept(ZR_U64 step) {
  const ZR_U64 end = mKeptSpan != 0 ? std::max(mKeptFrom + mKeptSpan, step + 1) : step + 1;
  mKeptFrom = mKeptSpan != 0 ? std::min(mKeptFrom, step) : step;
  mKeptSpan = end - mKeptFrom;
}

void SampleClock::replay(ZR_U32 count, ZR_U32 duration) {
  setDuration(duration);
  mNextPts += count * stepOf(duration);
}

bool SampleClock::agreesWith(ZR_U64 pts) const {
  if (mSpeed == 0.0f) return true;     // the running time stands still then, and nothing depends on it
  constexpr ZR_U64 kRounding = 10000;  // single precision, over steps of some hours
  const ZR_U64 off = pts > mNextPts ? pts - mNextPts : mNextPts - pts;
  return off <= stepOf(mTolerance + 1) + kRounding;
}

// The duration that leads from the running time to the time stamp, less than 1 for a stamp that is behind it. False
// for a step back by more than a second, or forward by more ticks than 32 bits hold.
bool SampleClock::candidateFor(ZR_U64 pts, ZR_S64* candidate) const {
  *candidate = 1;
  if (mSpeed == 0.0f) return true;
  const bool back = static_cast<ZR_S64>(pts - mNextPts) < 0;
  const ZR_U64 step = back ? mNextPts - pts : pts - mNextPts;
  if (step > (back ? kSecond : mLongestStep)) return false;
  const ZR_U64 product = step * mTicks;
  const ZR_U32 narrow = static_cast<ZR_U32>(product);
  const ZR_U32 ticks = product == narrow ? narrow / mMicroseconds : static_cast<ZR_U32>(product / mMicroseconds);
  if (!AtSpeed(ticks, mSpeed, candidate)) return false;
  if (*candidate == 0) {
    *candidate = 1;
  } else if (back) {
    *candidate = -*candidate;
  }
  return true;
}

bool SampleClock::AtSpeed(ZR_U32 ticks, float speed, ZR_S64* result) {
  const float quotient = Rounded(Rounded(static_cast<float>(ticks)) / speed);
  if (!(std::fabs(quotient) < kTwoTo32)) return false;
  *result = static_cast<ZR_S64>(quotient);
  return true;
}

// Microseconds that a duration lasts. What is out of every range counts as no time.
ZR_U64 SampleClock::stepOf(ZR_U32 duration) const {
  const double scaled = Rounded(Rounded(static_cast<float>(duration)) * mSpeed);
  const double step = Rounded(Rounded(scaled * 1e6) / mTimescale);
  return step > 0 && step < kTwoTo63 ? static_cast<ZR_U64>(step) : 0;
}

}  // namespace zrmp4
