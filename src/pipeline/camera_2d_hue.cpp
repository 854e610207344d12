// Hue and saturation straight from the chroma bytes, in integers: a hue on
// a 256-step wheel (0 red, 85 green, 171 blue) shared by the two pixels of a
// macro-pixel, and a saturation for each pixel from its own luma.
#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"
#include "pipeline/fixed_point.h"

#include <cstdint>

namespace Kelmo {
namespace FrameHub {

namespace {

using namespace fixed;

typedef uint64_t Size;

// What the chroma of one macro-pixel decides. The saturation of a pixel is
// numerator / (298 Y + denominatorBase), except for grey (no division).
struct Chroma {
    int32_t hue;
    int32_t numerator;
    int32_t denominatorBase;
    bool grey;
};

// Differences of primaries in fixed point (8 fractional bits); the green
// coefficients are exchanged against the RGB targets on purpose: that is
// this hue. a + b == c.
inline Chroma classify(int32_t u, int32_t v)
{
    const int32_t a = kRedGreenFromU * u + kRedGreenFromV * v + kRedGreenBias;
    const int32_t b = kGreenBlueFromU * u + kGreenBlueFromV * v + kGreenBlueBias;
    const int32_t c = kRedBlueFromU * u + kRedBlueFromV * v + kRedBlueBias;
    // Primaries plus one, less the luma term: never 0 where they are used.
    const int32_t red = kRedFromV * v + kRedDenominatorBias;
    const int32_t green = kHueGreenFromU * u + kHueGreenFromV * v + kGreenDenominatorBias;
    const int32_t blue = kBlueFromU * u + kBlueDenominatorBias;
    const int32_t H = kHueSextant, S = kSaturationScale;

    // The -1 of the sextant below red keeps 0 for the one above it.
    if (a > 0 && b > 0)
        return Chroma { H * b / (2 * c), S * c, red, false };
    if (a > 0 && c > 0)
        return Chroma { H * b / (2 * a) - 1, S * a, red, false };
    if (a > 0)
        return Chroma { H * a / (-2 * b) - H, -S * b, blue, false };
    if (b < 0)
        return Chroma { H * a / (-2 * c) - H, -S * c, blue, false };
    if (c > 0)
        return Chroma { -H * c / (2 * b) + H, S * b, green, false };
    if (a < 0)
        return Chroma { H * c / (2 * a) + H, -S * a, green, false };
    return Chroma { 0, 0, 0, true }; // U and V both 128
}

inline uint8_t saturation(const Chroma& chroma, int32_t y)
{
    if (chroma.grey)
        return 0;
    const int32_t s = chroma.numerator / (kLumaGain * y + chroma.denominatorBase);
    return static_cast<uint8_t>(s <= 0 ? 0 : s > 255 ? 255 : s);
}

// Full saturation and value for a hue byte, written blue, green, red.
inline void wheel(uint8_t h, uint8_t* out)
{
    const int32_t x = h;
    uint8_t c0, c1, c2;
    if (h <= 42) {
        c0 = 0, c1 = static_cast<uint8_t>(kWheelSlope * x), c2 = 255;
    } else if (h <= 84) {
        c0 = 0, c1 = 255, c2 = static_cast<uint8_t>(1 - kWheelSlope * x);
    } else if (h <= 126) {
        c0 = static_cast<uint8_t>(kWheelSlope * x + 2), c1 = 255, c2 = 0;
    } else if (h <= 168) {
        c0 = 255, c1 = static_cast<uint8_t>(-kWheelSlope * x - 7), c2 = 0;
    } else if (h <= 210) {
        c0 = 255, c1 = 0, c2 = static_cast<uint8_t>(kWheelSlope * x + 10);
    } else if (h <= 253) {
        c0 = static_cast<uint8_t>(-kWheelSlope * x - 15), c1 = 0, c2 = 255;
    } else {
        c0 = 0, c1 = 0, c2 = 255;
    }
    out[0] = c0;
    out[1] = c1;
    out[2] = c2;
}

enum Output { OUT_H, OUT_S, OUT_HSY, OUT_HSMIXED, OUT_H2RGB };

constexpr Size bytesPerPixel(Output out) { return out == OUT_H || out == OUT_S ? 1 : 3; }

// One macro-pixel every step bytes gives two destination pixels.
template <Output out> void hueRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    for (Size i = 0; i < pairs; ++i) {
        const uint8_t* m = src + step * i;
        const Chroma chroma = classify(m[1], m[3]);
        const uint8_t h = static_cast<uint8_t>(chroma.hue);
        uint8_t* p = dst + 2 * bytesPerPixel(out) * i;
        if (out == OUT_H) {
            p[0] = h;
            p[1] = h;
        } else if (out == OUT_S) {
            p[0] = saturation(chroma, m[0]);
            p[1] = saturation(chroma, m[2]);
        } else if (out == OUT_HSY) {
            p[0] = h;
            p[1] = saturation(chroma, m[0]);
            p[2] = m[0];
            p[3] = h;
            p[4] = saturation(chroma, m[2]);
            p[5] = m[2];
        } else if (out == OUT_HSMIXED) {
            // The third byte is the hue again, not the luma.
            p[0] = h;
            p[1] = saturation(chroma, m[0]);
            p[2] = h;
            p[3] = h;
            p[4] = saturation(chroma, m[2]);
            p[5] = h;
        } else {
            wheel(h, p);
            p[3] = p[0];
            p[4] = p[1];
            p[5] = p[2];
        }
    }
}

#ifdef FRAMEHUB_VECTOR
using namespace simd;

// The quotient of non-negative numerators by their denominators, still to
// be clamped to 0..255: then it is the saturation, 0 where the denominator
// is not positive (the quotient is 0 or less there, or INT_MIN for a
// denominator of 0, which the correction leaves alone). The reciprocal
// estimate is off by at most 1.5 2^-12 relative; the numerator comes scaled
// up by 2^-10, so that the estimate is never below the quotient and, below
// 255, at most one above it, which one product corrects. Above 255 it stays
// above, which is all the clamp needs.
FRAMEHUB_AVX2 inline __m256i saturationAvx2(__m256i num, __m256 scaledNumF, __m256i den)
{
    const __m256i q0 = _mm256_cvttps_epi32(_mm256_mul_ps(scaledNumF, _mm256_rcp_ps(_mm256_cvtepi32_ps(den))));
    return _mm256_add_epi32(q0, _mm256_cmpgt_epi32(_mm256_mullo_epi32(q0, den), num));
}

// b where the 32-bit mask is set, else a: the mask's sign bits are enough,
// which saves the compiler widening them to bytes.
FRAMEHUB_AVX2 inline __m256i select(__m256i a, __m256i b, __m256i mask)
{
    return _mm256_castps_si256(
        _mm256_blendv_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _mm256_castsi256_ps(mask)));
}

// The case table for eight macro-pixels at once, on the largest and
// smallest primaries. The saturation's denominator base (primary + 1, less
// the luma term) is that of the largest primary, the case's; the largest
// less the smallest is Y, the largest of |a|, |b|, |c|, and its numerator
// is 255 Y. Ties go green, then blue, then red, as in the table. Within the
// case the hue quotient is 85 X / 2 Y, X the difference of the two other
// primaries. The hue byte is the low byte of its word, the saturations
// still want clamping (saturationAvx2): each store does both the way that
// costs it least.
template <bool wantHue, bool wantSaturation>
FRAMEHUB_AVX2 inline void classifyAvx2(__m256i m, __m256i& hue, __m256i& s0, __m256i& s1)
{
    const __m256i uv = _mm256_srli_epi16(m, 8);
    const __m256i red
        = _mm256_add_epi32(_mm256_madd_epi16(uv, factors(0, kRedFromV)), _mm256_set1_epi32(kRedDenominatorBias));
    const __m256i green = _mm256_add_epi32(
        _mm256_madd_epi16(uv, factors(kHueGreenFromU, kHueGreenFromV)), _mm256_set1_epi32(kGreenDenominatorBias));
    const __m256i blue
        = _mm256_add_epi32(_mm256_madd_epi16(uv, factors(kBlueFromU, 0)), _mm256_set1_epi32(kBlueDenominatorBias));
    const __m256i top = _mm256_max_epi32(red, _mm256_max_epi32(green, blue));
    const __m256i y = _mm256_sub_epi32(top, _mm256_min_epi32(red, _mm256_min_epi32(green, blue)));
    const __m256 yF = _mm256_cvtepi32_ps(y);

    if constexpr (wantHue) {
        const __m256i greenTop = _mm256_cmpeq_epi32(green, top), blueTop = _mm256_cmpeq_epi32(blue, top);
        // X with the sign of its case's quotient: b (G - B) for red, a
        // (R - G) for blue, -c (B - R) for green, so that the float
        // quotient truncates toward zero as the table's division does and
        // only the case's offset is left to add.
        const __m256i xRed = _mm256_sub_epi32(green, blue);
        const __m256i x
            = select(select(xRed, _mm256_sub_epi32(red, green), blueTop), _mm256_sub_epi32(blue, red), greenTop);
        // Exact: 85 X / 2 Y is 42.5 X / Y, |85 X| and Y are below 2^24 and
        // the quotient below 43. Grey divides 0 by 0: the quotient comes
        // out INT_MIN, whose low byte is the 0 grey wants once its offset
        // is cleared.
        const __m256 n = _mm256_mul_ps(_mm256_cvtepi32_ps(x), _mm256_set1_ps(kHueSextant / 2.0f));
        const __m256i q = _mm256_cvttps_epi32(_mm256_div_ps(n, yF));
        const __m256i redOffset = _mm256_cmpgt_epi32(_mm256_set1_epi32(1), xRed); // case 2: -1
        const __m256i offset = select(
            select(redOffset, _mm256_set1_epi32(-kHueSextant), blueTop), _mm256_set1_epi32(kHueSextant), greenTop);
        hue = _mm256_add_epi32(q, _mm256_andnot_si256(_mm256_cmpeq_epi32(y, _mm256_setzero_si256()), offset));
    }
    if constexpr (wantSaturation) {
        const __m256i yy = _mm256_and_si256(m, _mm256_set1_epi32(0x00FF00FF));
        static_assert(kSaturationScale == 255, "the numerator is 256 y - y");
        const __m256i num = _mm256_sub_epi32(_mm256_slli_epi32(y, 8), y);
        const __m256 numF = _mm256_mul_ps(yF, _mm256_set1_ps(kSaturationScale * (1.0f + 1.0f / 1024)));
        s0 = saturationAvx2(num, numF, _mm256_add_epi32(_mm256_madd_epi16(yy, factors(kLumaGain, 0)), top));
        s1 = saturationAvx2(num, numF, _mm256_add_epi32(_mm256_madd_epi16(yy, factors(0, kLumaGain)), top));
    }
}

// A byte per sextant of the wheel, the same in both lanes.
constexpr ByteMask sextantTable(const int (&bytes)[7])
{
    ByteMask m {};
    for (int i = 0; i < 32; ++i)
        m.b[i] = static_cast<int8_t>(i % 16 < 7 ? bytes[i % 16] : 0);
    return m;
}

// Each channel of the wheel is slope h + bias within a sextant, modulo 256
// as the table's byte casts are: slope 6, -6 or 0 and the bias come from
// byte tables indexed by the sextant (the high bytes look up entry 0, which
// only reaches the high byte of the result).
template <int channel> FRAMEHUB_AVX2 inline __m256i wheelChannel(__m256i h, __m256i sextant)
{
    constexpr int k = kWheelSlope;
    static constexpr int slopes[3][7] = {
        { 0, 0, k, 0, 0, -k, 0 },
        { k, 0, 0, -k, 0, 0, 0 },
        { 0, -k, 0, 0, k, 0, 0 },
    };
    static constexpr int biases[3][7] = {
        { 0, 0, 2, 255, 255, -15, 0 },
        { 0, 255, 255, -7, 0, 0, 0 },
        { 255, 1, 0, 0, 10, 255, 255 },
    };
    static constexpr ByteMask slope = sextantTable(slopes[channel]), bias = sextantTable(biases[channel]);
    return _mm256_add_epi16(_mm256_mullo_epi16(h, _mm256_shuffle_epi8(loadMask(slope), sextant)),
        _mm256_shuffle_epi8(loadMask(bias), sextant));
}

// (h - 1) / 42 as a high product, exact for h below 253.
constexpr int16_t kSextantReciprocal = (65536 + 41) / 42;

// The wheel for the hues of two blocks at once in 16-bit lanes. The
// sextant is (h - 1) / 42 by a product, but for 0 and for 253, the one
// sextant of 43 steps. The words of the two blocks come back as
// C0 | C1 << 8 | C2 << 16.
FRAMEHUB_AVX2 inline void wheelAvx2(__m256i hueA, __m256i hueB, __m256i& wordsA, __m256i& wordsB)
{
    const __m256i h = _mm256_packus_epi32(hueA, hueB); // lanes: A0-3 B0-3 | A4-7 B4-7
    const __m256i sextant = _mm256_add_epi16(
        _mm256_mulhi_epu16(_mm256_subs_epu16(h, _mm256_set1_epi16(1)), _mm256_set1_epi16(kSextantReciprocal)),
        _mm256_cmpeq_epi16(h, _mm256_set1_epi16(253)));
    const __m256i low = _mm256_set1_epi16(0xFF);
    const __m256i c01 = _mm256_or_si256(
        _mm256_and_si256(wheelChannel<0>(h, sextant), low), _mm256_slli_epi16(wheelChannel<1>(h, sextant), 8));
    const __m256i c2 = _mm256_and_si256(wheelChannel<2>(h, sextant), low);
    wordsA = _mm256_unpacklo_epi16(c01, c2);
    wordsB = _mm256_unpackhi_epi16(c01, c2);
}

// Shuffles laying out six bytes a macro-pixel, 24 a lane: the head takes
// output bytes 0-15, the tail 16-23. Pattern entries 0-2 pick bytes of the
// computed word, 4-7 bytes of the source word.
// Computed bytes come from words (byte e of word k) or, packed, as four
// S0, four S1 and four H a lane (byte k, 4 + k or 8 + k).
constexpr ByteMask sixBytesMask(const int (&pattern)[6], bool fromSource, bool tail, bool packed)
{
    ByteMask mask {};
    for (int i = 0; i < 32; ++i)
        mask.b[i] = -1;
    for (int lane = 0; lane < 2; ++lane)
        for (int o = tail ? 16 : 0; o < (tail ? 24 : 16); ++o) {
            const int e = pattern[o % 6];
            if ((e >= 4) == fromSource)
                mask.b[16 * lane + o - (tail ? 16 : 0)]
                    = static_cast<int8_t>(packed && e < 4 ? (e == 0 ? 8 : 4 * (e - 1)) + o / 6 : 4 * (o / 6) + e % 4);
        }
    return mask;
}

template <Output out> struct Layout;
template <> struct Layout<OUT_HSY> {
    static constexpr int pattern[6] = { 0, 1, 4, 0, 2, 6 }; // H S0 Y0 H S1 Y1
};
template <> struct Layout<OUT_HSMIXED> {
    static constexpr int pattern[6] = { 0, 1, 0, 0, 2, 0 }; // H S0 H H S1 H
};
template <> struct Layout<OUT_H2RGB> {
    static constexpr int pattern[6] = { 0, 1, 2, 0, 1, 2 }; // C0 C1 C2 twice
};

template <Output out> FRAMEHUB_AVX2 inline void storeSixBytes(uint8_t* dst, __m256i computed, __m256i source)
{
    constexpr bool packed = out != OUT_H2RGB;
    static constexpr ByteMask head = sixBytesMask(Layout<out>::pattern, false, false, packed),
                              tail = sixBytesMask(Layout<out>::pattern, false, true, packed),
                              headSource = sixBytesMask(Layout<out>::pattern, true, false, packed),
                              tailSource = sixBytesMask(Layout<out>::pattern, true, true, packed);
    __m256i h = _mm256_shuffle_epi8(computed, loadMask(head));
    __m256i t = _mm256_shuffle_epi8(computed, loadMask(tail));
    if constexpr (out == OUT_HSY) {
        h = _mm256_or_si256(h, _mm256_shuffle_epi8(source, loadMask(headSource)));
        t = _mm256_or_si256(t, _mm256_shuffle_epi8(source, loadMask(tailSource)));
    }
    storeTwentyFourPerLane(dst, h, t);
}

// The low 8 bytes of each lane, lane 0 first.
FRAMEHUB_AVX2 inline void storeSixteen(uint8_t* dst, __m256i bytes)
{
    const __m256i packed = _mm256_permute4x64_epi64(bytes, _MM_SHUFFLE(3, 1, 2, 0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(packed));
}

// The low byte of each hue word, twice.
FRAMEHUB_AVX2 inline void storeHues(uint8_t* dst, __m256i hue)
{
    const int8_t Z = -1;
    const __m256i twice = _mm256_setr_epi8(
        0, 0, 4, 4, 8, 8, 12, 12, Z, Z, Z, Z, Z, Z, Z, Z, 0, 0, 4, 4, 8, 8, 12, 12, Z, Z, Z, Z, Z, Z, Z, Z);
    storeSixteen(dst, _mm256_shuffle_epi8(hue, twice));
}

// S0 and S1 of each macro-pixel; the saturating packs do the clamp.
FRAMEHUB_AVX2 inline void storeSaturations(uint8_t* dst, __m256i s0, __m256i s1)
{
    const __m256i interleave = _mm256_setr_epi8(
        0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15, 0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
    const __m256i words = _mm256_packs_epi32(s0, s1); // S0 0-3, S1 0-3 a lane
    storeSixteen(dst, _mm256_shuffle_epi8(_mm256_packus_epi16(words, words), interleave));
}

template <Output out, Fetch fetch>
FRAMEHUB_AVX2 Size hueBlocks(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    constexpr bool wantHue = out != OUT_S;
    constexpr bool wantSaturation = out != OUT_H && out != OUT_H2RGB;
    constexpr Size outStep = 2 * bytesPerPixel(out);
    const __m256i offsets = gatherOffsets(step);
    Size i = 0;
    if constexpr (out == OUT_H2RGB) {
        // Blocks in twos, so that the wheel runs on full 16-bit lanes.
        __m256i unused;
        for (; i + 8 <= pairs; i += 16) {
            const bool both = i + 16 <= pairs;
            const __m256i m = fetchWords<fetch>(src + step * i, offsets);
            const __m256i n = both ? fetchWords<fetch>(src + step * (i + 8), offsets) : m;
            __m256i h, g, wordsA, wordsB;
            classifyAvx2<true, false>(m, h, unused, unused);
            classifyAvx2<true, false>(n, g, unused, unused);
            const __m256i low = _mm256_set1_epi32(0xFF);
            wheelAvx2(_mm256_and_si256(h, low), _mm256_and_si256(g, low), wordsA, wordsB);
            storeSixBytes<out>(dst + outStep * i, wordsA, m);
            if (!both)
                return i + 8;
            storeSixBytes<out>(dst + outStep * (i + 8), wordsB, n);
        }
        return i;
    }
    for (; i + 8 <= pairs; i += 8) {
        const __m256i m = fetchWords<fetch>(src + step * i, offsets);
        __m256i h, s0, s1;
        classifyAvx2<wantHue, wantSaturation>(m, h, s0, s1);
        uint8_t* p = dst + outStep * i;
        if constexpr (out == OUT_H)
            storeHues(p, h);
        else if constexpr (out == OUT_S)
            storeSaturations(p, s0, s1);
        else
            // The saturating packs clamp S0 and S1; H is its low byte.
            storeSixBytes<out>(p,
                _mm256_packus_epi16(_mm256_packs_epi32(s0, s1),
                    _mm256_packs_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0xFF)), _mm256_setzero_si256())),
                m);
    }
    return i;
}

