#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <random>

#include "stream/file_io_stream.h"
#include "stream/mem_io_stream.h"
#include "stream/sync_schedule.h"
#include "tests/support/full_at.h"
#include "tests/support/recording.h"

using namespace zrmp4;

namespace {

Data ContentOf(const TempFile& file) { return RecordedFile(file.path()).bytes(0, LLONG_MAX); }

Data Pattern(std::size_t length, std::size_t seed = 0) {
  Data content(length);
  for (std::size_t i = 0; i < length; ++i) content[i] = static_cast<std::uint8_t>((i + seed) * 2654435761u >> 13);
  return content;
}

bool Writes(IOStream& stream, const Data& content) {
  return stream.writeBytes(content.data(), static_cast<ZR_U32>(content.size())) == content.size();
}

// What any stream must do, told by a vector and a position.
class Model {
 public:
  Model(IOStream& stream, unsigned seed) : mStream(stream), mRandom(seed) {}

  // One random step on the stream and on the model.
  void step(std::size_t largest) {
    const std::size_t length = any(any(5) == 0 ? largest : 40);
    const std::size_t kind = any(5);
    if (kind < 2) {
      const Data content = Pattern(length, any(1000));
      ASSERT_TRUE(Writes(mStream, content));
      put(content);
    } else if (kind == 2) {
      const std::size_t left = mPosition < mData.size() ? std::min(mData.size() - mPosition, length) : 0;
      Data read(length);
      ASSERT_EQ(mStream.readBytes(read.data(), static_cast<ZR_U32>(length)), left);
      ASSERT_TRUE(std::equal(read.begin(), read.begin() + static_cast<long>(left), mData.data() + mPosition));
      mPosition += left;
    } else {
      const int whence = static_cast<int>(any(3));
      const auto from = static_cast<long long>(whence == 0 ? 0 : whence == 1 ? mPosition : mData.size());
      const long long position = std::max(0LL, whence == 0 ? static_cast<long long>(any(mData.size()))
                                                           : from + static_cast<long long>(any(60)) - 30);
      ASSERT_EQ(mStream.seek(position - from, whence), 0);
      mPosition = static_cast<std::size_t>(position);
    }
    // Seeks that lead nowhere change nothing.
    const auto position = static_cast<long long>(mPosition), end = static_cast<long long>(mData.size());
    for (const auto& [offset, whence] : {std::pair(-1LL, 0), {-1 - position, 1}, {-1 - end, 2}, {LLONG_MIN, 1},
                                         {position != 0 ? LLONG_MAX : -1, 1}, {end != 0 ? LLONG_MAX : -1, 2}}) {
      errno = 0;
      ASSERT_TRUE(mStream.seek(offset, whence) != 0 && errno == EINVAL) << offset << " " << whence;
    }
    ASSERT_EQ(mStream.getCurPos(), mPosition);
    ASSERT_EQ(mStream.size(), mData.size());
    ASSERT_EQ(mStream.remaining(), mData.size() - std::min(mData.size(), mPosition));
  }

  // What only files can do.
  void stepOfFile(FileIOStream& file, std::size_t largest) {
    const std::size_t kind = any(30);
    if (kind == 0) {
      const FullAt full(any(mData.size()));
      file.flush();  // what the card does not take is written later
    } else if (kind == 1) {
      mData.resize(any(mData.size() + 1));
      ASSERT_EQ(file.truncFile(static_cast<long long>(mData.size())), 0);
    } else if (kind == 2) {
      ASSERT_EQ(file.seek(0, 2), 0);
      mPosition = mData.size();
      untilFull(file, largest);
    } else {
      step(largest);
    }
  }
  const Data& data() const { return mData; }

 private:
  std::size_t any(std::size_t limit) { return limit == 0 ? 0 : mRandom() % limit; }

  // Records of a header and a frame while the card has room. The one that fails is dropped; those before it are in the
  // file, wherever the buffer had them, and later ones follow them.
  void untilFull(FileIOStream& file, std::size_t largest) {
    const FullAt full(mData.size() + any(largest));
    for (int i = 0; i < 12; ++i) {
      const std::size_t kept = mData.size();
      const Data frame = Pattern(any(any(3) == 0 ? largest : 600), any(1000));
      const bool whole = file.writeBe32(0x01020304) == 4 && Writes(file, frame);
      if (!whole || any(9) == 0) return file.dropFrom(kept);
      put({1, 2, 3, 4});
      put(frame);
    }
  }
  void put(const Data& content) {
    if (content.empty()) return;
    mData.resize(std::max(mData.size(), mPosition + content.size()));
    std::copy(content.begin(), content.end(), mData.begin() + static_cast<long>(mPosition));
    mPosition += content.size();
  }

  IOStream& mStream;
  std::mt19937 mRandom;
  Data mData;
  std::size_t mPosition = 0;
};

TEST(MemIOStream, BehavesLikeAFile) {
  MemIOStream stream;
  for (unsigned seed = 1; seed <= 20; ++seed) {
    ASSERT_EQ(stream.open(), 0);
    Model model(stream, seed);
    for (int i = 0; i < 200 && !HasFatalFailure(); ++i) model.step(10000);
    EXPECT_EQ(Data(stream.data(), stream.data() + stream.size()), model.data()) << seed;
    EXPECT_EQ(stream.close(), 0);
  }
}

// Files with syncs switched off, for speed.
class FileStream : public testing::Test {
 protected:
  FileStream() { setenv("ZR_MP4_SYNC", "off", 1); }
  ~FileStream() override { unsetenv("ZR_MP4_SYNC"); }

  int open(const char* mode, int fd = -1) { return stream.open(file.path(), fd, 0, 4096, mode); }
  bool isThere() const { return access(file.path().c_str(), F_OK) == 0; }

