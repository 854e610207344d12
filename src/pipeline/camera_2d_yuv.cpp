// Targets that only move luma and chroma bytes: Y, U, V, YUV 4:2:2,
// YYCbCr and YUV 8:8:8. Offsets are bytes from the start of a source row;
// the row step is how far that start moves between two destination rows.
#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"

#include <cstdint>
#include <cstring>

namespace Kelmo {
namespace FrameHub {

namespace {

typedef uint64_t Size;

// Scalar row kernels: the definition of every byte.

// Every step-th byte.
void pickRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, Size step)
{
    for (Size k = 0; k < n; ++k)
        dst[k] = src[step * k];
}

// Two bytes from each group of bytes, taken by position whatever they hold.
void chromaRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size group, Size first, Size second)
{
    for (Size i = 0; i < pairs; ++i) {
        dst[2 * i] = src[group * i + first];
        dst[2 * i + 1] = src[group * i + second];
    }
}

// Macro-pixel A at each 4r bytes and B 2r bytes after it: lumas of A, chroma
// of both, lumas of B, each pair halved by dropping the low bit.
void averageRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size count, Size r)
{
    for (Size i = 0; i < count; ++i) {
        const uint8_t* a = src + 4 * r * i;
        const uint8_t* b = a + 2 * r;
        dst[4 * i + 0] = static_cast<uint8_t>((a[0] + a[2]) >> 1);
        dst[4 * i + 1] = static_cast<uint8_t>((a[1] + b[1]) >> 1);
        dst[4 * i + 2] = static_cast<uint8_t>((b[0] + b[2]) >> 1);
        dst[4 * i + 3] = static_cast<uint8_t>((a[3] + b[3]) >> 1);
    }
}

// Y0 U Y1 V becomes Y0 Y1 U V.
void swapMiddleRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size words, Size step)
{
    for (Size i = 0; i < words; ++i) {
        const uint8_t* m = src + step * i;
        dst[4 * i + 0] = m[0];
        dst[4 * i + 1] = m[2];
        dst[4 * i + 2] = m[1];
        dst[4 * i + 3] = m[3];
    }
}

// Both pixels of a macro-pixel with its shared chroma: Y0 U V Y1 U V.
void spreadRow(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    for (Size i = 0; i < pairs; ++i) {
        const uint8_t* m = src + step * i;
        dst[6 * i + 0] = m[0];
        dst[6 * i + 1] = m[1];
        dst[6 * i + 2] = m[3];
        dst[6 * i + 3] = m[2];
        dst[6 * i + 4] = m[1];
        dst[6 * i + 5] = m[3];
    }
}

#ifdef FRAMEHUB_VECTOR
using namespace simd;

constexpr int8_t Z = -1; // a shuffle index that writes 0

// Steps 2 (full scale) and 4 (half scale). Each block stops short of the
// last element, whose following bytes the scalar loop does not read.
FRAMEHUB_AVX2 void pickRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size n, Size step)
{
    Size k = 0;
    if (step == 2) {
        const __m256i low = _mm256_set1_epi16(0xFF);
        for (; k + 32 < n; k += 32) {
            const uint8_t* s = src + 2 * k;
            const __m256i a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), low);
            const __m256i b = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32)), low);
            const __m256i v = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), _MM_SHUFFLE(3, 1, 2, 0));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + k), v);
        }
    } else if (step == 4) {
        const __m256i low = _mm256_set1_epi32(0xFF);
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        for (; k + 32 < n; k += 32) {
            const __m256i* s = reinterpret_cast<const __m256i*>(src + 4 * k);
            const __m256i a = _mm256_and_si256(_mm256_loadu_si256(s), low);
            const __m256i b = _mm256_and_si256(_mm256_loadu_si256(s + 1), low);
            const __m256i c = _mm256_and_si256(_mm256_loadu_si256(s + 2), low);
            const __m256i d = _mm256_and_si256(_mm256_loadu_si256(s + 3), low);
            const __m256i v = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + k), _mm256_permutevar8x32_epi32(v, order));
        }
    }
    pickRow(src + step * k, dst + k, n - k, step);
}

