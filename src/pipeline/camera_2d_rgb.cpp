// Targets made of red, green and blue. At a width ratio of 1 the colour
// targets give the library conversion's bytes (its arithmetic with 20
// fractional bits, or the library itself on CPUs without the vector paths)
// and the planes an exact per-pixel formula; a downscale uses one cheaper
// formula for all five, one set of multiplications a macro-pixel. The two
// paths are meant to differ.
#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"
#include "pipeline/fixed_point.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>

namespace Kelmo {
namespace FrameHub {

namespace {

using namespace fixed;

typedef uint64_t Size;

enum Output { OUT_RGB, OUT_BGR, OUT_R, OUT_G, OUT_B };

constexpr Size bytesPerPixel(Output out) { return out == OUT_RGB || out == OUT_BGR ? 3 : 1; }

// Fixed point with 8 fractional bits; the shift floors, so white gives 254.
inline uint8_t finish(int32_t value)
{
    value >>= kFractionBits;
    return static_cast<uint8_t>(value <= 0 ? 0 : value > 255 ? 255 : value);
}

inline int32_t redTerm(int32_t, int32_t v) { return kRedFromV * v; }
inline int32_t greenTerm(int32_t u, int32_t v) { return kGreenFromU * u + kGreenFromV * v; }
inline int32_t blueTerm(int32_t u, int32_t) { return kBlueFromU * u; }

// One destination pixel from the macro-pixel at each step: the mean of its
// two lumas with its chroma. RGB truncates the luma sum before the gain and
// BGR does not, so the two may differ by one.
template <Output out>
void downscaleRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, Size step, const uint8_t* = nullptr)
{
    for (Size k = 0; k < n; ++k) {
        const uint8_t* m = src + step * k;
        const int32_t sum = m[0] + m[2] - 2 * kLumaBlack;
        const int32_t luma = out == OUT_RGB ? kLumaGain * (sum / 2) : kHalfLumaGain * sum;
        const int32_t u = m[1] - kChromaZero;
        const int32_t v = m[3] - kChromaZero;
        uint8_t* p = dst + bytesPerPixel(out) * k;
        if (out == OUT_RGB) {
            p[0] = finish(luma + redTerm(u, v));
            p[1] = finish(luma + greenTerm(u, v));
            p[2] = finish(luma + blueTerm(u, v));
        } else if (out == OUT_BGR) {
            p[0] = finish(luma + blueTerm(u, v));
            p[1] = finish(luma + greenTerm(u, v));
            p[2] = finish(luma + redTerm(u, v));
        } else if (out == OUT_R) {
            p[0] = finish(luma + redTerm(u, v));
        } else if (out == OUT_G) {
            p[0] = finish(luma + greenTerm(u, v));
        } else {
            p[0] = finish(luma + blueTerm(u, v));
        }
    }
}

// Full scale, one plane: each pixel keeps its own luma, the chroma term is
// computed once a macro-pixel.
template <Output out> void planeRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    for (Size i = 0; i < pairs; ++i) {
        const uint8_t* m = src + 4 * i;
        const int32_t u = m[1] - kChromaZero;
        const int32_t v = m[3] - kChromaZero;
        const int32_t term = out == OUT_R ? redTerm(u, v) : out == OUT_G ? greenTerm(u, v) : blueTerm(u, v);
        dst[2 * i] = finish(kLumaGain * (m[0] - kLumaBlack) + term);
        dst[2 * i + 1] = finish(kLumaGain * (m[2] - kLumaBlack) + term);
    }
}

// Full scale RGB or BGR, each pixel its own luma, with the library
// conversion's 20 fractional bits and its rounding: the definition of the
// bytes it writes. All in 32-bit signed arithmetic, which cannot overflow.
inline uint8_t finishWide(int32_t value)
{
    value >>= kWideFractionBits;
    return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

template <Output out> void wideRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    constexpr int red = out == OUT_RGB ? 0 : 2, blue = 2 - red;
    for (Size i = 0; i < pairs; ++i) {
        const uint8_t* m = src + 4 * i;
        const int32_t u = m[1] - kChromaZero;
        const int32_t v = m[3] - kChromaZero;
        const int32_t r = kWideRoundingHalf + kWideRedFromV * v;
        const int32_t g = kWideRoundingHalf + kWideGreenFromV * v + kWideGreenFromU * u;
        const int32_t b = kWideRoundingHalf + kWideBlueFromU * u;
        for (int k = 0; k < 2; ++k) {
            const int32_t y = std::max(0, m[2 * k] - kLumaBlack) * kWideLumaGain;
            uint8_t* p = dst + 6 * i + 3 * k;
            p[red] = finishWide(y + r);
            p[1] = finishWide(y + g);
            p[blue] = finishWide(y + b);
        }
    }
}

#ifdef FRAMEHUB_VECTOR
using namespace simd;

// The three channels of eight downscaled pixels, one source word each,
// shifted but not yet clamped. Byte pairs multiplied and summed into 16-bit
// halves give the lumas and the chroma, and one multiply-add of two halves
// gives two products and their sum exactly.
template <Output out>
FRAMEHUB_AVX2 inline void downscaleChannels(__m256i m, __m256i& red, __m256i& green, __m256i& blue)
{
    const __m256i lumas = _mm256_maddubs_epi16(m, _mm256_set1_epi32(0x00010001)); // Y0, Y1
    const __m256i chroma = _mm256_maddubs_epi16(m, _mm256_set1_epi32(0x01000100)); // U, V
    __m256i luma, constant;
    if constexpr (out == OUT_RGB) {
        // 298 (S / 2), S = Y0 + Y1 - 32 truncated toward zero before the gain.
        const __m256i s = _mm256_sub_epi32(_mm256_madd_epi16(lumas, factors(1, 1)), _mm256_set1_epi32(2 * kLumaBlack));
        const __m256i half = _mm256_srai_epi32(_mm256_sub_epi32(s, _mm256_srai_epi32(s, 31)), 1);
        luma = _mm256_madd_epi16(half, factors(kLumaGain, 0)); // half fits the low 16 bits
        constant = _mm256_setzero_si256();
    } else {
        luma = _mm256_madd_epi16(lumas, factors(kHalfLumaGain, kHalfLumaGain));
        constant = _mm256_set1_epi32(kLumaSumBias);
    }
    // Chroma terms with the chroma zero folded in.
    const __m256i r
        = _mm256_add_epi32(_mm256_madd_epi16(chroma, factors(0, kRedFromV)), _mm256_set1_epi32(kRedChromaBias));
    const __m256i g = _mm256_add_epi32(
        _mm256_madd_epi16(chroma, factors(kGreenFromU, kGreenFromV)), _mm256_set1_epi32(kGreenChromaBias));
    const __m256i b
        = _mm256_add_epi32(_mm256_madd_epi16(chroma, factors(kBlueFromU, 0)), _mm256_set1_epi32(kBlueChromaBias));
    const __m256i base = _mm256_add_epi32(luma, constant);
    red = _mm256_srai_epi32(_mm256_add_epi32(base, r), kFractionBits);
    green = _mm256_srai_epi32(_mm256_add_epi32(base, g), kFractionBits);
    blue = _mm256_srai_epi32(_mm256_add_epi32(base, b), kFractionBits);
}

// The saturating packs clamp exactly as finish does.
FRAMEHUB_AVX2 inline void storeThreeChannels(uint8_t* dst, __m256i c0, __m256i c1, __m256i c2)
{
    const int8_t Z = -1;
    const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(c0, c1), _mm256_packs_epi32(c2, c2));
    const __m256i order = _mm256_setr_epi8(
        0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, Z, Z, Z, Z, 0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, Z, Z, Z, Z);
    storeTwelvePerLane(dst, _mm256_shuffle_epi8(bytes, order));
}

