#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

#include "stream/field_io.h"
#include "stream/file_io_stream.h"
#include "stream/mem_io_stream.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

using namespace zrmp4;

namespace {

using Content = std::vector<std::uint8_t>;

// A name in a folder of its own, which is removed with it.
class TemporaryFile {
 public:
  TemporaryFile() { EXPECT_NE(mkdtemp(mFolder), nullptr); }
  ~TemporaryFile() {
    unlink(path().c_str());
    rmdir(mFolder);
  }

  std::string path() const { return std::string(mFolder) + "/file"; }
  bool exists() const { return access(path().c_str(), F_OK) == 0; }
  struct stat status() const {
    struct stat result = {};
    EXPECT_EQ(stat(path().c_str(), &result), 0);
    return result;
  }
  Content content() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void fill(const Content& content) const {
    std::ofstream file(path(), std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  }

 private:
  char mFolder[32] = "/tmp/zrmp4_streams_XXXXXX";
};

Content Pattern(std::size_t length, unsigned seed = 0) {
  Content content(length);
  for (std::size_t i = 0; i < length; ++i) content[i] = static_cast<std::uint8_t>((i + seed) * 2654435761u >> 13);
  return content;
}

ZR_U32 Write(IOStream& stream, const Content& content) {
  return stream.writeBytes(content.data(), static_cast<ZR_U32>(content.size()));
}

Content Read(IOStream& stream, std::size_t length) {
  Content content(length);
  content.resize(stream.readBytes(content.data(), static_cast<ZR_U32>(length)));
  return content;
}

// ZR_MP4_SYNC for as long as it lives; null for unset.
class SyncChoice {
 public:
  explicit SyncChoice(const char* choice) {
    const char* before = getenv("ZR_MP4_SYNC");
    mWasSet = before != nullptr;
    if (mWasSet) mBefore = before;
    set(choice);
  }
  ~SyncChoice() { set(mWasSet ? mBefore.c_str() : nullptr); }

 private:
  static void set(const char* choice) {
    choice != nullptr ? setenv("ZR_MP4_SYNC", choice, 1) : unsetenv("ZR_MP4_SYNC");
  }

  bool mWasSet;
  std::string mBefore;
};

const ZR_U32 kBuffers[] = {1, 2, 3, 7, 20, 4096, 65536, 131072, 5242880};

// What any stream must do, told by a vector and a position.
class Model {
 public:
  explicit Model(unsigned seed) : mRandom(seed) {}

  // One random step on the stream and on the model; lengths go a little beyond the largest interesting one.
  void step(IOStream& stream, ZR_U32 largest) {
    const ZR_U32 length = any(5) == 0 ? any(largest) : any(40);
    switch (any(6)) {
      case 0:
      case 1: {
        const Content content = Pattern(length, any(1000));
        ASSERT_EQ(Write(stream, content), length);
        put(content);
        break;
      }
      case 2: {
        const ZR_U32 value = static_cast<ZR_U32>(mRandom());
        ASSERT_EQ(stream.writeBe32(value), 4u);
        put(Bytes().be32(value).data());
        break;
      }
      case 3: {
        const std::size_t left = mPosition < mData.size() ? mData.size() - mPosition : 0;
        const auto from = mData.begin() + static_cast<long>(std::min(mPosition, mData.size()));
        const Content expected(from, from + static_cast<long>(std::min<std::size_t>(left, length)));
        ASSERT_EQ(Read(stream, length), expected);
        mPosition += expected.size();
        break;
      }
      case 4: {
        mPosition = any(static_cast<ZR_U32>(mData.size()) + 50);
        ASSERT_EQ(stream.seek(static_cast<long long>(mPosition), 0), 0);
        break;
      }
      default: {
        const int whence = any(2) == 0 ? 1 : 2;
        const std::size_t from = whence == 1 ? mPosition : mData.size();
        const long long offset =
            static_cast<long long>(any(60)) - static_cast<long long>(std::min<std::size_t>(30, from));
        ASSERT_EQ(stream.seek(offset, whence), 0);
        mPosition = from + static_cast<std::size_t>(offset);
      }
    }
    check(stream);
  }
  void truncate(FileIOStream& stream) {
    mData.resize(any(static_cast<ZR_U32>(mData.size()) + 1));
    ASSERT_EQ(stream.truncFile(static_cast<long long>(mData.size())), 0);
    check(stream);
  }
  // Drops what was written last, from a stream that stands at its end.
  void drop(FileIOStream& stream) {
    ASSERT_EQ(stream.seek(0, 2), 0);
    const ZR_U32 length = any(50);
    ASSERT_EQ(Write(stream, Pattern(length)), length);
    mPosition = mData.size();
    stream.dropFrom(mPosition);
    check(stream);
  }
  ZR_U32 any(ZR_U32 limit) { return limit == 0 ? 0 : static_cast<ZR_U32>(mRandom() % limit); }
  const Content& data() const { return mData; }

