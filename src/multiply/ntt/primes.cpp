#include "multiply/ntt/primes.h"

#include <bit>
#include <cmath>

namespace kelvane::ntt {

Field::Field(u64 p) : p_(p), bits_(static_cast<u32>(std::bit_width(p))) {
  inverse_ = static_cast<u64>((static_cast<u128>(1) << (2 * bits_)) / p);
}

u64 Field::power(u64 a, u64 e) const {
  u64 r = 1;
  for (; e != 0; e >>= 1) {
    if ((e & 1) != 0) r = mul(r, a);
    a = mul(a, a);
  }
  return r;
}

u64 Field::non_square() const {
  u64 a = 2;
  while (is_square(a)) a++;
  return a;
}

// a^((p-1)/2^s) has order 2^s exactly when a is no square; likewise for 3 and cubes.
u64 Field::root_two() const {
  return power(non_square(), (p_ - 1) >> ORDER_LOG);
}

// Tonelli and Shanks: with p - 1 = 2^s m, x^2 = a b, b of order 2^i < 2^s; z, of order 2^s, takes b to a
// smaller order.
u64 Field::square_root(u64 a) const {
  u32 s = static_cast<u32>(std::countr_zero(p_ - 1));
  const u64 m = (p_ - 1) >> s;
  u64 z = power(non_square(), m), x = power(a, (m + 1) / 2), b = power(a, m);
  while (b != 1) {
    u32 i = 0;
    for (u64 c = b; c != 1; c = mul(c, c)) i++;
    const u64 t = power(z, u64{1} << (s - i - 1));
    x = mul(x, t);
    z = mul(t, t);
    b = mul(b, z);
    s = i;
  }
  return x;
}

u64 Field::root_three() const {
  for (u64 a = 2;; a++) {
    const u64 r = power(a, (p_ - 1) / 3);
    if (r != 1) return r;
  }
}

double log2_modulus(Backend backend, u32 w) {
  const PrimeSet& set = primes_of(backend);
  double sum = 0;
  for (u32 i = 0; i < w; i++) sum += std::log2(static_cast<double>(set.prime(i)));
  return sum - 1e-9;
}

} // namespace kelvane::ntt