template <Output out> FRAMEHUB_AVX2 inline __m256i oneChannel(__m256i m)
{
    __m256i red, green, blue;
    downscaleChannels<out>(m, red, green, blue);
    return out == OUT_R ? red : out == OUT_G ? green : blue;
}

template <Output out, Fetch fetch>
FRAMEHUB_AVX2 Size downscaleBlocks(const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, Size step)
{
    const __m256i offsets = gatherOffsets(step);
    Size k = 0;
    if constexpr (bytesPerPixel(out) == 3) {
        for (; k + 8 <= n; k += 8) {
            __m256i red, green, blue;
            downscaleChannels<out>(fetchWords<fetch>(src + step * k, offsets), red, green, blue);
            if constexpr (out == OUT_RGB)
                storeThreeChannels(dst + 3 * k, red, green, blue);
            else
                storeThreeChannels(dst + 3 * k, blue, green, red);
        }
    } else {
        // Sixteen pixels a block for a full 16-byte store.
        for (; k + 16 <= n; k += 16) {
            const __m256i a = oneChannel<out>(fetchWords<fetch>(src + step * k, offsets));
            const __m256i b = oneChannel<out>(fetchWords<fetch>(src + step * (k + 8), offsets));
            const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_setzero_si256());
            const __m256i ordered = _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 2, 2, 2));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + k), _mm256_castsi256_si128(ordered));
        }
    }
    return k;
}

// A width ratio of 2 in 16-bit lanes, sixteen pixels an operation in AVX2
// and 32 in AVX-512; U and V are the chroma bytes, u = U - 128. The luma
// term, 0 ... 37995, is kept unsigned with its black level left to the
// channels: 149 (h + 16) for RGB (h the truncated half of Y0 + Y1 - 32) and
// floor(74.5 (Y0 + Y1)) for BGR. Red is halved once, to 7 fractional bits,
// where its terms are whole; for BGR one unit goes back into red's V term
// where both the luma sum and V are odd, for the two halves the floors
// lost. Green and blue are halved twice, to 6 bits, where their chroma
// terms are still whole, so flooring the halved luma loses nothing:
//   red   luma + floor(204.5 V) - kHalfRedZero    unsigned: the sum
//         saturates at 65535 (only for a red of 288 or more), the
//         difference at 0
//   a     floor(luma / 2) + kHalfAverageBias      8664 ... 27661, an average
//   green a - 25 U - 52 V                         -10971 ... 27661
//   blue  a + 129 u - kHalfGreenZero              the sum saturating at
//         32767 (only for a blue of 358 or more)
// kHalfAverageBias takes green's chroma zero and the black level out in the
// same operation that halves the luma. The shifts and the packs after them
// clamp as finish does. Every luma sum with every chroma pair gives
// downscaleRow's bytes; the half-size test covers the sums where the
// rounding turns.
constexpr int kHalfBits = kFractionBits - 1; // red
constexpr int kHalfNarrowBits = kFractionBits - 2; // green and blue
constexpr int32_t kHalfRedGain = kRedFromV << kHalfBits; // times 256 V, high half: 204.5 V
constexpr int32_t kHalfRedZero = kHalfLumaGain * kLumaBlack + kRedFromV * kChromaZero / 2; // 28560
constexpr int32_t kHalfBgrLumaGain = kHalfLumaGain << kFractionBits; // times 128 sum, high half: 74.5 sum
constexpr int32_t kHalfGreenFromU = -kGreenFromU / 4, kHalfGreenFromV = -kGreenFromV / 4; // 25, 52
constexpr int32_t kHalfBlueFromU = kBlueFromU / 4; // 129
constexpr int32_t kHalfGreenZero = (kHalfGreenFromU + kHalfGreenFromV) * kChromaZero; // 9856
constexpr int32_t kHalfBlack = kHalfLumaGain * kLumaBlack / 2; // 1192
constexpr int32_t kHalfAverageBias = kHalfGreenZero - kHalfBlack; // 8664
static_assert(
    kHalfRedGain < 65536 && kHalfBgrLumaGain < 65536 && kHalfRedZero < 65536 && 2 * kHalfAverageBias - 1 < 65536,
    "16-bit constants");
static_assert(((65535 - kHalfRedZero) >> kHalfBits) >= 255 && ((32767 - kHalfGreenZero) >> kHalfNarrowBits) >= 255,
    "saturated sums still pack to 255");
