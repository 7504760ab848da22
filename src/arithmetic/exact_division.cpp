#include "arithmetic/exact_division.h"

#include <algorithm>

#include "arithmetic/words/add.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

// Quotients of fewer words than this are formed in one step.
constexpr u64 SHORT = 32;
// More parts than two make the inverse shorter and the products more; measured, parts of the divisor's length
// are best, and of more than four no part is gained.
constexpr u64 MAX_PARTS = 4;

u64 step_words(u64 divisor_words, u64 quotient_words) {
  if (quotient_words < SHORT) return quotient_words;
  const u64 parts = std::clamp((quotient_words + divisor_words / 2) / divisor_words, u64{2}, MAX_PARTS);
  return (quotient_words + parts - 1) / parts;
}
// Words of the longest product: k words of the quotient by the inverse or by the divisor. The products of the
// inverse's own steps are shorter.
u64 product_words(u64 divisor_words, u64 k) {
  return k + std::max(k, divisor_words) + 2;
}

// Buffers in the order in which they are used: the inverse, a product, and then either one more product of
// the Newton steps and its work or the transforms.
struct Placement {
  u64 *inverse, *product, *second;
  u8* transforms;
  u64 bytes; // of the transforms
  Placement(Layout& layout, u64 divisor_words, u64 k, const km_MULv3::Context& context)
      : inverse(layout.take<u64>(k)), product(layout.take<u64>(product_words(divisor_words, k))),
        second(layout.take<u64>(product_words(divisor_words, k))),
        bytes(layout.measuring()
                  ? 2 * km_MULv3::memory_cost(product_words(divisor_words, k), context.threads) +
                        4 * Layout::ALIGNMENT
                  : layout.left() / Layout::ALIGNMENT * Layout::ALIGNMENT) {
    transforms = static_cast<u8*>(layout.take_bytes(bytes));
  }
};

// x^-1 mod 2^64 of an odd x: 5 bits of 3x ^ 2 are right, each step doubles them.
u64 inverse_word(u64 x) {
  u64 y = (3 * x) ^ 2;
  for (int i = 0; i < 4; i++) y *= 2 - x * y;
  return y;
}

} // namespace

u64 ExactDivision::work_bytes(u64 divisor_words, u64 quotient_words, const km_MULv3::Context& context) {
  Layout layout;
  Placement(layout, divisor_words, step_words(divisor_words, quotient_words), context);
  return layout.used();
}

ExactDivision::ExactDivision(const km_MULv3::Context& context, const u64* G, u64 nG, u64 quotient_words,
                             void* work, u64 bytes)
    : G_(G), nG_(nG), k_(step_words(nG, quotient_words)) {
  km_MULv3::Context full = context;
  full.reduced_memory = false;
  Layout layout(work, bytes);
  const Placement place(layout, nG, k_, full);
  inverse_ = place.inverse;
  product_ = place.product;
  invert(full, place.product, place.second, place.transforms);

  parameters_ = km_MULv3::select(product_words(nG, k_), full, &storage_);
  Layout transforms(place.transforms, place.bytes);
  inverse_transform_ = transforms.take_bytes(parameters_->transform_bytes());
  divisor_transform_ = transforms.take_bytes(parameters_->transform_bytes());
  passing_ = transforms.take_bytes(parameters_->transform_bytes());
  scratch_ = transforms.take_bytes(parameters_->scratch_bytes());
  parameters_->forward(inverse_transform_, inverse_, k_, scratch_);
  parameters_->forward(divisor_transform_, G, nG, scratch_);
}

// With n words right, G I = 1 + e B^n modulo B^(2n), and I - I e B^n has 2n.
void ExactDivision::invert(const km_MULv3::Context& context, u64* t, u64* s, void* work) {
  u32 halvings = 0;
  while (((k_ - 1) >> halvings) + 1 > 1) halvings++;
  inverse_[0] = inverse_word(G_[0]);
  for (u64 n = 1; halvings-- > 0;) {
    const u64 next = ((k_ - 1) >> halvings) + 1, fresh = next - n, g = std::min(nG_, next);
    km_MULv3::multiply(context, t, G_, g, inverse_, n, work);
    if (g + n < next) std::fill(t + g + n, t + next, u64{0});
    km_MULv3::multiply(context, s, t + n, fresh, inverse_, fresh, work);
    words::complement(inverse_ + n, s, fresh);
    words::add_word(inverse_ + n, fresh, 1);
    n = next;
  }
}

void ExactDivision::divide(u64* out, u64* X, u64 nX) const {
  const u64 n = nX - nG_ + 1;
  for (u64 at = 0; at < n; at += k_) {
    const u64 length = std::min(k_, n - at);
    parameters_->forward_once(passing_, X + at, length, scratch_);
    parameters_->inverse_fmul(product_, length + k_, passing_, inverse_transform_, scratch_);
    std::copy_n(product_, length, out + at);
    const u64 behind = at + length;
    if (behind == n) break;
    parameters_->forward_once(passing_, out + at, length, scratch_);
    parameters_->inverse_fmul(product_, length + nG_, passing_, divisor_transform_, scratch_);
    // The low words of the product are those of X and cancel.
    const u64 count = std::min(nG_, n - behind);
    const u64 borrow = words::sub_in_place(X + behind, product_ + length, count);
    words::sub_word(X + behind + count, n - behind - count, borrow);
  }
}

} // namespace kelvane
