// Whole recordings against their baselines: how long, how many instructions, how much memory, and what a crash costs.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "bench/crashes.h"
#include "bench/meter.h"
#include "bench/report.h"
#include "bench/watchers.h"
#include "zr_log.h"
#include "zr_mp4.h"

extern "C" {
#include <libavutil/log.h>
}

namespace bench {
namespace {

struct Options {
  int repetitions = 5;
  double scale = 1;
  std::string tmpfs = "/dev/shm";
  std::string disk = ".";
  std::string json;
  std::string svg;
  std::string only;  // sections, separated by commas; all when empty

  bool parse(const std::vector<std::string>& words) {
    const std::map<std::string, std::string*> texts = {
        {"--tmpfs", &tmpfs}, {"--disk", &disk}, {"--json", &json}, {"--svg", &svg}, {"--only", &only}};
    for (size_t i = 0; i < words.size(); i += 2) {
      const auto text = texts.find(words[i]);
      if (i + 1 == words.size()) return false;
      if (text != texts.end()) {
        *text->second = words[i + 1];
      } else if (words[i] == "--reps") {
        repetitions = std::atoi(words[i + 1].c_str());
      } else if (words[i] == "--scale") {
        scale = std::atof(words[i + 1].c_str());
      } else {
        return false;
      }
    }
    return repetitions > 0 && scale > 0;
  }
  bool wants(const std::string& section) const {
    return only.empty() || ("," + only + ",").find("," + section + ",") != std::string::npos;
  }
};

const std::vector<std::string> kRecorders = {"raw",       "writev", "floor",        "lavf",
                                             "lavf-frag", "zrmp4",  "zrmp4-backup", "zrmp4-sync"};

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

std::string FileIn(const std::string& folder, const char* name) {
  return folder + "/zrmp4-bench-" + std::to_string(::getpid()) + "-" + name;
}

bool IsZrmp4(const std::string& recorder) { return recorder.rfind("zrmp4", 0) == 0; }

// Recordings ---------------------------------------------------------------------------------------------------------

struct Column {
  const char* name;
  double Run::*member;
  double unit;
};
constexpr Column kColumns[] = {
    {"wall ms", &Run::wall, 1e3},       {"user ms", &Run::user, 1e3},     {"system ms", &Run::system, 1e3},
    {"p50 us", &Run::p50, 1e6},         {"p99 us", &Run::p99, 1e6},       {"p99.9 us", &Run::p999, 1e6},
    {"longest us", &Run::longest, 1e6}, {"finish ms", &Run::finish, 1e3}, {"open ms", &Run::open, 1e3},
};

// Each repetition runs every recorder once, so that all of them meet the same moods of the machine, and in another order,
// so that none always finds what the same other one left behind.
void CompareRecordings(const Workload& work, const std::string& folder, const std::string& place,
                       const Options& options, Report& report) {
  const std::string path = FileIn(folder, "recording.mp4");
  const size_t count = kRecorders.size();  // a power of two, so that an odd step comes to each of them
  std::vector<std::vector<Run>> runs(kRecorders.size());
  for (size_t i = 0; i < static_cast<size_t>(options.repetitions); ++i) {
    for (size_t turn = 0; turn < count; ++turn) {
      const size_t r = (i + turn * (2 * i + 1)) % count;
      const auto record = [&](bool stamps) {
        return InChild([&] { return Record(work, *MakeRecorder(kRecorders[r]), kRecorders[r], path, stamps); });
      };
      Run run = record(false);
      const Run stamped = record(true);
      run.p50 = stamped.p50;
      run.p99 = stamped.p99;
      run.p999 = stamped.p999;
      run.longest = stamped.longest;
      runs[r].push_back(run);
    }
  }
  const double frames = static_cast<double>(work.frames.size());
  for (size_t r = 0; r < kRecorders.size(); ++r) {
    const auto median = [&](const auto& figure) {
      std::vector<double> values;
      for (size_t i = 0; i < runs[r].size(); ++i) values.push_back(figure(i));
      return Median(values);
    };
    const auto add = [&](const char* name, double value) { report.add(work.name, kRecorders[r], place, name, value); };
    add("wall/raw", median([&](size_t i) { return runs[r][i].wall / runs[0][i].wall; }));
    add("p99/writev", median([&](size_t i) { return runs[r][i].p99 / runs[1][i].p99; }));
    for (const Column& column : kColumns) {
      add(column.name, median([&](size_t i) { return runs[r][i].*column.member * column.unit; }));
    }
    add("heap B/frame", median([&](size_t i) { return runs[r][i].heap / frames; }));
    add("rss B/frame", median([&](size_t i) { return runs[r][i].resident / frames; }));
    add("allocs/frame", median([&](size_t i) { return runs[r][i].allocations / frames; }));
  }
  report.printTable(work.title + ", " + place, work.name, place, kRecorders,
                    {"wall/raw", "wall ms", "user ms", "system ms", "p99/writev", "p50 us", "p99 us", "p99.9 us",
                     "longest us", "finish ms", "open ms"});
}

void Recordings(const Options& options, Report& report) {
  for (const WorkloadSpec& spec : AllWorkloads()) {
    const Workload work = MakeWorkload(spec.name, options.scale);
    CompareRecordings(work, options.tmpfs, "tmpfs", options, report);
    CompareRecordings(work, options.disk, "disk", options, report);
  }
  const auto wall = [&](const char* recorder) {
    double worst = 0;
    for (const char* name : {"1080p30-8M", "1080p60-25M", "4K30-60M"}) {
      worst = std::max(worst, report.value(name, recorder, "tmpfs", "wall/raw"));
    }
    return worst;
  };
  const auto longestAgainst = [&](const char* recorder) {
    // A raw recording's longest call is the write of a MiB.
    const double raw = report.value("million", "raw", "tmpfs", "longest us");
    return raw > 0 ? report.value("million", recorder, "tmpfs", "longest us") / raw : 0;
  };
  report.addGoal("wall against raw write, video on tmpfs", "times", "1.5", 1.10, wall("zrmp4"));
  report.addGoal("the same with backups", "times", "1.7", 1.15, wall("zrmp4-backup"));
  report.addGoal("p99 of a call against a writev, 4K", "times", "1.0 plain, 9 crash-safe", 1.2,
                 report.value("4K30-60M", "zrmp4-backup", "tmpfs", "p99/writev"));
  report.addGoal("longest of a million calls against a write of 1 MiB", "times", "0.7", 1.7, longestAgainst("zrmp4"));
  report.addGoal("the same with backups", "times", "11", 5, longestAgainst("zrmp4-backup"));
  report.addGoal("finish of a million samples", "ms", "8.4", 4.4,
                 report.value("million", "zrmp4", "tmpfs", "finish ms"));
}

// Instructions, system calls, memory ---------------------------------------------------------------------------------

void Counts(const Options& options, Report& report) {
  const std::vector<std::string> counted = {"writev", "floor", "lavf", "lavf-frag", "zrmp4", "zrmp4-backup"};
  for (const WorkloadSpec& spec : AllWorkloads()) {
    const double scale = spec.frameSize != 0 ? 0.1 : 0.03;
    const Workload work = MakeWorkload(spec.name, scale);
    for (const std::string& recorder : counted) {
      const std::vector<std::string> command = {"run", spec.name, recorder, options.tmpfs, std::to_string(scale)};
      const double instructions = Instructions("frames", command);
      const SystemCalls calls = TraceCalls("frames", command);
      const auto add = [&](const char* name, double value) { report.add(spec.name, recorder, "any", name, value); };
      add("instr/byte", instructions / static_cast<double>(work.bytes));
      add("instr/call", instructions / static_cast<double>(work.frames.size()));
      add("calls/MiB", calls.count / (static_cast<double>(work.bytes) / (1 << 20)));
    }
    report.printTable(work.title + ": user instructions, system calls", spec.name, "any", counted,
                      {"instr/byte", "instr/call", "calls/MiB"});
  }
  const double floor = report.value("4K30-60M", "floor", "any", "instr/byte");
  const auto perCall = [&](const char* recorder) { return report.value("million", recorder, "any", "instr/call"); };
  report.addGoal("instructions per byte against the floor, 4K, backups", "times", "6.6", 1.15,
                 floor > 0 ? report.value("4K30-60M", "zrmp4-backup", "any", "instr/byte") / floor : 0);
  report.addGoal("instructions per call, samples of 100 bytes", "instructions", "461", 400, perCall("zrmp4"));
  report.addGoal("the same with backups", "instructions", "2082", 520, perCall("zrmp4-backup"));
}

void Tables(const Options& options, Report& report) {
  const std::vector<std::string> recorders = {"lavf", "lavf-frag", "zrmp4", "zrmp4-backup", "zrmp4-co64"};
  const Workload work = MakeWorkload("million", 1);
  const double frames = static_cast<double>(work.frames.size());
  for (const std::string& recorder : recorders) {
    const Run run = InChild([&] {
      return Record(work, *MakeRecorder(recorder), recorder, FileIn(options.tmpfs, "tables.mp4"), false);
    });
    const double finish = Instructions("finish", {"run", "million", recorder, options.tmpfs, "1"});
    const auto add = [&](const char* name, double value) { report.add("tables", recorder, "tmpfs", name, value); };
    add("heap B", run.heap / frames);
    add("resident B", run.resident / frames);
    add("allocs", run.allocations / frames);
    add("finish instr", finish / frames);
  }
  report.printTable("a million samples, per sample", "tables", "tmpfs", recorders,
                    {"heap B", "resident B", "allocs", "finish instr"});
  const auto heap = [&](const char* recorder) { return report.value("tables", recorder, "tmpfs", "heap B"); };
  report.addGoal("heap per sample, 32-bit offsets", "bytes", "33", 7, heap("zrmp4"));
  report.addGoal("the same with backups", "bytes", "33", 12, heap("zrmp4-backup"));
  report.addGoal("the same with 64-bit offsets and backups", "bytes", "33", 17, heap("zrmp4-co64"));
  report.addGoal("allocations per frame", "", "", 0.01, report.value("tables", "zrmp4-backup", "tmpfs", "allocs"));
  report.addGoal("finish, instructions per sample", "instructions", "63", 10,
                 report.value("tables", "zrmp4", "tmpfs", "finish instr"));
}

// Crashes ------------------------------------------------------------------------------------------------------------

uint64_t SizeOf(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

void DropCache(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  ::close(fd);
}

Run RepairOnce(const std::string& path, ZR_BOOL extraFrames) {
  Run run;
  const double started = Now();
  BeginPhase(Phase::kRepair);
  if (ZR_MP4_RepairFile(path.c_str(), extraFrames) != 0) std::_Exit(3);
  EndPhase(Phase::kRepair);
  run.wall = Now() - started;
  return run;
}

void RepairOf(const char* name, uint32_t unit, uint64_t bytes, const Options& options, Report& report) {
  const Workload work = MakeWorkload("1080p30-8M", options.scale);
  const std::string path = FileIn(options.disk, "cut.mp4");
  Setup setup;
  setup.backupUnit = unit;
  const auto add = [&](const char* figure, double value) { report.add(name, "zrmp4", "disk", figure, value); };

  RecordCut(work, *MakeZrmp4(setup), path, bytes);
  DropCache(path);
  add("seconds", InChild([&] { return RepairOnce(path, ZR_TRUE); }).wall);
  const double frames = CountFrames(path);
  ::unlink(path.c_str());

  RecordCut(work, *MakeZrmp4(setup), path, bytes);
  const double size = static_cast<double>(SizeOf(path));
  // The frames behind the last snapshot are no business of the snapshots'.
  const SystemCalls calls = TraceCalls("repair", {"repair", path, bytes > unit ? "0" : "1"});
  ::unlink(path.c_str());
  const double snapshots = std::max(1.0, static_cast<double>(bytes / unit));
  add("frames", frames);
  add("snapshots", static_cast<double>(bytes / unit));
  add("calls", calls.count);
  add("calls/snap", calls.count / snapshots);
  add("read %", calls.bytesRead * 100 / size);
  add("read B/frame", calls.bytesRead / frames);
  report.printTable(std::string("repair, ") + name, name, "disk", {"zrmp4"},
                    {"seconds", "frames", "snapshots", "calls", "calls/snap", "read %", "read B/frame"});
}

void Repairs(const Options& options, Report& report) {
  RepairOf("2 GB", 16u << 20, 2000000000, options, report);
  RepairOf("no snapshots", 524288000, 520000000, options, report);
  report.addGoal("repair of 2 GB with snapshots", "s", "1.4", 0.05, report.value("2 GB", "zrmp4", "disk", "seconds"));
  report.addGoal("the same, read", "percent", "100", 1, report.value("2 GB", "zrmp4", "disk", "read %"));
  report.addGoal("the same, system calls per snapshot", "calls", "", 4,
                 report.value("2 GB", "zrmp4", "disk", "calls/snap"));
  report.addGoal("repair without snapshots, read per frame", "bytes", "all", 64,
                 report.value("no snapshots", "zrmp4", "disk", "read B/frame"));
}

void Kills(const Options& options, Report& report) {
  const Workload work = MakeWorkload("1080p30-2M", 0.3);
  Setup setup;
  setup.backupUnit = 16u << 20;
  setup.buffer = 64u << 10;
  const Loss loss = KillRecordings(work, setup, FileIn(options.tmpfs, "killed.mp4"), 100);
  report.add("kill", "zrmp4-64k", "tmpfs", "mean frames", loss.mean);
  report.add("kill", "zrmp4-64k", "tmpfs", "most frames", loss.most);
  report.printTable("SIGKILL, buffer of 64 KiB, 1080p30 at 2 Mbit/s: frames lost in 100 kills", "kill", "tmpfs",
                    {"zrmp4-64k"}, {"mean frames", "most frames"});
  // Nothing lost is as good as it gets, and still a figure.
  report.addGoal("frames lost by SIGKILL, mean", "frames", "5.3", 3, std::max(loss.mean, 1e-9));
  report.addGoal("frames lost by SIGKILL, most", "frames", "9", 4, std::max(loss.most, 1e-9));
}

void PowerCuts(Report& report) {
  constexpr uint64_t kCard = 12000000;
  const Workload slow = MakeWorkload("1080p30-8M", 0.2);
  Workload fast = MakeWorkload("4K30-60M", 1);
  for (const char* recorder : {"zrmp4-sync", "zrmp4-backup"}) {
    const CardResult lost = CutPower(slow, recorder, 13.4, kCard);
    const CardResult stalled = lost.ran ? CutPower(fast, recorder, 12, kCard) : CardResult();
    if (!stalled.ran) {
      std::printf("\nno power cut: that needs root, a loop device and a control group for block devices\n");
      return;
    }
    report.add("power cut", recorder, "card", "lost s", lost.lost);
    report.add("power cut", recorder, "card", "longest ms", stalled.longest * 1e3);
  }
  report.printTable("power cut on a card of 12 MB/s: video lost at 8 Mbit/s, longest call at 60 Mbit/s", "power cut",
                    "card", {"zrmp4-sync", "zrmp4-backup"}, {"lost s", "longest ms"});
  report.addGoal("video lost by a power cut, 8 Mbit/s", "s", "0.4 with a thread", 2,
                 report.value("power cut", "zrmp4-sync", "card", "lost s"));
  report.addGoal("longest call at 60 Mbit/s on a card of 12 MB/s", "ms", "1437", 40,
                 report.value("power cut", "zrmp4-sync", "card", "longest ms"));
}

int RunOnce(const std::vector<std::string>& words) {
  const Workload work = MakeWorkload(words[1], std::strtod(words[4].c_str(), nullptr));
  Record(work, *MakeRecorder(words[2]), IsZrmp4(words[2]) ? "" : words[2], FileIn(words[3], "one.mp4"), false);
  return 0;
}

int Main(const std::vector<std::string>& words) {
  av_log_set_level(AV_LOG_ERROR);
  if (words.size() == 5 && words[0] == "run") return RunOnce(words);
  if (words.size() == 3 && words[0] == "repair") return RepairOnce(words[1], words[2] == "1").wall >= 0 ? 0 : 1;
  Options options;
  if (!options.parse(words)) {
    std::fprintf(stderr,
                 "usage: bench_record [--reps N] [--scale X] [--tmpfs FOLDER] [--disk FOLDER] [--json FILE]\n"
                 "                    [--svg FILE] [--only recordings,counts,tables,repair,kill,power-cut]\n");
    return 2;
  }
  Report report;
  if (options.wants("counts")) Counts(options, report);
  if (options.wants("tables")) Tables(options, report);
  if (options.wants("recordings")) Recordings(options, report);
  if (options.wants("repair")) Repairs(options, report);
  if (options.wants("kill")) Kills(options, report);
  if (options.wants("power-cut")) PowerCuts(report);
  report.printGoals();
  const bool written = (options.json.empty() || report.writeJson(options.json)) &&
                       (options.svg.empty() || report.writeSvg(options.svg));
  return written ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::Main(std::vector<std::string>(argv + 1, argv + argc)); }