 private:
  void put(const Content& content) {
    if (content.empty()) return;
    if (mData.size() < mPosition + content.size()) mData.resize(mPosition + content.size());
    std::copy(content.begin(), content.end(), mData.begin() + static_cast<long>(mPosition));
    mPosition += content.size();
  }
  void check(IOStream& stream) const {
    ASSERT_EQ(stream.getCurPos(), mPosition);
    ASSERT_EQ(stream.size(), mData.size());
    ASSERT_EQ(stream.remaining(), mPosition < mData.size() ? mData.size() - mPosition : 0);
  }

  std::mt19937 mRandom;
  Content mData;
  std::size_t mPosition = 0;
};

TEST(MemIOStream, BehavesLikeAFile) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    MemIOStream stream;
    ASSERT_EQ(stream.open(), 0);
    Model model(seed);
    for (int i = 0; i < 200 && !testing::Test::HasFatalFailure(); ++i) model.step(stream, 10000);
    if (HasFatalFailure()) return;
    EXPECT_EQ(Content(stream.data(), stream.data() + stream.size()), model.data());
    EXPECT_EQ(stream.getFileSize(), static_cast<long long>(model.data().size()));
    EXPECT_EQ(stream.close(), 0);
  }
}

TEST(FileIOStream, BehavesLikeAFileWithAnyBuffer) {
  const SyncChoice quick("off");
  for (const ZR_U32 buffer : kBuffers) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
      SCOPED_TRACE("buffer " + std::to_string(buffer) + " seed " + std::to_string(seed));
      const TemporaryFile file;
      FileIOStream stream;
      ASSERT_EQ(stream.open(file.path(), -1, seed % 2 * 65536, buffer, "w"), 0);
      Model model(seed);
      for (int i = 0; i < 250 && !testing::Test::HasFatalFailure(); ++i) {
        const ZR_U32 special = model.any(40);
        if (special == 0) {
          model.truncate(stream);
        } else if (special == 1) {
          model.drop(stream);
        } else if (special == 2) {
          ASSERT_EQ(stream.flush(), 0);
        } else {
          model.step(stream, 200000);
        }
      }
      if (HasFatalFailure()) return;
      ASSERT_EQ(stream.close(), 0);
      EXPECT_EQ(file.content(), model.data());
    }
  }
}

