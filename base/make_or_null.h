#pragma once

#include <memory>
#include <new>
#include <utility>

#include "base/memory_out.h"

namespace zrmp4 {

// A new object, or null when memory is out; the caller says so in its own words.
template <typename T, typename... Arguments>
T* NewOrNull(Arguments&&... arguments) {
  T* object = new (std::nothrow) T(std::forward<Arguments>(arguments)...);
  if (object == nullptr) NoteMemoryOut();
  return object;
}

template <typename T, typename... Arguments>
std::unique_ptr<T> MakeOrNull(Arguments&&... arguments) {
  return std::unique_ptr<T>(NewOrNull<T>(std::forward<Arguments>(arguments)...));
}

// An array of zeros, or null.
template <typename T>
std::unique_ptr<T[]> MakeArrayOrNull(std::size_t count) {
  T* array = new (std::nothrow) T[count]();
  if (array == nullptr) NoteMemoryOut();
  return std::unique_ptr<T[]>(array);
}

}  // namespace zrmp4
