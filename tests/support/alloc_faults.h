#pragma once

#include <cstddef>

// Controls the allocations of this thread's C++ code: lets them fail from some point on, and notes how much was asked
// for. Everything goes back to normal with the object; one at a time.
class AllocFaults {
 public:
  static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

  // The allocation after this many, and every one behind it, fails.
  explicit AllocFaults(std::size_t failsAfter = kNever);
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

  // The largest size asked for, and the number of allocations, since the object was made.
  static std::size_t largest();
  static std::size_t count();
};