// Every width at every place of a buffer's edge, both ways.
TEST(FileIOStream, TypedValuesCrossTheBufferAnywhere) {
  const SyncChoice quick("off");
  for (ZR_U32 buffer = 1; buffer <= 40; ++buffer) {
    SCOPED_TRACE(buffer);
    const TemporaryFile file;
    FileIOStream out;
    ASSERT_EQ(out.open(file.path(), -1, 0, buffer, "w"), 0);
    EXPECT_EQ(out.writeByte(0x01), 1u);
    EXPECT_EQ(out.writeBe16(0x0203), 2u);
    EXPECT_EQ(out.writeBe24(0xFF040506), 3u);  // the low 24 bits
    EXPECT_EQ(out.writeBe32(0x0708090A), 4u);
    EXPECT_EQ(out.write64(0x0B0C0D0E0F101112), 8u);
    const ZR_U32 words[] = {0x13141516, 0x1718191A};
    const ZR_U64 wide[] = {0x1B1C1D1E1F202122};
    EXPECT_EQ(out.writeArrayOfBe32(words, 2), 8u);
    EXPECT_EQ(out.writeArrayOfBe64(wide, 1), 8u);
    ASSERT_EQ(out.close(), 0);
    Bytes counted;
    for (unsigned i = 1; i <= 0x22; ++i) counted.u8(i);
    ASSERT_EQ(counted.difference(file.content()), "");

    FileIOStream in;
    ASSERT_EQ(in.open(file.path(), -1, 0, buffer, "r"), 0);
    ZR_U8 byte = 0;
    ZR_U16 two = 0;
    ZR_U32 three = 0xFFFFFFFF, four = 0;
    ZR_U64 eight = 0;
    EXPECT_TRUE(in.readByte(&byte) == 1 && in.readBe16(&two) == 2 && in.readBe24(&three) == 3 &&
                in.readBe32(&four) == 4 && in.read64(&eight) == 8);
    EXPECT_TRUE(byte == 0x01 && two == 0x0203 && three == 0x040506 && four == 0x0708090A);
    EXPECT_EQ(eight, 0x0B0C0D0E0F101112u);
    ASSERT_EQ(in.skip(15), 0);
    EXPECT_EQ(in.getCurPos(), 33u);
    EXPECT_EQ(in.readBe32(&four), 1u);  // one byte is left
    EXPECT_EQ(in.readByte(&byte), 0u);
    EXPECT_FALSE(in.readFailed());
  }
}

TEST(IOStream, SwapsArraysInPlaceBothWays) {
  ZR_U32 words[] = {0x01020304, 0x05060708, 0x090A0B0C};
  IOStream::swapArrayOfBe32(words, 0);
  EXPECT_EQ(words[0], 0x01020304u);
  IOStream::swapArrayOfBe32(words, 2);
  EXPECT_EQ(Bytes()
                .be32(0x01020304)
                .be32(0x05060708)
                .difference({reinterpret_cast<ZR_U8*>(words), reinterpret_cast<ZR_U8*>(words + 2)}),
            "");
  EXPECT_EQ(words[2], 0x090A0B0Cu);
  IOStream::swapArrayOfBe32(words, 2);
  EXPECT_EQ(words[1], 0x05060708u);
  ZR_U64 wide[] = {0x0102030405060708, 9};
  IOStream::swapArrayOfBe64(wide, 1);
  EXPECT_EQ(
      Bytes().be64(0x0102030405060708).difference({reinterpret_cast<ZR_U8*>(wide), reinterpret_cast<ZR_U8*>(wide + 1)}),
      "");
  EXPECT_EQ(wide[1], 9u);
}

TEST(IOStream, ArraysCutShortCountWholeEntries) {
  const std::vector<ZR_U32> words(1000, 7);
  const std::vector<ZR_U64> wide(1000, 7);
  for (const std::uint64_t room : {0, 3, 4, 1023, 1024, 1031, 3999}) {
    ShortStream narrow({}, room), broad({}, room);
    EXPECT_EQ(narrow.writeArrayOfBe32(words.data(), 1000), room / 4 * 4);
    EXPECT_EQ(broad.writeArrayOfBe64(wide.data(), 1000), room / 8 * 8);
  }
}

