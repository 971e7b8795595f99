// The AVX2 row-pair converter, for x86-64 machines that have AVX2 (compiled
// for it function by function and chosen at run time; the rest of the library
// stays baseline x86-64). A block is 32 pixels of each row, split into its 16
// even and 16 odd pixels, so that lane i of both meets lane i of the 16 chroma
// samples the block's pixel pairs share: chroma terms are computed once for
// both rows and never doubled. Byte shuffles pick samples straight into 32-bit
// lanes; channels are summed and shifted in 32 bits exactly as OpenCV does,
// packed to bytes, and interleaved to RGB by byte shuffles that also undo the
// even/odd split.
#include "client/FusedRows.h"

#include <array>
#include <cstdint>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define HDSML_HAVE_AVX2_ROWS 1
#include <immintrin.h>
#else
#define HDSML_HAVE_AVX2_ROWS 0
#endif

namespace fused {

#if HDSML_HAVE_AVX2_ROWS
namespace {

#define HDSML_AVX2 __attribute__((target("avx2")))
#define HDSML_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

using Bytes32 = std::array<unsigned char, 32>;

// Shuffles that move byte `first` + `stride` * i of each 16-byte half (i = 0 .. 3
// in the low half, 4 .. 7 in the high one) to the low byte of 32-bit lane i.
constexpr Bytes32 spreadToLanes(int first, int stride, bool halvesApart) {
  Bytes32 m{};
  for (int i = 0; i < 32; ++i) {
    const int lane = i / 4, source = first + stride * (halvesApart ? lane % 4 : lane);
    m[i] = i % 4 == 0 ? static_cast<unsigned char>(halvesApart ? source : source % 16) : 0x80;
  }
  return m;
}
// A source row shrunk 2:1 loaded 32 bytes at a time: samples at bytes 0, 4, 8
// .. are the even pixels, at 2, 6, 10 .. the odd ones; pairs one every 4 bytes.
constexpr Bytes32 kByte0OfLanes = spreadToLanes(0, 4, true);
constexpr Bytes32 kByte1OfLanes = spreadToLanes(1, 4, true);
constexpr Bytes32 kByte2OfLanes = spreadToLanes(2, 4, true);
// 16 consecutive bytes in both halves: bytes 0, 2 .. 6 to the low half's lanes
// and 8 .. 14 to the high half's (even samples, or first bytes of pairs), and
// the odd bytes likewise.
constexpr Bytes32 kEvenBytes = spreadToLanes(0, 2, false);
constexpr Bytes32 kOddBytes = spreadToLanes(1, 2, false);

// Shuffles that interleave three 32-byte channel vectors into 96 bytes of RGB.
// Each channel's bytes arrive as four 8-pixel groups, a group holding its 4
// even pixels, then its 4 odd ones; a lane permutation (storeRgb) has placed
// the groups of pixels 0-15 in both halves for output vector k = 0, of 0-15
// and 16-31 for k = 1, of 16-31 in both for k = 2. Index 0x80 writes 0, which
// the other channels' shuffles fill.
using ShuffleTable = std::array<Bytes32, 9>;
constexpr ShuffleTable makeShuffles() {
  ShuffleTable t{};
  for (int k = 0; k < 3; ++k)
    for (int ch = 0; ch < 3; ++ch)
      for (int i = 0; i < 32; ++i) {
        const int n = 32 * k + i, half = i / 16;
        const int pixel = n / 3 - ((k == 2 || (k == 1 && half == 1)) ? 16 : 0);
        const int inGroup = pixel % 8, at = 8 * (pixel / 8) + inGroup / 2 + 4 * (inGroup % 2);
        t[3 * k + ch][i] = n % 3 == ch ? static_cast<unsigned char>(at) : 0x80;
      }
  return t;
}
constexpr ShuffleTable kShuffles = makeShuffles();

// The splatted constants of the arithmetic, in memory. convertBlocks hides
// their address from the optimiser once per call, so that every use is a
// memory operand: otherwise each is rebuilt from an immediate in two
// instructions, hoisted, and spilled to the stack for want of registers.
struct alignas(32) Splat32 {
  int32_t lane[8];
};
constexpr Splat32 splat32(int32_t x) { return {{x, x, x, x, x, x, x, x}}; }
struct Constants {
  Splat32 sixteen = splat32(0x10101010);
  Splat32 lowBytesOfWords = splat32(0x00FF00FF);
  Splat32 lumaScale = splat32(kY);
  Splat32 crToR = splat32(kCrToR), crToG = splat32(kCrToG);
  Splat32 cbToG = splat32(kCbToG), cbToB = splat32(kCbToB);
  // The rounding half with the offset of chroma from 128 folded in.
  Splat32 redBias = splat32(kHalf - 128 * kCrToR);
  Splat32 greenBias = splat32(kHalf - 128 * (kCrToG + kCbToG));
  Splat32 blueBias = splat32(kHalf - 128 * kCbToB);
  // Dwords of the chroma packs in plane order (storeChroma).
  Splat32 chromaOrder = {{0, 4, 1, 5, 2, 6, 3, 7}};
};
constexpr Constants kConstants{};

HDSML_AVX2_INLINE __m256i lanes(const Splat32& c) {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(c.lane));
}

HDSML_AVX2_INLINE __m256i load(const unsigned char* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
HDSML_AVX2_INLINE __m256i both(const unsigned char* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
HDSML_AVX2_INLINE __m256i shuffle(__m256i x, const Bytes32& m) {
  return _mm256_shuffle_epi8(x, load(m.data()));
}

// The low bytes of the 16-bit lanes of a and b, in order: a's 16, then b's 16.
HDSML_AVX2_INLINE __m256i lowBytesInOrder(__m256i a, __m256i b, const Constants& k) {
  const __m256i low = lanes(k.lowBytesOfWords);
  const __m256i packed = _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
  return _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
}

// Luma of pixels c .. c + 31 of a row, less 16 and at least 0, in 32-bit lanes:
// even[h] and odd[h] hold pixels 16h + 2i and 16h + 2i + 1. Read in place
// (spacing 2), the 32 samples are also written to `packed` + c.
template <int spacing>
HDSML_AVX2_INLINE void loadLuma(const unsigned char* row, int c, unsigned char* packed,
                                const Constants& k, __m256i (&even)[2], __m256i (&odd)[2]) {
  const __m256i sixteen = lanes(k.sixteen);
  if constexpr (spacing == 2) {
    const __m256i raw[2] = {load(row + 2 * c), load(row + 2 * c + 32)};
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(packed + c), lowBytesInOrder(raw[0], raw[1], k));
    for (int h = 0; h < 2; ++h) {
      const __m256i x = _mm256_subs_epu8(raw[h], sixteen);
      even[h] = shuffle(x, kByte0OfLanes);
      odd[h] = shuffle(x, kByte2OfLanes);
    }
    return;
  }
  for (int h = 0; h < 2; ++h) {
    const __m256i x = _mm256_subs_epu8(both(row + c + 16 * h), sixteen);
    even[h] = shuffle(x, kEvenBytes);
    odd[h] = shuffle(x, kOddBytes);
  }
}

// Chroma samples j .. j + 15 of a row of pairs read in place (a source row
// shrunk 2:1: one pair every 4 bytes), in 32-bit lanes, 8 a vector.
HDSML_AVX2_INLINE void loadChromaPairs(const RowPairInput& in, int j, __m256i (&cr)[2],
                                       __m256i (&cb)[2]) {
  for (int h = 0; h < 2; ++h) {
    const __m256i x = load(in.pairs + 4 * j + 32 * h);
    const __m256i first = shuffle(x, kByte0OfLanes), second = shuffle(x, kByte1OfLanes);
    cr[h] = in.crFirst ? first : second;
    cb[h] = in.crFirst ? second : first;
  }
}

// The 16 samples of each chroma plane, held one a 32-bit lane (below 256), as
// 16 consecutive bytes at `crOut` and at `cbOut`.
HDSML_AVX2_INLINE void storeChroma(const __m256i (&cr)[2], const __m256i (&cb)[2],
                                   unsigned char* crOut, unsigned char* cbOut, const Constants& k) {
  // Per 128-bit half the packs give 4-byte groups: cr 0-3, cr 8-11, cb 0-3,
  // cb 8-11 in the low half and cr 4-7, cr 12-15, cb 4-7, cb 12-15 in the high.
  const __m256i bytes =
      _mm256_packus_epi16(_mm256_packs_epi32(cr[0], cr[1]), _mm256_packs_epi32(cb[0], cb[1]));
  const __m256i ordered = _mm256_permutevar8x32_epi32(bytes, lanes(k.chromaOrder));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(crOut), _mm256_castsi256_si128(ordered));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(cbOut), _mm256_extracti128_si256(ordered, 1));
}

