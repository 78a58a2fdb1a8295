#pragma once

#include <string>
#include <vector>

namespace bench {

// A figure with a goal, smaller is better.
struct Goal {
  std::string name;
  std::string unit;
  std::string best;  // what was the best before, in words
  double goal;
  double measured;
};

// One measured number and where it belongs.
struct Figure {
  std::string workload;
  std::string recorder;
  std::string place;  // file system
  std::string name;
  double value;
};

class Report {
 public:
  void add(const std::string& workload, const std::string& recorder, const std::string& place, const std::string& name,
           double value);
  void addGoal(const std::string& name, const std::string& unit, const std::string& best, double goal,
               double measured);
  // 0 when there is none.
  double value(const std::string& workload, const std::string& recorder, const std::string& place,
               const std::string& name) const;
  // One line per recorder, one column per figure.
  void printTable(const std::string& title, const std::string& workload, const std::string& place,
                  const std::vector<std::string>& recorders, const std::vector<std::string>& names) const;
  void printGoals() const;
  bool writeJson(const std::string& path) const;
  // The goals as bars: how far each figure is from its goal.
  bool writeSvg(const std::string& path) const;

 private:
  std::vector<Figure> mFigures;
  std::vector<Goal> mGoals;
};

}  // namespace bench
