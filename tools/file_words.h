#pragma once

#include <string>
#include <vector>

#include "tools/arguments.h"

namespace tool {

// The file words of a command, and whether --json and one more flag stand among them.
struct FileWords {
  std::vector<std::string> files;
  bool json = false;
  bool flag = false;
};

FileWords TakeFiles(Arguments& arguments, const char* flag);

// A JSON string, quotes included. Bytes above 127 pass as they are: names are UTF-8.
std::string Quoted(const std::string& text);

}  // namespace tool
