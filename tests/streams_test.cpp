#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>

#include "stream/field_io.h"
#include "stream/file_io_stream.h"
#include "stream/mem_io_stream.h"
#include "stream/sync_schedule.h"
#include "tests/support/bytes.h"
#include "tests/support/full_at.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording.h"
#include "tests/support/short_stream.h"

using namespace zrmp4;

namespace {

Data ContentOf(const TempFile& file) { return RecordedFile(file.path()).bytes(0, LLONG_MAX); }

Data Pattern(std::size_t length, unsigned seed = 0) {
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

  // One random step on the stream and on the model; a file takes more kinds of steps than memory.
  void step(FileIOStream* file, std::size_t largest) {
    const std::size_t length = any(5) == 0 ? any(largest) : any(40);
    const std::size_t size = mData.size();
    switch (any(file != nullptr ? 76 : 70) / 10) {
      case 0:
      case 1:
        ASSERT_TRUE(puts(Pattern(length, static_cast<unsigned>(any(1000)))));
        break;
      case 2: {
        const std::size_t left = mPosition < size ? std::min(size - mPosition, length) : 0;
        Data read(length, 0), expected(length, 0);
        ASSERT_EQ(mStream.readBytes(read.data(), static_cast<ZR_U32>(length)), left);
        if (left != 0) std::copy_n(mData.begin() + static_cast<long>(mPosition), left, expected.begin());
        ASSERT_EQ(read, expected);
        mPosition += left;
        break;
      }
      case 3:
      case 4:
      case 5: {
        const int whence = static_cast<int>(any(3));
        const std::size_t from = whence == 0 ? any(size) : whence == 1 ? mPosition : size;
        const long long offset =
            static_cast<long long>(any(60)) - static_cast<long long>(std::min<std::size_t>(30, from));
        mPosition = from + static_cast<std::size_t>(offset);
        ASSERT_EQ(mStream.seek(whence == 0 ? static_cast<long long>(mPosition) : offset, whence), 0);
        break;
      }
      case 6:
        ASSERT_TRUE(typed());
        break;
      default:
        if (any(3) == 0) {
          ASSERT_EQ(file->flush(), 0);
        } else if (any(2) == 0) {
          mData.resize(any(size + 1));
          ASSERT_EQ(file->truncFile(static_cast<long long>(mData.size())), 0);
        } else {
          ASSERT_EQ(file->seek(0, 2), 0);
          mPosition = size;
          untilFull(*file, largest);
        }
    }
    // Seeks that lead nowhere change nothing.
    const auto position = static_cast<long long>(mPosition), end = static_cast<long long>(mData.size());
    const std::pair<long long, int> kSeeks[] = {{-1, 0},
                                                {-1 - position, 1},
                                                {-1 - end, 2},
                                                {LLONG_MIN, 0},
                                                {LLONG_MIN, 1},
                                                {LLONG_MAX, position != 0 ? 1 : 3},
                                                {LLONG_MAX, end != 0 ? 2 : 3},
                                                {0, 3},
                                                {0, -1}};
    for (const auto& [offset, whence] : kSeeks) {
      if (file == nullptr && (whence < 0 || whence > 2)) continue;
      errno = 0;
      ASSERT_NE(mStream.seek(offset, whence), 0) << offset << " " << whence;
      ASSERT_EQ(errno, EINVAL);
    }
    ASSERT_EQ(mStream.getCurPos(), mPosition);
    ASSERT_EQ(mStream.size(), mData.size());
    ASSERT_EQ(mStream.remaining(), mPosition < mData.size() ? mData.size() - mPosition : 0);
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
      const Data frame = Pattern(any(3) == 0 ? any(largest) : any(600), static_cast<unsigned>(any(1000)));
      const bool whole = file.writeBe32(i) == 4 && file.write64(i) == 8 && Writes(file, frame);
      if (!whole || any(9) == 0) return file.dropFrom(kept);
      put(Bytes().be32(i).be64(i).add(frame));
    }
  }
  // Every width, written over what is there and read again.
  bool typed() {
    const ZR_U32 words[] = {0x13141516, 0x1718191A};
    const ZR_U64 wide[] = {0x1B1C1D1E1F202122};
    Data counted(0x22);
    std::iota(counted.begin(), counted.end(), std::uint8_t{1});
    const bool written = mStream.writeByte(0x01) == 1 && mStream.writeBe16(0x0203) == 2 &&
                         mStream.writeBe24(0xFF040506) == 3 && mStream.writeBe32(0x0708090A) == 4 &&
                         mStream.write64(0x0B0C0D0E0F101112) == 8 && mStream.writeArrayOfBe32(words, 2) == 8 &&
                         mStream.writeArrayOfBe64(wide, 1) == 8;
    put(counted);
    ZR_U8 byte = 0;
    ZR_U16 two = 0;
    ZR_U32 three = 0xFFFFFFFF, four = 0;
    ZR_U64 eight = 0;
    return written && mStream.seek(-34, 1) == 0 && mStream.readByte(&byte) == 1 && mStream.readBe16(&two) == 2 &&
           mStream.readBe24(&three) == 3 && mStream.readBe32(&four) == 4 && mStream.read64(&eight) == 8 &&
           mStream.skip(16) == 0 && byte == 0x01 && two == 0x0203 && three == 0x040506 && four == 0x0708090A &&
           eight == 0x0B0C0D0E0F101112;
  }
  bool puts(const Data& content) { return put(content), Writes(mStream, content); }
  void put(const Data& content) {
    if (!content.empty()) mData.resize(std::max(mData.size(), mPosition + content.size()));
    std::copy(content.begin(), content.end(), mData.begin() + static_cast<long>(content.empty() ? 0 : mPosition));
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
    for (int i = 0; i < 200 && !HasFatalFailure(); ++i) model.step(nullptr, 10000);
    EXPECT_EQ(Data(stream.data(), stream.data() + stream.size()), model.data()) << seed;
    EXPECT_EQ(stream.getFileSize(), static_cast<long long>(model.data().size()));
    EXPECT_EQ(stream.close(), 0);
  }
}