static_assert(4 * kHalfGreenFromU == -kGreenFromU && 4 * kHalfGreenFromV == -kGreenFromV
        && 4 * kHalfBlueFromU == kBlueFromU && kRedFromV * kChromaZero % 2 == 0 && kHalfLumaGain * kLumaBlack % 2 == 0,
    "whole terms");

// Multiply-add factors for the byte pairs of every 16-bit lane.
FRAMEHUB_AVX2 inline __m256i bytePair(int low, int high)
{
    return _mm256_set1_epi16(static_cast<int16_t>((high & 0xFF) << 8 | (low & 0xFF)));
}

FRAMEHUB_AVX2 inline __m256i words(int32_t value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }

// The three channels of sixteen pixels from their lumas (Y0, Y1 in the byte
// pairs of yy) and chroma (U, V in those of uv), for the packs to clamp.
// The terms and their order are those of halfChannels512, with the masked
// operations spelled out.
template <Output out>
FRAMEHUB_AVX2 inline void halfChannels(__m256i yy, __m256i uv, __m256i& red, __m256i& green, __m256i& blue)
{
    const __m256i sum = _mm256_maddubs_epi16(yy, bytePair(1, 1)); // Y0 + Y1
    __m256i luma, highV = _mm256_and_si256(uv, words(0xFF00));
    if constexpr (out == OUT_RGB) {
        // h + 16, rounding up below 32: the average with all ones (at 32 and
        // above) halves down and sets the top bit, which the mask clears.
        const __m256i bright = _mm256_cmpgt_epi16(sum, words(2 * kLumaBlack - 1));
        const __m256i half = _mm256_and_si256(_mm256_avg_epu16(sum, bright), words(0xFF));
        luma = _mm256_mullo_epi16(half, opaque(words(kHalfLumaGain)));
    } else {
        luma = _mm256_mulhi_epu16(_mm256_slli_epi16(sum, kHalfBits), words(kHalfBgrLumaGain));
        highV = _mm256_or_si256(highV, _mm256_and_si256(sum, words(1)));
    }
    const __m256i r = _mm256_adds_epu16(luma, _mm256_mulhi_epu16(highV, words(kHalfRedGain)));
    red = _mm256_srli_epi16(_mm256_subs_epu16(r, words(kHalfRedZero)), kHalfBits);
    const __m256i a = _mm256_avg_epu16(luma, words(2 * kHalfAverageBias - 1));
    const __m256i g = _mm256_maddubs_epi16(uv, bytePair(-kHalfGreenFromU, -kHalfGreenFromV));
    green = _mm256_srai_epi16(_mm256_add_epi16(a, g), kHalfNarrowBits);
    const __m256i b
        = _mm256_maddubs_epi16(bytePair(kHalfBlueFromU, 0), _mm256_xor_si256(uv, words(0x8080))); // 129 (U - 128)
    blue = _mm256_srai_epi16(_mm256_sub_epi16(_mm256_adds_epi16(a, b), words(kHalfGreenZero)), kHalfNarrowBits);
}