template <Output out>
FRAMEHUB_AVX2 void hueRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    const Size i = step == 4    ? hueBlocks<out, FETCH_ADJACENT>(src, dst, pairs, step)
        : step == 8             ? hueBlocks<out, FETCH_EVERY_OTHER>(src, dst, pairs, step)
        : step <= maxGatherStep ? hueBlocks<out, FETCH_GATHER>(src, dst, pairs, step)
                                : 0;
    hueRow<out>(src + step * i, dst + 2 * bytesPerPixel(out) * i, pairs - i, step);
}

// classifyAvx2 with the primaries as dot products (the bias as
// accumulator), masks for the selections and a 14-bit reciprocal.
struct ClassifierAvx512 {
    __m256i redBias, greenBias, blueBias, redFactors, greenFactors, blueFactors, one, belowBlue, belowGreen, lumas,
        luma0, luma1, scale;
    __m256 halfSextant, scaleF;

    FRAMEHUB_AVX512 ClassifierAvx512()
        : redBias(opaque(_mm256_set1_epi32(kRedDenominatorBias)))
        , greenBias(opaque(_mm256_set1_epi32(kGreenDenominatorBias)))
        , blueBias(opaque(_mm256_set1_epi32(kBlueDenominatorBias)))
        , redFactors(opaque(factors(0, kRedFromV)))
        , greenFactors(opaque(factors(kHueGreenFromU, kHueGreenFromV)))
        , blueFactors(opaque(factors(kBlueFromU, 0)))
        , one(opaque(_mm256_set1_epi32(1)))
        , belowBlue(opaque(_mm256_set1_epi32(-kHueSextant)))
        , belowGreen(opaque(_mm256_set1_epi32(kHueSextant)))
        , lumas(opaque(_mm256_set1_epi32(0x00FF00FF)))
        , luma0(opaque(factors(kLumaGain, 0)))
        , luma1(opaque(factors(0, kLumaGain)))
        , scale(opaque(_mm256_set1_epi32(kSaturationScale)))
        , halfSextant(opaque(_mm256_set1_ps(kHueSextant / 2.0f)))
        // The numerator scaled up as in saturationAvx2.
        , scaleF(opaque(_mm256_set1_ps(kSaturationScale * (1.0f + 1.0f / 1024))))
    {
    }

