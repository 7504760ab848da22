#include "arithmetic/kob_cdi_GFP.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "arithmetic/hashed_integer.h"
#include "arithmetic/redundancy.h"
#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane {

void kob_cdi_GFP::attach(u64* words, u64 allocated) {
  buffer = T = words;
  AL = allocated;
  set_zero();
}

void kob_cdi_GFP::set_zero() {
  T = buffer;
  L = 0;
  exp = 0;
  sign = 1;
}

void kob_cdi_GFP::set_value(u64 length, s64 exponent, s32 sign_) {
  T = buffer;
  L = words::normalized_length(T, length);
  exp = exponent;
  sign = sign_;
  if (L == 0) set_zero();
}

void kob_cdi_GFP::set_truncated(const kob_cdi_GFP& B, u64 p) {
  if (B.is_zero()) return set_zero();
  const u64 k = std::min(p + 2, B.L);
  if (AL < k) assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_GFP::set_truncated()", L"AL is too small.");
  T = buffer;
  std::memmove(T, B.T + (B.L - k), k * sizeof(u64));
  exp = B.exp + static_cast<s64>(B.L - k);
  L = k;
  sign = B.sign;
}

void kob_cdi_GFP::trim(u64 p) {
  if (L <= p + 2) return;
  const u64 drop = L - (p + 2);
  T += drop;
  L -= drop;
  exp += static_cast<s64>(drop);
}

void kob_cdi_GFP::set_mul_word(const kob_cdi_GFP& B, u64 w) {
  if (B.is_zero() || w == 0) return set_zero();
  if (AL <= B.L)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_GFP::set_mul_word()", L"AL is too small.");
  // Copied first, so that the operation also works in place from a trimmed start.
  const u64 n = B.L;
  const s64 e = B.exp;
  const s32 s = B.sign;
  std::memmove(buffer, B.T, n * sizeof(u64));
  buffer[n] = words::mul_word(buffer, buffer, n, w);
  set_value(n + 1, e, s);
}

void kob_cdi_GFP::set_double(double x, s64 e) {
  if (x == 0) return set_zero();
  const u64 bits = std::bit_cast<u64>(x);
  const s64 biased = static_cast<s64>((bits >> 52) & 0x7ff);
  const u64 fraction = bits & ((u64{1} << 52) - 1);
  // x = m * 2^shift; the shift is split into whole words and 0..63 bits.
  const u64 m = biased == 0 ? fraction : fraction | (u64{1} << 52);
  const s64 shift = (biased == 0 ? 1 : biased) - 1075;
  const s64 whole = shift >= 0 ? shift / 64 : -((63 - shift) / 64);
  const u64 part = static_cast<u64>(shift - 64 * whole);
  const u128 wide = static_cast<u128>(m) << part;
  buffer[0] = static_cast<u64>(wide);
  buffer[1] = static_cast<u64>(wide >> 64);
  set_value(2, e + whole, (bits >> 63) == 0);
  if (L == 2 && T[0] == 0) { // no zero word at the bottom: one word is enough
    T[0] = T[1];
    L = 1;
    exp += 1;
  }
}

double kob_cdi_GFP::get_double(s64* e) const {
  double x = 0;
  for (u64 i = 0; i < std::min<u64>(L, 3); i++)
    x += std::ldexp(static_cast<double>(T[L - 1 - i]), -64 * static_cast<int>(i));
  *e = mag() - 1;
  return x;
}

void kob_cdi_GFP::read_slice(u64* out, s64 s, u64 n) const {
  const s64 end = s + static_cast<s64>(n);
  const s64 from = std::clamp(exp, s, end), to = std::clamp(mag(), from, end);
  // The words move first: out may be the number's own buffer.
  u64* const moved = out + (from - s);
  const u64* const words = T + (from - exp);
  if (to > from && moved != words) std::memmove(moved, words, static_cast<u64>(to - from) * sizeof(u64));
  std::fill(out, out + (from - s), u64{0});
  std::fill(out + (to - s), out + n, u64{0});
}

namespace {

// Lays A out over the result's window: p + 2 words below A's top and one guard word above.
// Returns the window's lowest position.
s64 open_window(kob_cdi_GFP& R, const kob_cdi_GFP& A, u64 p) {
  if (R.AL < p + 3)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_GFP::set_add_magnitude()", L"AL is too small.");
  const s64 low = A.mag() - static_cast<s64>(p + 2);
  A.read_slice(R.buffer, low, p + 3);
  return low;
}

} // namespace

