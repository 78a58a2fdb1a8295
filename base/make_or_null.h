#pragma once

#include <memory>
#include <new>
#include <utility>

namespace zrmp4 {

// A new object, or null when memory is out; the caller says so in its own words.
template <typename T, typename... Arguments>
std::unique_ptr<T> MakeOrNull(Arguments&&... arguments) {
  return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Arguments>(arguments)...));
}

// An array of zeros, or null.
template <typename T>
std::unique_ptr<T[]> MakeArrayOrNull(std::size_t count) {
  return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

}  // namespace zrmp4
