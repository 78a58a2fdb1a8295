#include "tools/file_words.h"

#include <cstdio>

#include "tools/status.h"

namespace tool {

FileWords TakeFiles(Arguments& arguments, const char* flag) {
  FileWords words;
  while (!arguments.empty()) {
    const std::string word = arguments.take();
    if (word == "--json") words.json = true;
    else if (flag && word == flag) words.flag = true;
    else if (word.size() > 1 && word[0] == '-') throw UsageError("unknown option " + word);
    else words.files.push_back(word);
  }
  if (words.files.empty()) throw UsageError("FILE is missing");
  return words;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    char escape[8];
    if (c == '"' || c == '\\') quoted += {'\\', c};
    else if (static_cast<unsigned char>(c) >= 0x20) quoted += c;
    else quoted.append(escape, static_cast<size_t>(std::snprintf(escape, sizeof escape, "\\u%04x", c)));
  }
  return quoted + "\"";
}

}  // namespace tool
