#pragma once

#include <algorithm>

#include "zr_mp4.h"

namespace zrmp4 {

// When a recording makes its data durable between two snapshots: every 4 MiB or every second, whichever comes first,
// and less often on a card whose syncs take long.
class SyncSchedule {
 public:
  // Whether to sync before more is written at this position; nowMicroseconds() is asked only when it can matter.
  template <typename Clock>
  bool due(ZR_U64 position, ZR_U64 pts, Clock nowMicroseconds) const {
    if (position - mPosition >= mBytes) return true;
    // The clock costs more than the frame's own bookkeeping; time stamps tell when it is worth a look.
    return pts - mPts >= mInterval && position != mPosition && nowMicroseconds() - mWhen >= mInterval;
  }

  // Notes a sync that ended now after tookMicroseconds.
  void done(ZR_U64 position, ZR_U64 pts, ZR_U64 now, ZR_U64 tookMicroseconds) {
    mPosition = position;
    mPts = pts;
    mWhen = now;
    if (tookMicroseconds > kLong) {
      mBytes = std::min(mBytes * 2, kMostBytes);
      mInterval = std::min(mInterval * 2, kMostInterval);
    } else if (tookMicroseconds < kLong / 4) {
      mBytes = std::max(mBytes / 2, kBytes);
      mInterval = std::max(mInterval / 2, kInterval);
    }
  }

 private:
  static constexpr ZR_U64 kBytes = 4u << 20;
  static constexpr ZR_U64 kMostBytes = 64u << 20;
  static constexpr ZR_U64 kInterval = 1000000;  // microseconds
  static constexpr ZR_U64 kMostInterval = 16000000;
  static constexpr ZR_U64 kLong = 100000;

  ZR_U64 mPosition = 0;
  ZR_U64 mPts = 0;
  ZR_U64 mWhen = 0;
  ZR_U64 mBytes = kBytes;
  ZR_U64 mInterval = kInterval;
};

}  // namespace zrmp4
