#include "multiply/basecase/basecase.h"

#include "multiply/simd/isa.h"
#include "shell/cpu_features.h"

namespace kelvane::km_MULB {

namespace {

template <class W> struct Wide;
template <> struct Wide<u32> { using type = u64; };
template <> struct Wide<u64> { using type = u128; };
template <class W> using wide = typename Wide<W>::type;
template <class W> constexpr unsigned word_bits = 8 * sizeof(W);

// R <- A x, returns the carry word: x a + c <= (W-1)^2 + (W-1) < W^2.
template <class W> W row(W* R, const W* A, u64 n, W x) {
  W c = 0;
  for (u64 i = 0; i < n; i++) {
    const wide<W> t = static_cast<wide<W>>(A[i]) * x + c;
    R[i] = static_cast<W>(t);
    c = static_cast<W>(t >> word_bits<W>);
  }
  return c;
}

// R += A x, returns the carry word: x a + r + c <= (W-1)^2 + 2 (W-1) = W^2 - 1.
template <class W> W add_row(W* R, const W* A, u64 n, W x) {
  W c = 0;
  for (u64 i = 0; i < n; i++) {
    const wide<W> t = static_cast<wide<W>>(A[i]) * x + R[i] + c;
    R[i] = static_cast<W>(t);
    c = static_cast<W>(t >> word_bits<W>);
  }
  return c;
}

template <class W> void product(W* out, const W* A, u64 na, const W* B, u64 nb) {
  out[na] = row(out, A, na, B[0]);
  for (u64 j = 1; j < nb; j++) out[na + j] = add_row(out + j, A, na, B[j]);
}

// A^2 = 2 sum_{i<j} a_i a_j W^(i+j) + sum a_i^2 W^(2i): the triangle above the diagonal is formed once,
// then one pass doubles it and adds the squares.
template <class W> void square(W* out, const W* A, u64 n) {
  out[0] = 0;
  if (n > 1) {
    out[n] = row(out + 1, A + 1, n - 1, A[0]);
    for (u64 i = 1; i + 1 < n; i++) out[n + i] = add_row(out + 2 * i + 1, A + i + 1, n - 1 - i, A[i]);
  }
  out[2 * n - 1] = 0;
  W carry = 0;   // of the sums, 0 or 1
  W shifted = 0; // the bit that doubling moves up from the word below
  for (u64 i = 0; i < n; i++) {
    const wide<W> s = static_cast<wide<W>>(A[i]) * A[i];
    const W lo = out[2 * i], hi = out[2 * i + 1];
    const wide<W> t0 = static_cast<wide<W>>(static_cast<W>(lo << 1 | shifted)) + static_cast<W>(s) + carry;
    const wide<W> t1 = static_cast<wide<W>>(static_cast<W>(hi << 1 | lo >> (word_bits<W> - 1))) +
                       static_cast<W>(s >> word_bits<W>) + static_cast<W>(t0 >> word_bits<W>);
    out[2 * i] = static_cast<W>(t0);
    out[2 * i + 1] = static_cast<W>(t1);
    carry = static_cast<W>(t1 >> word_bits<W>);
    shifted = static_cast<W>(hi >> (word_bits<W> - 1));
  }
}

void any_product(u64* out, const u64* A, u64 na, const u64* B, u64 nb) {
  product(out, A, na, B, nb);
}
void any_square(u64* out, const u64* A, u64 n) {
  square(out, A, n);
}

template <class Table, class F> constexpr Table for_all_lengths(F f) {
  Table table{};
  for (auto& entry : table.of_length) entry = f;
  return table;
}

} // namespace

constinit const Products PORTABLE_PRODUCTS = for_all_lengths<Products>(any_product);
constinit const Squares PORTABLE_SQUARES = for_all_lengths<Squares>(any_square);

bool has_adx() {
  return simd_support().adx;
}
bool use_adx() {
  return has_adx() && simd::active_isa() != simd::Isa::sse3;
}

namespace {
const Products& PRODUCTS = use_adx() ? ADX_PRODUCTS : PORTABLE_PRODUCTS;
const Squares& SQUARES = use_adx() ? ADX_SQUARES : PORTABLE_SQUARES;
} // namespace

void multiply_basecase(u64* out, const u64* A, u64 na, const u64* B, u64 nb) {
  PRODUCTS(out, A, na, B, nb);
}
void multiply_basecase(u32* out, const u32* A, u64 na, const u32* B, u64 nb) {
  product(out, A, na, B, nb);
}
void square_basecase(u64* out, const u64* A, u64 n) {
  SQUARES(out, A, n);
}
void square_basecase(u32* out, const u32* A, u64 n) {
  square(out, A, n);
}

} // namespace kelvane::km_MULB
