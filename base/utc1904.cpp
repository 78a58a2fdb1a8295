#include "base/utc1904.h"

#include <ctime>

namespace zrmp4 {

ZR_U64 changeLocalSecond2UTC1904(ZR_U64 seconds) {
  constexpr ZR_U64 kFrom1904To1970 = 2082844800;
  const time_t local = static_cast<time_t>(seconds);
  struct tm parts;
  if (localtime_r(&local, &parts) == nullptr) return seconds + kFrom1904To1970;
  return seconds + kFrom1904To1970 - static_cast<ZR_U64>(parts.tm_gmtoff);
}

}  // namespace zrmp4