  TempFile file;
  FileIOStream stream;
};

TEST_F(FileStream, BehavesLikeAFileWithAnyBuffer) {
  for (const ZR_U32 buffer : {1, 2, 3, 7, 20, 4096, 65536, 131072, 5242880}) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
      SCOPED_TRACE("buffer " + std::to_string(buffer) + " seed " + std::to_string(seed));
      ASSERT_EQ(stream.open(file.path(), -1, seed % 2 * 65536, buffer, "w"), 0);
      Model model(stream, seed);
      for (int i = 0; i < 400 && !HasFatalFailure(); ++i) model.stepOfFile(stream, 100000);
      ASSERT_EQ(stream.close(), 0);
      ASSERT_EQ(ContentOf(file), model.data());
    }
  }
}

TEST_F(FileStream, Modes) {
  for (const char* mode : {"r", "r+", "a", ""}) EXPECT_TRUE(open(mode) == -1 && !isThere()) << mode;
  const struct {
    const char* mode;
    Data written, after;
  } kCases[] = {{"w", {1, 2, 3, 4}, {1, 2, 3}}, {"r", {5}, {1, 2, 3}}, {"r+", {6}, {6, 2, 3}}, {"w", {7}, {7, 0, 0}}};
  for (const auto& [mode, written, after] : kCases) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(open(mode), 0);
    EXPECT_EQ(open(mode), -1) << "it is open already";
    const bool mayWrite = mode != std::string("r");
    EXPECT_TRUE(Writes(stream, written) == mayWrite && (stream.truncFile(3) == 0) == mayWrite && stream.close() == 0);
    EXPECT_EQ(ContentOf(file), after);
    EXPECT_TRUE(!Writes(stream, {1}) && stream.close() == -1) << "it is closed";
  }
}

TEST_F(FileStream, ADescriptorWinsAndStaysTheCallers) {
  const TempFile used;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const auto opened = [&](int flags) { return ::open(used.path().c_str(), flags | O_CREAT, 0600); };
  for (const int fd : {opened(O_RDWR), opened(O_WRONLY), opened(O_RDWR | O_APPEND)}) {
    ASSERT_EQ(lseek(fd, 70, SEEK_SET), 70);
    ASSERT_EQ(open("w", fd), 0);
    ASSERT_TRUE(Writes(stream, {1, 2, 3, 4}) && stream.seek(1, 0) == 0 && Writes(stream, {7}));
    ASSERT_EQ(stream.close(), 0);
    EXPECT_EQ(ContentOf(used), (Data{1, 7, 3, 4}));
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 70) << "the caller's position";
    EXPECT_EQ(close(fd), 0) << "the caller's to close";
    EXPECT_EQ(open("w", fd), -1);
  }
  for (const int fd : {ends[0], ends[1], opened(O_RDONLY)}) EXPECT_TRUE(open("w", fd) == -1 && close(fd) == 0);
  EXPECT_EQ(ContentOf(used).size(), 4u);
  EXPECT_FALSE(isThere()) << "the path is not used instead";
}

TEST_F(FileStream, ReservedSpaceLiesBehindTheEndAndWritesAreReported) {
  const ZR_U32 kUnit = 1 << 20;
  static int writes = 0, allocations = 0;
  const ZrOUTPUTStreamProcOptS sink = {[](const char*, ZR_U64 time) -> ZR_U32 { return ++writes, time > 60000000; },
                                       [](const char*, ZR_U64) -> ZR_U32 { return ++allocations, 0; }};
  const auto taken = [&] {
    struct stat status;
    return stat(file.path().c_str(), &status) == 0 && status.st_size == 4000 ? status.st_blocks * 512 : -1;
  };
  ASSERT_EQ(stream.open(file.path(), -1, kUnit, 4096, "w"), 0);
  EXPECT_EQ(stream.RegistProcOpt(nullptr), -1);
  ASSERT_EQ(stream.RegistProcOpt(&sink), 0);
  ASSERT_TRUE(Writes(stream, Pattern(4000)));
  EXPECT_EQ(writes, 0) << "it is in the buffer";
  ASSERT_EQ(stream.flush(), 0);
  EXPECT_EQ(std::pair(writes, allocations), std::pair(1, 1));
  const int probe = ::open(file.path().c_str(), O_RDWR);
  if (fallocate(probe, FALLOC_FL_KEEP_SIZE, 0, 4096) == 0) {
    EXPECT_GE(taken(), kUnit);
  }
  close(probe);
  ASSERT_EQ(stream.close(), 0);
  EXPECT_TRUE(taken() >= 0 && taken() < kUnit / 2) << taken();
}

TEST(SyncSchedule, FollowsBytesSecondsAndWhatTheCardTakes) {
  SyncSchedule schedule;
  const auto due = [&](ZR_U64 position, ZR_U64 time, ZR_U64 now) {
    return schedule.due(position, time, [=] { return now; });
  };
  // How long syncs took, how often, and how many MiB may lie between two from then on: as many quarters of a second.
  const std::tuple<ZR_U64, int, ZR_U64> kCases[] = {{50000, 1, 4}, {100000, 1, 4}, {100001, 1, 8},
                                                    {25000, 1, 8}, {24999, 2, 4},  {500000, 9, 64}};
  for (const auto& [took, times, mebibytes] : kCases) {
    for (int i = 0; i < times; ++i) schedule.done(0, 0, 0, took);
    const ZR_U64 bytes = mebibytes << 20, time = mebibytes * 250000;
    EXPECT_TRUE(due(bytes, 0, 0) && !due(bytes - 1, time - 1, time) && !due(bytes - 1, time, time - 1)) << took;
    EXPECT_TRUE(due(1, time, time) && !due(0, time, time)) << "only when there is something";
  }
}

}  // namespace