TEST(FileIOStream, Modes) {
  struct Case {
    const char* mode;
    bool exists;   // before
    bool opens;    //
    bool writes;   //
    bool emptied;  // by opening
  };
  const Case kCases[] = {
      {"w", false, true, true, true},   {"w", true, true, true, true},     {"r", true, true, false, false},
      {"r+", true, true, true, false},  {"r", false, false, false, false}, {"r+", false, false, false, false},
      {"a", true, false, false, false}, {"", true, false, false, false},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(std::string(test.mode) + (test.exists ? ", there" : ", new"));
    const TemporaryFile file;
    const Content before = Pattern(100);
    if (test.exists) file.fill(before);
    FileIOStream stream;
    EXPECT_EQ(stream.open(file.path(), -1, 0, 4096, test.mode) == 0, test.opens);
    EXPECT_EQ(file.exists(), test.exists || test.emptied);
    if (test.opens) {
      EXPECT_EQ(stream.getCurPos(), 0u);
      EXPECT_EQ(stream.size(), test.emptied ? 0u : 100u);
      EXPECT_EQ(stream.open(file.path(), -1, 0, 4096, test.mode), -1) << "it is open already";
      EXPECT_EQ(stream.truncFile(50) == 0, test.writes);
      EXPECT_EQ(Write(stream, {1, 2, 3}), test.writes ? 3u : 0u);
      EXPECT_EQ(stream.close(), 0);
    }
    Content after = test.exists && !test.emptied ? before : Content();
    if (test.writes) {
      after.resize(50);
      std::copy_n(Content{1, 2, 3}.begin(), 3, after.begin());
    }
    EXPECT_EQ(file.content(), after);
    EXPECT_EQ(Write(stream, {1}), 0u) << "it is closed";
    EXPECT_EQ(stream.close(), -1);
  }
}

TEST(FileIOStream, APatchInTheMiddleReachesTheFile) {
  const TemporaryFile file;
  file.fill(Pattern(100));
  Content expected = Pattern(100);
  expected[10] = 0xAB;
  FileIOStream stream;
  ASSERT_EQ(stream.open(file.path(), -1, 0, 4096, "r+"), 0);
  ASSERT_EQ(stream.seek(10, 0), 0);
  ASSERT_EQ(stream.writeByte(0xAB), 1u);
  ASSERT_EQ(stream.close(), 0);
  EXPECT_EQ(file.content(), expected);
  // The same object on the next file begins at its start.
  ASSERT_EQ(stream.open(file.path(), -1, 0, 4096, "r"), 0);
  EXPECT_EQ(stream.getCurPos(), 0u);
  EXPECT_EQ(Read(stream, 200), expected);
}

TEST(FileIOStream, ADescriptorWinsAndStaysTheCallers) {
  for (const int flags : {O_RDWR, O_WRONLY, O_RDWR | O_APPEND}) {
    SCOPED_TRACE(flags);
    const TemporaryFile file, other;
    file.fill(Pattern(100));
    const int fd = open(file.path().c_str(), flags);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(lseek(fd, 70, SEEK_SET), 70);
    {
      FileIOStream stream;
      ASSERT_EQ(stream.open(other.path(), fd, 0, 16, "w"), 0);
      EXPECT_EQ(file.status().st_size, 0);
      ASSERT_EQ(Write(stream, Pattern(40, 1)), 40u);
      ASSERT_EQ(stream.seek(4, 0), 0);
      ASSERT_EQ(stream.writeByte(0xEE), 1u);
      ASSERT_EQ(stream.close(), 0);
    }
    Content expected = Pattern(40, 1);
    expected[4] = 0xEE;
    EXPECT_EQ(file.content(), expected);
    EXPECT_FALSE(other.exists());
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 70) << "the caller's position";
    EXPECT_EQ(close(fd), 0) << "the caller's to close";
  }
}