// Sixteen macro-pixels from 64 bytes as byte pairs: lumas in yy, chroma in
// uv; lane 0 pixels 0-7, lane 1 pixels 8-15, so that each lane
// fills a contiguous run of the destination.
FRAMEHUB_AVX2 inline void halfPairs(const uint8_t* src, __m256i& yy, __m256i& uv)
{
    const auto at = [src](int offset) { return reinterpret_cast<const __m128i*>(src + offset); };
    const __m256i a = _mm256_loadu2_m128i(at(32), at(0)); // pixels 0-3, 8-11
    const __m256i b = _mm256_loadu2_m128i(at(48), at(16)); // pixels 4-7, 12-15
    const __m256i split = _mm256_setr_epi8(
        0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15, 0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    const __m256i sa = _mm256_shuffle_epi8(a, split), sb = _mm256_shuffle_epi8(b, split);
    yy = _mm256_unpacklo_epi64(sa, sb);
    uv = _mm256_unpackhi_epi64(sa, sb);
}

// Output bytes 0-15 (head) or 16-23 (tail) of each lane's eight pixels, red
// first or blue first, from rg (reds then greens) or from bb (blues). The
// packed channels hold the pixels in order, or (evenThenOdd) the even ones
// before the odd ones.
constexpr ByteMask layoutMask(bool fromBlue, bool tail, bool bgr, bool evenThenOdd)
{
    ByteMask m {};
    for (int i = 0; i < 32; ++i)
        m.b[i] = -1;
    for (int lane = 0; lane < 2; ++lane)
        for (int o = tail ? 16 : 0; o < (tail ? 24 : 16); ++o) {
            const int pixel = o / 3, channel = bgr ? 2 - o % 3 : o % 3;
            const int index = evenThenOdd ? pixel / 2 + 4 * (pixel % 2) : pixel;
            if ((channel == 2) == fromBlue)
                m.b[16 * lane + o - (tail ? 16 : 0)] = static_cast<int8_t>(channel == 1 ? 8 + index : index);
        }
    return m;
}

template <Output out> FRAMEHUB_AVX2 inline void halfStore(uint8_t* dst, __m256i yy, __m256i uv)
{
    constexpr bool bgr = out == OUT_BGR;
    static constexpr ByteMask head = layoutMask(false, false, bgr, false), tail = layoutMask(false, true, bgr, false),
                              headBlue = layoutMask(true, false, bgr, false),
                              tailBlue = layoutMask(true, true, bgr, false);
    __m256i red, green, blue;
    halfChannels<out>(yy, uv, red, green, blue);
    // The saturating packs clamp as finish does.
    const __m256i rg = _mm256_packus_epi16(red, green);
    const __m256i bb = _mm256_packus_epi16(blue, blue);
    const __m256i h
        = _mm256_or_si256(_mm256_shuffle_epi8(rg, loadMask(head)), _mm256_shuffle_epi8(bb, loadMask(headBlue)));
    const __m256i t
        = _mm256_or_si256(_mm256_shuffle_epi8(rg, loadMask(tail)), _mm256_shuffle_epi8(bb, loadMask(tailBlue)));
    storeTwentyFourPerLane(dst, h, t);
}

// Each block's byte pairs are gathered two blocks ahead: that takes the
// loads and shuffles off the chain the arithmetic waits on. The row read
// next (every other source row) is fetched into the cache as this one is
// converted: the hardware's own prefetch restarts at each row and leaves
// about a tenth of the time waiting on the first lines.
template <Output out>
FRAMEHUB_AVX2 Size halfBlocks(const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, const uint8_t* next)
{
    const Size blocks = n / 16;
    __m256i yy = _mm256_setzero_si256(), uv = yy, nextYy = yy, nextUv = yy;
    if (blocks > 0)
        halfPairs(src, yy, uv);
    if (blocks > 1)
        halfPairs(src + 64, nextYy, nextUv);
    for (Size b = 0; b < blocks; ++b) {
        if (next)
            _mm_prefetch(reinterpret_cast<const char*>(next + 64 * b), _MM_HINT_T0);
        const __m256i blockYy = yy, blockUv = uv;
        yy = nextYy;
        uv = nextUv;
        if (b + 2 < blocks)
            halfPairs(src + 64 * (b + 2), nextYy, nextUv);
        halfStore<out>(dst + 48 * b, blockYy, blockUv);
    }
    return 16 * blocks;
}

// Steps of 4 bytes (ratio 2) and 8 (ratio 4) load; any other steps gather,
// including the odd ratios' reads from the middle of a macro-pixel. A single
// plane stays in 32-bit lanes at a step of 4 as well: read straight from the
// source words it needs no byte pairs, which the three channels share and
// one would not repay.
template <Output out>
FRAMEHUB_AVX2 void downscaleRowAvx2(
    const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, Size step, const uint8_t* next)
{
    Size k = 0;
    if (step == 4) {
        if constexpr (bytesPerPixel(out) == 3)
            k = halfBlocks<out>(src, dst, n, next);
        else
            k = downscaleBlocks<out, FETCH_ADJACENT>(src, dst, n, step);
    } else if (step == 8)
        k = downscaleBlocks<out, FETCH_EVERY_OTHER>(src, dst, n, step);
    else if (step <= maxGatherStep)
        k = downscaleBlocks<out, FETCH_GATHER>(src, dst, n, step);
    downscaleRow<out>(src + step * k, dst + bytesPerPixel(out) * k, n - k, step);
}

// Four pixels per lane from source words first and first + 1: each pixel's
// luma in the low half and the chroma byte at `chroma` (or 0) in the high.
constexpr ByteMask pixelsMask(int first, int chroma)
{
    ByteMask m {};
    for (int lane = 0; lane < 2; ++lane)
        for (int i = 0; i < 4; ++i) {
            int8_t* d = m.b + 16 * lane + 4 * i;
            const int word = 4 * (first + i / 2);
            d[0] = static_cast<int8_t>(word + 2 * (i % 2));
            d[1] = -1;
            d[2] = static_cast<int8_t>(chroma < 0 ? -1 : word + chroma);
            d[3] = -1;
        }
    return m;
}

// Sixteen pixels of one plane from eight macro-pixels, two halves of four
// macro-pixels each (two a lane).
template <Output out>
FRAMEHUB_AVX2 void planeRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    static constexpr ByteMask withU[2] = { pixelsMask(0, 1), pixelsMask(2, 1) };
    static constexpr ByteMask withV[2] = { pixelsMask(0, 3), pixelsMask(2, 3) };
    Size i = 0;
    for (; i + 8 <= pairs; i += 8) {
        const __m256i m = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
        __m256i value[2];
        for (int h = 0; h < 2; ++h) {
            __m256i sum;
            if constexpr (out == OUT_R) {
                const __m256i yv = _mm256_shuffle_epi8(m, loadMask(withV[h]));
                sum = _mm256_add_epi32(_mm256_madd_epi16(yv, factors(kLumaGain, kRedFromV)),
                    _mm256_set1_epi32(kLumaBias + kRedChromaBias));
            } else if constexpr (out == OUT_B) {
                const __m256i yu = _mm256_shuffle_epi8(m, loadMask(withU[h]));
                sum = _mm256_add_epi32(_mm256_madd_epi16(yu, factors(kLumaGain, kBlueFromU)),
                    _mm256_set1_epi32(kLumaBias + kBlueChromaBias));
            } else {
                const __m256i yu = _mm256_shuffle_epi8(m, loadMask(withU[h]));
                const __m256i yv = _mm256_shuffle_epi8(m, loadMask(withV[h]));
                sum = _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(yu, factors(kLumaGain, kGreenFromU)),
                                           _mm256_madd_epi16(yv, factors(0, kGreenFromV))),
                    _mm256_set1_epi32(kLumaBias + kGreenChromaBias));
            }
            value[h] = _mm256_srai_epi32(sum, kFractionBits);
        }
        // Lanes hold pixels 0-3 and 8-11 of the first half, 4-7 and 12-15 of
        // the second: the pack puts them in order within each lane.
        const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(value[0], value[1]), _mm256_setzero_si256());
        const __m256i low = _mm256_permute4x64_epi64(bytes, _MM_SHUFFLE(3, 1, 2, 0));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), _mm256_castsi256_si128(low));
    }
    planeRow<out>(src + 4 * i, dst + 2 * i, pairs - i);
}

// One primary of the even and the odd pixels, shifted and packed to 16 bits:
// even pixels 0-3, odd 0-3, even 4-7, odd 4-7 (so the layout masks read
// pixel p at p / 2 + 4 (p % 2)).
FRAMEHUB_AVX2 inline __m256i wideChannel(__m256i even, __m256i odd, __m256i chroma)
{
    return _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(even, chroma), kWideFractionBits),
        _mm256_srai_epi32(_mm256_add_epi32(odd, chroma), kWideFractionBits));
}