// A shuffle that sends the bytes at first and second of each group of a
// 16-byte lane to output slot `slot`, in both lanes.
constexpr ByteMask chromaMask(int group, int slot, int first, int second)
{
    ByteMask m {};
    const int perSlot = 32 / group;
    for (int i = 0; i < 32; ++i)
        m.b[i] = -1;
    for (int lane = 0; lane < 2; ++lane)
        for (int g = 0; g < 16 / group; ++g) {
            m.b[16 * lane + perSlot * slot + 2 * g] = static_cast<int8_t>(group * g + first);
            m.b[16 * lane + perSlot * slot + 2 * g + 1] = static_cast<int8_t>(group * g + second);
        }
    return m;
}

// Groups of 4 bytes (full scale, two loads a block) or 8 (half scale, four).
// Blocks stop short of the last pair, as a load ends past its second byte.
template <int group, int first, int second>
FRAMEHUB_AVX2 void chromaRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs)
{
    constexpr int loads = group / 2;
    static constexpr ByteMask masks[4] = { chromaMask(group, 0, first, second), chromaMask(group, 1, first, second),
        chromaMask(group, 2 % loads, first, second), chromaMask(group, 3 % loads, first, second) };
    const __m256i order
        = group == 4 ? _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7) : _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    Size i = 0;
    for (; i + 16 < pairs; i += 16) {
        const __m256i* p = reinterpret_cast<const __m256i*>(src + group * i);
        __m256i v = _mm256_shuffle_epi8(_mm256_loadu_si256(p), loadMask(masks[0]));
        for (int j = 1; j < loads; ++j)
            v = _mm256_or_si256(v, _mm256_shuffle_epi8(_mm256_loadu_si256(p + j), loadMask(masks[j])));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), _mm256_permutevar8x32_epi32(v, order));
    }
    chromaRow(src + group * i, dst + 2 * i, pairs - i, group, first, second);
}

// For the 8-byte groups A0 A1 A2 A3 B0 B1 B2 B3 of a lane, the first (or
// second) operands of the four halved sums, into 8-byte slot `slot`.
constexpr ByteMask averageMask(int slot, bool second)
{
    const int first[4] = { 0, 1, 4, 3 }, other[4] = { 2, 5, 6, 7 };
    ByteMask m {};
    for (int i = 0; i < 32; ++i)
        m.b[i] = Z;
    for (int lane = 0; lane < 2; ++lane)
        for (int g = 0; g < 2; ++g)
            for (int k = 0; k < 4; ++k)
                m.b[16 * lane + 8 * slot + 4 * g + k] = static_cast<int8_t>(8 * g + (second ? other[k] : first[k]));
    return m;
}

FRAMEHUB_AVX2 void averageRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size count, Size r)
{
    Size i = 0;
    if (r == 2) {
        static constexpr ByteMask p0 = averageMask(0, false), q0 = averageMask(0, true), p1 = averageMask(1, false),
                                  q1 = averageMask(1, true);
        const __m256i mp0 = loadMask(p0), mq0 = loadMask(q0), mp1 = loadMask(p1), mq1 = loadMask(q1);
        const __m256i one = _mm256_set1_epi8(1);
        for (; i + 8 <= count; i += 8) {
            const __m256i* s = reinterpret_cast<const __m256i*>(src + 8 * i);
            const __m256i x = _mm256_loadu_si256(s), y = _mm256_loadu_si256(s + 1);
            const __m256i p = _mm256_or_si256(_mm256_shuffle_epi8(x, mp0), _mm256_shuffle_epi8(y, mp1));
            const __m256i q = _mm256_or_si256(_mm256_shuffle_epi8(x, mq0), _mm256_shuffle_epi8(y, mq1));
            // The rounding average less the carry it rounded up with: a floor.
            const __m256i mean = _mm256_sub_epi8(_mm256_avg_epu8(p, q), _mm256_and_si256(_mm256_xor_si256(p, q), one));
            _mm256_storeu_si256(
                reinterpret_cast<__m256i*>(dst + 4 * i), _mm256_permute4x64_epi64(mean, _MM_SHUFFLE(3, 1, 2, 0)));
        }
    }
    averageRow(src + 4 * r * i, dst + 4 * i, count - i, r);
}

// Y0 U Y1 V to Y0 Y1 U V in every word.
constexpr ByteMask swapMask()
{
    ByteMask m {};
    for (int i = 0; i < 32; i += 4) {
        m.b[i] = static_cast<int8_t>(i % 16);
        m.b[i + 1] = static_cast<int8_t>(i % 16 + 2);
        m.b[i + 2] = static_cast<int8_t>(i % 16 + 1);
        m.b[i + 3] = static_cast<int8_t>(i % 16 + 3);
    }
    return m;
}

