// What the tests of products share: tables, aligned memory, operands, GMP as the oracle.
#pragma once

#include <gmp.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "multiply/fft/twiddles.h"
#include "multiply/simd/isa.h"
#include "multiply/table/km_MULv3.h"

namespace kelvane::test {

// Memory aligned to 64 bytes with a guard word behind, whose change the destructor reports.
class Buffer {
public:
  explicit Buffer(u64 bytes) : size_(bytes), memory_(new u8[bytes + 64 + 64]) {
    base_ = memory_.get() + (64 - reinterpret_cast<u64>(memory_.get()) % 64);
    for (u64 i = 0; i < GUARD; i++) base_[size_ + i] = 0xa5;
  }
  ~Buffer() {
    for (u64 i = 0; i < GUARD; i++)
      EXPECT_EQ(base_[size_ + i], 0xa5) << "written beyond " << size_ << " bytes";
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  void* data() const { return base_; }
  u64* words() const { return reinterpret_cast<u64*>(base_); }

private:
  static constexpr u64 GUARD = 32;
  u64 size_;
  std::unique_ptr<u8[]> memory_;
  u8* base_;
};

// The tables of one instruction set; forces it while it lives.
class Engine {
public:
  explicit Engine(u64 max_words, simd::Isa isa = simd::active_isa(), u64 threads = 1)
      : before_(simd::active_isa()), isa_(simd::force_isa(isa)),
        memory_(km_FFTv2::table_d::bytes(max_words)) {
    roots_.build(memory_.data(), max_words, threads);
    tables_.fft = &roots_;
    context.tables = &tables_;
    context.threads = threads;
  }
  ~Engine() { simd::force_isa(before_); }
  simd::Isa isa() const { return isa_; }

  km_MULv3::Context context;

private:
  simd::Isa before_, isa_;
  Buffer memory_;
  km_FFTv2::table_d roots_; // also beyond the lengths that the table of algorithms gives to the FFT
  km_MULv3::TableSet tables_;
};

inline std::vector<simd::Isa> supported_isas() {
  std::vector<simd::Isa> all;
  for (const simd::Isa isa : {simd::Isa::sse3, simd::Isa::avx2, simd::Isa::avx512}) {
    if (simd::supported(isa)) all.push_back(isa);
  }
  return all;
}

using Words = std::vector<u64>;

enum class Pattern { random, ones, sparse };

inline Words operand(u64 n, Pattern pattern, std::mt19937_64& random) {
  Words a(n);
  u64 run = 0;
  bool ones = false;
  for (u64& x : a) {
    if (pattern == Pattern::ones) {
      x = ~u64{0};
    } else if (pattern == Pattern::random) {
      x = random();
    } else { // long runs of zeros and of ones
      if (run == 0) {
        run = random() % 20 + 1;
        ones = !ones;
      }
      run--;
      x = ones ? ~u64{0} : 0;
    }
  }
  return a;
}

inline Words expected_product(const Words& a, const Words& b) {
  Words out(a.size() + b.size());
  const Words& x = a.size() >= b.size() ? a : b;
  const Words& y = a.size() >= b.size() ? b : a;
  mpn_mul(out.data(), x.data(), static_cast<mp_size_t>(x.size()), y.data(), static_cast<mp_size_t>(y.size()));
  return out;
}

// The first word in which two results differ, as text.
inline std::string difference(const Words& got, const Words& want) {
  for (u64 i = 0; i < want.size(); i++) {
    if (got[i] != want[i]) {
      return "word " + std::to_string(i) + " is " + std::to_string(got[i]) + ", not " +
             std::to_string(want[i]);
    }
  }
  return "";
}

} // namespace kelvane::test
