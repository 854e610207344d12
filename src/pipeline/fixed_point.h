#ifndef FRAMEHUB_SRC_PIPELINE_FIXED_POINT_H
#define FRAMEHUB_SRC_PIPELINE_FIXED_POINT_H

// Every coefficient and bias of the YUV/RGB, hue/saturation and simulator
// arithmetic, shared by the scalar kernels, the vector kernels and the
// simulators. Values are fixed: each output byte depends on them, and the
// derivation beside each one says where it comes from, not how to recompute
// it (several were rounded once and kept).

#include <cstdint>

namespace Kelmo {
namespace FrameHub {
namespace fixed {

// Offsets of the coded bytes.
constexpr int32_t kLumaBlack = 16; // video black of an 8-bit luma
constexpr int32_t kChromaZero = 128; // no colour in an 8-bit chroma

// YUV to RGB with 8 fractional bits.
constexpr int kFractionBits = 8;
constexpr int32_t kLumaGain = 298; // round(1.164 * 256)
constexpr int32_t kHalfLumaGain = kLumaGain / 2; // for a sum of two lumas
constexpr int32_t kRedFromV = 409; // round(1.596 * 256)
constexpr int32_t kGreenFromU = -100; // round(-0.391 * 256)
constexpr int32_t kGreenFromV = -208; // round(-0.813 * 256)
constexpr int32_t kBlueFromU = 516; // round(2.016 * 256)

// The chroma zero folded into each primary's chroma term, and the luma
// black level folded into the luma term (of one luma and of a sum of two).
constexpr int32_t kRedChromaBias = -kRedFromV * kChromaZero;
constexpr int32_t kGreenChromaBias = -(kGreenFromU + kGreenFromV) * kChromaZero;
constexpr int32_t kBlueChromaBias = -kBlueFromU * kChromaZero;
constexpr int32_t kLumaBias = -kLumaGain * kLumaBlack;
constexpr int32_t kLumaSumBias = -kHalfLumaGain * 2 * kLumaBlack;

// Hue and saturation, same 8 fractional bits. The hue's green term has the
// coefficients of U and V exchanged against the RGB targets': that exchange
// defines this hue.
constexpr int32_t kHueGreenFromU = kGreenFromV;
constexpr int32_t kHueGreenFromV = kGreenFromU;
constexpr int32_t kHueSextant = 85; // a sixth of the wheel, 256 / 3 truncated
constexpr int32_t kSaturationScale = 255; // full saturation
// red - green, green - blue and red - blue as multiples of U and V plus a
// bias that holds both chroma zeros; a + b == c.
constexpr int32_t kRedGreenFromU = -kHueGreenFromU;
constexpr int32_t kRedGreenFromV = kRedFromV - kHueGreenFromV;
constexpr int32_t kRedGreenBias = -(kRedGreenFromU + kRedGreenFromV) * kChromaZero;
constexpr int32_t kGreenBlueFromU = kHueGreenFromU - kBlueFromU;
constexpr int32_t kGreenBlueFromV = kHueGreenFromV;
constexpr int32_t kGreenBlueBias = -(kGreenBlueFromU + kGreenBlueFromV) * kChromaZero;
constexpr int32_t kRedBlueFromU = -kBlueFromU;
constexpr int32_t kRedBlueFromV = kRedFromV;
constexpr int32_t kRedBlueBias = -(kRedBlueFromU + kRedBlueFromV) * kChromaZero;
// Saturation denominators: a primary plus 1, less the pixel's 298 Y, so
// that they are never 0 where used.
constexpr int32_t kRedDenominatorBias = kLumaBias + kRedChromaBias + 1;
constexpr int32_t kGreenDenominatorBias = kLumaBias - (kHueGreenFromU + kHueGreenFromV) * kChromaZero + 1;
constexpr int32_t kBlueDenominatorBias = kLumaBias + kBlueChromaBias + 1;

// The hue wheel: a ramp climbs from 0 to 255 over one sextant of 42 steps.
constexpr int32_t kWheelSlope = 6; // round(255 / 42)

// RGB to YUV in the simulator, 8 fractional bits rounded by half a unit.
constexpr int32_t kRoundingHalf = 1 << (kFractionBits - 1);
constexpr int32_t kLumaFromR = 66; // round(0.257 * 256)
constexpr int32_t kLumaFromG = 129; // round(0.504 * 256)
constexpr int32_t kLumaFromB = 25; // round(0.098 * 256)
constexpr int32_t kUFromR = -38; // round(-0.148 * 256)
constexpr int32_t kUFromG = -74; // round(-0.291 * 256)
constexpr int32_t kUFromB = 112; // round(0.439 * 256)
constexpr int32_t kVFromR = 112; // round(0.439 * 256)
constexpr int32_t kVFromG = -94; // round(-0.368 * 256)
constexpr int32_t kVFromB = -18; // round(-0.071 * 256)

// Full-size RGB and BGR with 20 fractional bits, rounded by half a unit:
// the arithmetic whose bytes match the library conversion exactly.
constexpr int kWideFractionBits = 20;
constexpr int32_t kWideRoundingHalf = 1 << (kWideFractionBits - 1);
constexpr int32_t kWideLumaGain = 1220542; // round(1.164 * 2^20)
constexpr int32_t kWideRedFromV = 1673527; // round(1.596 * 2^20)
constexpr int32_t kWideGreenFromU = -409993; // round(-0.391 * 2^20)
constexpr int32_t kWideGreenFromV = -852492; // round(-0.813 * 2^20)
constexpr int32_t kWideBlueFromU = 2116026; // round(2.018 * 2^20)

} // namespace fixed
} // namespace FrameHub
} // namespace Kelmo

#endif