    // The 14-bit estimate is well within the bound saturationAvx2 needs.
    FRAMEHUB_AVX512 static __m256i saturation(__m256i num, __m256 scaledNumF, __m256i den)
    {
        const __m256i q0 = _mm256_cvttps_epi32(_mm256_mul_ps(scaledNumF, _mm256_rcp14_ps(_mm256_cvtepi32_ps(den))));
        return _mm256_add_epi32(q0, _mm256_cmpgt_epi32(_mm256_mullo_epi32(q0, den), num));
    }

    template <bool wantHue, bool wantSaturation>
    FRAMEHUB_AVX512 void operator()(__m256i m, __m256i& hue, __m256i& s0, __m256i& s1) const
    {
        const __m256i uv = _mm256_srli_epi16(m, 8);
        const __m256i red = _mm256_dpwssd_epi32(redBias, uv, redFactors);
        const __m256i green = _mm256_dpwssd_epi32(greenBias, uv, greenFactors);
        const __m256i blue = _mm256_dpwssd_epi32(blueBias, uv, blueFactors);
        const __m256i top = _mm256_max_epi32(red, _mm256_max_epi32(green, blue));
        const __m256i y = _mm256_sub_epi32(top, _mm256_min_epi32(red, _mm256_min_epi32(green, blue)));
        const __m256 yF = _mm256_cvtepi32_ps(y);

        if constexpr (wantHue) {
            const __mmask8 greenTop = _mm256_cmpeq_epi32_mask(green, top), blueTop = _mm256_cmpeq_epi32_mask(blue, top);
            const __m256i xRed = _mm256_sub_epi32(green, blue);
            const __m256i x
                = _mm256_mask_sub_epi32(_mm256_mask_sub_epi32(xRed, blueTop, red, green), greenTop, blue, red);
            const __m256i q = _mm256_cvttps_epi32(_mm256_div_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(x), halfSextant), yF));
            const __m256i redOffset = _mm256_cmpgt_epi32(one, xRed); // case 2: -1
            const __m256i offset
                = _mm256_mask_blend_epi32(greenTop, _mm256_mask_blend_epi32(blueTop, redOffset, belowBlue), belowGreen);
            hue = _mm256_mask_add_epi32(q, _mm256_test_epi32_mask(y, y), q, offset);
        }
        if constexpr (wantSaturation) {
            const __m256i yy = _mm256_and_si256(m, lumas);
            const __m256i num = _mm256_mullo_epi32(y, scale);
            const __m256 numF = _mm256_mul_ps(yF, scaleF);
            s0 = saturation(num, numF, _mm256_dpwssd_epi32(top, yy, luma0));
            s1 = saturation(num, numF, _mm256_dpwssd_epi32(top, yy, luma1));
        }
    }
};