// Chroma samples j .. j + 15 in 32-bit lanes, 8 a vector. Read in place
// (pairSpacing 2), they are also written to the packed chroma rows.
template <int pairSpacing>
HDSML_AVX2_INLINE void loadChroma(const RowPairInput& in, int j, __m256i (&cr)[2], __m256i (&cb)[2],
                                  const Constants& k) {
  if constexpr (pairSpacing == 2) {
    loadChromaPairs(in, j, cr, cb);
    storeChroma(cr, cb, in.packedCr + j, in.packedCb + j, k);
    return;
  }
  for (int h = 0; h < 2; ++h) {
    __m256i first, second;
    if constexpr (pairSpacing == 0) {
      cr[h] = _mm256_cvtepu8_epi32(
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in.cr + j + 8 * h)));
      cb[h] = _mm256_cvtepu8_epi32(
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in.cb + j + 8 * h)));
      continue;
    } else {
      const __m256i x = both(in.pairs + 2 * j + 16 * h);
      first = shuffle(x, kEvenBytes);
      second = shuffle(x, kOddBytes);
    }
    cr[h] = in.crFirst ? first : second;
    cb[h] = in.crFirst ? second : first;
  }
}

// (luma * kY + chroma) >> 20 saturated to bytes, for the 16 even and 16 odd
// pixels: four 8-pixel groups, each its even pixels then its odd ones, in the
// order 0-7, 16-23 | 8-15, 24-31 (the packs work within 128-bit halves).
HDSML_AVX2_INLINE __m256i channel32(const __m256i (&even)[2], const __m256i (&odd)[2],
                                    const __m256i (&chroma)[2]) {
  __m256i e[2], o[2];
  for (int h = 0; h < 2; ++h) {
    e[h] = _mm256_srai_epi32(_mm256_add_epi32(even[h], chroma[h]), kShift);
    o[h] = _mm256_srai_epi32(_mm256_add_epi32(odd[h], chroma[h]), kShift);
  }
  return _mm256_packus_epi16(_mm256_packs_epi32(e[0], o[0]), _mm256_packs_epi32(e[1], o[1]));
}

