#include "bench/crashes.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "bench/meter.h"
#include "zr_mp4.h"

namespace bench {
namespace {

// What a recording in another process tells of itself.
struct Shared {
  volatile uint64_t returned;    // frames whose call returned
  volatile uint64_t longestNano;  // of a call
};

Shared* MakeShared() {
  void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return memory != MAP_FAILED ? static_cast<Shared*>(memory) : nullptr;
}

uint64_t Lasts(const Workload& work) { return work.frames.back().pts + 33333; }

// Records round after round until it is killed, as fast as it goes or by the frames' clock.
void RecordForever(const Workload& work, Recorder& recorder, const std::string& path, bool realTime, Shared* shared) {
  recorder.open(work, path);
  const double started = Now();
  for (uint64_t round = 0;; ++round) {
    for (Frame frame : work.frames) {
      frame.pts += round * Lasts(work);
      const double wait = started + static_cast<double>(frame.pts) / 1e6 - Now();
      if (realTime && wait > 0) ::usleep(static_cast<useconds_t>(wait * 1e6));
      const double called = Now();
      recorder.write(frame);
      const uint64_t took = static_cast<uint64_t>((Now() - called) * 1e9);
      if (took > shared->longestNano) shared->longestNano = took;
      shared->returned = shared->returned + 1;
    }
  }
}

pid_t Start(const Workload& work, Recorder& recorder, const std::string& path, bool realTime, Shared* shared) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) RecordForever(work, recorder, path, realTime, shared);
  return child;
}

void Kill(pid_t child) {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

bool Shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

std::string Output(const std::string& command) {
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char line[256];
    if (std::fgets(line, sizeof(line), pipe) != nullptr) text = line;
    ::pclose(pipe);
  }
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

bool Throttle(const std::string& device, uint64_t bytesPerSecond) {
  std::ofstream file("/sys/fs/cgroup/blkio/blkio.throttle.write_bps_device");
  file << device << " " << bytesPerSecond << std::endl;
  return file.good();
}

// A loop device with a file system on it, for as long as the object lives.
class Card {
 public:
  Card(const std::string& image, const std::string& folder) : mFolder(folder) {
    Shell("mkdir -p " + folder);
    mDevice = Output("losetup -f --show " + image + " 2>/dev/null");
    if (mDevice.empty()) return;
    mNumber = Output("lsblk -dno MAJ:MIN " + mDevice + " | tr -d ' '");
  }
  ~Card() {
    if (mDevice.empty()) return;
    Throttle(mNumber, 0);
    Shell("umount " + mFolder);
    Shell("losetup -d " + mDevice);
  }
  bool format() const { return !mDevice.empty() && Shell("mkfs.ext4 -q -E lazy_itable_init=0,lazy_journal_init=0 " + mDevice); }
  bool mount() const { return !mDevice.empty() && Shell("mount " + mDevice + " " + mFolder); }
  bool throttle(uint64_t bytesPerSecond) const { return Throttle(mNumber, bytesPerSecond); }

 private:
  std::string mFolder;
  std::string mDevice;
  std::string mNumber;
};

}  // namespace

void RecordCut(const Workload& work, Recorder& recorder, const std::string& path, uint64_t bytes) {
  recorder.open(work, path);
  uint64_t written = 0;
  for (uint64_t round = 0; written < bytes; ++round) {
    for (Frame frame : work.frames) {
      frame.pts += round * Lasts(work);
      recorder.write(frame);
      written += frame.size;
      if (written >= bytes) break;
    }
  }
  recorder.close();
}

uint32_t CountFrames(const std::string& path) {
  zrMP4_CONFIG_S config = {};
  std::snprintf(config.aszFileName, sizeof(config.aszFileName), "%s", path.c_str());
  config.s32Fd = -1;
  config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
  ZR_MP4_HANDLE handle = 0;
  if (ZR_MP4_Create(&handle, &config) != 0) return 0;
  // The box says its size when the buffer is too small: 12 bytes and 4 a sample.
  zrMP4_ATOM_INFO_S box = {};
  ZR_MP4_GetAtom(handle, "/moov/trak/mdia/minf/stbl/stsz", &box);
  ZR_MP4_Destroy(handle, nullptr);
  return box.u32DataLen >= 12 ? (box.u32DataLen - 12) / 4 : 0;
}

Loss KillRecordings(const Workload& work, const Setup& setup, const std::string& path, int kills) {
  Shared* shared = MakeShared();
  Loss loss;
  std::srand(1);
  for (int i = 0; i < kills; ++i) {
    shared->returned = 0;
    const pid_t child = Start(work, *MakeZrmp4(setup), path, false, shared);
    ::usleep(static_cast<useconds_t>(20000 + std::rand() % 60000));
    Kill(child);
    ZR_MP4_RepairFile(path.c_str(), ZR_TRUE);
    const uint32_t kept = CountFrames(path);
    const double lost = shared->returned > kept ? static_cast<double>(shared->returned - kept) : 0;
    loss.mean += lost / kills;
    loss.most = std::max(loss.most, lost);
    ::unlink(path.c_str());
  }
  return loss;
}

CardResult CutPower(const Workload& work, const std::string& recorder, double seconds, uint64_t bytesPerSecond) {
  CardResult result;
  const std::string base = "/dev/shm/zrmp4-card-" + std::to_string(::getpid());
  const std::string image = base + ".img";
  const std::string after = base + "-after.img";
  const std::string folder = "/tmp/zrmp4-card-" + std::to_string(::getpid());
  Shared* shared = MakeShared();
  uint64_t returned = 0;
  if (::geteuid() != 0 || shared == nullptr || !Shell("truncate -s 512M " + image)) return result;
  {
    Card card(image, folder);
    if (card.format() && card.mount() && card.throttle(bytesPerSecond)) {
      const pid_t child = Start(work, *MakeRecorder(recorder), folder + "/cut.mp4", true, shared);
      ::usleep(static_cast<useconds_t>(seconds * 1e6));
      // Nothing reaches the device from here on.
      result.ran = card.throttle(1);
      returned = shared->returned;
      result.longest = static_cast<double>(shared->longestNano) / 1e9;
      result.ran = Shell("cp --sparse=always " + image + " " + after) && result.ran;
      ::kill(child, SIGKILL);
      card.throttle(0);
      ::waitpid(child, nullptr, 0);
    }
  }
  if (result.ran) {
    Card card(after, folder);
    uint32_t kept = 0;
    if (card.mount()) {
      const std::string file = folder + "/cut.mp4";
      if (recorder.rfind("zrmp4", 0) == 0) {
        ZR_MP4_RepairFile(file.c_str(), ZR_TRUE);
        kept = CountFrames(file);
      }
    }
    result.lost = static_cast<double>(returned - std::min<uint64_t>(kept, returned)) / work.tracks[0].rate;
  }
  Shell("rm -f " + image + " " + after + "; rmdir " + folder);
  return result;
}

}  // namespace bench