// Byte permutes for the AVX-512 stores. Their tables index two registers
// at once (0-31 the first, 32-63 the second).
struct Permute {
    ByteMask index;
    uint32_t mask; // bytes taken from the third register, where there is one
};

// Byte of S0 (e = 1) or S1 (e = 2) of macro-pixel i once packed.
constexpr int packedSaturation(int e, int i) { return 16 * (i / 4) + 4 * (e - 1) + i % 4; }

// Where byte o of a block's output comes from. HSMixed: the hue words (low
// bytes), then the saturations packed four S0, four S1 a lane. HSY: those
// saturations with four hues after them a lane, then the source words
// (pattern entries 4-7). H2RGB: the low bytes of the C0 and C1 words of 16
// hues, then those of C2.
template <Output out> constexpr int sixBytesSource(int o)
{
    const int i = o / 6;
    if (out == OUT_H2RGB) {
        const int channel = o % 3;
        return channel == 0 ? 2 * i : channel == 1 ? 32 + 2 * i : 64 + 2 * i;
    }
    const int e = Layout<out>::pattern[o % 6];
    if (out == OUT_HSY)
        return e >= 4 ? 32 + 4 * i + e - 4 : e == 0 ? 16 * (i / 4) + 8 + i % 4 : packedSaturation(e, i);
    return e == 0 ? 4 * i : 32 + packedSaturation(e, i);
}