HDSML_AVX2_INLINE __m256i interleave(__m256i r, __m256i g, __m256i b, int k) {
  return _mm256_or_si256(
      _mm256_or_si256(shuffle(r, kShuffles[3 * k]), shuffle(g, kShuffles[3 * k + 1])),
      shuffle(b, kShuffles[3 * k + 2]));
}

// The three channels of 32 pixels as 96 bytes of RGB.
HDSML_AVX2_INLINE void storeRgb(__m256i r, __m256i g, __m256i b, unsigned char* rgb) {
  // Groups 0-7 and 8-15 are qwords 0 and 2, groups 16-23 and 24-31 qwords 1 and 3.
  constexpr int kFirst = _MM_SHUFFLE(2, 0, 2, 0), kBoth = _MM_SHUFFLE(3, 1, 2, 0),
                kSecond = _MM_SHUFFLE(3, 1, 3, 1);
  __m256i* out = reinterpret_cast<__m256i*>(rgb);
  _mm256_storeu_si256(
      out, interleave(_mm256_permute4x64_epi64(r, kFirst), _mm256_permute4x64_epi64(g, kFirst),
                      _mm256_permute4x64_epi64(b, kFirst), 0));
  _mm256_storeu_si256(
      out + 1, interleave(_mm256_permute4x64_epi64(r, kBoth), _mm256_permute4x64_epi64(g, kBoth),
                          _mm256_permute4x64_epi64(b, kBoth), 1));
  _mm256_storeu_si256(out + 2, interleave(_mm256_permute4x64_epi64(r, kSecond),
                                          _mm256_permute4x64_epi64(g, kSecond),
                                          _mm256_permute4x64_epi64(b, kSecond), 2));
}