// Files with syncs switched off, for speed.
class FileStream : public testing::Test {
 protected:
  FileStream() { setenv("ZR_MP4_SYNC", "off", 1); }
  ~FileStream() override { unsetenv("ZR_MP4_SYNC"); }

  void fill(const Data& content) const {
    std::ofstream(file.path()).write(reinterpret_cast<const char*>(content.data()), static_cast<long>(content.size()));
  }
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
      for (int i = 0; i < 400 && !HasFatalFailure(); ++i) model.step(&stream, 100000);
      ASSERT_EQ(stream.close(), 0);
      ASSERT_EQ(ContentOf(file), model.data());
    }
  }
}

TEST_F(FileStream, WhatACardDidNotTakeIsWrittenLater) {
  const Data content = Pattern(40);
  for (std::size_t room = 0; room < content.size(); ++room) {
    ASSERT_EQ(stream.open(file.path(), -1, 0, 64, "w"), 0);
    ASSERT_TRUE(Writes(stream, content));
    {
      const FullAt full(room);
      EXPECT_EQ(stream.flush(), -1);
    }
    EXPECT_EQ(stream.close(), 0);
    EXPECT_EQ(ContentOf(file), content) << room;
  }
}

TEST_F(FileStream, Modes) {
  const struct {
    const char* mode;
    bool exists, opens, writes;
  } kCases[] = {{"w", false, true, true},  {"w", true, true, true},    {"r", true, true, false},
                {"r+", true, true, true},  {"r", false, false, false}, {"r+", false, false, false},
                {"a", true, false, false}, {"", true, false, false}};
  for (const auto& test : kCases) {
    const bool makes = test.mode == std::string("w");
    SCOPED_TRACE(std::string(test.mode) + (test.exists ? ", there" : ", new"));
    unlink(file.path().c_str());
    Data after = test.exists ? Pattern(100) : Data();
    if (test.exists) fill(after);
    EXPECT_EQ(stream.open(file.path(), -1, 0, 4096, test.mode) == 0, test.opens);
    EXPECT_EQ(isThere(), test.exists || makes);
    if (makes) after.clear();
    if (test.opens) {
      EXPECT_EQ(stream.getCurPos(), 0u);
      EXPECT_EQ(stream.size(), after.size());
      EXPECT_EQ(stream.open(file.path(), -1, 0, 4096, test.mode), -1) << "it is open already";
      EXPECT_EQ(stream.truncFile(50) == 0, test.writes);
      EXPECT_EQ(Writes(stream, {1, 2, 3}), test.writes);
      EXPECT_EQ(stream.close(), 0);
    }
    if (test.writes) {
      after.resize(50);
      std::iota(after.begin(), after.begin() + 3, std::uint8_t{1});
    }
    EXPECT_EQ(ContentOf(file), after);
    EXPECT_FALSE(Writes(stream, {1})) << "it is closed";
    EXPECT_EQ(stream.close(), -1);
  }
}

