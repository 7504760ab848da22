// The long sweep: every length, plan and shape against GMP, for every instruction set.
//
//   KELVANE_LONG=1 build/tests/multiply_test --gtest_filter='*Sweep*avx2*'
//
// Without KELVANE_LONG these tests do not exist. Each says how many products it has compared.
#include <algorithm>
#include <fstream>
#include <iostream>

#include "multiply/fft/km_FFTv2.h"
#include "multiply/hnt_fixture.h"

namespace kelvane::test {
namespace {

class Sweep : public testing::TestWithParam<simd::Isa> {
protected:
  ~Sweep() override { std::cout << "             " << compared_ << " products compared\n"; }

  // 1 to 5, in turn.
  u64 next_threads() { return 1 + turn_++ % 5; }
  km_MULv3::Context next_context(const Engine& engine) {
    km_MULv3::Context context = engine.context;
    context.threads = next_threads();
    return context;
  }
  void compare(const Words& got, const Words& want, const Words& a, const Words& b, const std::string& what) {
    compared_++;
    ASSERT_EQ(difference(got, want), "") << a.size() << " x " << b.size() << " words, " << what << ", seed "
                                         << SEED << ", product " << compared_ << ", " << name(GetParam());
  }
  void table_product(const km_MULv3::Context& context, const Words& a, const Words& b) {
    Words out(a.size() + b.size());
    const Buffer work(km_MULv3::product_cost(out.size(), context.threads, context.reduced_memory));
    km_MULv3::multiply(context, out.data(), a.data(), a.size(), b.data(), b.size(), work.data());
    compare(out, expected_product(a, b), a, b, std::to_string(context.threads) + " threads");
  }
  void table_square(const km_MULv3::Context& context, const Words& a) {
    Words out(2 * a.size());
    const Buffer work(km_MULv3::product_cost(out.size(), context.threads, context.reduced_memory));
    km_MULv3::square(context, out.data(), a.data(), a.size(), work.data());
    compare(out, expected_product(a, a), a, a, "square, " + std::to_string(context.threads) + " threads");
  }
  void note_compared() { compared_++; }

