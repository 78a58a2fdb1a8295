#include "tests/support/alloc_faults.h"

#include <cstdlib>
#include <new>

// All forms of new and delete stand here and in no header: a partial or inlined set confuses sanitizers and compilers.

namespace {

thread_local bool tWatching = false;
thread_local std::size_t tLeft = AllocFaults::kNever;
thread_local bool tOnce = false;
thread_local std::size_t tLargest = 0;
thread_local std::size_t tCount = 0;

}  // namespace

// The linker sends every malloc of the program here, those below among them.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
  if (!tWatching) return __real_malloc(size);
  ++tCount;
  if (size > tLargest) tLargest = size;
  const bool fails = tLeft == 0;
  if (fails ? tOnce : tLeft != AllocFaults::kNever) --tLeft;
  return fails ? nullptr : __real_malloc(size);
}

namespace {

void* Allocate(std::size_t size) { return std::malloc(size != 0 ? size : 1); }

void* AllocateOrThrow(std::size_t size) {
  void* memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

AllocFaults::AllocFaults(std::size_t failsAfter, bool once) {
  tLeft = failsAfter;
  tOnce = once;
  tLargest = tCount = 0;
  tWatching = true;
}

AllocFaults::~AllocFaults() { tWatching = false; }

AllocFaults::Pause::Pause() : mWasWatching(tWatching) { tWatching = false; }

AllocFaults::Pause::~Pause() { tWatching = mWasWatching; }

std::size_t AllocFaults::largest() { return tLargest; }

std::size_t AllocFaults::count() { return tCount; }

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
