#include "series/kc_BSS_P2B3_Type0.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/words/add.h"
#include "series/shared_products.h"

namespace kelvane {

namespace {

// A leaf's integers while they are formed. LEAF_WORDS bounds every leaf: end thresholds are at most 16
// words, a single term has at most 14, and partial products one word more.
constexpr u64 LEAF_WORDS = 48;

struct LeafInteger {
  u64 words[LEAF_WORDS];
  u64 n = 0;

  void set(u64 x) {
    words[0] = x;
    n = x != 0;
  }
  void multiply(u64 x) {
    const u64 carry = words::mul_word(words, words, n, x);
    if (carry != 0) words[n++] = carry;
  }
  void multiply(const u64* factors, u32 count) {
    for (u32 i = 0; i < count; i++) multiply(factors[i]);
  }
};

// x = A * poly.
void multiply_by_poly(LeafInteger& x, const LeafInteger& A, const u64* poly, u32 poly_words) {
  x.n = A.n + poly_words;
  std::fill_n(x.words, x.n, u64{0});
  for (u32 i = 0; i < poly_words; i++)
    x.words[A.n + i] = words::mul_word_add(x.words + i, A.words, A.n, poly[i]);
  x.n = words::normalized_length(x.words, x.n);
}

// R = R +/- x, for R > x when subtracting.
void accumulate(LeafInteger& R, const LeafInteger& x, bool subtract) {
  if (R.n < x.n) {
    std::fill(R.words + R.n, R.words + x.n, u64{0});
    R.n = x.n;
  }
  R.words[R.n] = subtract;
  if (subtract)
    words::sub_propagate(R.words, x.words, x.n);
  else
    words::add_propagate(R.words, x.words, x.n);
  R.n = subtract ? words::normalized_length(R.words, R.n) : R.n + (R.words[R.n] != 0);
}

} // namespace

// Terms a+1..b appended one by one to an empty range (P = Q = 1, R = 0), each a merge whose right
// half is a single term: only products by words, no calls of the product routines.
void kc_BSS_P2B3_Type0::leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
  LeafInteger P, Q, R, x;
  P.set(1);
  Q.set(1);
  R.set(0);
  SeriesTerm t;
  for (u64 k = a + 1; k <= b; k++) {
    term(k, t);
    if (plain) P.multiply(t.p, t.p_factors);
    multiply_by_poly(x, P, t.poly, t.poly_words);
    if (!plain) P.multiply(t.p, t.p_factors);
    R.multiply(t.q, t.q_factors);
    Q.multiply(t.q, t.q_factors);
    accumulate(R, x, alternating && ((k - a - 1) & 1) != 0);
  }
  out[0].set_words(P.words, P.n);
  out[1].set_words(Q.words, Q.n);
  out[2].set_words(R.words, R.n);
}

namespace {

// Work of merging two halves: the second product of R, and the products' own memory.
struct MergePlacement {
  u64* second;
  void* work;
  MergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : second(layout.take<u64>(product_words + 1)),
        work(layout.take_bytes(
            km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

} // namespace

u64 kc_BSS_P2B3_Type0::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  Layout layout;
  MergePlacement(layout, 2 * capacity, context);
  return layout.used();
}

double kc_BSS_P2B3_Type0::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return n * std::log2(n);
}

void kc_BSS_P2B3_Type0::merge(const km_MULv3::Context& context, u64 a, u64 m, u64, const kob_cdi_EFPh* left,
                              const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_P, void* work) const {
  const u64 n = longest(left) + longest(right);
  Layout layout(work, merge_bytes(std::max(left->AL, right->AL), context));
  const MergePlacement place(layout, n, context);
  kob_cdi_EFPh second;
  second.attach(place.second, n + 1);

  SharedProducts products(context, n, place.work);
  products.keep(right[1]);
  products.multiply(out[1], left[1]); // Ql Qr
  products.multiply(out[2], left[2]); // Rl Qr
  products.keep(left[0]);
  products.multiply(second, right[2]); // Pl Rr
  combine(out[2], second, m - a);
  if (need_P) products.multiply(out[0], right[0]); // Pl Pr
}

} // namespace kelvane
