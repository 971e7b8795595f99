// The NEON row-pair converter. Each block of 32 pixels of a row is split into
// its even and its odd pixels, 16 of each, so that lane i of both meets lane i
// of the 16 chroma samples the block's pixel pairs share: the chroma terms are
// computed once for both rows and never widened to one lane a pixel. The exact
// 32-bit sum of a channel is narrowed by its high half (add, high half, narrow)
// and then by 4 more bits with saturation, which together are OpenCV's shift by
// 20 and saturate_cast<uchar>.
#include "client/FusedRows.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace fused {

#if defined(__aarch64__)
namespace {

// Everything a block does is inlined into its loop, so that the chroma terms
// and the constants stay in registers.
#define HDSML_INLINE __attribute__((always_inline)) inline

// 16 chroma terms a channel, as four 4-lane vectors, without the rounding half.
struct ChromaTerms {
  int32x4_t r[4], g[4], b[4];
};

// The 16 chroma samples' offsets from 128, widened to 32 bits.
HDSML_INLINE void widenOffsets(uint8x16_t samples, int32x4_t (&out)[4]) {
  const uint8x16_t mid = vdupq_n_u8(128);
  const int16x8_t lo = vreinterpretq_s16_u16(vsubl_u8(vget_low_u8(samples), vget_low_u8(mid)));
  const int16x8_t hi = vreinterpretq_s16_u16(vsubl_high_u8(samples, mid));
  out[0] = vmovl_s16(vget_low_s16(lo));
  out[1] = vmovl_high_s16(lo);
  out[2] = vmovl_s16(vget_low_s16(hi));
  out[3] = vmovl_high_s16(hi);
}

HDSML_INLINE ChromaTerms chromaTerms(uint8x16_t cr, uint8x16_t cb) {
  int32x4_t v[4], u[4];
  widenOffsets(cr, v);
  widenOffsets(cb, u);
  ChromaTerms t;
  for (int k = 0; k < 4; ++k) {
    t.r[k] = vmulq_n_s32(v[k], kCrToR);
    t.g[k] = vmlaq_n_s32(vmulq_n_s32(v[k], kCrToG), u[k], kCbToG);
    t.b[k] = vmulq_n_s32(u[k], kCbToB);
  }
  return t;
}

// max(0, y - 16) * kY for 16 luma samples.
HDSML_INLINE void lumaTerms(uint8x16_t y, int32x4_t (&out)[4]) {
  const uint8x16_t above = vqsubq_u8(y, vdupq_n_u8(16));
  const uint16x8_t lo = vmovl_u8(vget_low_u8(above)), hi = vmovl_high_u8(above);
  out[0] = vreinterpretq_s32_u32(vmulq_n_u32(vmovl_u16(vget_low_u16(lo)), kY));
  out[1] = vreinterpretq_s32_u32(vmulq_n_u32(vmovl_high_u16(lo), kY));
  out[2] = vreinterpretq_s32_u32(vmulq_n_u32(vmovl_u16(vget_low_u16(hi)), kY));
  out[3] = vreinterpretq_s32_u32(vmulq_n_u32(vmovl_high_u16(hi), kY));
}

// (luma + chroma + 2^19) >> 20, saturated to a byte, for 16 lanes. The chroma
// terms leave out the rounding half: the narrowing shift by 4 rounds, adding
// 8, which is 2^19 in the 16 bits the high halves dropped, so the sum is the
// same and needs no add of its own.
HDSML_INLINE uint8x16_t channel16(const int32x4_t (&luma)[4], const int32x4_t (&chroma)[4]) {
  const int16x8_t lo = vaddhn_high_s32(vaddhn_s32(luma[0], chroma[0]), luma[1], chroma[1]);
  const int16x8_t hi = vaddhn_high_s32(vaddhn_s32(luma[2], chroma[2]), luma[3], chroma[3]);
  return vqrshrun_high_n_s16(vqrshrun_n_s16(lo, kShift - 16), hi, kShift - 16);
}

// 32 RGB pixels from their even and odd luma samples.
HDSML_INLINE void storeBlock(uint8x16_t even, uint8x16_t odd, const ChromaTerms& c,
                             unsigned char* rgb) {
  int32x4_t e[4], o[4];
  lumaTerms(even, e);
  const uint8x16_t rE = channel16(e, c.r), gE = channel16(e, c.g), bE = channel16(e, c.b);
  lumaTerms(odd, o);
  const uint8x16_t rO = channel16(o, c.r), gO = channel16(o, c.g), bO = channel16(o, c.b);
  const uint8x16x3_t first = {{vzip1q_u8(rE, rO), vzip1q_u8(gE, gO), vzip1q_u8(bE, bO)}};
  const uint8x16x3_t second = {{vzip2q_u8(rE, rO), vzip2q_u8(gE, gO), vzip2q_u8(bE, bO)}};
  vst3q_u8(rgb, first);
  vst3q_u8(rgb + 48, second);
}

// Luma of pixels c .. c + 31 of a row: its even and its odd samples. Read in
// place (spacing 2), the 32 samples are also written to `packed` + c.
template <int spacing>
HDSML_INLINE void loadLuma(const unsigned char* row, int c, unsigned char* packed, uint8x16_t& even,
                           uint8x16_t& odd) {
  if constexpr (spacing == 2) {
    const uint8x16x4_t s = vld4q_u8(row + 2 * c);
    even = s.val[0];
    odd = s.val[2];
    vst1q_u8(packed + c, vzip1q_u8(even, odd));
    vst1q_u8(packed + c + 16, vzip2q_u8(even, odd));
  } else {
    (void)packed;
    const uint8x16x2_t s = vld2q_u8(row + c);
    even = s.val[0];
    odd = s.val[1];
  }
}

// Chroma samples j .. j + 15: planar (pairSpacing 0) or pairs, Cr first in a
// pair when crFirst. Read in place (pairSpacing 2), they are also written to
// the packed chroma rows.
template <int pairSpacing, bool crFirst>
HDSML_INLINE void loadChroma(const RowPairInput& in, int j, uint8x16_t& cr, uint8x16_t& cb) {
  uint8x16_t first, second;
  if constexpr (pairSpacing == 0) {
    cr = vld1q_u8(in.cr + j);
    cb = vld1q_u8(in.cb + j);
    return;
  } else if constexpr (pairSpacing == 2) {
    const uint8x16x4_t s = vld4q_u8(in.pairs + 4 * j);
    first = s.val[0];
    second = s.val[1];
  } else {
    const uint8x16x2_t s = vld2q_u8(in.pairs + 2 * j);
    first = s.val[0];
    second = s.val[1];
  }
  cr = crFirst ? first : second;
  cb = crFirst ? second : first;
  if constexpr (pairSpacing == 2) {
    vst1q_u8(in.packedCr + j, cr);
    vst1q_u8(in.packedCb + j, cb);
  }
}

// Pixels c .. c + 31 of both rows.
template <int lumaSpacing, int pairSpacing, bool crFirst>
HDSML_INLINE void convertBlock(const RowPairInput& in, int c, unsigned char* rgb0,
                               unsigned char* rgb1) {
  uint8x16_t cr, cb, even, odd;
  loadChroma<pairSpacing, crFirst>(in, c / 2, cr, cb);
  const ChromaTerms terms = chromaTerms(cr, cb);
  loadLuma<lumaSpacing>(in.luma[0], c, in.packedLuma[0], even, odd);
  storeBlock(even, odd, terms, rgb0 + 3 * c);
  loadLuma<lumaSpacing>(in.luma[1], c, in.packedLuma[1], even, odd);
  storeBlock(even, odd, terms, rgb1 + 3 * c);
}

// The input is copied before the loop: the stores through unsigned char may
// alias any object, and would otherwise reload its pointers on every block.
template <int lumaSpacing, int pairSpacing, bool crFirst>
void convertBlocks(const RowPairInput& input, unsigned char* rgb0, unsigned char* rgb1, int width) {
  const RowPairInput in = input;
  int c = 0;
  for (; c + kBlockPixels <= width; c += kBlockPixels)
    convertBlock<lumaSpacing, pairSpacing, crFirst>(in, c, rgb0, rgb1);
  // The last block overlaps the one before it; pixels are a function of their
  // samples alone, so those written twice get the same bytes.
  if (c < width)
    convertBlock<lumaSpacing, pairSpacing, crFirst>(in, width - kBlockPixels, rgb0, rgb1);
}

template <int lumaSpacing, int pairSpacing>
void convertPairs(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1, int width) {
  if (in.crFirst) return convertBlocks<lumaSpacing, pairSpacing, true>(in, rgb0, rgb1, width);
  convertBlocks<lumaSpacing, pairSpacing, false>(in, rgb0, rgb1, width);
}

template <int lumaSpacing>
void convertRows(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1, int width) {
  if (in.pairs == nullptr) return convertBlocks<lumaSpacing, 0, true>(in, rgb0, rgb1, width);
  if (in.pairSpacing == 2) return convertPairs<lumaSpacing, 2>(in, rgb0, rgb1, width);
  convertPairs<lumaSpacing, 1>(in, rgb0, rgb1, width);
}

void convertRowPairNeon(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                        int width) {
  if (in.lumaSpacing == 2) return convertRows<2>(in, rgb0, rgb1, width);
  convertRows<1>(in, rgb0, rgb1, width);
}

}  // namespace

RowPairConverter neonRowPairConverter() { return convertRowPairNeon; }
#else
RowPairConverter neonRowPairConverter() { return nullptr; }
#endif

}  // namespace fused
