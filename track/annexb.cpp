#include "track/annexb.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__) || (defined(__arm__) && defined(__linux__) && __ARM_ARCH >= 7 && !defined(__SOFTFP__))
#include <arm_neon.h>
#if defined(__arm__)
#include <sys/auxv.h>
#endif
#define ZRMP4_HAS_NEON 1
#endif

namespace zrmp4 {
namespace {

// A start code needs two zeros side by side, which are rare in coded pictures: the searches look for such a pair in
// many bytes at a time, and only where there is one at what follows it.

// The third byte of a candidate says how far the next one is.
const ZR_U8* FindByBytes(const ZR_U8* from, const ZR_U8* end) {
  const std::ptrdiff_t size = end - from;
  for (std::ptrdiff_t i = 2; i < size;) {
    if (from[i] == 0) {
      ++i;
    } else if (from[i] == 1 && from[i - 1] == 0 && from[i - 2] == 0) {
      return from + i;
    } else {
      i += 3;
    }
  }
  return end;
}

// Two words at a time: a pair of zeros begins with a zero.
const ZR_U8* FindByWords(const ZR_U8* from, const ZR_U8* end) {
  using Word = std::uintptr_t;
  constexpr Word kOnes = static_cast<Word>(-1) / 0xFF;
  constexpr Word kHighs = kOnes * 0x80;
  constexpr std::ptrdiff_t kStep = 2 * sizeof(Word);
  constexpr std::ptrdiff_t kBehind = 2;  // a code that begins in the step ends behind it
  while (end - from >= kStep + kBehind) {
    Word a;
    Word b;
    std::memcpy(&a, from, sizeof(a));
    std::memcpy(&b, from + sizeof(a), sizeof(b));
    if ((((a - kOnes) & ~a) | ((b - kOnes) & ~b)) & kHighs) {
      const ZR_U8* stepEnd = from + kStep + kBehind;
      const ZR_U8* found = FindByBytes(from, stepEnd);
      if (found != stepEnd) return found;
    }
    from += kStep;
  }
  return FindByBytes(from, end);
}

#if defined(__x86_64__)

const ZR_U8* FindBySse2(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 32;
  constexpr std::ptrdiff_t kBehind = 2;
  const __m128i zero = _mm_setzero_si128();
  const __m128i one = _mm_set1_epi8(1);
  const auto load = [](const ZR_U8* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
  for (; end - from >= kStep + kBehind; from += kStep) {
    const __m128i a = _mm_or_si128(load(from), load(from + 1));
    const __m128i b = _mm_or_si128(load(from + 16), load(from + 17));
    if (__builtin_expect(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(a, b), zero)) == 0, 1)) continue;
    const __m128i codesA = _mm_and_si128(_mm_cmpeq_epi8(a, zero), _mm_cmpeq_epi8(load(from + 2), one));
    const __m128i codesB = _mm_and_si128(_mm_cmpeq_epi8(b, zero), _mm_cmpeq_epi8(load(from + 18), one));
    const std::uint32_t codes = static_cast<std::uint32_t>(_mm_movemask_epi8(codesA)) |
                                static_cast<std::uint32_t>(_mm_movemask_epi8(codesB)) << 16;
    if (codes != 0) return from + __builtin_ctz(codes) + 2;
  }
  return FindByBytes(from, end);
}

__attribute__((target("avx2"))) const ZR_U8* FindByAvx2(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 64;
  constexpr std::ptrdiff_t kBehind = 2;
  const __m256i zero = _mm256_setzero_si256();
  const __m256i one = _mm256_set1_epi8(1);
#define ZRMP4_LOAD(at) _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at))
  for (; end - from >= kStep + kBehind; from += kStep) {
    const __m256i a = _mm256_or_si256(ZRMP4_LOAD(from), ZRMP4_LOAD(from + 1));
    const __m256i b = _mm256_or_si256(ZRMP4_LOAD(from + 32), ZRMP4_LOAD(from + 33));
    if (__builtin_expect(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(a, b), zero)) == 0, 1)) continue;
    const __m256i codesA = _mm256_and_si256(_mm256_cmpeq_epi8(a, zero), _mm256_cmpeq_epi8(ZRMP4_LOAD(from + 2), one));
    const __m256i codesB = _mm256_and_si256(_mm256_cmpeq_epi8(b, zero), _mm256_cmpeq_epi8(ZRMP4_LOAD(from + 34), one));
    const std::uint64_t codes = static_cast<std::uint32_t>(_mm256_movemask_epi8(codesA)) |
                                static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(codesB)))
                                    << 32;
    if (codes != 0) return from + __builtin_ctzll(codes) + 2;
  }
#undef ZRMP4_LOAD
  return FindByBytes(from, end);
}

#endif

#if defined(ZRMP4_HAS_NEON)

#if defined(__arm__)
__attribute__((target("fpu=neon")))
#endif
const ZR_U8*
FindByNeon(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 32;
  constexpr std::ptrdiff_t kBehind = 2;
  for (; end - from >= kStep + kBehind; from += kStep) {
    const uint8x16_t a = vorrq_u8(vld1q_u8(from), vld1q_u8(from + 1));
    const uint8x16_t b = vorrq_u8(vld1q_u8(from + 16), vld1q_u8(from + 17));
    const uint8x16_t pairs = vceqq_u8(vminq_u8(a, b), vdupq_n_u8(0));
    const uint8x8_t any = vorr_u8(vget_low_u8(pairs), vget_high_u8(pairs));
    if (__builtin_expect(vget_lane_u64(vreinterpret_u64_u8(any), 0) == 0, 1)) continue;
    const ZR_U8* stepEnd = from + kStep + kBehind;
    const ZR_U8* found = FindByBytes(from, stepEnd);
    if (found != stepEnd) return found;
  }
  return FindByBytes(from, end);
}

bool HasNeon() {
#if defined(__aarch64__)
  return true;
#else
  constexpr unsigned long kNeon = 1ul << 12;  // HWCAP_NEON
  return (getauxval(AT_HWCAP) & kNeon) != 0;
#endif
}

#endif

StartCodeSearch Best() {
  StartCodeSearch searches[kMaxStartCodeSearches];
  StartCodeSearches(searches);
  return searches[0];
}

}  // namespace

ZR_U32 StartCodeSearches(StartCodeSearch (&searches)[kMaxStartCodeSearches]) {
  ZR_U32 count = 0;
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) searches[count++] = FindByAvx2;
  searches[count++] = FindBySse2;
#elif defined(ZRMP4_HAS_NEON)
  if (HasNeon()) searches[count++] = FindByNeon;
#endif
  searches[count++] = FindByWords;
  searches[count++] = FindByBytes;
  return count;
}

const ZR_U8* FindStartCode(const ZR_U8* from, const ZR_U8* end) {
  static const StartCodeSearch best = Best();
  return best(from, end);
}

}  // namespace zrmp4