// Eight macro-pixels a block: the even and odd pixels' luma terms and the
// three chroma terms of each macro-pixel in 32-bit lanes; the packs clamp as
// finishWide does. The 32-bit lanes are what exactness costs: about 45
// vector operations for sixteen pixels.
template <Output out> FRAMEHUB_AVX2 void wideRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    constexpr bool bgr = out == OUT_BGR;
    static constexpr ByteMask head = layoutMask(false, false, bgr, true), tail = layoutMask(false, true, bgr, true),
                              headBlue = layoutMask(true, false, bgr, true),
                              tailBlue = layoutMask(true, true, bgr, true);
    const __m256i lowByte = _mm256_set1_epi32(0xFF);
    const __m256i black = _mm256_set1_epi32(kLumaBlack | kLumaBlack << 16);
    const __m256i pickU = _mm256_set1_epi32(0x100); // byte 1 times 1, the others times 0
    const int8_t Z = -1;
    const __m256i pickOdd = _mm256_setr_epi8(
        2, Z, Z, Z, 6, Z, Z, Z, 10, Z, Z, Z, 14, Z, Z, Z, 2, Z, Z, Z, 6, Z, Z, Z, 10, Z, Z, Z, 14, Z, Z, Z);
    const __m256i lumaGain = _mm256_set1_epi32(kWideLumaGain);
    const __m256i redFromV = _mm256_set1_epi32(kWideRedFromV), blueFromU = _mm256_set1_epi32(kWideBlueFromU);
    const __m256i greenFromU = _mm256_set1_epi32(kWideGreenFromU), greenFromV = _mm256_set1_epi32(kWideGreenFromV);
    // Rounding and chroma zero folded into one constant per primary.
    const __m256i redBias = _mm256_set1_epi32(kWideRoundingHalf - kWideRedFromV * kChromaZero);
    const __m256i greenBias = _mm256_set1_epi32(kWideRoundingHalf - (kWideGreenFromU + kWideGreenFromV) * kChromaZero);
    const __m256i blueBias = _mm256_set1_epi32(kWideRoundingHalf - kWideBlueFromU * kChromaZero);
    Size i = 0;
    for (; i + 8 <= pairs; i += 8) {
        const __m256i m = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
        const __m256i lumas = _mm256_subs_epu8(m, black); // max(0, Y - 16), U and V kept
        const __m256i even = _mm256_mullo_epi32(_mm256_and_si256(lumas, lowByte), lumaGain);
        const __m256i odd = _mm256_mullo_epi32(_mm256_shuffle_epi8(lumas, pickOdd), lumaGain);
        const __m256i u = _mm256_maddubs_epi16(m, pickU);
        const __m256i v = _mm256_srli_epi32(m, 24);
        const __m256i r = _mm256_add_epi32(_mm256_mullo_epi32(v, redFromV), redBias);
        const __m256i g = _mm256_add_epi32(
            _mm256_add_epi32(_mm256_mullo_epi32(u, greenFromU), _mm256_mullo_epi32(v, greenFromV)), greenBias);
        const __m256i b = _mm256_add_epi32(_mm256_mullo_epi32(u, blueFromU), blueBias);
        const __m256i rg = _mm256_packus_epi16(wideChannel(even, odd, r), wideChannel(even, odd, g));
        const __m256i blue = wideChannel(even, odd, b);
        const __m256i bb = _mm256_packus_epi16(blue, blue);
        const __m256i h
            = _mm256_or_si256(_mm256_shuffle_epi8(rg, loadMask(head)), _mm256_shuffle_epi8(bb, loadMask(headBlue)));
        const __m256i t
            = _mm256_or_si256(_mm256_shuffle_epi8(rg, loadMask(tail)), _mm256_shuffle_epi8(bb, loadMask(tailBlue)));
        storeTwentyFourPerLane(dst + 6 * i, h, t);
    }
    wideRow<out>(src + 4 * i, dst + 6 * i, pairs - i);
}

// GCC 12's 512-bit intrinsics start from a deliberately undefined register,
// which its own warnings then flag in every caller.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

// Where output byte o of a block of 32 pixels comes from: rg holds, lane by
// lane, eight reds then eight greens, bb eight blues (twice); byte indices
// 64 and up select from bb. The greens are in pixel order, or, when packed
// from separate even and odd sums, four even pixels then four odd ones.
struct WideLayout {
    int8_t b[128];
};

constexpr WideLayout wideLayout(bool bgr, bool evenOddGreen = false)
{
    WideLayout m {};
    for (int o = 0; o < 96; ++o) {
        const int pixel = o / 3, channel = bgr ? 2 - o % 3 : o % 3;
        const int at = 16 * (pixel / 8) + pixel % 8;
        const int green = evenOddGreen ? 16 * (pixel / 8) + 8 + pixel % 8 / 2 + 4 * (pixel % 2) : at + 8;
        m.b[o] = static_cast<int8_t>(channel == 0 ? at : channel == 1 ? green : 64 + at);
    }
    return m;
}

// Word i of the pick: the high half of pixel i's 32-bit sum, the even
// pixels' sums in the first operand and the odd pixels' in the second.
struct WordPick {
    int16_t w[32];
};

constexpr WordPick highHalves()
{
    WordPick m {};
    for (int i = 0; i < 32; ++i)
        m.w[i] = static_cast<int16_t>((i % 2 ? 32 : 0) + i / 2 * 2 + 1);
    return m;
}

// Red and blue give the same bytes with 16 fractional bits, a luma gain of
// 76284 and the chroma gains and biases below (found by searching near the
// exact gains over 16; the exhaustive test checks them): the high half of
// their 32-bit sum is then the unclamped byte. Green needs all 20 bits and
// the exact gains. The factors are 16-bit parts of those gains, for
// multiply-adds on lumas times 4 and on U times 12 and V times 57.
constexpr int32_t kLumaScale = 4, kScaleU = 12, kScaleV = 57;
constexpr int16_t kNarrowLumaGain = 19071;
constexpr int16_t kNarrowRedFromV = 1835, kNarrowBlueFromU = 11021;
constexpr int32_t kNarrowRedBias = -13355536, kNarrowBlueBias = -16895562;
constexpr int16_t kGreenFromScaledU = -32767, kGreenFromUnscaledU = -16789, kGreenFromScaledV = -14956;
static_assert(kScaleU * kGreenFromScaledU + kGreenFromUnscaledU == kWideGreenFromU, "green's U gain, split");
static_assert(kScaleV * kGreenFromScaledV == kWideGreenFromV, "green's V gain, scaled");

