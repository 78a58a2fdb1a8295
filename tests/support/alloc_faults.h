#pragma once

#include <cstddef>

// Controls the allocations of this thread's code: lets one fail, or all from some point on, and notes how much was
// asked for. Everything goes back to normal with the object; one at a time.
class AllocFaults {
 public:
  static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

  // The allocation after this many fails, and every one behind it unless once is set.
  explicit AllocFaults(std::size_t failsAfter = kNever, bool once = false);
  ~AllocFaults();
  AllocFaults(const AllocFaults&) = delete;
  AllocFaults& operator=(const AllocFaults&) = delete;

  // What is allocated while one lives, by the tests themselves, neither counts nor fails.
  class Pause {
   public:
    Pause();
    ~Pause();

   private:
    bool mWasWatching;
  };

  // The largest size asked for, and the number of allocations, while the last object lived.
  static std::size_t largest();
  static std::size_t count();
};
