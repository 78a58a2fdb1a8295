#include "bench/report.h"

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

std::string Number(double value) {
  char text[32];
  const char* format = value >= 100 ? "%.0f" : value >= 10 ? "%.1f" : value >= 0.1 || value == 0 ? "%.2f" : "%.4f";
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '<') {
      escaped += "&lt;";
    } else if (c == '&') {
      escaped += "&amp;";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

}  // namespace

void Report::add(const std::string& workload, const std::string& recorder, const std::string& place,
                 const std::string& name, double value) {
  mFigures.push_back({workload, recorder, place, name, value});
}

void Report::addGoal(const std::string& name, const std::string& unit, const std::string& best, double goal,
                     double measured) {
  if (measured > 0) mGoals.push_back({name, unit, best, goal, measured});
}

double Report::value(const std::string& workload, const std::string& recorder, const std::string& place,
                     const std::string& name) const {
  for (const Figure& figure : mFigures) {
    if (figure.workload == workload && figure.recorder == recorder && figure.place == place && figure.name == name) {
      return figure.value;
    }
  }
  return 0;
}

void Report::printTable(const std::string& title, const std::string& workload, const std::string& place,
                        const std::vector<std::string>& recorders, const std::vector<std::string>& names) const {
  std::printf("\n%s\n%-14s", title.c_str(), "");
  for (const std::string& name : names) std::printf(" %11s", name.c_str());
  std::printf("\n");
  for (const std::string& recorder : recorders) {
    std::printf("%-14s", recorder.c_str());
    for (const std::string& name : names) {
      std::printf(" %11s", Number(value(workload, recorder, place, name)).c_str());
    }
    std::printf("\n");
  }
  std::fflush(stdout);
}

void Report::printGoals() const {
  if (mGoals.empty()) return;
  std::printf("\n| figure | best before | goal | measured | |\n|---|---|---|---|---|\n");
  for (const Goal& goal : mGoals) {
    std::printf("| %s (%s) | %s | %s | %s | %s |\n", goal.name.c_str(), goal.unit.c_str(), goal.best.c_str(),
                Number(goal.goal).c_str(), Number(goal.measured).c_str(),
                goal.measured <= goal.goal ? "reached" : "not reached");
  }
}

bool Report::writeJson(const std::string& path) const {
  FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file, "{\"figures\": [\n");
  for (size_t i = 0; i < mFigures.size(); ++i) {
    const Figure& one = mFigures[i];
    std::fprintf(file, "  {\"workload\": \"%s\", \"recorder\": \"%s\", \"place\": \"%s\", \"name\": \"%s\", \"value\": %.9g}%s\n",
                 one.workload.c_str(), one.recorder.c_str(), one.place.c_str(), one.name.c_str(), one.value,
                 i + 1 < mFigures.size() ? "," : "");
  }
  std::fprintf(file, "], \"goals\": [\n");
  for (size_t i = 0; i < mGoals.size(); ++i) {
    const Goal& one = mGoals[i];
    std::fprintf(file, "  {\"name\": \"%s\", \"unit\": \"%s\", \"best_before\": \"%s\", \"goal\": %.9g, \"measured\": %.9g}%s\n",
                 one.name.c_str(), one.unit.c_str(), one.best.c_str(), one.goal, one.measured,
                 i + 1 < mGoals.size() ? "," : "");
  }
  std::fprintf(file, "]}\n");
  return std::fclose(file) == 0;
}

bool Report::writeSvg(const std::string& path) const {
  FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  constexpr int kRow = 26;
  constexpr int kLeft = 430;
  constexpr int kGoalAt = 240;  // of a bar, where the goal stands
  constexpr double kLongest = 1.7;  // of the goal, as far as a bar is drawn
  constexpr int kText = kLeft + 424;
  constexpr int kWidth = 1140;
  const int height = 70 + kRow * static_cast<int>(mGoals.size());
  std::fprintf(file,
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" font-family=\"sans-serif\" "
               "font-size=\"13\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n"
               "<text x=\"12\" y=\"24\" font-size=\"16\">Measured against the goal, shorter is better: green meets it, orange does not</text>\n",
               kWidth, height);
  for (size_t i = 0; i < mGoals.size(); ++i) {
    const Goal& one = mGoals[i];
    const int y = 44 + kRow * static_cast<int>(i);
    const double ratio = one.measured / one.goal;
    const int length = std::max(2, static_cast<int>(std::min(ratio, kLongest) * kGoalAt));
    const std::string times = ratio > kLongest ? ", " + Number(ratio) + " times as long" : "";
    std::fprintf(file,
                 "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>\n"
                 "<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"16\" fill=\"%s\"/>\n"
                 "<text x=\"%d\" y=\"%d\" fill=\"#333\">%s of %s %s%s</text>\n",
                 kLeft - 10, y + 13, Escaped(one.name).c_str(), kLeft, y, length,
                 ratio <= 1 ? "#3a8f5c" : "#d0803a", kText, y + 13, Number(one.measured).c_str(),
                 Number(one.goal).c_str(), Escaped(one.unit).c_str(), times.c_str());
  }
  std::fprintf(file, "<line x1=\"%d\" y1=\"36\" x2=\"%d\" y2=\"%d\" stroke=\"#333\" stroke-dasharray=\"4 3\"/>\n",
               kLeft + kGoalAt, kLeft + kGoalAt, height - 20);
  std::fprintf(file, "<text x=\"%d\" y=\"%d\" text-anchor=\"middle\">goal</text>\n</svg>\n", kLeft + kGoalAt,
               height - 6);
  return std::fclose(file) == 0;
}

}  // namespace bench