template <Output out> constexpr Permute sixBytesPermute(int part)
{
    Permute p {};
    for (int t = 0; t < 32; ++t) {
        const int o = 32 * part + t;
        const int from = o < (out == OUT_H2RGB ? 96 : 48) ? sixBytesSource<out>(o) : 0;
        p.index.b[t] = static_cast<int8_t>(from % 64);
        if (from >= 64)
            p.mask |= 1u << t;
    }
    return p;
}

template <Output out, int part> FRAMEHUB_AVX512 inline __m256i sixBytesAvx512(__m256i a, __m256i b, __m256i c)
{
    static constexpr Permute p = sixBytesPermute<out>(part);
    const __m256i index = loadMask(p.index);
    const __m256i ab = _mm256_permutex2var_epi8(a, index, b);
    return p.mask ? _mm256_mask_permutexvar_epi8(ab, p.mask, index, c) : ab;
}

// Eight macro-pixels: 48 bytes.
template <Output out> FRAMEHUB_AVX512 inline void storeSixBytesAvx512(uint8_t* dst, __m256i a, __m256i b, __m256i c)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), sixBytesAvx512<out, 0>(a, b, c));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 32), _mm256_castsi256_si128(sixBytesAvx512<out, 1>(a, b, c)));
}

// Byte 0 of each hue word twice, or S0 and S1 of each macro-pixel.
constexpr ByteMask twoBytesAMacroPixel(bool saturations)
{
    ByteMask m {};
    for (int t = 0; t < 32; ++t)
        m.b[t] = static_cast<int8_t>(saturations ? packedSaturation(1 + t % 2, t / 2 % 8) : 4 * (t / 2) % 64);
    return m;
}

