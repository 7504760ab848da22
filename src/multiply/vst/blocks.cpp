#include "multiply/vst/blocks.h"

#include <cstring>

#include "multiply/vst/km_VSTv2.h"

namespace kelvane::km_VSTv2 {

using km_MULv3::Term;

Division divide(u64 n, const ntt::Shape& largest) {
  const ntt::Shape* const shape = ntt::choose_shape(largest.backend, 64 * n);
  if (shape != nullptr && shape->capacity_bits() <= largest.capacity_bits())
    return {*shape, shape->capacity_words(), 1};
  // A sum of MAX_SUM products of two blocks has two bits more than 2 B words.
  const u64 B = (largest.capacity_words() - 1) / 2;
  return {largest, B, (n + B - 1) / B};
}

void accumulate(u64* out, u64 n, u64 at, const u64* x, u64 count, bool subtract, bool wrapped) {
  u64 carry = 0;
  for (u64 i = 0; i < count || carry != 0; i++, at++) {
    if (at == n) {
      if (!wrapped) return;
      at = 0; // 2^(64 n) = 1, for the words and for the carry
    }
    const u64 word = i < count ? x[i] : 0;
    if (subtract) {
      const u128 difference = static_cast<u128>(out[at]) - word - carry;
      out[at] = static_cast<u64>(difference);
      carry = static_cast<u64>(difference >> 64) != 0 ? 1 : 0;
    } else {
      const u128 sum = static_cast<u128>(out[at]) + word + carry;
      out[at] = static_cast<u64>(sum);
      carry = static_cast<u64>(sum >> 64);
    }
  }
}

// Added and subtracted products are inverted apart, so that every inverse is of a sum that is not negative;
// what they leave in `out` in between is right modulo 2^(64 n) (2^(64 n) - 1).
void mtp_t::inverse_blocks(u64* out, u64 n, const Term* terms, u64 count, bool wrapped, void* scratch) const {
  Layout layout(scratch, scratch_bytes());
  const BlockScratch s(layout, engine_, division_);
  const u64 words = 2 * division_.block_words + 1;
  for (u64 i = 0; i < n; i++) out[i] = 0;
  for (const bool subtract : {false, true}) {
    for (u64 m = 0; m + 1 < 2 * division_.blocks; m++) {
      const u64 at = m * division_.block_words;
      if (at >= n && !wrapped) break; // only zeros up there
      Term batch[ntt::MAX_SUM];
      u64 size = 0;
      const auto flush = [&] {
        if (size == 0) return;
        // The inverse uses up its first transform: a copy, for the block is needed again.
        std::memcpy(s.result, batch[0].TA, engine_.transform_bytes());
        if (batch[0].TB == batch[0].TA) batch[0].TB = s.result;
        batch[0].TA = s.result;
        inverse_transform(s.words, words, batch, size, false, s.engine);
        accumulate(out, n, at % n, s.words, words, subtract, wrapped);
        size = 0;
      };
      for (u64 t = 0; t < count; t++) {
        if (terms[t].subtract != subtract) continue;
        const u64 a = BlockTransform::count(terms[t].TA), b = BlockTransform::count(terms[t].TB);
        for (u64 i = m < b ? 0 : m - b + 1; i < a && i <= m; i++) {
          batch[size++] = {BlockTransform::block(engine_, terms[t].TA, i),
                           BlockTransform::block(engine_, terms[t].TB, m - i), false};
          if (size == ntt::MAX_SUM) flush();
        }
      }
      flush();
    }
  }
}

} // namespace kelvane::km_VSTv2