void kob_cdi_GFP::set_add_magnitude(const kob_cdi_GFP& A, const kob_cdi_GFP& B, u64 p) {
  const s32 s = A.sign;
  const s64 low = open_window(*this, A, p);
  if (B.mag() > low) {
    const s64 skip = std::max<s64>(0, low - B.exp); // words of B below the window
    const u64 n = B.L - static_cast<u64>(skip);
    words::add_propagate(buffer + (B.exp + skip - low), B.T + skip, n);
  }
  set_value(p + 3, low, s);
  trim(p);
}

void kob_cdi_GFP::set_sub_magnitude(const kob_cdi_GFP& A, const kob_cdi_GFP& B, u64 p) {
  const s32 s = A.sign;
  const s64 low = open_window(*this, A, p);
  if (B.mag() > low) {
    const s64 skip = std::max<s64>(0, low - B.exp);
    const u64 n = B.L - static_cast<u64>(skip);
    words::sub_propagate(buffer + (B.exp + skip - low), B.T + skip, n);
  }
  set_value(p + 3, low, s);
  trim(p);
}

u64 kob_cdi_GFP::hash() const {
  return L == 0 ? 0 : residue::mul(residue::hash_words(T, L), residue::weight(exp));
}

void kob_cdi_GFP::dump() const {
  const auto line = [](const char* label, s64 value) {
    Console::print(label);
    Console::print_s64(value);
  };
  line("sign = ", sign);
  line("\nmag =  ", mag());
  line("\nexp =  ", exp);
  line("\nL =    ", static_cast<s64>(L));
  line("\nAL =   ", static_cast<s64>(AL));
  Console::print("\n");
  const u64 shown = std::min<u64>(L, 5);
  dump_words(T + (L - shown), shown);
}

namespace {

// The one placement of a product's work: the full product, then the multiplication's own area.
struct ProductPlacement {
  u64* product;
  void* work;
  ProductPlacement(Layout& layout, u64 n, const km_MULv3::Context& context)
      : product(layout.take<u64>(n)),
        work(layout.take_bytes(km_MULv3::memory_cost(n, context.threads, context.reduced_memory))) {}
};

void keep_product(kob_cdi_GFP& R, const u64* product, u64 n, s64 exp, s32 sign, u64 p) {
  n = words::normalized_length(product, n);
  const u64 k = std::min(n, p + 2);
  if (R.AL < k) assert_fail(INVALID_FUNCTION_PARAMETERS, L"set_product()", L"AL is too small.");
  std::memcpy(R.buffer, product + (n - k), k * sizeof(u64));
  R.set_value(k, exp + static_cast<s64>(n - k), sign);
}

} // namespace

u64 product_work_bytes(u64 pa, u64 pb, const km_MULv3::Context& context) {
  Layout layout;
  ProductPlacement(layout, pa + pb + 4, context);
  return layout.used();
}

void set_product(const km_MULv3::Context& context, kob_cdi_GFP& R, const kob_cdi_GFP& A, u64 pa,
                 const kob_cdi_GFP& B, u64 pb, u64 p, void* work) {
  const u64 na = std::min(A.L, pa + 2), nb = std::min(B.L, pb + 2);
  if (na == 0 || nb == 0) return R.set_zero();
  Layout layout(work, product_work_bytes(pa, pb, context));
  const ProductPlacement place(layout, pa + pb + 4, context);
  const u64 *a = A.T + (A.L - na), *b = B.T + (B.L - nb);
  km_MULv3::multiply(context, place.product, a, na, b, nb, place.work);
  check_product_residue(residue::hash_words(a, na), residue::hash_words(b, nb), place.product, na + nb);
  const s64 exp = A.exp + static_cast<s64>(A.L - na) + B.exp + static_cast<s64>(B.L - nb);
  keep_product(R, place.product, na + nb, exp, A.sign == B.sign, p);
}

void set_square(const km_MULv3::Context& context, kob_cdi_GFP& R, const kob_cdi_GFP& A, u64 pa, u64 p,
                void* work) {
  const u64 na = std::min(A.L, pa + 2);
  if (na == 0) return R.set_zero();
  Layout layout(work, product_work_bytes(pa, pa, context));
  const ProductPlacement place(layout, pa + pa + 4, context);
  const u64* a = A.T + (A.L - na);
  km_MULv3::square(context, place.product, a, na, place.work);
  const u64 hash = residue::hash_words(a, na);
  check_product_residue(hash, hash, place.product, 2 * na);
  keep_product(R, place.product, 2 * na, 2 * (A.exp + static_cast<s64>(A.L - na)), 1, p);
}

} // namespace kelvane