  static constexpr u64 SEED = 2026;
  std::mt19937_64 random_{SEED};

private:
  u64 compared_ = 0, turn_ = 0;
};

// The product of two numbers of na >= nb words, all ones: B^(na + nb) - B^na - B^nb + 1, B = 2^64. Returns
// the first word that differs, na + nb when none does.
u64 first_fault_of_ones(const u64* out, u64 na, u64 nb) {
  for (u64 i = 0; i < na + nb; i++) {
    const u64 want = i == 0 ? 1 : i < nb ? 0 : i == na ? ~u64{1} : ~u64{0};
    if (out[i] != want) return i;
  }
  return na + nb;
}

TEST_P(Sweep, EveryLengthUpTo3000) {
  const Engine engine(6000, GetParam());
  for (u64 n = 1; n <= 3000; n++) {
    for (const Pattern pattern : {Pattern::random, Pattern::ones, Pattern::sparse}) {
      const Words a = operand(n, pattern, random_), b = operand(n, pattern, random_);
      const km_MULv3::Context context = next_context(engine);
      table_product(context, a, b);
      table_square(context, a);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(Sweep, UnequalLengths) {
  const Engine engine(40000, GetParam());
  for (u64 nb = 1; nb <= 3000; nb += 1 + nb / 40) {
    for (const u64 ratio : {2, 3, 5, 6, 7, 10, 31, 100, 1000}) {
      if (ratio * nb > 1100000) continue;
      const u64 na = ratio * nb + random_() % (nb + 1);
      const Pattern pattern = static_cast<Pattern>(random_() % 3);
      const Words a = operand(na, pattern, random_), b = operand(nb, pattern, random_);
      table_product(next_context(engine), a, b);
      if (na < 100000) table_product(next_context(engine), b, a);
      if (HasFatalFailure()) return;
    }
  }
}

// Every plan of the FFT up to 2^20 words at its limit, one word less and one more: through the record, and
// through the table where the FFT's row ends.
TEST_P(Sweep, FftPlanBoundaries) {
  constexpr u64 MOST = u64{1} << 20;
  const Engine engine(2 * MOST, GetParam());
  for (u64 row = 0; row < km_FFTv2::PLANS; row++) {
    const u64 full = km_FFTv2::plan_of_row(row, 0, 1).capacity_bits / 64;
    if (full > MOST) break;
    for (const u64 n : {full - 1, full, full + 1}) {
      const Words ones(n / 2, ~u64{0}), a = operand(n - n / 2, Pattern::random, random_),
                                        b = operand(n / 2, Pattern::sparse, random_);
      const km_MULv3::Context context = next_context(engine);
      const km_FFTv2::btp_t record(km_FFTv2::make_plan(64 * n, context.threads), context);
      const Buffer TA(record.transform_bytes()), TB(record.transform_bytes()),
          scratch(record.scratch_bytes());
      const auto check = [&](const Words& x, const Words& y, bool square) {
        Words out(x.size() + y.size());
        record.forward(TA.data(), x.data(), x.size(), scratch.data());
        if (square) {
          record.inverse_fsqr(out.data(), out.size(), TA.data(), scratch.data());
        } else {
          record.forward(TB.data(), y.data(), y.size(), scratch.data());
          record.inverse_fmul(out.data(), out.size(), TA.data(), TB.data(), scratch.data());
        }
        compare(out, expected_product(x, y), x, y,
                "N " + std::to_string(record.plan().N) + (square ? ", square, " : ", ") +
                    std::to_string(context.threads) + " threads");
      };
      check(a, b, false);
      check(Words(n - n / 2, ~u64{0}), ones, false);
      check(ones, ones, true);
      if (n <= km_MULv3::LONGEST_FFT + 1) table_product(context, a, b);
      if (HasFatalFailure()) return;
    }
  }
}

// Every shape that is ever chosen for up to 2^20 words, likewise; with full and with reduced memory.
TEST_P(Sweep, ShapeBoundaries) {
  constexpr u64 MOST = u64{1} << 20;
  const Engine engine(40000, GetParam());
  const ntt::ShapeList list = ntt::shapes(ntt::backend_of(engine.isa()));
  for (u64 i = 0; i < list.count; i++) {
    const u64 full = list.first[i].capacity_words();
    if (full > MOST) break;
    if (full <= km_MULv3::LONGEST_FFT) continue;
    for (const u64 n : {full - 1, full, full + 1}) {
      const bool reduced = i % 2 != 0;
      km_MULv3::Context context = next_context(engine);
      context.reduced_memory = reduced;
      const Words a = operand(n - n / 2, Pattern::random, random_),
                  b = operand(n / 2, Pattern::random, random_), c = operand(n / 2, Pattern::ones, random_);
      table_product(context, a, b);
      table_product(context, operand(n - n / 2, Pattern::ones, random_), c);
      context.reduced_memory = !reduced;
      table_square(context, n == full ? c : b);
      if (HasFatalFailure()) return;
    }
  }
}

u64 available_bytes() {
  std::ifstream file("/proc/meminfo");
  std::string line;
  while (std::getline(file, line)) {
    if (line.starts_with("MemAvailable:")) return std::stoull(line.substr(13)) << 10;
  }
  return 0;
}

// Full products of ones through all plans of the FFT, as far as half of the free memory goes (8 N bytes a
// transform).
TEST_P(Sweep, FullFftPlans) {
  u64 done = 0, long_done = 0;
  std::unique_ptr<Engine> engine;
  u64 table_words = 0;
  for (u64 row = 0; row < km_FFTv2::PLANS; row++, done++) {
    const km_FFTv2::Plan plan = km_FFTv2::plan_of_row(row, 0, 1);
    const u64 n = plan.capacity_bits / 64, na = n - n / 3, nb = n / 3;
    // A square of half the capacity, in the memory of one transform, and a product of unequal operands.
    const u64 need = km_FFTv2::table_d::bytes(n) + 2 * plan.N8 + plan.N4 + 16 * n;
    const bool product = need < available_bytes() / 2;
    if (need - plan.N8 - 4 * n > available_bytes() / 2) break;
    if (engine == nullptr || table_words < n) {
      engine = nullptr;
      table_words = n < 1000000 ? 2000000 : n;
      engine = std::make_unique<Engine>(table_words, GetParam(), 2);
    }
    km_MULv3::Context context = engine->context;
    context.threads = n < 100000 ? next_threads() : 2;
    const km_FFTv2::btp_t record(km_FFTv2::plan_of_row(row, 64 * n, context.threads), context);
    const Buffer TA(record.transform_bytes()), scratch(record.scratch_bytes());
    Words out(n), a(na, ~u64{0});
    record.forward(TA.data(), a.data(), n / 2, scratch.data());
    record.inverse_fsqr(out.data(), n / 2 * 2, TA.data(), scratch.data());
    note_compared();
    ASSERT_EQ(first_fault_of_ones(out.data(), n / 2, n / 2), n / 2 * 2) << "square, N " << plan.N;
    if (!product) continue;
    if (n >= u64{1} << 20) std::cout << "             N " << plan.N << std::endl; // these take long
    const Buffer TB(record.transform_bytes());
    record.forward(TA.data(), a.data(), na, scratch.data());
    record.forward(TB.data(), a.data(), nb, scratch.data());
    record.inverse_fmul(out.data(), n, TA.data(), TB.data(), scratch.data());
    note_compared();
    ASSERT_EQ(first_fault_of_ones(out.data(), na, nb), n) << "product, N " << plan.N;
    if (plan.N >= u64{1} << 20) long_done++;
  }
  EXPECT_GE(long_done, 1u) << "not all plans up to 2^20 points";
  std::cout << "             " << done << " of " << km_FFTv2::PLANS << " plans\n";
}

// Full products of ones through every shape there is, chosen or not, up to 2^20 points.
TEST_P(Sweep, FullShapes) {
  const Engine engine(40000, GetParam()); // in force; no roots of the FFT are needed
  const ntt::ShapeList list = ntt::every_shape(ntt::backend_of(engine.isa()));
  u64 done = 0;
  for (u64 i = 0; i < list.count; i++) {
    const ntt::Shape& shape = list.first[i];
    if (shape.N() > u64{1} << 20) continue;
    done++;
    const u64 n = shape.capacity_words(), na = n - n / 2, nb = n / 2;
    const ntt::Engine transforms(shape, next_threads(), nullptr);
    const Buffer TA(transforms.transform_bytes()), TB(transforms.transform_bytes()),
        scratch(transforms.scratch_bytes());
    Words out(n), a(na, ~u64{0});
    const auto where = [&] {
      return "w " + std::to_string(shape.w) + ", b " + std::to_string(shape.b) + ", N " +
             std::to_string(shape.N()) + ", " + name(engine.isa());
    };
    transforms.product(out.data(), n, a.data(), na, a.data(), nb, TA.data(), TB.data(), scratch.data());
    note_compared();
    ASSERT_EQ(first_fault_of_ones(out.data(), na, nb), n) << where();
    transforms.product(out.data(), 2 * nb, a.data(), nb, nullptr, 0, TA.data(), nullptr, scratch.data());
    note_compared();
    ASSERT_EQ(first_fault_of_ones(out.data(), nb, nb), 2 * nb) << "square, " << where();
    transforms.reduced_product(out.data(), n, a.data(), na, a.data(), nb, TA.data(), TB.data(),
                               scratch.data());
    note_compared();
    ASSERT_EQ(first_fault_of_ones(out.data(), na, nb), n) << "reduced memory, " << where();
  }
  std::cout << "             " << done << " shapes\n";
}

std::vector<simd::Isa> swept() {
  return long_run() ? every_isa() : std::vector<simd::Isa>();
}
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Sweep);
INSTANTIATE_TEST_SUITE_P(All, Sweep, testing::ValuesIn(swept()),
                         [](const auto& info) { return std::string(name(info.param)); });

} // namespace
} // namespace kelvane::test
