#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "zr_mp4.h"

namespace tool {

// The command line is wrong: exit status 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The work could not be done: exit status 1. The message names the file and the cause.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "FILE: CAUSE (LAST MESSAGE OF THE LIBRARY) [0xA1298050]"
std::string Describe(const std::string& file, ZR_U32 status);
// Throws a Failure unless the status is 0.
void Check(const std::string& file, ZR_U32 status);
// "FILE: CAUSE: No such file or directory", from errno.
Failure SystemFailure(const std::string& file, const std::string& cause);

void Warn(const std::string& message);

}  // namespace tool
