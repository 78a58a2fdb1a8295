#pragma once

#include <cstdint>
#include <string>

// A sweep tries one scenario in many states that differ a little: cut after every write, failing at every call. A state
// has a name, by which it can be tried again alone.
class Sweep {
 public:
  Sweep(std::string name, bool full, std::uint64_t oneIn, std::string only)
      : mName(std::move(name)), mFull(full), mOneIn(oneIn), mOnly(std::move(only)) {}

  // Whether this is the long run.
  bool full() const { return mFull; }
  template <typename T>
  T choose(T quick, T full) const {
    return mFull ? full : quick;
  }

  // Tries a state if it is to be; check answers what is wrong with it, or nothing.
  template <typename Check>
  void attempt(const std::string& state, Check check) {
    if (!mOnly.empty() ? state != mOnly : ++mSeen % mOneIn != 0) return;
    ++mStates;
    expect(state, check());
  }

  std::uint64_t states() const { return mStates; }
  std::uint64_t failures() const { return mFailures; }

 private:
  void expect(const std::string& state, const std::string& problem);

  std::string mName;
  bool mFull;
  std::uint64_t mOneIn;  // of so many states is tried
  std::string mOnly;
  std::uint64_t mSeen = 0;
  std::uint64_t mStates = 0;
  std::uint64_t mFailures = 0;
};

// Each with the promise that it keeps to account, see docs/guarantees.md.
void TornWrites(Sweep& sweep);
void EveryByte(Sweep& sweep);
void LostPages(Sweep& sweep);
void CutRepair(Sweep& sweep);
void Allocations(Sweep& sweep);
void SystemCallFaults(Sweep& sweep);
void FullDisk(Sweep& sweep);
void BitFlips(Sweep& sweep);
void Kills(Sweep& sweep);
void Threads(Sweep& sweep);
void Long(Sweep& sweep);
