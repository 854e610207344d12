#ifndef FRAMEHUB_SRC_PIPELINE_CAMERA_2D_SIMD_H
#define FRAMEHUB_SRC_PIPELINE_CAMERA_2D_SIMD_H

// Vector row kernels of the 2D pipeline. They are compiled for AVX2 whatever
// the build's baseline and run only when the CPU has it; every one of them
// hands the end of a row to the scalar kernel it replaces, reads no source
// byte that kernel would not read and writes no destination byte it would
// not write.

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define FRAMEHUB_VECTOR 1
#define FRAMEHUB_AVX2 __attribute__((target("avx2,fma")))
// The AVX-512 extensions a few kernels use on 256-bit registers: byte
// permutes across two registers, 16-bit dot products into 32-bit sums.
#define FRAMEHUB_AVX512 __attribute__((target("avx2,fma,avx512f,avx512bw,avx512vl,avx512vbmi,avx512vnni")))
#endif

#include <cstdint>

namespace Kelmo {
namespace FrameHub {
namespace simd {

// True when the CPU has AVX2 and FMA, whatever the switch says.
bool supported();
// True when the CPU has AVX2 and FMA and the vector paths are switched on.
bool enabled();
// On by default; tests switch it off to compare against the scalar paths.
// Returns the previous setting.
bool setEnabled(bool on);
// The same for the AVX-512 kernels, which also need the vector paths on.
bool avx512Supported();
bool avx512Enabled();
bool setAvx512Enabled(bool on);

#ifdef FRAMEHUB_VECTOR

// How a row kernel fetches eight source words spaced step bytes apart.
enum Fetch { FETCH_ADJACENT, FETCH_EVERY_OTHER, FETCH_GATHER };

// Gather offsets are 32-bit: a larger step goes to the scalar kernel.
const uint64_t maxGatherStep = 0x7FFFFFFF / 8;

// Eight 4-byte words at p, p + step, ... p + 7 step, one per 32-bit lane.
// Reads those 32 bytes only, except for FETCH_EVERY_OTHER, which also reads
// the bytes between them; gather offsets are 0, step, ... 7 step.
template <Fetch fetch> FRAMEHUB_AVX2 inline __m256i fetchWords(const uint8_t* p, __m256i offsets)
{
    if (fetch == FETCH_ADJACENT)
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    if (fetch == FETCH_GATHER)
        return _mm256_i32gather_epi32(reinterpret_cast<const int*>(p), offsets, 1);
    // Words 0, 2, ... 14 from two loads that stop at the end of word 14.
    const __m256 a = _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    const __m256 b = _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 28)));
    const __m256i s = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 2, 0)));
    return _mm256_permute4x64_epi64(s, _MM_SHUFFLE(3, 1, 2, 0));
}

FRAMEHUB_AVX2 inline __m256i gatherOffsets(uint64_t step)
{
    return _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(static_cast<int>(step)));
}

// A byte shuffle, built at compile time; negative entries write 0.
struct ByteMask {
    int8_t b[32];
};

FRAMEHUB_AVX2 inline __m256i loadMask(const ByteMask& mask)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(mask.b));
}

// Each 32-bit word of a lane as two 16-bit halves holding zero-extended
// bytes `low` and `high` of the source word at `word`; -1 for a zero half.
// Words 0 to 3 of each lane read source words word, ..., word + 3, so a
// mask can also spread two source words over four.
constexpr ByteMask halvesMask(const int (&word)[4], int low, int high)
{
    ByteMask m {};
    for (int lane = 0; lane < 2; ++lane)
        for (int i = 0; i < 4; ++i) {
            int8_t* d = m.b + 16 * lane + 4 * i;
            d[0] = static_cast<int8_t>(low < 0 ? -1 : 4 * word[i] + low);
            d[1] = -1;
            d[2] = static_cast<int8_t>(high < 0 ? -1 : 4 * word[i] + high);
            d[3] = -1;
        }
    return m;
}

// A constant the compiler cannot see through: it stays in one register
// through a loop instead of being rebuilt at each use, and a multiply by it
// is not turned into shifts and adds. One overload a vector type, as each
// needs the target that has it.
FRAMEHUB_AVX2 inline __m256i opaque(__m256i v)
{
    __asm__("" : "+v"(v));
    return v;
}

FRAMEHUB_AVX2 inline __m256 opaque(__m256 v)
{
    __asm__("" : "+v"(v));
    return v;
}

FRAMEHUB_AVX512 inline __m512i opaque(__m512i v)
{
    __asm__("" : "+v"(v));
    return v;
}

// Multiply-add factors for the two halves of every 32-bit word.
FRAMEHUB_AVX2 inline __m256i factors(int16_t low, int16_t high)
{
    return _mm256_set1_epi32(
        static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16 | static_cast<uint16_t>(low)));
}

// Stores the low 24 bytes of each 128-bit lane, lane 0 first: 24 bytes in all.
FRAMEHUB_AVX2 inline void storeTwelvePerLane(uint8_t* dst, __m256i v)
{
    const __m128i high = _mm256_extracti128_si256(v, 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(v));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 12), high);
    const int last = _mm_extract_epi32(high, 2);
    __builtin_memcpy(dst + 20, &last, 4);
}

// Stores two 24-byte halves: the first 16 bytes of each from head, the
// last 8 from the low half of tail, lane 0 then lane 1.
FRAMEHUB_AVX2 inline void storeTwentyFourPerLane(uint8_t* dst, __m256i head, __m256i tail)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(head));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 16), _mm256_castsi256_si128(tail));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 24), _mm256_extracti128_si256(head, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 40), _mm256_extracti128_si256(tail, 1));
}

#endif

} // namespace simd
} // namespace FrameHub
} // namespace Kelmo

// The vector kernel when it may run, else the scalar one.
#ifdef FRAMEHUB_VECTOR
#define FRAMEHUB_FASTEST(vector, scalar) (::Kelmo::FrameHub::simd::enabled() ? (vector) : (scalar))
#define FRAMEHUB_FASTEST3(avx512, vector, scalar)                                                                      \
    (::Kelmo::FrameHub::simd::avx512Enabled() ? (avx512) : FRAMEHUB_FASTEST(vector, scalar))
#else
#define FRAMEHUB_FASTEST(vector, scalar) (scalar)
#define FRAMEHUB_FASTEST3(avx512, vector, scalar) (scalar)
#endif

#endif
