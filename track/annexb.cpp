#include "track/annexb.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__) || \
    (defined(__arm__) && defined(ZRMP4_HAS_GETAUXVAL) && __ARM_ARCH >= 7 && !defined(__SOFTFP__))
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

// The vectors' last step goes back to where it ends with the bytes: what it sees again holds no start code.

#if defined(__x86_64__)

const ZR_U8* FindBySse2(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 32;
  constexpr std::ptrdiff_t kBehind = 2;
  if (end - from < kStep + kBehind) return FindByBytes(from, end);
  const __m128i zero = _mm_setzero_si128();
  const __m128i one = _mm_set1_epi8(1);
  const auto load = [](const ZR_U8* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
  const ZR_U8* const last = end - kBehind - kStep;
  for (const ZR_U8* at = from;; at = last - at > kStep ? at + kStep : last) {
    const __m128i a = _mm_or_si128(load(at), load(at + 1));
    const __m128i b = _mm_or_si128(load(at + 16), load(at + 17));
    if (__builtin_expect(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(a, b), zero)) != 0, 0)) {
      const __m128i codesA = _mm_and_si128(_mm_cmpeq_epi8(a, zero), _mm_cmpeq_epi8(load(at + 2), one));
      const __m128i codesB = _mm_and_si128(_mm_cmpeq_epi8(b, zero), _mm_cmpeq_epi8(load(at + 18), one));
      const std::uint32_t codes = static_cast<std::uint32_t>(_mm_movemask_epi8(codesA)) |
                                  static_cast<std::uint32_t>(_mm_movemask_epi8(codesB)) << 16;
      if (codes != 0) return at + __builtin_ctz(codes) + kBehind;
    }
    if (at == last) return end;
  }
}

// A target does not reach into a lambda.
#define ZRMP4_LOAD(at) _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at))

__attribute__((target("avx2"))) const ZR_U8* FindByAvx2(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 64;
  constexpr std::ptrdiff_t kBehind = 2;
  if (end - from < kStep + kBehind) return FindBySse2(from, end);
  const __m256i zero = _mm256_setzero_si256();
  const __m256i one = _mm256_set1_epi8(1);
  const ZR_U8* const last = end - kBehind - kStep;
  for (const ZR_U8* at = from;; at = last - at > kStep ? at + kStep : last) {
    const __m256i a = _mm256_or_si256(ZRMP4_LOAD(at), ZRMP4_LOAD(at + 1));
    const __m256i b = _mm256_or_si256(ZRMP4_LOAD(at + 32), ZRMP4_LOAD(at + 33));
    if (__builtin_expect(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(a, b), zero)) != 0, 0)) {
      const __m256i codesA = _mm256_and_si256(_mm256_cmpeq_epi8(a, zero), _mm256_cmpeq_epi8(ZRMP4_LOAD(at + 2), one));
      const __m256i codesB = _mm256_and_si256(_mm256_cmpeq_epi8(b, zero), _mm256_cmpeq_epi8(ZRMP4_LOAD(at + 34), one));
      const std::uint32_t low = static_cast<std::uint32_t>(_mm256_movemask_epi8(codesA));
      const std::uint32_t high = static_cast<std::uint32_t>(_mm256_movemask_epi8(codesB));
      if ((low | high) != 0) return at + (low != 0 ? __builtin_ctz(low) : 32 + __builtin_ctz(high)) + kBehind;
    }
    if (at == last) return end;
  }
}

#undef ZRMP4_LOAD

#endif

#if defined(ZRMP4_HAS_NEON)

#if defined(__arm__)
__attribute__((target("fpu=neon")))
#endif
const ZR_U8*
FindByNeon(const ZR_U8* from, const ZR_U8* end) {
  constexpr std::ptrdiff_t kStep = 32;
  constexpr std::ptrdiff_t kBehind = 2;
  if (end - from < kStep + kBehind) return FindByBytes(from, end);
  const ZR_U8* const last = end - kBehind - kStep;
  for (const ZR_U8* at = from;; at = last - at > kStep ? at + kStep : last) {
    const uint8x16_t a = vorrq_u8(vld1q_u8(at), vld1q_u8(at + 1));
    const uint8x16_t b = vorrq_u8(vld1q_u8(at + 16), vld1q_u8(at + 17));
    const uint8x16_t pairs = vceqq_u8(vminq_u8(a, b), vdupq_n_u8(0));
    const uint8x8_t any = vorr_u8(vget_low_u8(pairs), vget_high_u8(pairs));
    if (__builtin_expect(vget_lane_u64(vreinterpret_u64_u8(any), 0) != 0, 0)) {
      const ZR_U8* const stepEnd = at + kStep + kBehind;
      const ZR_U8* const found = FindByBytes(at, stepEnd);
      if (found != stepEnd) return found;
    }
    if (at == last) return end;
  }
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

const StartCodeSearch kBest = Best();

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

const ZR_U8* FindStartCode(const ZR_U8* from, const ZR_U8* end) { return kBest(from, end); }

}  // namespace zrmp4