// wheelAvx2's sextants and lookups on 16 hues, the channels kept apart.
struct WheelAvx512 {
    __m256i one, sextantScale, longSextant;

    FRAMEHUB_AVX512 WheelAvx512()
        : one(opaque(_mm256_set1_epi16(1)))
        , sextantScale(opaque(_mm256_set1_epi16(kSextantReciprocal)))
        , longSextant(opaque(_mm256_set1_epi16(253)))
    {
    }

    FRAMEHUB_AVX512 void operator()(__m256i h, __m256i& c0, __m256i& c1, __m256i& c2) const
    {
        const __m256i sextant = _mm256_add_epi16(
            _mm256_mulhi_epu16(_mm256_subs_epu16(h, one), sextantScale), _mm256_cmpeq_epi16(h, longSextant));
        c0 = wheelChannel<0>(h, sextant);
        c1 = wheelChannel<1>(h, sextant);
        c2 = wheelChannel<2>(h, sextant);
    }
};

template <Output out, Fetch fetch>
FRAMEHUB_AVX512 Size hueBlocksAvx512(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    constexpr bool wantHue = out != OUT_S;
    constexpr bool wantSaturation = out != OUT_H && out != OUT_H2RGB;
    constexpr Size outStep = 2 * bytesPerPixel(out);
    const __m256i offsets = gatherOffsets(step);
    __m256i unused;
    Size i = 0;
    if constexpr (out == OUT_H2RGB) {
        // Blocks in twos, so that the wheel runs on full 16-bit lanes.
        // Even bytes: byte 0 of the hue words of both blocks.
        static constexpr ByteMask lowBytes = twoBytesAMacroPixel(false);
        const WheelAvx512 wheel;
        const ClassifierAvx512 classify;
        for (; i + 8 <= pairs; i += 16) {
            const bool both = i + 16 <= pairs;
            const __m256i m = fetchWords<fetch>(src + step * i, offsets);
            const __m256i n = both ? fetchWords<fetch>(src + step * (i + 8), offsets) : m;
            __m256i h, g, c0, c1, c2;
            classify.operator()<true, false>(m, h, unused, unused);
            classify.operator()<true, false>(n, g, unused, unused);
            wheel(_mm256_maskz_permutex2var_epi8(0x55555555, h, loadMask(lowBytes), g), c0, c1, c2);
            uint8_t* p = dst + outStep * i;
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), sixBytesAvx512<out, 0>(c0, c1, c2));
            const __m256i middle = sixBytesAvx512<out, 1>(c0, c1, c2);
            if (!both) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 32), _mm256_castsi256_si128(middle));
                return i + 8;
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + 32), middle);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + 64), sixBytesAvx512<out, 2>(c0, c1, c2));
        }
        return i;
    }
    static constexpr ByteMask hues = twoBytesAMacroPixel(false), saturations = twoBytesAMacroPixel(true);
    const ClassifierAvx512 classify;
    for (; i + 8 <= pairs; i += 8) {
        const __m256i m = fetchWords<fetch>(src + step * i, offsets);
        __m256i h, s0, s1;
        classify.operator()<wantHue, wantSaturation>(m, h, s0, s1);
        uint8_t* p = dst + outStep * i;
        // The saturating packs clamp S0 and S1.
        const __m256i s = wantSaturation ? _mm256_packus_epi16(_mm256_packs_epi32(s0, s1), _mm256_setzero_si256())
                                         : _mm256_setzero_si256();
        if constexpr (out == OUT_H)
            _mm_storeu_si128(
                reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(_mm256_permutex2var_epi8(h, loadMask(hues), h)));
        else if constexpr (out == OUT_S)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p),
                _mm256_castsi256_si128(_mm256_permutex2var_epi8(s, loadMask(saturations), s)));
        else if constexpr (out == OUT_HSY)
            // Hues packed beside the saturations leave the source bytes
            // to the same permute.
            storeSixBytesAvx512<out>(p,
                _mm256_packus_epi16(_mm256_packs_epi32(s0, s1),
                    _mm256_packs_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0xFF)), _mm256_setzero_si256())),
                m, m);
        else
            storeSixBytesAvx512<out>(p, h, s, m);
    }
    return i;
}

