// The AVX2 row-pair converter, for x86-64 machines that have AVX2 (compiled
// for it function by function, chosen at run time; the rest of the library
// stays baseline x86-64). A block is 32 pixels of each row: luma as 16-bit
// lanes, widened to 32 bits in the order that lets each chroma term be doubled
// within its 128-bit half; channels are summed and shifted in 32 bits exactly
// as OpenCV does, packed to bytes, and interleaved to RGB with byte shuffles.
#include "client/FusedRows.h"

#include <array>

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

// Byte shuffles that interleave three 32-byte channel vectors into 96 bytes of
// RGB. Output vector k takes, in each 128-bit half, pixels that a lane
// permutation (below) has gathered into that half of each channel's vector:
// pixels 0-15 in both halves for k = 0, 0-15 and 16-31 for k = 1, 16-31 in
// both for k = 2. Index 0x80 writes 0, which the other channels' shuffles fill.
using ShuffleTable = std::array<std::array<unsigned char, 32>, 9>;
constexpr ShuffleTable makeShuffles() {
  ShuffleTable t{};
  for (int k = 0; k < 3; ++k)
    for (int ch = 0; ch < 3; ++ch)
      for (int i = 0; i < 32; ++i) {
        const int n = 32 * k + i, pixel = n / 3, half = i / 16;
        const int base = (k == 2 || (k == 1 && half == 1)) ? 16 : 0;
        t[3 * k + ch][i] = n % 3 == ch ? static_cast<unsigned char>(pixel - base) : 0x80;
      }
  return t;
}
constexpr ShuffleTable kShuffles = makeShuffles();

HDSML_AVX2 inline __m256i shuffle(const __m256i x, int table) {
  return _mm256_shuffle_epi8(
      x, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(kShuffles[table].data())));
}

// Chroma terms a channel for 16 chroma samples, each doubled for the two pixels
// that share it, in the lane order of the luma terms below.
struct ChromaTerms {
  __m256i r[4], g[4], b[4];
};

// cr and cb: samples j .. j + 7 and j + 8 .. j + 15 as 32-bit lanes. The offset
// from 128 is folded into the constant: the same integers, summed exactly.
HDSML_AVX2 inline ChromaTerms chromaTerms(const __m256i (&cr)[2], const __m256i (&cb)[2]) {
  const __m256i toR = _mm256_set1_epi32(kCrToR), crToG = _mm256_set1_epi32(kCrToG);
  const __m256i cbToG = _mm256_set1_epi32(kCbToG), toB = _mm256_set1_epi32(kCbToB);
  const __m256i baseR = _mm256_set1_epi32(kHalf - 128 * kCrToR);
  const __m256i baseG = _mm256_set1_epi32(kHalf - 128 * (kCrToG + kCbToG));
  const __m256i baseB = _mm256_set1_epi32(kHalf - 128 * kCbToB);
  ChromaTerms t;
  for (int h = 0; h < 2; ++h) {
    const __m256i r = _mm256_add_epi32(_mm256_mullo_epi32(cr[h], toR), baseR);
    const __m256i g = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_mullo_epi32(cr[h], crToG), _mm256_mullo_epi32(cb[h], cbToG)),
        baseG);
    const __m256i b = _mm256_add_epi32(_mm256_mullo_epi32(cb[h], toB), baseB);
    t.r[2 * h] = _mm256_unpacklo_epi32(r, r);
    t.r[2 * h + 1] = _mm256_unpackhi_epi32(r, r);
    t.g[2 * h] = _mm256_unpacklo_epi32(g, g);
    t.g[2 * h + 1] = _mm256_unpackhi_epi32(g, g);
    t.b[2 * h] = _mm256_unpacklo_epi32(b, b);
    t.b[2 * h + 1] = _mm256_unpackhi_epi32(b, b);
  }
  return t;
}

// max(0, y - 16) * kY for pixels 0-15 (`a`) and 16-31 (`b`), 16-bit lanes in
// order. Widening within the 128-bit halves gives the lane order
// [0-3 | 8-11], [4-7 | 12-15], [16-19 | 24-27], [20-23 | 28-31], which is the
// order in which unpacking doubles the chroma terms.
HDSML_AVX2 inline void lumaTerms(__m256i a, __m256i b, __m256i (&out)[4]) {
  const __m256i sixteen = _mm256_set1_epi16(16), zero = _mm256_setzero_si256();
  const __m256i y = _mm256_set1_epi32(kY);
  a = _mm256_subs_epu16(a, sixteen);
  b = _mm256_subs_epu16(b, sixteen);
  out[0] = _mm256_mullo_epi32(_mm256_unpacklo_epi16(a, zero), y);
  out[1] = _mm256_mullo_epi32(_mm256_unpackhi_epi16(a, zero), y);
  out[2] = _mm256_mullo_epi32(_mm256_unpacklo_epi16(b, zero), y);
  out[3] = _mm256_mullo_epi32(_mm256_unpackhi_epi16(b, zero), y);
}

// (luma + chroma) >> 20 saturated to bytes. The packs work within 128-bit
// halves, which leaves the 8-pixel groups in the order 0, 2, 1, 3.
HDSML_AVX2 inline __m256i channel32(const __m256i (&luma)[4], const __m256i (&chroma)[4]) {
  __m256i s[4];
  for (int k = 0; k < 4; ++k)
    s[k] = _mm256_srai_epi32(_mm256_add_epi32(luma[k], chroma[k]), kShift);
  return _mm256_packus_epi16(_mm256_packs_epi32(s[0], s[1]), _mm256_packs_epi32(s[2], s[3]));
}

