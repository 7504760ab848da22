// Bridges between the program's numbers and GMP's, for tests.
#pragma once

#include <gmp.h>

#include <random>
#include <string>
#include <vector>

#include "arithmetic/kob_cdi_EFPh.h"
#include "arithmetic/kob_cdi_GFP.h"
#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::test {

// An owned GMP integer.
class Z {
public:
  Z() { mpz_init(z_); }
  Z(const Z& o) { mpz_init_set(z_, o.z_); }
  Z& operator=(const Z& o) {
    mpz_set(z_, o.z_);
    return *this;
  }
  ~Z() { mpz_clear(z_); }
  static Z of_words(const u64* words, u64 n) {
    Z z;
    mpz_import(z.z_, n, -1, sizeof(u64), 0, 0, words);
    return z;
  }
  static Z of(u64 x) { return of_words(&x, 1); }
  mpz_ptr get() { return z_; }
  mpz_srcptr get() const { return z_; }
  std::string text() const {
    char* s = mpz_get_str(nullptr, 16, z_);
    std::string r(s);
    free(s); // GMP's default allocator
    return r.size() > 200 ? r.substr(0, 100) + "..." + r.substr(r.size() - 100) : r;
  }
  friend bool operator==(const Z& a, const Z& b) { return mpz_cmp(a.z_, b.z_) == 0; }

private:
  mpz_t z_;
};

inline Z shifted(const Z& z, s64 words) {
  Z r;
  if (words >= 0)
    mpz_mul_2exp(r.get(), z.get(), static_cast<mp_bitcnt_t>(words) * 64);
  else
    mpz_fdiv_q_2exp(r.get(), z.get(), static_cast<mp_bitcnt_t>(-words) * 64);
  return r;
}

// Random words; a few patterns of long runs of ones and zeros find carries that uniform words do not.
class Words {
public:
  explicit Words(u64 seed) : generator_(seed) {}
  u64 word() { return generator_(); }
  u64 below(u64 n) { return generator_() % n; }
  std::vector<u64> number(u64 n) {
    std::vector<u64> w(n);
    const u64 pattern = below(4);
    for (u64& x : w)
      x = pattern == 0 ? ~u64{0} : pattern == 1 && below(2) != 0 ? (below(2) != 0 ? ~u64{0} : 0) : word();
    if (n != 0 && w[n - 1] == 0) w[n - 1] = 1;
    return w;
  }

private:
  std::mt19937_64 generator_;
};

// A floating number with its own buffer.
struct OwnedEFPh : kob_cdi_EFPh {
  std::vector<u64> storage;
  explicit OwnedEFPh(u64 words) : storage(words) { attach(storage.data(), words); }
  OwnedEFPh(const std::vector<u64>& x, s64 e, u64 extra = 8) : storage(x.size() + extra) {
    attach(storage.data(), storage.size());
    set_words(x.data(), x.size());
    exp = e;
    hash = hash_of_words();
  }
};
struct OwnedGFP : kob_cdi_GFP {
  std::vector<u64> storage;
  explicit OwnedGFP(u64 words) : storage(words) { attach(storage.data(), words); }
};

// value * 2^(64 scale), as an integer.
inline Z value(const kob_cdi_EFPh& x, s64 scale) {
  return shifted(Z::of_words(x.T, x.L), x.exp + scale);
}
inline Z value(const kob_cdi_GFP& x, s64 scale) {
  return shifted(Z::of_words(x.T, x.L), x.exp + scale);
}

// 64-byte aligned work memory.
class Work {
public:
  explicit Work(u64 bytes) : storage_(bytes / 8 + 16) {}
  void* data() {
    const auto a = reinterpret_cast<uintptr_t>(storage_.data());
    return reinterpret_cast<void*>((a + 63) / 64 * 64);
  }

private:
  std::vector<u64> storage_;
};

} // namespace kelvane::test