template <Output out>
FRAMEHUB_AVX512 void hueRowAvx512(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    const Size i = step == 4    ? hueBlocksAvx512<out, FETCH_ADJACENT>(src, dst, pairs, step)
        : step == 8             ? hueBlocksAvx512<out, FETCH_EVERY_OTHER>(src, dst, pairs, step)
        : step <= maxGatherStep ? hueBlocksAvx512<out, FETCH_GATHER>(src, dst, pairs, step)
                                : 0;
    hueRow<out>(src + step * i, dst + 2 * bytesPerPixel(out) * i, pairs - i, step);
}
#endif

// The source row start moves by 2 w r r bytes: r rows when W is r w, and a
// slant otherwise, kept as it is.
template <Output out> void huePlane(ImageBuffer& source, ImageBuffer& destination)
{
    const Resolution size = destination.getResolution();
    if (size.height == 0)
        return;
    const Size w = size.width;
    const Size r = source.getResolution().width / w;
    const Size pairs = (w + 1) / 2;
    const uint8_t* src = source.getData();
    uint8_t* dst = destination.getData();
    const auto row = FRAMEHUB_FASTEST3(&hueRowAvx512<out>, &hueRowAvx2<out>, &hueRow<out>);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * w * r * r, dst + j * bytesPerPixel(out) * w, pairs, 4 * r);
}

} // namespace

bool Camera2D::convertYUV422toH8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    huePlane<OUT_H>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toS8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    huePlane<OUT_S>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toHSY888(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    huePlane<OUT_HSY>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toHSMixed888(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    huePlane<OUT_HSMIXED>(*source, *destination);
    return true;
}

bool Camera2D::convertYUV422toH2RGB(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    huePlane<OUT_H2RGB>(*source, *destination);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