template <Fetch fetch>
FRAMEHUB_AVX2 Size swapMiddleBlocks(const uint8_t* __restrict src, uint8_t* __restrict dst, Size words, Size step)
{
    static constexpr ByteMask swap = swapMask();
    const __m256i mask = loadMask(swap);
    const __m256i none = _mm256_setzero_si256();
    Size i = 0;
    for (; i + 8 <= words; i += 8) {
        const __m256i v = fetchWords<fetch>(src + step * i, none);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * i), _mm256_shuffle_epi8(v, mask));
    }
    return i;
}

FRAMEHUB_AVX2 void swapMiddleRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size words, Size step)
{
    const Size i = step == 4 ? swapMiddleBlocks<FETCH_ADJACENT>(src, dst, words, step)
        : step == 8          ? swapMiddleBlocks<FETCH_EVERY_OTHER>(src, dst, words, step)
                             : 0;
    swapMiddleRow(src + step * i, dst + 4 * i, words - i, step);
}

// Eight macro-pixels give 48 bytes, from three overlapping 16-byte windows.
template <Fetch fetch>
FRAMEHUB_AVX2 Size spreadBlocks(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    const __m128i m0 = _mm_setr_epi8(0, 1, 3, 2, 1, 3, 4, 5, 7, 6, 5, 7, 8, 9, 11, 10);
    const __m128i m1 = _mm_setr_epi8(1, 3, 4, 5, 7, 6, 5, 7, 8, 9, 11, 10, 9, 11, 12, 13);
    const __m128i m2 = _mm_setr_epi8(7, 6, 5, 7, 8, 9, 11, 10, 9, 11, 12, 13, 15, 14, 13, 15);
    const __m256i none = _mm256_setzero_si256();
    Size i = 0;
    for (; i + 8 <= pairs; i += 8) {
        const __m256i v = fetchWords<fetch>(src + step * i, none);
        const __m128i w0 = _mm256_castsi256_si128(v);
        const __m128i w2 = _mm256_extracti128_si256(v, 1);
        const __m128i w1 = _mm_alignr_epi8(w2, w0, 8);
        __m128i* d = reinterpret_cast<__m128i*>(dst + 6 * i);
        _mm_storeu_si128(d, _mm_shuffle_epi8(w0, m0));
        _mm_storeu_si128(d + 1, _mm_shuffle_epi8(w1, m1));
        _mm_storeu_si128(d + 2, _mm_shuffle_epi8(w2, m2));
    }
    return i;
}

FRAMEHUB_AVX2 void spreadRowAvx2(const uint8_t* __restrict src, uint8_t* __restrict dst, Size pairs, Size step)
{
    const Size i = step == 4 ? spreadBlocks<FETCH_ADJACENT>(src, dst, pairs, step)
        : step == 8          ? spreadBlocks<FETCH_EVERY_OTHER>(src, dst, pairs, step)
                             : 0;
    spreadRow(src + step * i, dst + 6 * i, pairs - i, step);
}
#endif

typedef void (*PickRow)(const uint8_t*, uint8_t*, Size, Size);

PickRow pickKernel() { return FRAMEHUB_FASTEST(&pickRowAvx2, &pickRow); }

// U and V share one loop; they differ in offsets and in where a row starts,
// which only matters for an odd width: U starts each row at j w, V writes on.
void chromaPlane(ImageBuffer& source, ImageBuffer& destination, bool isV)
{
    const Size W = source.getResolution().width;
    const Resolution size = destination.getResolution();
    const Size w = size.width;
    const Size r = W / w;
    const Size pairs = (w + 1) / 2;
    const Size rowStep = 2 * r * r * w;
    const Size rowLength = isV ? 2 * pairs : w;
    const Size first = isV ? 3 : 1;
    const Size second = isV ? 2 * r + 1 : 2 * r - 1;
    const uint8_t* src = source.getData();
    uint8_t* dst = destination.getData();
#ifdef FRAMEHUB_VECTOR
    if (simd::enabled() && r <= 2) {
        const auto row = isV ? (r == 1 ? &chromaRowAvx2<4, 3, 3> : &chromaRowAvx2<8, 3, 5>)
                             : (r == 1 ? &chromaRowAvx2<4, 1, 1> : &chromaRowAvx2<8, 1, 3>);
        for (Size j = 0; j < size.height; ++j)
            row(src + j * rowStep, dst + j * rowLength, pairs);
        return;
    }
#endif
    for (Size j = 0; j < size.height; ++j)
        chromaRow(src + j * rowStep, dst + j * rowLength, pairs, 4 * r, first, second);
}

} // namespace

