// See analysis.h.

#include "companion/analysis.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "arithmetic/words/residue.h"
#include "digits/conversions.h"
#include "shell/console.h"

namespace kelvane::companion {

DigitResidue::DigitResidue(int radix)
    : radix_(radix), per_word_(CVN::digits_per_word(radix)),
      factor_(residue::pow(static_cast<u64>(radix), per_word_)) {}

void DigitResidue::add(const char* digits, u64 count) {
  constexpr u64 BLOCK_WORDS = 512; // packed and added within the nearest cache
  char raw[BLOCK_WORDS * CVN::DECIMAL_DIGITS];
  u64 words[BLOCK_WORDS];
  const u64 factor_2 = residue::mul(factor_, factor_);
  while (count > 0) {
    const u64 n = std::min(count, BLOCK_WORDS * per_word_), whole = n / per_word_;
    // The reader has seen that they are digits: '0' to '9' end in their value, 'a' to 'f' in 1 to 6.
    for (u64 i = 0; i < n; ++i) raw[i] = static_cast<char>((digits[i] & 15) + (digits[i] > '9' ? 9 : 0));
    CVN::raw_to_u64(words, raw, whole, radix_);
    // Two words a step: only the product of the value so far waits for the step before.
    u64 word = 0;
    for (; word + 2 <= whole; word += 2) {
      const u64 pair =
          residue::add(residue::mul(residue::reduce(words[word]), factor_), residue::reduce(words[word + 1]));
      value_ = residue::add(residue::mul(value_, factor_2), pair);
    }
    if (word < whole) value_ = residue::add(residue::mul(value_, factor_), residue::reduce(words[word]));
    for (u64 i = whole * per_word_; i < n; ++i)
      value_ = residue::add(residue::mul(value_, static_cast<u64>(radix_)), static_cast<u64>(raw[i]));
    digits += n;
    count -= n;
  }
}

namespace {

// One byte counter per lane and digit: a comparison's -1 is subtracted, and the 16 counters are added up
// before they can overflow.
template <int RADIX> void count_vectors(u64* counts, const char* digits, u64 vectors) {
  constexpr u64 MOST = 255;
  constexpr int TOGETHER = 8; // digits counted in one pass, so that all counters stay in registers
  while (vectors > 0) {
    const u64 n = std::min(vectors, MOST);
    for (int first = 0; first < RADIX; first += TOGETHER) {
      __m128i sums[TOGETHER];
      for (auto& sum : sums) sum = _mm_setzero_si128();
      for (u64 i = 0; i < n; ++i) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(digits) + i);
        for (int d = 0; d < TOGETHER && first + d < RADIX; ++d)
          sums[d] = _mm_sub_epi8(sums[d], _mm_cmpeq_epi8(x, _mm_set1_epi8(static_cast<char>(first + d))));
      }
      for (int d = 0; d < TOGETHER && first + d < RADIX; ++d) {
        const __m128i halves = _mm_sad_epu8(sums[d], _mm_setzero_si128());
        counts[first + d] += static_cast<u64>(_mm_cvtsi128_si64(halves)) +
                             static_cast<u64>(_mm_cvtsi128_si64(_mm_srli_si128(halves, 8)));
      }
    }
    digits += 16 * n;
    vectors -= n;
  }
}

} // namespace

void count_digits(u64* counts, const char* digits, u64 count, int radix) {
  const u64 vectors = count / 16;
  radix == 10 ? count_vectors<10>(counts, digits, vectors) : count_vectors<16>(counts, digits, vectors);
  for (u64 i = 16 * vectors; i < count; ++i) ++counts[digits[i] & 15];
}

// p = Q(f/2, x/2), the upper incomplete gamma function, for odd f in closed form:
//   erfc(sqrt(x/2)) + exp(-x/2) sum_{j=1}^{(f-1)/2} (x/2)^(j-1/2) / Gamma(j+1/2).
ChiSquare chi_square(const u64* counts, int radix) {
  ChiSquare result;
  u64 total = 0;
  for (int d = 0; d < radix; ++d) total += counts[d];
  result.freedom = radix - 1;
  result.expected = static_cast<double>(total) / radix;
  if (total == 0) return result;
  for (int d = 0; d < radix; ++d) {
    const double deviation = static_cast<double>(counts[d]) - result.expected;
    result.value += deviation * deviation / result.expected;
  }
  const double half = result.value / 2;
  double term = 2 * std::sqrt(half / M_PI), sum = 0; // (x/2)^(1/2) / Gamma(3/2)
  for (int j = 1; j <= (result.freedom - 1) / 2; ++j) {
    sum += term;
    term *= half / (j + 0.5);
  }
  result.p = std::erfc(std::sqrt(half)) + std::exp(-half) * sum;
  return result;
}

