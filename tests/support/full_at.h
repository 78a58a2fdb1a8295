#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstdint>

// The card is full at this size of a file, until the object goes.
class FullAt {
 public:
  explicit FullAt(std::uint64_t size) : mSignal(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &mLimit);
    const rlimit limit = {static_cast<rlim_t>(size), mLimit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullAt(const FullAt&) = delete;
  FullAt& operator=(const FullAt&) = delete;
  ~FullAt() {
    setrlimit(RLIMIT_FSIZE, &mLimit);
    std::signal(SIGXFSZ, mSignal);
  }

 private:
  rlimit mLimit;
  void (*mSignal)(int);
};