FRAMEHUB_AVX512 inline __m512i wideFactors(int16_t low, int16_t high)
{
    return _mm512_set1_epi32(
        static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(high)) << 16 | static_cast<uint16_t>(low)));
}

// Pairs of 6 output bytes that take dst to a 32-byte boundary; none from an
// odd address, which no number of pairs reaches.
inline Size pairsToBoundary(const uint8_t* dst)
{
    constexpr Size kBoundary = 32, kPairBytes = 6;
    const Size offset = reinterpret_cast<uintptr_t>(dst) % kBoundary;
    for (Size q = 0; q < kBoundary / 2; ++q)
        if ((offset + kPairBytes * q) % kBoundary == 0)
            return q;
    return 0;
}

// The same conversion on 32 pixels a block, in 512-bit registers. Red and
// blue: the lumas times 4 and the scaled chroma as 16-bit pairs, one
// multiply-add each for the chroma and the sums, whose high halves are the
// unclamped bytes. Green: the wide products as in AVX2, its U and V gains
// split over two multiply-adds, its sums shifted by 20 and packed. One
// two-register byte permute writes the 3-byte layout. 28 operations for 32
// pixels, against 45 for 16 in AVX2.
template <Output out>
FRAMEHUB_AVX512 void wideRowAvx512(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    static constexpr WideLayout layout = wideLayout(out == OUT_BGR, true);
    static constexpr WordPick pick = highHalves();
    const __m512i head = _mm512_loadu_si512(layout.b), tail = _mm512_loadu_si512(layout.b + 64);
    const __m512i highs = _mm512_loadu_si512(pick.w);
    const __m512i lowByte = _mm512_set1_epi32(0xFF);
    const __m512i black = _mm512_set1_epi32(kLumaBlack | kLumaBlack << 16);
    const __m512i lumaScale = _mm512_set1_epi32(kLumaScale | kLumaScale << 16); // bytes Y0 and Y1
    const __m512i chromaScale = _mm512_set1_epi32(kScaleU << 8 | kScaleV << 24); // bytes U and V
    const __m512i evenGain = wideFactors(kNarrowLumaGain, 0), oddGain = wideFactors(0, kNarrowLumaGain);
    const __m512i redFromV = wideFactors(0, kNarrowRedFromV), blueFromU = wideFactors(kNarrowBlueFromU, 0);
    const __m512i greenFromScaled = wideFactors(kGreenFromScaledU, kGreenFromScaledV);
    const __m512i greenFromU = wideFactors(kGreenFromUnscaledU, 0);
    const __m512i redBias = _mm512_set1_epi32(kNarrowRedBias), blueBias = _mm512_set1_epi32(kNarrowBlueBias);
    const __m512i greenBias = _mm512_set1_epi32(kWideRoundingHalf - (kWideGreenFromU + kWideGreenFromV) * kChromaZero);
    const __m512i lumaGain = _mm512_set1_epi32(kWideLumaGain);
    // The six 32-bit sums of a block: red, blue and green, even and odd.
    struct Sums {
        __m512i redEven, redOdd, blueEven, blueOdd, greenEven, greenOdd;
    };
    const auto sums = [&](const uint8_t* from) FRAMEHUB_AVX512 {
        const __m512i m = _mm512_loadu_si512(from);
        const __m512i lumas = _mm512_subs_epu8(m, black); // max(0, Y - 16), U and V kept
        const __m512i scaledLumas = _mm512_maddubs_epi16(lumas, lumaScale);
        const __m512i scaledChroma = _mm512_maddubs_epi16(m, chromaScale);
        const __m512i r = _mm512_dpwssd_epi32(redBias, scaledChroma, redFromV);
        const __m512i b = _mm512_dpwssd_epi32(blueBias, scaledChroma, blueFromU);
        const __m512i g = _mm512_dpwssd_epi32(
            _mm512_dpwssd_epi32(greenBias, scaledChroma, greenFromScaled), _mm512_srli_epi16(m, 8), greenFromU);
        // The even sums add, the odd ones multiply-add: fewer operations
        // than either alone without loading the multipliers further.
        const __m512i even = _mm512_madd_epi16(scaledLumas, evenGain);
        const __m512i evenWide = _mm512_mullo_epi32(_mm512_and_si512(lumas, lowByte), lumaGain);
        const __m512i oddWide = _mm512_mullo_epi32(_mm512_srli_epi32(scaledLumas, 18), lumaGain); // 4 Y1 / 4
        return Sums { _mm512_add_epi32(even, r), _mm512_dpwssd_epi32(r, scaledLumas, oddGain),
            _mm512_add_epi32(even, b), _mm512_dpwssd_epi32(b, scaledLumas, oddGain), _mm512_add_epi32(evenWide, g),
            _mm512_add_epi32(oddWide, g) };
    };
    const auto write = [&](uint8_t* to, const Sums& s) FRAMEHUB_AVX512 {
        const __m512i red = _mm512_permutex2var_epi16(s.redEven, highs, s.redOdd);
        const __m512i blue = _mm512_permutex2var_epi16(s.blueEven, highs, s.blueOdd);
        // Two shifts and a pack, one operation more than a word permute and
        // a shift, yet faster: the two-register permutes issue slowly beside
        // the accumulating multiply-adds, the shifts and the pack do not.
        const __m512i green = _mm512_packs_epi32(
            _mm512_srai_epi32(s.greenEven, kWideFractionBits), _mm512_srai_epi32(s.greenOdd, kWideFractionBits));
        const __m512i rg = _mm512_packus_epi16(red, green), bb = _mm512_packus_epi16(blue, blue);
        _mm512_storeu_si512(to, _mm512_permutex2var_epi8(rg, head, bb));
        _mm256_storeu_si256(
            reinterpret_cast<__m256i*>(to + 64), _mm512_castsi512_si256(_mm512_permutex2var_epi8(rg, tail, bb)));
    };
    // A block's 96 bytes cross a cache line in every 64-byte store when the
    // destination sits 16 bytes past a line, as large blocks from the heap
    // do, and in every other one when it sits on a 32-byte boundary: the
    // scalar kernel converts the few pairs that take it there.
    const Size lead = std::min(pairs, pairsToBoundary(dst));
    wideRow<out>(src, dst, lead);
    src += 4 * lead;
    dst += 6 * lead;
    pairs -= lead;
    // One block's sums are computed while the one before is written: the
    // chain from load to store is too long for the out-of-order window to
    // overlap two blocks on its own.
    Size i = 0;
    if (pairs >= 16) {
        Sums ready = sums(src);
        for (i = 16; i + 16 <= pairs; i += 16) {
            const Sums next = sums(src + 4 * i);
            write(dst + 6 * (i - 16), ready);
            ready = next;
        }
        write(dst + 6 * (i - 16), ready);
    }
    wideRow<out>(src + 4 * i, dst + 6 * i, pairs - i);
}