// Pixels c .. c + 31 of both rows.
template <int lumaSpacing, int pairSpacing>
HDSML_AVX2_INLINE void convertBlock(const RowPairInput& in, int c, unsigned char* rgb0,
                                    unsigned char* rgb1, const Constants& k) {
  __m256i cr[2], cb[2], r[2], g[2], b[2];
  loadChroma<pairSpacing>(in, c / 2, cr, cb, k);
  // The offset from 128 is folded into the constants: the same integers, summed exactly.
  for (int h = 0; h < 2; ++h) {
    r[h] = _mm256_add_epi32(_mm256_mullo_epi32(cr[h], lanes(k.crToR)), lanes(k.redBias));
    g[h] = _mm256_add_epi32(_mm256_add_epi32(_mm256_mullo_epi32(cr[h], lanes(k.crToG)),
                                             _mm256_mullo_epi32(cb[h], lanes(k.cbToG))),
                            lanes(k.greenBias));
    b[h] = _mm256_add_epi32(_mm256_mullo_epi32(cb[h], lanes(k.cbToB)), lanes(k.blueBias));
  }
  for (int row = 0; row < 2; ++row) {
    __m256i even[2], odd[2];
    loadLuma<lumaSpacing>(in.luma[row], c, in.packedLuma[row], k, even, odd);
    for (int h = 0; h < 2; ++h) {
      even[h] = _mm256_mullo_epi32(even[h], lanes(k.lumaScale));
      odd[h] = _mm256_mullo_epi32(odd[h], lanes(k.lumaScale));
    }
    storeRgb(channel32(even, odd, r), channel32(even, odd, g), channel32(even, odd, b),
             (row == 0 ? rgb0 : rgb1) + 3 * c);
  }
}

template <int lumaSpacing, int pairSpacing>
HDSML_AVX2 void convertBlocks(const RowPairInput& input, unsigned char* rgb0, unsigned char* rgb1,
                              int width) {
  // A copy whose address never escapes: the byte stores below cannot alias
  // it, so its pointers stay in registers instead of being loaded per block.
  const RowPairInput in = input;
  const Constants* k = &kConstants;
  asm("" : "+r"(k));
  int c = 0;
  for (; c + kBlockPixels <= width; c += kBlockPixels)
    convertBlock<lumaSpacing, pairSpacing>(in, c, rgb0, rgb1, *k);
  // The last block overlaps the one before it; pixels are a function of their
  // samples alone, so those written twice get the same bytes.
  if (c < width) convertBlock<lumaSpacing, pairSpacing>(in, width - kBlockPixels, rgb0, rgb1, *k);
}

template <int lumaSpacing>
HDSML_AVX2 void convertRows(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                            int width) {
  if (in.pairs == nullptr) return convertBlocks<lumaSpacing, 0>(in, rgb0, rgb1, width);
  if (in.pairSpacing == 2) return convertBlocks<lumaSpacing, 2>(in, rgb0, rgb1, width);
  convertBlocks<lumaSpacing, 1>(in, rgb0, rgb1, width);
}

HDSML_AVX2 void convertRowPairAvx2(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                                   int width) {
  if (in.lumaSpacing == 2) return convertRows<2>(in, rgb0, rgb1, width);
  convertRows<1>(in, rgb0, rgb1, width);
}

}  // namespace

RowPairConverter avx2RowPairConverter() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? convertRowPairAvx2 : nullptr;
}
#else
RowPairConverter avx2RowPairConverter() { return nullptr; }
#endif

}  // namespace fused
