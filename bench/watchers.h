#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// This program again, under a tool that counts what a phase of it does. The arguments are a command of its own.

// User instructions of a phase, by callgrind; 0 when valgrind is not there.
double Instructions(const std::string& phase, const std::vector<std::string>& arguments);

struct SystemCalls {
  double count = 0;
  double bytesRead = 0;
  double tableGroupReads = 0;
};
// System calls between the marks of a phase, by strace; zeros when it is not there.
SystemCalls TraceCalls(const std::string& phase, const std::vector<std::string>& arguments);

}  // namespace bench
