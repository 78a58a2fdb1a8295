#include "tools/arguments.h"

#include <cstdlib>
#include <numeric>

#include "tools/status.h"

namespace tool {
namespace {

constexpr uint64_t kMaxNumber = 0xFFFFFFFF;

// Takes the digits at the start of text; false when there are none or the number is too large.
bool TakeDigits(std::string& text, uint64_t& number) {
  size_t length = 0;
  for (number = 0; length < text.size() && text[length] >= '0' && text[length] <= '9' && number <= kMaxNumber; ++length)
    number = number * 10 + static_cast<uint64_t>(text[length] - '0');
  text.erase(0, length);
  return length > 0 && number <= kMaxNumber;
}

UsageError NotA(const char* what, const std::string& option, const std::string& text) {
  return UsageError(option + " " + text + " is not " + what);
}

Rate Reduced(uint64_t frames, uint64_t seconds) {
  const uint64_t common = std::gcd(frames, seconds);
  return {static_cast<uint32_t>(frames / common), static_cast<uint32_t>(seconds / common)};
}

// 23.976, 29.97 and their like mean 24000/1001, 30000/1001 and so on.
Rate FromThousandths(uint64_t thousandths) {
  const uint64_t whole = (thousandths + 999) / 1000;
  const uint64_t ntsc = whole * 1000000 / 1001;  // rounded down
  if (whole >= 23 && (thousandths == ntsc || thousandths == ntsc + 1 || thousandths == (ntsc + 5) / 10 * 10))
    return Reduced(whole * 1000, 1001);
  return Reduced(thousandths, 1000);
}

}  // namespace

std::string Arguments::value(const std::string& option) {
  if (empty()) throw UsageError(option + " needs a value");
  return take();
}

uint32_t ParseNumber(const std::string& option, const std::string& text) {
  std::string rest = text;
  uint64_t number = 0;
  if (!TakeDigits(rest, number) || !rest.empty()) throw NotA("a number", option, text);
  return static_cast<uint32_t>(number);
}

uint32_t ParseSize(const std::string& option, const std::string& text) {
  std::string rest = text;
  uint64_t number = 0;
  const bool digits = TakeDigits(rest, number);
  if (rest == "k" || rest == "K") number <<= 10;
  else if (rest == "M") number <<= 20;
  else if (!rest.empty()) number = kMaxNumber + 1;
  if (!digits || number > kMaxNumber) throw NotA("a size in bytes (such as 65536, 64k or 16M)", option, text);
  return static_cast<uint32_t>(number);
}

void ParsePicture(const std::string& text, uint32_t& width, uint32_t& height) {
  constexpr uint64_t kLargest = 65535;
  std::string rest = text;
  uint64_t first = 0;
  uint64_t second = 0;
  const bool fits = TakeDigits(rest, first) && !rest.empty() && (rest[0] == 'x' || rest[0] == 'X') &&
                    (rest.erase(0, 1), TakeDigits(rest, second)) && rest.empty();
  if (!fits || first == 0 || second == 0 || first > kLargest || second > kLargest)
    throw NotA("a picture size such as 1920x1080", "--size", text);
  width = static_cast<uint32_t>(first);
  height = static_cast<uint32_t>(second);
}

Rate ParseRate(const std::string& option, const std::string& text) {
  constexpr uint64_t kLargest = 1000;           // frames per second
  constexpr uint64_t kLongest = 10000;          // seconds per frame
  constexpr uint64_t kLargestNumerator = 1000000;
  std::string rest = text;
  uint64_t whole = 0;
  uint64_t second = 1;
  Rate rate;
  bool fits = TakeDigits(rest, whole);
  if (fits && rest.empty()) {
    rate = {static_cast<uint32_t>(whole), 1};
  } else if (fits && rest[0] == '/') {
    rest.erase(0, 1);
    fits = TakeDigits(rest, second) && rest.empty() && second > 0;
    if (fits) rate = Reduced(whole, second);
  } else if (fits && rest[0] == '.' && whole <= kLargest) {
    const std::string decimals = (rest.substr(1) + "000").substr(0, 3);
    fits = rest.find_first_not_of("0123456789", 1) == std::string::npos;
    if (fits) rate = FromThousandths(whole * 1000 + static_cast<uint64_t>(std::atoi(decimals.c_str())));
  } else {
    fits = false;
  }
  if (!fits || rate.frames == 0 || rate.frames > kLargest * rate.seconds || rate.frames > kLargestNumerator ||
      rate.seconds > kLongest * rate.frames)
    throw NotA("a rate such as 30, 29.97 or 30000/1001", option, text);
  return rate;
}

}  // namespace tool