bool Camera2D::convertYUV422toYuvsameWidth(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    // One flat run: both images have the same row length.
    const Resolution size = destination->getResolution();
    pickKernel()(source->getData(), destination->getData(), size.width * size.height, 2);
    return true;
}

bool Camera2D::convertYUV422toYuvnoScale(
    boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    const Size W = source->getResolution().width;
    const Resolution size = destination->getResolution();
    const uint8_t* src = source->getData();
    uint8_t* dst = destination->getData();
    const PickRow row = pickKernel();
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * W, dst + j * size.width, size.width, 2);
    return true;
}

bool Camera2D::convertYUV422toY8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    const Size W = source->getResolution().width;
    const Resolution size = destination->getResolution();
    const Size w = size.width;
    if (W == w)
        return convertYUV422toYuvsameWidth(source, destination);
    const Size r = W / w;
    if (r == 1)
        return convertYUV422toYuvnoScale(source, destination);

    // Skips r - 1 rows past the part of the row it read: for a ratio that is
    // not whole this is less than r full rows.
    const Size rowStep = 2 * r * w + 2 * W * (r - 1);
    const uint8_t* src = source->getData();
    uint8_t* dst = destination->getData();
    const PickRow row = pickKernel();
    for (Size j = 0; j < size.height; ++j)
        row(src + j * rowStep, dst + j * w, w, 2 * r);
    return true;
}

bool Camera2D::convertYUV422toU8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    // At even ratios the second pixel of a pair lands on a V byte: kept.
    chromaPlane(*source, *destination, false);
    return true;
}

bool Camera2D::convertYUV422toV8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    // At even ratios the second pixel of a pair lands on the next U byte: kept.
    chromaPlane(*source, *destination, true);
    return true;
}

bool Camera2D::convertYUV422toYUV422(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    const Size W = source->getResolution().width;
    const Resolution size = destination->getResolution();
    const Size w = size.width;
    const uint8_t* src = source->getData();
    uint8_t* dst = destination->getData();

    if (W == w) {
        // Whole 8-byte words only: a shorter tail stays as it was.
        std::memcpy(dst, src, (2 * w * size.height) / 8 * 8);
        return true;
    }
    const Size r = W / w;
    if (r == 1) {
        for (Size j = 0; j < size.height; ++j)
            std::memcpy(dst + j * 2 * w, src + j * 2 * W, 2 * w);
        return true;
    }
    // Bounded by the source row, not by w: the destination is written on
    // without a row start of its own.
    const Size count = (2 * W + 4 * r - 1) / (4 * r);
    const auto row = FRAMEHUB_FASTEST(&averageRowAvx2, &averageRow);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * W * r, dst + j * 4 * count, count, r);
    return true;
}

bool Camera2D::convertYUV422toYYCbCr(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    // Fills 2 bytes a pixel of a 4-byte format: the rest of the block is left alone.
    const Size W = source->getResolution().width;
    const Resolution size = destination->getResolution();
    const Size words = (2 * size.width) / 4;
    if (size.height == 0 || words == 0)
        return true;
    const Size r = W / size.width;
    const Size rowStep = (2 * W) / 4 * 4 * r;
    const uint8_t* src = source->getData();
    uint8_t* dst = destination->getData();
    const auto row = FRAMEHUB_FASTEST(&swapMiddleRowAvx2, &swapMiddleRow);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * rowStep, dst + j * 4 * words, words, 4 * r);
    return true;
}

bool Camera2D::convertYUV422toYUV888(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination)
{
    const Size W = source->getResolution().width;
    const Resolution size = destination->getResolution();
    if (size.height == 0)
        return true;
    const Size r = W / size.width;
    const Size pairs = (size.width + 1) / 2;
    const uint8_t* src = source->getData();
    uint8_t* dst = destination->getData();
    const auto row = FRAMEHUB_FASTEST(&spreadRowAvx2, &spreadRow);
    for (Size j = 0; j < size.height; ++j)
        row(src + j * 2 * W * r, dst + j * 6 * pairs, pairs, 4 * r);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
