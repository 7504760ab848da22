// See factorise.h.

#include "series/log_formula/factorise.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

namespace kelvane::log_search {

namespace {

constexpr u64 TRIAL_LIMIT = 1000;

constexpr std::array<u32, 168> primes_below_1000() {
  std::array<u32, 168> primes{};
  size_t count = 0;
  for (u32 n = 2; n < TRIAL_LIMIT; n++) {
    bool prime = true;
    for (size_t i = 0; i < count && primes[i] * primes[i] <= n; i++) prime = prime && n % primes[i] != 0;
    if (prime) primes[count++] = n;
  }
  return primes;
}
constexpr std::array<u32, 168> SMALL_PRIMES = primes_below_1000();
static_assert(SMALL_PRIMES.back() == 997);

// Arithmetic modulo an odd n on x R mod n, R = 2^64 (Montgomery, Math. Comp. 44, 1985).
class Montgomery {
public:
  explicit Montgomery(u64 n) : n_(n), one_(-n % n), inverse_(n) {
    // n n = 1 mod 8; every step doubles the correct bits.
    for (int i = 0; i < 5; i++) inverse_ *= 2 - n * inverse_;
    square_of_R_ = static_cast<u64>(static_cast<u128>(one_) * one_ % n);
  }
  u64 one() const { return one_; }
  u64 to(u64 x) const { return mul(x % n_, square_of_R_); }
  // x y / R mod n, reduced to [0, n).
  u64 mul(u64 x, u64 y) const {
    const u128 product = static_cast<u128>(x) * y;
    const u64 high = static_cast<u64>(product >> 64);
    const u64 multiple = static_cast<u64>(static_cast<u128>(static_cast<u64>(product) * inverse_) * n_ >> 64);
    return high >= multiple ? high - multiple : high - multiple + n_;
  }
  u64 add(u64 x, u64 y) const { return x >= n_ - y ? x - (n_ - y) : x + y; }
  u64 pow(u64 x, u64 e) const {
    u64 r = one_;
    for (; e != 0; e >>= 1, x = mul(x, x)) {
      if ((e & 1) != 0) r = mul(r, x);
    }
    return r;
  }

private:
  u64 n_;
  u64 one_;
  u64 inverse_; // of n modulo 2^64
  u64 square_of_R_;
};

// n odd, above TRIAL_LIMIT^2 or at least free of the bases.
bool strong_probable_prime(const Montgomery& m, u64 n, u64 base) {
  const int twos = std::countr_zero(n - 1);
  const u64 minus_one = n - m.one();
  u64 x = m.pow(m.to(base), (n - 1) >> twos);
  if (x == m.one() || x == minus_one) return true;
  for (int i = 1; i < twos; i++) {
    x = m.mul(x, x);
    if (x == minus_one) return true;
  }
  return false;
}

// A proper factor of an odd composite n, or 0. The sequence x <- x^2 + c runs into a cycle modulo a factor p
// after about sqrt(p) steps; differences are multiplied up so that one gcd serves many of them.
u64 split(u64 n) {
  const Montgomery m(n);
  constexpr u64 BATCH = 128;
  constexpr u64 LONGEST_CYCLE = u64{1} << 24; // far beyond sqrt(2^32)
  for (u64 seed = 1; seed <= 32; seed++) {
    const u64 c = m.to(seed);
    const auto step = [&](u64 x) { return m.add(m.mul(x, x), c); };
    u64 y = m.to(seed + 1), x = y, batch_start = y, g = 1;
    u64 product = m.one();
    for (u64 r = 1; g == 1 && r <= LONGEST_CYCLE; r *= 2) {
      x = y;
      for (u64 i = 0; i < r; i++) y = step(y);
      for (u64 done = 0; done < r && g == 1; done += BATCH) {
        batch_start = y;
        for (u64 i = 0; i < std::min(BATCH, r - done); i++) {
          y = step(y);
          product = m.mul(product, x > y ? x - y : y - x);
        }
        g = std::gcd(product, n);
      }
    }
    if (g == n) { // both factors' cycles closed in one batch: take its steps singly
      g = 1;
      for (y = batch_start; g == 1;) {
        y = step(y);
        g = std::gcd(x > y ? x - y : y - x, n);
      }
    }
    if (g != 1 && g != n) return g;
  }
  return 0;
}

void add_factor(Factors& f, u64 p, u32 e) {
  for (u32 i = 0; i < f.count; i++) {
    if (f.prime[i] == p) {
      f.exponent[i] += e;
      return;
    }
  }
  f.prime[f.count] = p;
  f.exponent[f.count++] = e;
}

bool factorise_large(u64 n, Factors& f) {
  if (n == 1) return true;
  if (n < TRIAL_LIMIT * TRIAL_LIMIT || is_prime(n)) {
    add_factor(f, n, 1);
    return true;
  }
  const u64 d = split(n);
  return d != 0 && factorise_large(d, f) && factorise_large(n / d, f);
}

void sort_by_prime(Factors& f) {
  for (u32 i = 1; i < f.count; i++) {
    for (u32 j = i; j > 0 && f.prime[j - 1] > f.prime[j]; j--) {
      std::swap(f.prime[j - 1], f.prime[j]);
      std::swap(f.exponent[j - 1], f.exponent[j]);
    }
  }
}

} // namespace

bool is_prime(u64 n) {
  constexpr size_t BASES = 12;
  for (size_t i = 0; i < BASES; i++) {
    if (n % SMALL_PRIMES[i] == 0) return n == SMALL_PRIMES[i];
  }
  if (n < 41 * 41) return n > 1;
  const Montgomery m(n);
  for (size_t i = 0; i < BASES; i++) {
    if (!strong_probable_prime(m, n, SMALL_PRIMES[i])) return false;
  }
  return true;
}

bool factorise(u64 n, Factors& f) {
  f.count = 0;
  if (n == 0) return false;
  for (const u64 p : SMALL_PRIMES) {
    if (p * p > n) break;
    u32 e = 0;
    for (; n % p == 0; n /= p) e++;
    if (e != 0) add_factor(f, p, e);
  }
  const bool found = factorise_large(n, f);
  sort_by_prime(f);
  return found;
}

} // namespace kelvane::log_search
