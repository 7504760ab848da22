#include "arithmetic/exact_division.h"

#include <algorithm>

#include "arithmetic/words/add.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

// x^-1 mod 2^64 of an odd x: 5 bits of 3x ^ 2 are right, each step doubles them.
u64 inverse_word(u64 x) {
  u64 y = (3 * x) ^ 2;
  for (int i = 0; i < 4; i++) y *= 2 - x * y;
  return y;
}

// The two products of a Newton step to n words, of at most 3/2 n and n + 1 words.
struct InversePlacement {
  u64 *residual, *correction;
  void* work;
  InversePlacement(Layout& layout, u64 n, const km_MULv3::Context& context)
      : residual(layout.take<u64>(n + n / 2 + 2)), correction(layout.take<u64>(n + 2)),
        work(layout.take_bytes(km_MULv3::memory_cost(n + n / 2 + 2, context.threads))) {}
};

km_MULv3::Context one_thread(km_MULv3::Context context) {
  context.threads = 1;
  context.reduced_memory = false;
  return context;
}

// Work of a quotient: the product, of which the low half is wanted, and its transform.
struct DividePlacement {
  u64* product;
  void *transform, *scratch;
  DividePlacement(Layout& layout, u64 words, u64 transform_bytes, u64 scratch_bytes)
      : product(layout.take<u64>(2 * words)), transform(layout.take_bytes(transform_bytes)),
        scratch(layout.take_bytes(scratch_bytes)) {}
};

} // namespace

u64 inverse_bytes(u64 n, const km_MULv3::Context& context) {
  Layout layout;
  InversePlacement(layout, n, context);
  return layout.used();
}

// With n words right, G I = 1 + e B^n modulo B^(2n), and I - I e B^n has 2n.
void invert_modulo_power(const km_MULv3::Context& context, u64* inverse, u64 words, const u64* G, u64 nG,
                         void* work) {
  Layout layout(work, inverse_bytes(words, context));
  const InversePlacement place(layout, words, context);
  u64 *const t = place.residual, *const s = place.correction;
  u32 halvings = 0;
  while (((words - 1) >> halvings) + 1 > 1) halvings++;
  inverse[0] = inverse_word(G[0]);
  for (u64 n = 1; halvings-- > 0;) {
    const u64 next = ((words - 1) >> halvings) + 1, fresh = next - n, g = std::min(nG, next);
    km_MULv3::multiply(context, t, G, g, inverse, n, place.work);
    if (g + n < next) std::fill(t + g + n, t + next, u64{0});
    km_MULv3::multiply(context, s, t + n, fresh, inverse, fresh, place.work);
    words::complement(inverse + n, s, fresh);
    words::add_word(inverse + n, fresh, 1);
    n = next;
  }
}

// The cost of a product holds two transforms and their scratch, for every length up to that.
u64 ExactDivision::memory_bytes(u64 quotient_words) {
  Layout layout;
  layout.take_bytes(km_MULv3::memory_cost(2 * quotient_words, 1) / 2);
  return layout.used();
}

u64 ExactDivision::work_bytes(u64 quotient_words) {
  Layout layout;
  DividePlacement(layout, quotient_words, km_MULv3::memory_cost(2 * quotient_words, 1), 0);
  return layout.used() + 2 * Layout::ALIGNMENT;
}

ExactDivision::ExactDivision(const km_MULv3::Context& context, const u64* inverse, u64 quotient_words,
                             void* memory, void* work)
    : words_(quotient_words), parameters_(km_MULv3::select(2 * words_, one_thread(context), &storage_)),
      inverse_transform_(memory) {
  parameters_->forward(inverse_transform_, inverse, words_, work);
}

void ExactDivision::divide(u64* out, const u64* X, u64 n, void* work) const {
  Layout layout(work, work_bytes(words_));
  const DividePlacement place(layout, words_, parameters_->transform_bytes(), parameters_->scratch_bytes());
  parameters_->forward_once(place.transform, X, n, place.scratch);
  parameters_->inverse_fmul(place.product, n + words_, place.transform, inverse_transform_, place.scratch);
  std::copy_n(place.product, n, out);
}

} // namespace kelvane
