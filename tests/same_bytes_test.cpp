#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "support/recording.h"

namespace {

// Headers carry the time of day behind their version and flags, in two numbers of four bytes, or of eight in version 1.
void ClearTimes(Data& file) {
  for (std::size_t i = 4; i + 24 <= file.size(); ++i) {
    const char* type = reinterpret_cast<const char*>(&file[i]);
    for (const char* header : {"mvhd", "tkhd", "mdhd"}) {
      if (std::memcmp(type, header, 4) == 0) std::memset(&file[i + 8], 0, file[i + 4] == 1 ? 16 : 8);
    }
  }
}

std::uint64_t Hash(const Data& data) {  // FNV-1a
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const std::uint8_t byte : data) hash = (hash ^ byte) * 0x100000001b3;
  return hash;
}

// Three tracks at uneven times over four backup units, boxes in different places, a speed and a rate with fractions.
void RecordTracks(const zrMP4_CONFIG_S& config, bool finished) {
  Muxer muxer(config);
  zrMP4_TRACK_INFO_S video = VideoTrack();
  video.fSpeed = 0.3f;
  const auto picture = muxer.add(video);
  const auto sound = muxer.add(AudioTrack(ZR_MP4_CODEC_AAC));
  const auto data = muxer.add(MetaTrack());
  for (unsigned i = 0; i < 100; ++i) {
    const ZR_U64 pts = 7 + i * UINT64_C(1001000) / 30 + i * i % 7;
    const auto fill = static_cast<std::uint8_t>(i + 128);
    ASSERT_EQ(muxer.write(picture, i % 30 == 0 ? KeyFrame(60000, fill) : DeltaFrame(17001 + i, fill), pts, i % 30 == 0),
              0u);
    ASSERT_EQ(muxer.write(sound, AacFrame(300 + i % 11), pts + 5), 0u);
    if (i % 3 == 0) {
      ASSERT_EQ(muxer.write(data, Data(i, fill), pts + 9), 0u);
    }
    if (i == 50) {
      ASSERT_EQ(muxer.addBox("/moov", "note", Data(100, 0xFE)), 0u);
    }
  }
  ASSERT_EQ(muxer.addBox("/", "last", Data(9, 0x80)), 0u);
  if (finished) {
    ASSERT_EQ(muxer.finish(), 0u);
  }
  ASSERT_EQ(muxer.destroy(), 0u);
}

const struct {
  const char* name;
  ZR_U32 backupUnit;
  bool co64;
  bool repaired;
  std::uint64_t hash;
} kFiles[] = {
    {"plain", 0, false, false, 0x6e68a7587a301737},
    {"with backups", 524288, false, false, 0x16293feca4a5d422},
    {"with 64-bit offsets", 524288, true, false, 0x3e238e9a88b3171d},
    {"repaired", 524288, false, true, 0x16293feca4a5d422},
};

#if defined(SYS_sync_file_range)
constexpr unsigned kSyncFileRange = SYS_sync_file_range;
#else
constexpr unsigned kSyncFileRange = SYS_arm_sync_file_range;
#endif

constexpr std::uint64_t kWithPreAllocation = 0x86da19036c5f3595;

std::uint64_t HashOfFile(const std::string& path) {
  const RecordedFile recorded(path);
  Data bytes = recorded.bytes(0, recorded.size());
  ClearTimes(bytes);
  return Hash(bytes);
}

// From now on the kernel answers this error to the call, as one that does not know it.
bool Refuse(unsigned call, unsigned error) {
  const auto number = static_cast<unsigned>(offsetof(seccomp_data, nr));
  sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program = {4, rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

// The hashes are those of one machine; the suite runs on 32-bit ARM and on x86-64 and must find them on both.
TEST(SameBytes, OnEveryProcessor) {
  for (const auto& wanted : kFiles) {
    const TempFile file;
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), wanted.backupUnit);
    config.stMuxerConfig.bCo64Flag = wanted.co64 ? ZR_TRUE : ZR_FALSE;
    RecordTracks(config, !wanted.repaired);
    if (wanted.repaired) {
      ASSERT_EQ(ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE), 0u);
    }
    EXPECT_EQ(HashOfFile(file.path()), wanted.hash) << wanted.name << ": " << std::hex << HashOfFile(file.path());
  }
}

TEST(SameBytes, OnAKernelWithoutTheCallsBeyondPosix) {
  constexpr struct {
    unsigned call;
    unsigned error;
  } kRefusals[] = {{SYS_pwritev, ENOSYS},         {SYS_fallocate, ENOSYS}, {SYS_fallocate, EOPNOTSUPP},
                   {kSyncFileRange, ENOSYS}, {SYS_fdatasync, EINVAL}, {SYS_fdatasync, ENOSYS}};
  for (const auto& refusal : kRefusals) {
    const TempFile file;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (!Refuse(refusal.call, refusal.error)) _exit(2);
      zrMP4_CONFIG_S config = MuxerConfig(file.path(), 524288);
      config.stMuxerConfig.u32PreAllocUnit = 100000;
      RecordTracks(config, true);
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(status, 0) << "call " << refusal.call << " refused with " << refusal.error;
    EXPECT_EQ(HashOfFile(file.path()), kWithPreAllocation) << std::hex << HashOfFile(file.path());
  }
}