TEST_F(FileStream, ADescriptorWinsAndStaysTheCallers) {
  const Data content = Pattern(40);
  const TempFile used;
  for (const int flags : {O_RDWR, O_WRONLY, O_RDWR | O_APPEND}) {
    const int fd = open(used.path().c_str(), flags | O_CREAT, 0600);
    ASSERT_EQ(write(fd, Pattern(100, 1).data(), 100), 100);
    ASSERT_EQ(lseek(fd, 70, SEEK_SET), 70);
    ASSERT_EQ(stream.open(file.path(), fd, 0, 16, "w"), 0);
    ASSERT_TRUE(Writes(stream, Pattern(40, 1)) && stream.seek(0, 0) == 0 && Writes(stream, content));
    ASSERT_EQ(stream.close(), 0);
    EXPECT_EQ(ContentOf(used), content);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 70) << "the caller's position";
    EXPECT_EQ(close(fd), 0) << "the caller's to close";
  }
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int readOnly = open(used.path().c_str(), O_RDONLY);
  for (const int fd : {9999, ends[0], ends[1], readOnly}) {
    EXPECT_EQ(stream.open(file.path(), fd, 0, 16, "w"), -1);
    EXPECT_EQ(close(fd) == 0, fd != 9999);
  }
  EXPECT_EQ(ContentOf(used), content);
  EXPECT_FALSE(isThere()) << "the path is not used instead";
}

int gWrites, gAllocations;

