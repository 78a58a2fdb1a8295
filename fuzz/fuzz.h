#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/support/session.h"
#include "zr_log.h"

#if defined(__has_feature)
#define ZRMP4_HAS_FEATURE(name) __has_feature(name)
#else
#define ZRMP4_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || ZRMP4_HAS_FEATURE(address_sanitizer)
#define ZRMP4_COUNTS_MEMORY
// Of the sanitizer's library; not every compiler has its header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* memory);
#endif

// What the fuzz targets share. Each target is one source file, so that this may define what a program has once.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#if defined(ZRMP4_REPLAY)
// Where there is no fuzzer, the target runs over the files of a folder: FOLDER.
int main(int argc, char** argv) {
  if (argc != 2 || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "%s\n", entry.path().filename().c_str());  // the last one named is the one that fails
    std::ifstream file(entry.path(), std::ios::binary);
    const Data bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++count;
  }
  return count > 0 ? 0 : 1;
}
#endif

// Messages are put together, so that their arguments are looked at, and not printed.
extern "C" void ZR_LOG_Printf(const char*, int, const char* pszFormat, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, pszFormat);
  std::vsnprintf(line, sizeof(line), pszFormat, arguments);
  va_end(arguments);
}

inline void Require(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  std::abort();
}

// The bytes of a test case as numbers and strings; zeros behind their end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : mAt(data), mEnd(data + size) {}

  bool empty() const { return mAt == mEnd; }
  std::uint64_t number(int width) {
    std::uint64_t value = 0;
    for (; width > 0; --width) value = value << 8 | (empty() ? 0u : *mAt++);
    return value;
  }
  unsigned byte() { return static_cast<unsigned>(number(1)); }
  ZR_U32 word() { return static_cast<ZR_U32>(number(4)); }
  // As many as there are, behind their 16-bit count.
  Data bytes() {
    const auto wanted = static_cast<std::ptrdiff_t>(number(2));
    const Data data(mAt, mAt + std::min(wanted, mEnd - mAt));
    mAt += data.size();
    return data;
  }
  template <typename T, std::size_t kCount>
  const T& oneOf(const T (&choices)[kCount]) {
    return choices[byte() % kCount];
  }

 private:
  const std::uint8_t* mAt;
  const std::uint8_t* mEnd;
};

// While it lives, memory in use may grow by what buffers take whatever the file, and by a small multiple of the bytes
// that are read.
class MemoryBound {
 public:
#if defined(ZRMP4_COUNTS_MEMORY)
  MemoryBound(std::size_t buffers, std::size_t bytes) : mMost(static_cast<long long>(buffers + kMultiple * bytes)) {
    static const int installed = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void*, std::size_t size) { sPeak = std::max(sPeak, sUsed += static_cast<long long>(size)); },
        [](const volatile void* p) { sUsed -= static_cast<long long>(__sanitizer_get_allocated_size(p)); });
    static_cast<void>(installed);
    sUsed = sPeak = 0;
  }
  ~MemoryBound() { Require(sPeak <= mMost, "took " + std::to_string(sPeak) + " bytes of memory"); }

 private:
  static constexpr std::size_t kMultiple = 32;

  static inline thread_local long long sUsed = 0;
  static inline thread_local long long sPeak = 0;
  long long mMost;
#else
  MemoryBound(std::size_t, std::size_t) {}
  ~MemoryBound() {}
#endif
};

// Asks for the payload of a box as a caller does: for its length first.
inline void GetPayload(ZR_MP4_HANDLE file, const std::string& path, std::size_t most) {
  zrMP4_ATOM_INFO_S box = {};
  if (ZR_MP4_GetAtom(file, path.c_str(), &box) != ZR_ERR_MP4_ATOM_BUF || box.u32DataLen > most) return;
  const ZR_U32 length = box.u32DataLen;
  const std::unique_ptr<ZR_U8[]> payload(new ZR_U8[length]);
  box.pu8DataBuf = payload.get();
  if (ZR_MP4_GetAtom(file, path.c_str(), &box) != 0) return;
  Require(box.u32DataLen == length && box.aszType[4] == '\0', "another box the second time");
}
