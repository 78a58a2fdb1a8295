#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/recording.h"

// Makes something fail, or watches, as long as what it answers lives.
using Cause = std::function<std::shared_ptr<void>()>;

// Whether a status is one of the public codes.
bool Documented(ZR_U32 status);
std::string At(const char* what, std::uint64_t number);

struct Answer {
  ZR_U32 status;
  std::uint64_t content;  // a hash

  bool operator!=(const Answer& other) const { return status != other.status || content != other.content; }
};

// Everything that can be asked of a file by reading it: queries, every box, the dump.
class Questions {
 public:
  // The boxes are those that the file has now.
  explicit Questions(const std::string& path);

  // The answers; those after the first are missing when the file cannot be opened.
  const std::vector<Answer>& ask(const Cause& cause = nullptr);

 private:
  void askAll();
  void note(ZR_U32 status, const void* data = nullptr, std::size_t size = 0);

  zrMP4_CONFIG_S mConfig;
  std::vector<std::string> mPaths;
  Data mPayload;
  std::vector<Answer> mAnswers;
};