FRAMEHUB_AVX512 inline __m512i bytePair512(int low, int high)
{
    return _mm512_set1_epi16(static_cast<int16_t>((high & 0xFF) << 8 | (low & 0xFF)));
}

FRAMEHUB_AVX512 inline __m512i words512(int32_t value) { return _mm512_set1_epi16(static_cast<int16_t>(value)); }

// The three channels of 32 pixels from their lumas (Y0, Y1 in the byte pairs
// of yy) and chroma (U, V in those of uv), for the packs to clamp.
template <Output out>
FRAMEHUB_AVX512 inline void halfChannels512(__m512i yy, __m512i uv, __m512i& red, __m512i& green, __m512i& blue)
{
    const __m512i sum = _mm512_maddubs_epi16(yy, bytePair512(1, 1)); // Y0 + Y1
    __m512i luma, highV;
    if constexpr (out == OUT_RGB) {
        // h + 16, rounding up below 32 with a masked average.
        const __mmask32 dark = _mm512_cmplt_epu16_mask(sum, words512(2 * kLumaBlack));
        const __m512i half = _mm512_mask_avg_epu16(_mm512_srli_epi16(sum, 1), dark, sum, _mm512_setzero_si512());
        luma = _mm512_mullo_epi16(half, opaque(words512(kHalfLumaGain)));
        highV = _mm512_and_si512(uv, words512(0xFF00));
    } else {
        luma = _mm512_mulhi_epu16(_mm512_slli_epi16(sum, kHalfBits), words512(kHalfBgrLumaGain));
        // Bit 0 beside 256 V adds 0.8 to 204.5 V: half a unit back exactly
        // where both halves were odd.
        highV = _mm512_ternarylogic_epi32(uv, _mm512_and_si512(sum, words512(1)), words512(0xFF00), 0xEC);
    }
    const __m512i r = _mm512_adds_epu16(luma, _mm512_mulhi_epu16(highV, words512(kHalfRedGain)));
    red = _mm512_srli_epi16(_mm512_subs_epu16(r, words512(kHalfRedZero)), kHalfBits);
    const __m512i a = _mm512_avg_epu16(luma, words512(2 * kHalfAverageBias - 1));
    const __m512i g = _mm512_maddubs_epi16(uv, bytePair512(-kHalfGreenFromU, -kHalfGreenFromV));
    green = _mm512_srai_epi16(_mm512_add_epi16(a, g), kHalfNarrowBits);
    const __m512i b
        = _mm512_maddubs_epi16(bytePair512(kHalfBlueFromU, 0), _mm512_xor_si512(uv, words512(0x8080))); // 129 (U - 128)
    blue = _mm512_srai_epi16(_mm512_sub_epi16(_mm512_adds_epi16(a, b), words512(kHalfGreenZero)), kHalfNarrowBits);
}

// Byte i of the pick: the luma (first 0) or chroma (first 1) byte pairs of
// 32 macro-pixels in two registers.
struct PairPick {
    int8_t b[64];
};

constexpr PairPick pairsIndex(int first)
{
    PairPick m {};
    for (int p = 0; p < 32; ++p) {
        m.b[2 * p] = static_cast<int8_t>(4 * p + first);
        m.b[2 * p + 1] = static_cast<int8_t>(4 * p + first + 2);
    }
    return m;
}

FRAMEHUB_AVX512 inline void halfPairsAvx512(const uint8_t* src, __m512i& yy, __m512i& uv)
{
    static constexpr PairPick lumas = pairsIndex(0), chroma = pairsIndex(1);
    const __m512i a = _mm512_loadu_si512(src), b = _mm512_loadu_si512(src + 64);
    yy = _mm512_permutex2var_epi8(a, _mm512_loadu_si512(lumas.b), b);
    uv = _mm512_permutex2var_epi8(a, _mm512_loadu_si512(chroma.b), b);
}