TEST(FileIOStream, ADescriptorThatCannotServeIsRefused) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const TemporaryFile file;
  file.fill(Pattern(100));
  const int readOnly = open(file.path().c_str(), O_RDONLY);
  for (const int fd : {ends[0], ends[1], readOnly, 9999}) {
    FileIOStream stream;
    EXPECT_EQ(stream.open(file.path(), fd, 0, 16, "w"), -1);
    EXPECT_EQ(file.content(), Pattern(100)) << "the path is not used instead";
  }
  for (const int fd : {ends[0], ends[1], readOnly}) EXPECT_EQ(close(fd), 0);
}

TEST(FileIOStream, SeeksThatLeadNowhereChangeNothing) {
  const TemporaryFile file;
  FileIOStream stream;
  ASSERT_EQ(stream.open(file.path(), -1, 0, 16, "w"), 0);
  ASSERT_EQ(Write(stream, Pattern(50)), 50u);
  const std::pair<long long, int> kSeeks[] = {{-1, 0}, {-51, 1},       {-51, 2}, {LLONG_MIN, 1}, {LLONG_MAX, 1},
                                              {0, 3},  {LLONG_MAX, 2}, {0, -1},  {LLONG_MIN, 0}};
  for (const auto& [offset, whence] : kSeeks) {
    errno = 0;
    EXPECT_NE(stream.seek(offset, whence), 0) << offset << " " << whence;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(stream.getCurPos(), 50u);
  }
  EXPECT_EQ(stream.seek(-50, 2), 0);
  EXPECT_EQ(Read(stream, 60), Pattern(50));
}

TEST(FileIOStream, PositionsBeyond4GiB) {
  const TemporaryFile file;
  const long long far = 5LL << 30;
  FileIOStream stream;
  ASSERT_EQ(stream.open(file.path(), -1, 0, 4096, "w"), 0);
  ASSERT_EQ(stream.seek(far, 0), 0);
  ASSERT_EQ(stream.writeBe32(0x01020304), 4u);
  EXPECT_EQ(stream.size(), static_cast<ZR_U64>(far) + 4);
  ASSERT_EQ(stream.seek(-5, 1), 0);
  EXPECT_EQ(Read(stream, 9), (Content{0, 1, 2, 3, 4}));
  ASSERT_EQ(stream.close(), 0);
  EXPECT_EQ(file.status().st_size, far + 4);
}