TEST_F(FileStream, ReservedSpaceLiesBehindTheEndAndWritesAreReported) {
  const ZR_U32 kUnit = 1 << 20;
  const ZrOUTPUTStreamProcOptS sink = {[](const char*, ZR_U64 time) -> ZR_U32 { return ++gWrites, time > 60000000; },
                                       [](const char*, ZR_U64) { return static_cast<ZR_U32>(++gAllocations); }};
  const auto blocks = [&] {
    struct stat status;
    EXPECT_EQ(stat(file.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 4000);
    return status.st_blocks * 512;
  };
  ASSERT_EQ(stream.open(file.path(), -1, kUnit, 4096, "w"), 0);
  EXPECT_EQ(stream.RegistProcOpt(nullptr), -1);
  ASSERT_EQ(stream.RegistProcOpt(&sink), 0);
  ASSERT_TRUE(Writes(stream, Pattern(4000)));
  EXPECT_EQ(gWrites, 0) << "it is in the buffer";
  ASSERT_EQ(stream.flush(), 0);
  EXPECT_EQ(std::pair(gWrites, gAllocations), std::pair(1, 1));
  const int probe = open(file.path().c_str(), O_RDWR);
  if (fallocate(probe, FALLOC_FL_KEEP_SIZE, 0, 4096) == 0) {
    EXPECT_GE(blocks(), kUnit);
  }
  close(probe);
  ASSERT_EQ(stream.close(), 0);
  EXPECT_LT(blocks(), kUnit / 2);
}

TEST_F(FileStream, SyncsRegularFilesUnlessToldNot) {
  const struct {
    const char* choice;
    bool regular, syncs;
  } kCases[] = {{nullptr, true, true}, {"on", true, true}, {"off", true, false}, {"on", false, false}};
  for (const auto& test : kCases) {
    test.choice != nullptr ? setenv("ZR_MP4_SYNC", test.choice, 1) : unsetenv("ZR_MP4_SYNC");
    ASSERT_EQ(stream.open(test.regular ? file.path() : "/dev/null", -1, 0, 4096, "w"), 0);
    EXPECT_EQ(stream.syncs(), test.syncs);
    ASSERT_EQ(stream.writeByte(1), 1u);
    EXPECT_EQ(stream.sync(), 0);
    EXPECT_EQ(ContentOf(file).size(), 1u) << "nothing stays behind in the buffer";
    EXPECT_EQ(stream.close(), 0);
  }
}

TEST(SyncSchedule, FollowsBytesSecondsAndWhatTheCardTakes) {
  SyncSchedule schedule;
  const auto due = [&](ZR_U64 position, ZR_U64 time, ZR_U64 now) {
    return schedule.due(position, time, [=] { return now; });
  };
  const auto dueAt = [&](ZR_U64 mebibytes, ZR_U64 seconds) {
    const ZR_U64 bytes = mebibytes << 20, time = seconds * 1000000;
    EXPECT_TRUE(due(bytes, 0, 0) && !due(bytes - 1, time - 1, time) && !due(bytes - 1, time, time - 1));
    EXPECT_TRUE(due(1, time, time) && !due(0, time, time)) << "only when there is something";
  };
  dueAt(4, 1);
  for (const auto& [took, mebibytes] : {std::pair(100000, 4), {100001, 8}, {25000, 8}, {24999, 4}, {24999, 4}}) {
    schedule.done(0, 0, 0, static_cast<ZR_U64>(took));
    dueAt(static_cast<ZR_U64>(mebibytes), static_cast<ZR_U64>(mebibytes) / 4);
  }
  for (int i = 0; i < 9; ++i) schedule.done(0, 0, 0, 500000);
  dueAt(64, 16);
}

TEST(FieldIo, EveryFailedTransferHasItsMessage) {
  static ZR_U8 bytes[5];
  static ZR_U32 narrow = 0;
  static ZR_U64 wide = 0;
  const std::pair<const char*, bool (*)(FieldIo&)> kCases[] = {
      {"Byte", [](FieldIo& io) { return io.byte(bytes[0]); }},
      {"Be16", [](FieldIo& io) { return io.fixed16(1); }},
      {"Be24", [](FieldIo& io) { return io.be24(narrow); }},
      {"Be32", [](FieldIo& io) { return io.unityMatrix(); }},
      {"Be64", [](FieldIo& io) { return io.time(true, wide); }},
      {"Bytes(5)", [](FieldIo& io) { return io.bytes(bytes, 5); }},
  };
  for (const auto& [what, transfer] : kCases) {
    const LogCapture log;
    ShortStream broken(Data(100), 0);
    ASSERT_EQ(broken.seek(7, 0), 0);
    FieldIo reading = FieldIo::Reading(&broken), writing = FieldIo::Writing(&broken);
    EXPECT_TRUE(!transfer(reading) && !transfer(writing));
    EXPECT_EQ(log.all(), std::string("IO 3 offset:7, read") + what + " fail\nIO 3 offset:7, write" + what + " fail\n");
    log.clear();
    FieldIo none = FieldIo::Reading(nullptr, 42);
    EXPECT_FALSE(transfer(none));
    EXPECT_EQ(log.all(), "MP4 3 HvccAtom::readData:42 input parameter null \n");
  }
}

}  // namespace
