#include "bench/watchers.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace bench {
namespace {

// Runs a command with its standard error in a file.
bool RunTo(const std::string& errors, const std::string& phase, std::vector<std::string> words) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    setenv("BENCH_PHASE", phase.c_str(), 1);
    const int fd = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(fd, 2);
    ::dup2(fd, 1);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(&word[0]);
    pointers.push_back(nullptr);
    ::execvp(pointers[0], pointers.data());
    std::_Exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0;
}

std::string TemporaryName() {
  const char* folder = std::getenv("TMPDIR");
  return std::string(folder != nullptr ? folder : "/tmp") + "/zrmp4-bench-" + std::to_string(::getpid()) + ".trace";
}

std::vector<std::string> Command(std::vector<std::string> words, const std::vector<std::string>& arguments) {
  char self[4096];
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
  self[length > 0 ? length : 0] = 0;
  words.push_back(self);
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

}  // namespace

double Instructions(const std::string& phase, const std::vector<std::string>& arguments) {
  const std::string log = TemporaryName();
  double total = 0;
  const bool ran = RunTo(log, phase,
                         Command({"valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                                  "--instr-atstart=no", "--error-exitcode=0"},
                                 arguments));
  std::ifstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const size_t at = line.find("Collected : ");
    if (at != std::string::npos) total = std::strtod(line.c_str() + at + 12, nullptr);
  }
  ::unlink(log.c_str());
  return ran ? total : 0;
}

SystemCalls TraceCalls(const std::string& phase, const std::vector<std::string>& arguments) {
  const std::string log = TemporaryName();
  SystemCalls calls;
  RunTo("/dev/null", phase, Command({"strace", "-qq", "-s", "40", "-o", log}, arguments));
  bool inside = false;
  std::ifstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("/bench-begin-" + phase) != std::string::npos) {
      inside = true;
    } else if (line.find("/bench-end-" + phase) != std::string::npos) {
      inside = false;
    } else if (inside) {
      ++calls.count;
      const size_t result = line.rfind(" = ");
      if (line.compare(0, 5, "pread") == 0 || line.compare(0, 5, "read(") == 0) {
        calls.bytesRead += std::strtod(line.c_str() + result + 3, nullptr);
        if (line.find("tbgp") != std::string::npos) ++calls.tableGroupReads;
      }
    }
  }
  ::unlink(log.c_str());
  return calls;
}

}  // namespace bench