// Lets files grow to this length only, as on a full card.
class FullCard {
 public:
  explicit FullCard(rlim_t length) : mSignal(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &mBefore);
    const struct rlimit limit = {length, mBefore.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullCard() {
    setrlimit(RLIMIT_FSIZE, &mBefore);
    std::signal(SIGXFSZ, mSignal);
  }

 private:
  void (*mSignal)(int);
  struct rlimit mBefore;
};

// Records of a header and a frame are written until the card is full. The one that failed is dropped; those before it
// are in the file, wherever the buffer had them, and later ones follow them.
TEST(FileIOStream, AnUnfinishedRecordIsDroppedWhole) {
  const SyncChoice quick("off");
  const ZR_U32 kFrames[] = {10, 5000, 1, 40000, 300, 33000, 70000, 20, 32768, 4097, 65536, 7};
  for (const ZR_U32 buffer : {1u, 16u, 4096u, 65536u, 131072u, 1048576u}) {
    for (rlim_t room = 0; room < 260000; room += 5003) {
      SCOPED_TRACE("buffer " + std::to_string(buffer) + " room " + std::to_string(room));
      const TemporaryFile file;
      FileIOStream stream;
      ASSERT_EQ(stream.open(file.path(), -1, 0, buffer, "w"), 0);
      Content expected;
      {
        const FullCard card(room);
        for (const ZR_U32 length : kFrames) {
          const Content frame = Pattern(length, length);
          if (stream.writeBe32(length) == 4 && stream.write64(length) == 8 && Write(stream, frame) == length) {
            const Content record = Bytes().be32(length).be64(length).add(frame);
            expected.insert(expected.end(), record.begin(), record.end());
            continue;
          }
          stream.dropFrom(expected.size());
          break;
        }
      }
      ASSERT_EQ(stream.getCurPos(), expected.size());
      ASSERT_EQ(stream.size(), expected.size());
      ASSERT_EQ(stream.writeByte(0xEE), 1u);
      expected.push_back(0xEE);
      ASSERT_EQ(stream.close(), 0);
      ASSERT_TRUE(file.content() == expected);
    }
  }
}

TEST(FileIOStream, ACardThatTakesNothingIsToldAtTheLatestByClose) {
  FileIOStream stream;
  ASSERT_EQ(stream.open("/dev/full", -1, 0, 4096, "w"), 0);
  EXPECT_EQ(stream.writeBe32(1), 4u);
  EXPECT_EQ(stream.flush(), -1);
  EXPECT_EQ(stream.getCurPos(), 4u) << "still in the buffer, for a later try";
  EXPECT_EQ(Write(stream, Pattern(50000)), 0u);
  EXPECT_EQ(stream.close(), -1);
}

TEST(FileIOStream, PreAllocatedSpaceLiesBehindTheEndAndIsGivenBack) {
  const TemporaryFile file;
  FileIOStream stream;
  const ZR_U32 kUnit = 1 << 20;
  ASSERT_EQ(stream.open(file.path(), -1, kUnit, 4096, "w"), 0);
  ASSERT_EQ(Write(stream, Pattern(100000)), 100000u);
  ASSERT_EQ(stream.flush(), 0);
  EXPECT_EQ(file.status().st_size, 100000);
  const int probe = open(file.path().c_str(), O_RDWR);
  if (fallocate(probe, FALLOC_FL_KEEP_SIZE, 0, 4096) == 0) {
    EXPECT_GE(file.status().st_blocks * 512, kUnit);
  }
  close(probe);
  ASSERT_EQ(stream.close(), 0);
  EXPECT_EQ(file.status().st_size, 100000);
  EXPECT_LT(file.status().st_blocks * 512, kUnit / 2);
}

int gWrites = 0;
int gAllocations = 0;
std::string gName;
ZR_U32 CountWrite(const char* name, ZR_U64 microseconds) {
  ++gWrites;
  gName = name;
  return microseconds < 60000000 ? 0 : 1;
}
ZR_U32 CountAllocation(const char*, ZR_U64) { return static_cast<ZR_U32>(++gAllocations); }

TEST(FileIOStream, ReportsItsWritesToTheSink) {
  const TemporaryFile file;
  FileIOStream stream;
  ASSERT_EQ(stream.open(file.path(), -1, 65536, 4096, "w"), 0);
  EXPECT_EQ(stream.RegistProcOpt(nullptr), -1);
  const ZrOUTPUTStreamProcOptS sink = {CountWrite, CountAllocation};
  ASSERT_EQ(stream.RegistProcOpt(&sink), 0);
  gWrites = gAllocations = 0;
  ASSERT_EQ(stream.writeByte(1), 1u);
  EXPECT_EQ(gWrites, 0) << "it is in the buffer";
  ASSERT_EQ(stream.flush(), 0);
  EXPECT_EQ(gWrites, 1);
  EXPECT_EQ(gAllocations, 1);
  EXPECT_EQ(gName, file.path());
}

TEST(FileIOStream, SyncsRegularFilesUnlessToldNot) {
  struct Case {
    const char* path;  // null: a regular file
    const char* choice;
    bool syncs;
  };
  const Case kCases[] = {
      {nullptr, nullptr, true}, {nullptr, "on", true}, {nullptr, "off", false}, {"/dev/null", "on", false}};
  for (const Case& test : kCases) {
    const SyncChoice choice(test.choice);
    const TemporaryFile file;
    FileIOStream stream;
    ASSERT_EQ(stream.open(test.path != nullptr ? test.path : file.path(), -1, 0, 4096, "w"), 0);
    EXPECT_EQ(stream.syncs(), test.syncs);
    ASSERT_EQ(stream.writeByte(1), 1u);
    EXPECT_EQ(stream.sync(), 0);
    EXPECT_EQ(file.content().size(), test.path == nullptr ? 1u : 0u) << "nothing stays behind in the buffer";
  }
}

TEST(FieldIo, EveryFailedTransferHasItsMessage) {
  static ZR_U8 bytes[5];
  static ZR_U32 narrow = 0;
  static ZR_U64 wide = 0;
  const std::pair<const char*, bool (*)(FieldIo&)> kCases[] = {
      {"Byte", [](FieldIo& io) { return io.byte(bytes[0]); }},
      {"Byte", [](FieldIo& io) { return io.fixed8(1); }},
      {"Be16", [](FieldIo& io) { return io.fixed16(1); }},
      {"Be24", [](FieldIo& io) { return io.be24(narrow); }},
      {"Be32", [](FieldIo& io) { return io.fixed32(1); }},
      {"Be32", [](FieldIo& io) { return io.unityMatrix(); }},
      {"Be64", [](FieldIo& io) { return io.be64(wide); }},
      {"Be64", [](FieldIo& io) { return io.time(true, wide); }},
      {"Be32", [](FieldIo& io) { return io.time(false, wide); }},
      {"Bytes(5)", [](FieldIo& io) { return io.bytes(bytes, 5); }},
  };
  for (const auto& [what, transfer] : kCases) {
    const LogCapture log;
    ShortStream broken(Content(100), 0);
    ASSERT_EQ(broken.seek(7, 0), 0);
    FieldIo reading = FieldIo::Reading(&broken);
    EXPECT_FALSE(transfer(reading));
    EXPECT_EQ(log.all(), std::string("IO 3 offset:7, read") + what + " fail\n");
    log.clear();
    FieldIo writing = FieldIo::Writing(&broken);
    EXPECT_FALSE(transfer(writing));
    EXPECT_EQ(log.all(), std::string("IO 3 offset:7, write") + what + " fail\n");
    log.clear();
    FieldIo none = FieldIo::Reading(nullptr, 42);
    EXPECT_FALSE(transfer(none));
    EXPECT_EQ(log.all(), "MP4 3 HvccAtom::readData:42 input parameter null \n");
  }
}

TEST(FieldIo, OneListServesBothDirections) {
  const auto fields = [](FieldIo& io, ZR_U8& version, ZR_U32& flags, ZR_U64& narrow, ZR_U64& wide) {
    return io.versionAndFlags(version, flags) && io.time(false, narrow) && io.time(true, wide) && io.unityMatrix();
  };
  ZR_U8 version = 1;
  ZR_U32 flags = 0x00ABCDEF;
  ZR_U64 narrow = 0x1122334455667788, wide = narrow;
  ShortStream stream;
  FieldIo writing = FieldIo::Writing(&stream);
  ASSERT_TRUE(fields(writing, version, flags, narrow, wide));
  const Bytes expected = Bytes().u8(1).be24(0xABCDEF).be32(0x55667788).be64(0x1122334455667788);
  const Bytes matrix = Bytes().be32(0x10000).be64(0).be32(0).be32(0x10000).be64(0).be32(0).be32(0x40000000);
  EXPECT_EQ(Bytes(expected).add(matrix).difference(stream.data()), "");

  ASSERT_EQ(stream.seek(0, 0), 0);
  version = 0, flags = 0, narrow = wide = ~0ull;
  FieldIo reading = FieldIo::Reading(&stream);
  ASSERT_TRUE(fields(reading, version, flags, narrow, wide));
  EXPECT_TRUE(version == 1 && flags == 0xABCDEF && wide == 0x1122334455667788);
  EXPECT_EQ(narrow, 0x55667788u) << "the high word is gone";
}

}  // namespace
