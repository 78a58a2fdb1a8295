#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/support/session.h"
#include "zr_log.h"

// What the fuzz targets share. Each target is one source file, so that this may define what a program has once.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#if defined(ZRMP4_REPLAY)
// Where there is no fuzzer, the target runs over the files of a folder: FOLDER.
int main(int argc, char** argv) {
  if (argc != 2 || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  bool found = false;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "%s\n", entry.path().filename().c_str());  // the last one named is the one that fails
    std::ifstream file(entry.path(), std::ios::binary);
    const Data bytes{std::istreambuf_iterator<char>(file), {}};
    found = LLVMFuzzerTestOneInput(bytes.data(), bytes.size()) == 0;
  }
  return found ? 0 : 1;
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

// Of the sanitizer's library, where there is one.
extern "C" __attribute__((weak)) int __sanitizer_install_malloc_and_free_hooks(
    void (*allocated)(const volatile void*, std::size_t), void (*freed)(const volatile void*));
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_allocated_size(const volatile void* memory);

// While it lives, memory in use may grow by what buffers take whatever the file, and by a small multiple of the bytes
// that are read. Without the sanitizer nothing counts it.
class MemoryBound {
 public:
  MemoryBound(std::size_t buffers, std::size_t bytes) : mMost(static_cast<std::ptrdiff_t>(buffers + 32 * bytes)) {
    const auto install = __sanitizer_install_malloc_and_free_hooks;
    [[maybe_unused]] static const int installed = install != nullptr ? install(Allocated, Freed) : 0;
    sUsed = sPeak = 0;
  }
  ~MemoryBound() { Require(sPeak <= mMost, "took " + std::to_string(sPeak) + " bytes of memory"); }

 private:
  static void Allocated(const volatile void*, std::size_t size) {
    sPeak = std::max(sPeak, sUsed += static_cast<std::ptrdiff_t>(size));
  }
  static void Freed(const volatile void* memory) {
    sUsed -= static_cast<std::ptrdiff_t>(__sanitizer_get_allocated_size(memory));
  }

  static inline thread_local std::ptrdiff_t sUsed = 0;
  static inline thread_local std::ptrdiff_t sPeak = 0;
  std::ptrdiff_t mMost;
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