// A whole destination plane at a width ratio of 2: rows of 32-pixel blocks
// in one pipeline, so that it does not drain and refill at every row (a
// 320-pixel row has only ten blocks). The pairs are gathered two blocks
// ahead, across the end of a row too, and the source row read next is
// fetched into the cache as this one is converted, as in AVX2. The last
// width % 32 pixels of the rows go to the scalar kernel afterwards: a call
// inside the loop would spill the registers the pipeline keeps.
template <Output out>
FRAMEHUB_AVX512 void halfPlaneAvx512(
    const uint8_t* src, Size srcStride, uint8_t* dst, Size dstStride, Size width, Size rows)
{
    static constexpr WideLayout layout = wideLayout(out == OUT_BGR);
    const __m512i head = _mm512_loadu_si512(layout.b), tail = _mm512_loadu_si512(layout.b + 64);
    const Size perRow = width / 32, blocks = perRow * rows;
    const uint8_t* gatherRow = src;
    Size gatherBlock = 0;
    const auto gather = [&](__m512i& yy, __m512i& uv) FRAMEHUB_AVX512 {
        if (gatherBlock == perRow) {
            gatherBlock = 0;
            gatherRow += srcStride;
        }
        halfPairsAvx512(gatherRow + 128 * gatherBlock++, yy, uv);
    };
    __m512i yy = _mm512_setzero_si512(), uv = yy, nextYy = yy, nextUv = yy;
    if (blocks > 0)
        gather(yy, uv);
    if (blocks > 1)
        gather(nextYy, nextUv);
    const uint8_t* ahead = rows > 1 ? src + srcStride : nullptr; // the row after the one converted
    uint8_t* to = dst;
    Size j = 0, block = 0;
    for (Size b = 0; b < blocks; ++b) {
        if (ahead) {
            _mm_prefetch(reinterpret_cast<const char*>(ahead + 128 * block), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(ahead + 128 * block + 64), _MM_HINT_T0);
        }
        const __m512i blockYy = yy, blockUv = uv;
        yy = nextYy;
        uv = nextUv;
        if (b + 2 < blocks)
            gather(nextYy, nextUv);
        __m512i red, green, blue;
        halfChannels512<out>(blockYy, blockUv, red, green, blue);
        const __m512i rg = _mm512_packus_epi16(red, green), bb = _mm512_packus_epi16(blue, blue);
        _mm512_storeu_si512(to + 96 * block, _mm512_permutex2var_epi8(rg, head, bb));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + 96 * block + 64),
            _mm512_castsi512_si256(_mm512_permutex2var_epi8(rg, tail, bb)));
        if (++block == perRow) {
            block = 0;
            ahead = j + 2 < rows ? ahead + srcStride : nullptr;
            to += dstStride;
            ++j;
        }
    }
    if (width % 32 != 0)
        for (Size row = 0; row < rows; ++row)
            downscaleRow<out>(src + row * srcStride + 128 * perRow, dst + row * dstStride + 96 * perRow, width % 32, 4);
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#endif

// Rows 0, r, 2r... and every r-th pixel position (2r bytes) within them.
// A ratio of 0 makes the row empty.
template <Output out> void downscalePlane(ImageBuffer& source, ImageBuffer& destination)
{
    const Size W = source.getResolution().width;
    const Resolution size = destination.getResolution();
    const Size r = W / size.width;
    const uint8_t* src = source.getData();
    uint8_t* dst = destination.getData();
    const Size rowBytes = bytesPerPixel(out) * size.width;
    const Size pixels = r == 0 ? 0 : size.width;
#ifdef FRAMEHUB_VECTOR
    if constexpr (bytesPerPixel(out) == 3)
        if (r == 2 && simd::avx512Enabled()) {
            halfPlaneAvx512<out>(src, 4 * W, dst, rowBytes, size.width, size.height);
            return;
        }
#endif
    const auto row = FRAMEHUB_FASTEST(&downscaleRowAvx2<out>, &downscaleRow<out>);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * W * r, dst + j * rowBytes, pixels, 2 * r,
            j + 1 < size.height ? src + (j + 1) * 2 * W * r : nullptr);
}

// Source rows follow one another; a narrower destination is a crop.
template <Output out> void fullScalePlane(ImageBuffer& source, ImageBuffer& destination)
{
    const Size W = source.getResolution().width;
    const Resolution size = destination.getResolution();
    const Size pairs = (size.width + 1) / 2;
    const uint8_t* src = source.getData();
    uint8_t* dst = destination.getData();
    const auto row = FRAMEHUB_FASTEST(&planeRowAvx2<out>, &planeRow<out>);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * W, dst + j * 2 * pairs, pairs);
}

// Writes into the destination only when both have the same size; otherwise
// the library allocates a result of its own, which is dropped.
void libraryConvert(ImageBuffer& source, ImageBuffer& destination, int code)
{
    const Resolution in = source.getResolution();
    const Resolution out = destination.getResolution();
    cv::Mat from(static_cast<int>(in.height), static_cast<int>(in.width), CV_8UC2, source.getData());
    cv::Mat to(static_cast<int>(out.height), static_cast<int>(out.width), CV_8UC3, destination.getData());
    cv::cvtColor(from, to, code, 0);
}

// The library's bytes, as the library writes them: only into a destination
// of the source's size, which both images, packed, walk as one run. Without
// the vector paths the library's own vector code is the faster one.
template <Output out> void wideConvert(ImageBuffer& source, ImageBuffer& destination, int code)
{
    if (!simd::supported()) {
        libraryConvert(source, destination, code);
        return;
    }
    const Resolution in = source.getResolution();
    if (in != destination.getResolution())
        return;
    const auto row = FRAMEHUB_FASTEST3(&wideRowAvx512<out>, &wideRowAvx2<out>, &wideRow<out>);
    row(source.getData(), destination.getData(), in.width * in.height / 2);
}

inline bool isFullScale(ImageBuffer& source, ImageBuffer& destination)
{
    return source.getResolution().width / destination.getResolution().width == 1;
}

} // namespace

bool Camera2D::convertYUV422toRGBnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    wideConvert<OUT_RGB>(*source, *destination, cv::COLOR_YUV2RGB_YUY2);
    return true;
}

bool Camera2D::convertYUV422toBGRnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    wideConvert<OUT_BGR>(*source, *destination, cv::COLOR_YUV2BGR_YUY2);
    return true;
}

bool Camera2D::convertYUV422toRgbnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    fullScalePlane<OUT_R>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422torGbnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    fullScalePlane<OUT_G>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422torgBnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    fullScalePlane<OUT_B>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toRGB888(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    if (isFullScale(*source, *destination))
        return convertYUV422toRGBnoScale(source, destination);
    downscalePlane<OUT_RGB>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toBGR888(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    if (isFullScale(*source, *destination))
        return convertYUV422toBGRnoScale(source, destination);
    downscalePlane<OUT_BGR>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toR8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    if (isFullScale(*source, *destination))
        return convertYUV422toRgbnoScale(source, destination);
    downscalePlane<OUT_R>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toG8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    if (isFullScale(*source, *destination))
        return convertYUV422torGbnoScale(source, destination);
    downscalePlane<OUT_G>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toB8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    if (isFullScale(*source, *destination))
        return convertYUV422torgBnoScale(source, destination);
    downscalePlane<OUT_B>(*source, *destination);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
