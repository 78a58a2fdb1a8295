#pragma once

#include <string>
#include <vector>

// What the library logs while this object lives; nothing is printed. One at a time.
class LogCapture {
 public:
  struct Line {
    std::string module;
    int level;
    std::string text;
  };

  LogCapture() { clear(); }
  ~LogCapture() { clear(); }

  static void clear();
  static std::vector<Line> lines();

  // Lines that are this text.
  static int count(const std::string& text);
  static bool has(const std::string& text) { return count(text) > 0; }
  // All of them, to be shown when an expectation fails.
  static std::string all();
};
