#pragma once

#include <cstddef>
#include <cstring>

namespace zrmp4 {

// Bounds-checked copies in the manner of C11 Annex K: 0 on success, and nothing is touched otherwise.

inline int memcpy_s(void* to, std::size_t room, const void* from, std::size_t length) {
  if (to == nullptr || from == nullptr || length > room) return -1;
  std::memcpy(to, from, length);
  return 0;
}

inline int memset_s(void* to, std::size_t room, int value, std::size_t length) {
  if (to == nullptr || length > room) return -1;
  std::memset(to, value, length);
  return 0;
}

// Copies a text with its terminator, cut to what fits; -1 when there is no room even for the terminator.
inline int CopyText(char* to, std::size_t room, const char* from, std::size_t length) {
  if (to == nullptr || from == nullptr || room == 0) return -1;
  const std::size_t kept = length < room ? length : room - 1;
  std::memcpy(to, from, kept);
  to[kept] = '\0';
  return 0;
}

}  // namespace zrmp4