std::string counts_svg(const std::string& title, const u64* counts, int radix) {
  constexpr int LEFT = 40, TOP = 40, COLUMN = 36, HEIGHT = 160, BELOW = 56;
  const int width = LEFT + radix * COLUMN + 20, middle = TOP + HEIGHT / 2;
  const double expected = chi_square(counts, radix).expected;
  const double sigma = std::sqrt(expected * (1 - 1.0 / radix));
  const auto deviation = [&](int d) {
    return sigma > 0 ? (static_cast<double>(counts[d]) - expected) / sigma : 0.0;
  };
  double range = 3; // standard deviations from the middle to the edge
  for (int d = 0; d < radix; ++d) range = std::max(range, std::ceil(std::fabs(deviation(d))));

  std::string svg;
  char line[512];
  const auto put = [&](const char* format, auto... values) {
    std::snprintf(line, sizeof line, format, values...);
    svg += line;
  };
  put("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" font-family=\"sans-serif\" "
      "font-size=\"11\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
      width, TOP + HEIGHT + BELOW);
  svg += "<text x=\"" + std::to_string(LEFT) + "\" y=\"20\" font-size=\"13\">";
  for (const char c : title) {
    if (c == '<')
      svg += "&lt;";
    else if (c == '&')
      svg += "&amp;";
    else if (static_cast<unsigned char>(c) >= ' ')
      svg += c;
  }
  svg += "</text>\n";
  for (const double level : {-range, -2.0, 0.0, 2.0, range}) {
    const double y = middle - level / range * (HEIGHT / 2);
    put("<line x1=\"%d\" x2=\"%d\" y1=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>"
        "<text x=\"%d\" y=\"%.1f\" text-anchor=\"end\">%.0f</text>\n",
        LEFT, width - 20, y, y, level == 0.0 ? "black" : "#ccc", LEFT - 6, y + 4, level);
  }
  for (int d = 0; d < radix; ++d) {
    const double height = deviation(d) / range * (HEIGHT / 2);
    const int x = LEFT + d * COLUMN;
    put("<rect x=\"%d\" y=\"%.1f\" width=\"%d\" height=\"%.1f\" fill=\"#4477aa\"><title>%s</title></rect>"
        "<text x=\"%d\" y=\"%d\" text-anchor=\"middle\">%x</text>\n",
        x + 6, height > 0 ? middle - height : middle, COLUMN - 12, std::fabs(height),
        Console::format_commas(counts[d]).c_str(), x + COLUMN / 2, TOP + HEIGHT + 16, d);
  }
  put("<text x=\"%d\" y=\"%d\">Standard deviations from the expected count, %s of each "
      "digit</text>\n</svg>\n",
      LEFT, TOP + HEIGHT + 40, Console::format_commas(static_cast<u64>(expected)).c_str());
  return svg;
}

PatternSearch::PatternSearch(std::string pattern) : pattern_(std::move(pattern)) {
  const u64 last = pattern_.size() - 1;
  offsets_[0] = 0;
  offsets_[1] = last / 3;
  offsets_[2] = last - last / 3;
  offsets_[3] = last;
}

void PatternSearch::search(const char* text, u64 size, u64 start, u64 most,
                           std::vector<u64>& positions) const {
  const u64 m = pattern_.size();
  if (size < m) return;
  const u64 starts = size - m + 1; // possible beginnings of a match
  __m128i wanted[4];
  for (int k = 0; k < 4; ++k) wanted[k] = _mm_set1_epi8(pattern_[offsets_[k]]);
  const auto matches = [&](u64 i, int k) {
    const auto* const p = reinterpret_cast<const __m128i*>(text + i + offsets_[k]);
    return _mm_cmpeq_epi8(_mm_loadu_si128(p), wanted[k]);
  };
  u64 i = 0, work = 0;
  for (; i + 16 <= starts && positions.size() < most; i += 16) {
    const __m128i both = _mm_and_si128(_mm_and_si128(matches(i, 0), matches(i, 1)),
                                       _mm_and_si128(matches(i, 2), matches(i, 3)));
    for (auto mask = static_cast<u32>(_mm_movemask_epi8(both)); mask != 0; mask &= mask - 1) {
      const u64 at = i + static_cast<u64>(__builtin_ctz(mask));
      if (std::memcmp(text + at, pattern_.data(), m) == 0 && positions.size() < most)
        positions.push_back(start + at);
      work += m;
    }
    if (work > 16 * (i + 4096)) { // a text made of the pattern's pieces
      i += 16;
      break;
    }
  }
  while (i < starts && positions.size() < most) {
    const auto* const found =
        static_cast<const char*>(memmem(text + i, size - i, pattern_.data(), m)); // linear for any text
    if (found == nullptr) return;
    i = static_cast<u64>(found - text);
    positions.push_back(start + i);
    ++i;
  }
}

void PatternSearch::add(const char* digits, u64 count, u64 most, std::vector<u64>& positions) {
  const u64 keep = pattern_.size() - 1;
  // Matches across the end of the block before: those that begin in what was kept of it.
  const std::string joint = tail_ + std::string(digits, std::min(count, keep));
  search(joint.data(), joint.size(), position_ - tail_.size(), most, positions);
  search(digits, count, position_, most, positions);
  position_ += count;
  if (count >= keep) {
    tail_.assign(digits + (count - keep), keep);
  } else {
    tail_.append(digits, count);
    if (tail_.size() > keep) tail_.erase(0, tail_.size() - keep);
  }
}

} // namespace kelvane::companion
