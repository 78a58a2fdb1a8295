#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/frame_clock.h"

namespace tool {

// The words of a command line, taken from left to right. Everything that does not fit is a UsageError.
class Arguments {
 public:
  Arguments(int count, char** words) : mWords(words, words + count) {}

  bool empty() const { return mNext == mWords.size(); }
  std::string take() { return mWords[mNext++]; }
  // The value of an option, which is the word after it.
  std::string value(const std::string& option);

 private:
  std::vector<std::string> mWords;
  size_t mNext = 0;
};

// A number of bytes: digits, and k or M for binary thousands and millions.
uint32_t ParseSize(const std::string& option, const std::string& text);
uint32_t ParseNumber(const std::string& option, const std::string& text);
// "1920x1080"
void ParsePicture(const std::string& text, uint32_t& width, uint32_t& height);
// "30", "29.97" or "30000/1001"; the NTSC rates may be given by their rounded decimals.
Rate ParseRate(const std::string& option, const std::string& text);

}  // namespace tool