// The three channels of 32 pixels as 96 bytes of RGB.
HDSML_AVX2 inline void storeRgb(__m256i r, __m256i g, __m256i b, unsigned char* rgb) {
  constexpr int kFirst = _MM_SHUFFLE(2, 0, 2, 0), kBoth = _MM_SHUFFLE(3, 1, 2, 0),
                kSecond = _MM_SHUFFLE(3, 1, 3, 1);
  const __m256i out0 =
      _mm256_or_si256(_mm256_or_si256(shuffle(_mm256_permute4x64_epi64(r, kFirst), 0),
                                      shuffle(_mm256_permute4x64_epi64(g, kFirst), 1)),
                      shuffle(_mm256_permute4x64_epi64(b, kFirst), 2));
  const __m256i out1 =
      _mm256_or_si256(_mm256_or_si256(shuffle(_mm256_permute4x64_epi64(r, kBoth), 3),
                                      shuffle(_mm256_permute4x64_epi64(g, kBoth), 4)),
                      shuffle(_mm256_permute4x64_epi64(b, kBoth), 5));
  const __m256i out2 =
      _mm256_or_si256(_mm256_or_si256(shuffle(_mm256_permute4x64_epi64(r, kSecond), 6),
                                      shuffle(_mm256_permute4x64_epi64(g, kSecond), 7)),
                      shuffle(_mm256_permute4x64_epi64(b, kSecond), 8));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(rgb), out0);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(rgb + 32), out1);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(rgb + 64), out2);
}

HDSML_AVX2 inline void storeBlock(__m256i a, __m256i b, const ChromaTerms& c, unsigned char* rgb) {
  __m256i y[4];
  lumaTerms(a, b, y);
  storeRgb(channel32(y, c.r), channel32(y, c.g), channel32(y, c.b), rgb);
}

// Luma of pixels c .. c + 31 of one row as two sets of 16-bit lanes.
struct StagedLuma {
  HDSML_AVX2 static void load(const unsigned char* row, int c, __m256i& a, __m256i& b) {
    a = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row + c)));
    b = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row + c + 16)));
  }
};
struct Step2Luma {
  HDSML_AVX2 static void load(const unsigned char* row, int c, __m256i& a, __m256i& b) {
    const __m256i low = _mm256_set1_epi16(0xFF);
    a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 2 * c)), low);
    b = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 2 * c + 32)),
                         low);
  }
};

// Chroma samples j .. j + 15 as 32-bit lanes.
struct StagedChroma {
  HDSML_AVX2 static void load(const RowPairInput& in, int j, __m256i (&cr)[2], __m256i (&cb)[2]) {
    for (int h = 0; h < 2; ++h) {
      cr[h] = _mm256_cvtepu8_epi32(
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in.cr + j + 8 * h)));
      cb[h] = _mm256_cvtepu8_epi32(
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in.cb + j + 8 * h)));
    }
  }
};
struct Step2Pairs {
  HDSML_AVX2 static void load(const RowPairInput& in, int j, __m256i (&cr)[2], __m256i (&cb)[2]) {
    const __m256i low = _mm256_set1_epi32(0xFF);
    for (int h = 0; h < 2; ++h) {
      const __m256i pairs =
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in.pairs + 4 * j + 32 * h));
      const __m256i first = _mm256_and_si256(pairs, low);
      const __m256i second = _mm256_and_si256(_mm256_srli_epi32(pairs, 8), low);
      cr[h] = in.crFirst ? first : second;
      cb[h] = in.crFirst ? second : first;
    }
  }
};

// Pixels c .. c + 31 of both rows.
template <class Luma, class Chroma>
HDSML_AVX2 void convertBlock(const RowPairInput& in, int c, unsigned char* rgb0,
                             unsigned char* rgb1) {
  __m256i cr[2], cb[2], a, b;
  Chroma::load(in, c / 2, cr, cb);
  const ChromaTerms terms = chromaTerms(cr, cb);
  Luma::load(in.luma[0], c, a, b);
  storeBlock(a, b, terms, rgb0 + 3 * c);
  Luma::load(in.luma[1], c, a, b);
  storeBlock(a, b, terms, rgb1 + 3 * c);
}

template <class Luma, class Chroma>
HDSML_AVX2 void convertBlocks(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                              int width) {
  int c = 0;
  for (; c + kBlockPixels <= width; c += kBlockPixels)
    convertBlock<Luma, Chroma>(in, c, rgb0, rgb1);
  // The last block overlaps the one before it; pixels are a function of their
  // samples alone, so those written twice get the same bytes.
  if (c < width) convertBlock<Luma, Chroma>(in, width - kBlockPixels, rgb0, rgb1);
}

HDSML_AVX2 void convertRowPairAvx2(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                                   int width) {
  if (in.lumaStep2) {
    if (in.pairsStep2) return convertBlocks<Step2Luma, Step2Pairs>(in, rgb0, rgb1, width);
    return convertBlocks<Step2Luma, StagedChroma>(in, rgb0, rgb1, width);
  }
  if (in.pairsStep2) return convertBlocks<StagedLuma, Step2Pairs>(in, rgb0, rgb1, width);
  convertBlocks<StagedLuma, StagedChroma>(in, rgb0, rgb1, width);
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
