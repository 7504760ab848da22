// The floating-point FFT: transforms against direct evaluation, products at every plan's limits, rounding
// errors.
#include <cmath>
#include <complex>

#include "multiply/fft/carry.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/fft/precision.h"
#include "multiply/product_fixture.h"
#include "support/short.h"

namespace kelvane::test {
namespace {

using km_FFTv2::btp_t;
using km_FFTv2::Plan;
using Complex = std::complex<long double>;

constexpr long double TWO_PI = 6.283185307179586476925286766559L;

// Work areas of one record.
struct Areas {
  Buffer TA, TB, scratch;
  explicit Areas(const km_MULv3::abstract_btp& record)
      : TA(record.transform_bytes()), TB(record.transform_bytes()), scratch(record.scratch_bytes()) {}
};

// The product through two transforms; in one call it must be the same.
Words product(const btp_t& record, const Areas& at, const Words& a, const Words& b) {
  Words out(a.size() + b.size()), at_once(out.size());
  record.forward(at.TA.data(), a.data(), a.size(), at.scratch.data());
  record.forward(at.TB.data(), b.data(), b.size(), at.scratch.data());
  record.inverse_fmul(out.data(), out.size(), at.TA.data(), at.TB.data(), at.scratch.data());
  record.product(at_once.data(), a.data(), a.size(), &a == &b ? nullptr : b.data(), b.size(), at.TA.data(),
                 at.TB.data(), at.scratch.data());
  EXPECT_EQ(difference(at_once, out), "") << "in one call, " << a.size() << " x " << b.size() << " words";
  return out;
}

// Words whose balanced digits are all -2^(b-1) + 1 but the lowest: the largest norm, all of it at one place
// of the spectrum.
Words peak_operand(u64 n, u32 b) {
  Words a(n, 0);
  for (u64 bit = b - 1; bit < 64 * n; bit += b) a[bit / 64] |= u64{1} << bit % 64;
  return a;
}

// The same with all digits but the highest 2^(b-1) - 1: products with the former have the points of the
// largest size below zero.
Words opposite_operand(u64 n, u32 b) {
  Words a = peak_operand(n, b);
  for (u64& word : a) word = ~word;
  return a;
}

std::string text(const Plan& plan, simd::Isa isa) {
  return "N = " + std::to_string(plan.N) + ", b = " + std::to_string(plan.b) + ", " + name(isa);
}

// The balanced digits by the definition, with a carry that runs.
std::vector<long double> digits_of(const Words& a, u64 N, u32 b) {
  std::vector<long double> digits(N);
  s64 carry = 0;
  for (u64 k = 0; k < N; k++) {
    s64 d = carry;
    for (u32 i = 0; i < b; i++) {
      const u64 bit = k * b + i;
      if (bit < 64 * a.size() && (a[bit / 64] >> bit % 64 & 1) != 0) d += s64{1} << i;
    }
    // Like the kernels: balanced by the digit's own top bit, not by what the carry makes of it.
    const bool top =
        k * b + b - 1 < 64 * a.size() && (a[(k * b + b - 1) / 64] >> (k * b + b - 1) % 64 & 1) != 0;
    carry = top && k + 1 < N ? 1 : 0;
    digits[k] = static_cast<long double>(d - (carry << b));
  }
  return digits;
}

// The order of the points: base block J of r L^2 points, child g of the lanes' step, root u, lane l holds the
// value at exp(2 pi i (psi + u) / r), psi the node's angle: rev(g) + rev(l) / L + psi_J / L^2.
long double angle_of_point(u64 index, u32 r, u64 n, u32 log_lanes) {
  const u64 L = u64{1} << log_lanes, block_points = r * L * L, blocks = n / block_points;
  const auto reversed = [](u64 x, u64 count) { // bits reversed, as a fraction of one
    long double f = 0, weight = 0.5L;
    for (; count > 1; count /= 2, x /= 2, weight /= 2) f += static_cast<long double>(x % 2) * weight;
    return f;
  };
  const u64 block = index / block_points, in_block = index % block_points;
  const u64 vector = in_block / L, lane = in_block % L, g = vector / r, u = vector % r;
  const long double root = reversed(block, blocks) + 1 / (4 * static_cast<long double>(blocks));
  const long double psi =
      reversed(g, L) + (reversed(lane, L) + root / static_cast<long double>(L)) / static_cast<long double>(L);
  return (psi + static_cast<long double>(u)) / r;
}

TEST(Fft, ForwardTransformAgainstDirectEvaluation) {
  std::mt19937_64 random(41);
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(600, isa);
    for (u64 row = 0; row < 12; row++) { // 64 to 1536 points
      const Plan plan = km_FFTv2::plan_of_row(row, 0, 1);
      const btp_t record(plan, engine.context);
      const Areas at(record);
      const u64 n = plan.N / 2, words = plan.capacity_bits / 64;
      // Lengths that use one, two, four and all eight runs of digits of the root's step.
      for (const u64 L : {words / 9 + 1, words / 5, words / 2 - 1, words / 2 + 1, words}) {
        const Words a = operand(L, L % 2 == 0 ? Pattern::random : Pattern::sparse, random);
        record.forward(at.TA.data(), a.data(), L, at.scratch.data());
        const std::vector<long double> d = digits_of(a, plan.N, plan.b);
        const auto* const T = static_cast<const double*>(at.TA.data());
        const u32 log_lanes = record.kernels().log_lanes;
        const u64 lanes = u64{1} << log_lanes;
        long double norm = 0;
        for (const long double x : d) norm += x * x;
        const long double tolerance = 1e-14L * std::sqrt(norm * static_cast<long double>(n)) + 1e-9L;
        for (u64 p = 0; p < n; p += 1 + random() % 7) {
          const Complex x = std::polar(1.0L, TWO_PI * angle_of_point(p, plan.r, n, log_lanes));
          Complex value = 0;
          for (u64 k = n; k-- > 0;) value = value * x + Complex(d[k], d[n + k]);
          const u64 at_vector = p / lanes * 2 * lanes + p % lanes;
          ASSERT_LT(std::abs(value - Complex(T[at_vector], T[at_vector + lanes])), tolerance)
              << text(plan, isa) << ", " << L << " words, point " << p;
        }
      }
    }
  }
}

// Products that fill a plan to its last bit, and those just above and below, with operands that carry
// furthest.
TEST(Fft, EveryPlanAtItsLimits) {
  std::mt19937_64 random(42);
  const u64 rows = short_run() ? 22 : 33; // up to 2^14 or 2^18 points
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(km_FFTv2::plan_of_row(rows, 0, 1).capacity_bits / 64, isa);
    for (u64 row = 0; row < rows; row++) {
      const u64 full = km_FFTv2::plan_of_row(row, 0, 1).capacity_bits / 64;
      for (const u64 n : {full - 1, full, full + 1}) {
        for (const u64 nb : {n / 2, n / 3, std::max<u64>(n / 1000, 1)}) {
          if (nb != n / 2 && n != full) continue;
          const Plan plan = km_FFTv2::make_plan(64 * n, 1);
          const btp_t record(plan, engine.context);
          const Areas at(record);
          const Pattern pattern = static_cast<Pattern>(random() % 3);
          const Words ones_a(n - nb, ~u64{0}), ones_b(nb, ~u64{0});
          ASSERT_EQ(difference(product(record, at, ones_a, ones_b), expected_product(ones_a, ones_b)), "")
              << text(plan, isa) << ", ones " << n - nb << " x " << nb;
          const Words a = operand(n - nb, pattern, random), b = operand(nb, Pattern::random, random);
          ASSERT_EQ(difference(product(record, at, a, b), expected_product(a, b)), "")
              << text(plan, isa) << ", pattern " << static_cast<int>(pattern) << ", " << n - nb << " x "
              << nb;
        }
      }
    }
  }
}

// Points as large as the plan has them, of both signs: whether two of them are carried together depends on
// the length, for the short plans within one and the same plan.
TEST(Fft, LargestPointsCarry) {
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(7000, isa);
    for (u64 row = 0; km_FFTv2::plan_of_row(row, 0, 1).b >= 17; row++) {
      const u64 full = km_FFTv2::plan_of_row(row, 0, 1).capacity_bits / 64;
      for (u64 n = full - full / 16; n <= full; n += 1 + full / 200) {
        const Plan plan = km_FFTv2::make_plan(64 * n, 1);
        const btp_t record(plan, engine.context);
        const Areas at(record);
        const Words a = peak_operand(n / 2, plan.b), b = peak_operand(n - n / 2, plan.b),
                    c = opposite_operand(n - n / 2, plan.b);
        for (const Words* y : {&a, &b, &c}) {
          ASSERT_EQ(difference(product(record, at, a, *y), expected_product(a, *y)), "")
              << text(plan, isa) << ", " << n << " words" << (y == &c ? ", opposite" : "");
        }
      }
    }
  }
}

// Whether two points are carried together may depend on the operands' norms: digits of one size make points
// as large as the norms allow for, on both sides of the limit, of both signs.
TEST(Fft, PointsAtTheLimitOfPairs) {
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(1200, isa);
    for (u64 row = 0; km_FFTv2::plan_of_row(row, 0, 1).b >= 18; row++) {
      const u64 full = km_FFTv2::plan_of_row(row, 0, 1).capacity_bits / 64;
      for (const u64 n : {full, full - full / 12, full / 2 + full / 3}) {
        const Plan plan = km_FFTv2::make_plan(64 * n, 1);
        const btp_t record(plan, engine.context);
        const Areas at(record);
        const u64 na = n / 2, nb = n - na, terms = 64 * na / plan.b;
        const double limit =
            std::sqrt(std::ldexp(1.0 / static_cast<double>(terms), 63 - static_cast<int>(plan.b)));
        for (const double part : {0.5, 0.98, 0.99, 0.994, 0.997, 1.0, 1.003, 1.01, 1.2, 1.4}) {
          const u64 digit = static_cast<u64>(limit * part);
          if (digit >> (plan.b - 1) != 0) continue;
          const auto constant = [&](u64 words, u64 field) {
            Words a(words + 1, 0);
            for (u64 bit = 0; bit < 64 * words; bit += plan.b) {
              a[bit / 64] |= field << bit % 64;
              if (bit % 64 + plan.b > 64) a[bit / 64 + 1] |= field >> (64 - bit % 64);
            }
            a.pop_back();
            return a;
          };
          const Words a = constant(na, digit), b = constant(nb, digit),
                      c = constant(nb, (u64{1} << plan.b) - 1 - digit);
          for (const Words* y : {&a, &b, &c}) {
            ASSERT_EQ(difference(product(record, at, a, *y), expected_product(a, *y)), "")
                << text(plan, isa) << ", " << n << " words of digits " << digit
                << (y == &c ? ", opposite" : "");
          }
        }
      }
    }
  }
}

// Carries that run far: through all runs, over the end of the caller's result into the rest, out of the top
// and back at the bottom; runs that end within a word.
TEST(Fft, CarriesBetweenRuns) {
  std::mt19937_64 random(46);
  for (int round = 0; round < 4000; round++) {
    const u64 count = 8, bytes = 8 + random() % 20, size = count * bytes, below = random() % (count + 1);
    std::vector<u8> number(size);
    for (u64 i = 0; i < size; i++) {
      const u64 run = i / bytes; // runs of zeros, of ones, of anything
      const u64 kind = (static_cast<u64>(round) * 0x9e3779b97f4a7c15 >> (2 * run)) % 4;
      number[i] = kind == 0 ? 0 : kind == 1 ? 255 : static_cast<u8>(random());
    }
    std::vector<s64> carry(count);
    for (s64& c : carry) c = static_cast<s64>(random() % 5) - 2;
    mpz_t want, modulus, term;
    mpz_inits(want, modulus, term, nullptr);
    mpz_import(want, size, -1, 1, 0, 0, number.data());
    for (u64 h = 0; h < count; h++) {
      mpz_set_si(term, carry[h]);
      mpz_mul_2exp(term, term, 8 * bytes * (h + 1));
      mpz_add(want, want, term);
    }
    mpz_set_ui(modulus, 1);
    mpz_mul_2exp(modulus, modulus, 8 * size);
    mpz_add_ui(modulus, modulus, 1);
    mpz_mod(want, want, modulus);
    std::vector<u8> expected(size + 1), result(number), rest(number);
    mpz_export(expected.data(), nullptr, -1, 1, 0, 0, want);
    mpz_clears(want, modulus, term, nullptr);
    if (expected[size] != 0) continue; // 2^(8 size): no product
    std::fill(result.begin() + static_cast<s64>(below * bytes), result.end(), u8{0xa5});
    std::fill(rest.begin(), rest.begin() + static_cast<s64>(below * bytes), u8{0xa5});
    km_FFTv2::finish_carries({result.data(), below, rest.data(), count, bytes}, carry.data());
    for (u64 i = 0; i < size; i++) {
      const bool in_rest = i >= below * bytes;
      ASSERT_EQ((in_rest ? rest : result)[i], expected[i])
          << "round " << round << ", byte " << i << " of " << count << " runs of " << bytes;
      ASSERT_EQ((in_rest ? result : rest)[i], 0xa5) << "round " << round << ", byte " << i;
    }
  }
}

// The largest distance from the nearest integer of the points of a product or a sum of two.
double rounding_error(const btp_t& record, const Areas& at, const std::vector<km_MULv3::Term>& terms) {
  record.inverse_points(terms.data(), terms.size(), at.scratch.data());
  const auto* const points = static_cast<const double*>(terms[0].TA);
  double error = 0;
  for (u64 i = 0; i < record.plan().N; i++) {
    const double x = points[i] * (2 / static_cast<double>(record.plan().N));
    error = std::max(error, std::fabs(x - std::nearbyint(x)));
  }
  return error;
}

// The distance from the nearest integer of the points of operands of the largest norm, of ones and of random
// ones, for every row up to 2^20 points; the product itself must be right as well.
TEST(Fft, RoundingErrors) {
  std::mt19937_64 random(43);
  const u64 rows = short_run() ? 23 : 40;
  double largest = 0;
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(km_FFTv2::plan_of_row(rows - 1, 0, 1).capacity_bits / 64, isa);
    for (u64 row = 0; row < rows; row++) {
      const Plan plan = km_FFTv2::plan_of_row(row, 0, 1);
      const btp_t record(plan, engine.context);
      const Areas at(record);
      const u64 n = plan.capacity_bits / 64;
      for (int kind = 0; kind < 3; kind++) {
        const Words a = kind == 0   ? peak_operand(n / 2, plan.b)
                        : kind == 1 ? operand(n / 2, Pattern::ones, random)
                                    : operand(n / 2, Pattern::random, random);
        record.forward(at.TA.data(), a.data(), a.size(), at.scratch.data());
        const double error = rounding_error(record, at, {{at.TA.data(), at.TA.data()}});
        ASSERT_LT(error, std::min(0.125, km_FFTv2::worst_case_error(plan)))
            << text(plan, isa) << ", kind " << kind;
        largest = std::max(largest, error);
        if (kind == 0) {
          ASSERT_EQ(difference(product(record, at, a, a), expected_product(a, a)), "") << text(plan, isa);
        }
      }
    }
  }
  RecordProperty("largest", std::to_string(largest));
  for (u64 row = 0; row < km_FFTv2::PLANS; row++) {
    const Plan plan = km_FFTv2::plan_of_row(row, 0, 1);
    EXPECT_LT(13 * km_FFTv2::typical_error(plan), 0.5) << plan.N;
  }
}

// A B + C D and A B - C D before one inverse: random operands, ones, and the heaviest that may be added, all
// at the plan's limits; heavier ones are refused. The heaviest err most.
TEST(Fft, Sums) {
  std::mt19937_64 random(46);
  const u64 rows = short_run() ? 22 : 33;
  for (const simd::Isa isa : supported_isas()) {
    const Engine engine(km_FFTv2::plan_of_row(rows, 0, 1).capacity_bits / 64, isa);
    u64 summed = 0;
    for (u64 row = 0; row < rows; row++) {
      const Plan plan = km_FFTv2::plan_of_row(row, 0, 1);
      const btp_t record(plan, engine.context);
      if (!record.may_add(0)) continue;
      summed++;
      const Areas at(record), more(record);
      const auto forward = [&](const Buffer& T, const Words& a) {
        return record.forward(T.data(), a.data(), a.size(), at.scratch.data());
      };
      const u64 full = plan.capacity_bits / 64, n = full - 1; // a word for the carry
      for (int kind = 0; kind < 4; kind++) {
        const bool subtract = kind % 2 != 0, heavy = kind >= 2;
        const u64 la = heavy ? full * 31 / 128 : n / 2 + 1, lb = heavy ? la : n - la;
        Words a = heavy ? peak_operand(la, plan.b) : operand(la, Pattern::random, random);
        Words b = heavy ? a : operand(lb, row % 2 == 0 ? Pattern::random : Pattern::ones, random);
        a.back() |= u64{1} << 63; // so that the difference is positive
        b.back() |= u64{1} << 63;
        const Words c = heavy ? peak_operand(la - 1, plan.b) : operand(la - 1, Pattern::random, random);
        const Words d = heavy ? opposite_operand(lb, plan.b) : operand(lb, Pattern::ones, random);
        const double ab = forward(at.TA, a) * forward(at.TB, b),
                     cd = forward(more.TA, c) * forward(more.TB, d);
        const std::string what = text(plan, isa) + ", kind " + std::to_string(kind);
        ASSERT_TRUE(record.may_add(ab + cd)) << what;
        const std::vector<km_MULv3::Term> terms{{at.TA.data(), at.TB.data(), false, ab},
                                                {more.TA.data(), more.TB.data(), subtract, cd}};
        Words out(full), want = expected_product(a, b), second = expected_product(c, d);
        record.inverse_sum(out.data(), full, terms.data(), 2, at.scratch.data());
        want.resize(full);
        second.resize(full);
        (subtract ? mpn_sub_n : mpn_add_n)(want.data(), want.data(), second.data(),
                                           static_cast<mp_size_t>(full));
        ASSERT_EQ(difference(out, want), "") << what;
        // A square and a product.
        Words square = expected_product(b, b);
        if (square.size() <= n) {
          square.resize(full);
          const std::vector<km_MULv3::Term> with_square{
              {at.TB.data(), at.TB.data(), false, km_MULv3::NO_WEIGHT},
              {more.TA.data(), more.TB.data(), false, cd}};
          mpn_add_n(want.data(), square.data(), second.data(), static_cast<mp_size_t>(full));
          record.inverse_sum(out.data(), full, with_square.data(), 2, at.scratch.data());
          ASSERT_EQ(difference(out, want), "") << what << ", a square";
          forward(at.TB, b);
        }
        forward(at.TA, a);
        ASSERT_LT(rounding_error(record, at, terms), std::min(0.125, km_FFTv2::worst_case_error(plan)))
            << what;
      }
      const double peak = forward(at.TA, peak_operand(full / 2, plan.b));
      EXPECT_FALSE(record.may_add(2 * peak * peak)) << text(plan, isa);
      EXPECT_FALSE(record.may_add(km_MULv3::NO_WEIGHT)) << text(plan, isa);
    }
    EXPECT_GT(summed, 15u) << name(isa);
  }
}

// A transform is a value: kept, used twice and as a square, also with a transform made for other thread
// counts.
TEST(Fft, KeptTransforms) {
  std::mt19937_64 random(44);
  const Engine engine(300000);
  for (const u64 n : {u64{120}, u64{2000}, u64{17409}, u64{150000}}) {
    km_MULv3::Context three = engine.context;
    three.threads = 3;
    const btp_t record(km_FFTv2::make_plan(64 * n, 1), engine.context);
    const btp_t other(km_FFTv2::make_plan(64 * n - 100, 3), three);
    ASSERT_TRUE(record.accepts(other));
    const Areas at(record);
    const Buffer kept(record.transform_bytes());
    const Words a = operand(n / 2, Pattern::random, random), b = operand(n - n / 2, Pattern::sparse, random);
    other.forward(kept.data(), b.data(), b.size(), at.scratch.data());
    for (int use = 0; use < 2; use++) {
      Words out(n);
      record.forward(at.TA.data(), a.data(), a.size(), at.scratch.data());
      (use == 0 ? record : other).inverse_fmul(out.data(), n, at.TA.data(), kept.data(), at.scratch.data());
      ASSERT_EQ(difference(out, expected_product(a, b)), "") << n << ", use " << use;
    }
    Words square(2 * b.size());
    if (square.size() <= n) {
      record.inverse_fsqr(square.data(), square.size(), kept.data(), at.scratch.data());
      ASSERT_EQ(difference(square, expected_product(b, b)), "") << n;
    }
  }
  const btp_t longer(km_FFTv2::make_plan(64 * 5000, 1), engine.context);
  EXPECT_FALSE(longer.accepts(btp_t(km_FFTv2::make_plan(64 * 2000, 1), engine.context)));
}

// Transforms that do not fit the cache run in tiles, on as many threads as their size can feed; the
// transforms are the same to the last bit for any number.
TEST(Fft, ThreadsMakeNoDifference) {
  std::mt19937_64 random(45);
  const std::vector<u64> lengths =
      short_run() ? std::vector<u64>{70001} : std::vector<u64>{70001, 300000, 1100000};
  for (const simd::Isa isa : supported_isas()) {
    for (const u64 n : lengths) {
      const Engine engine(n, isa, 2);
      const Words a = operand(n / 2, Pattern::random, random),
                  b = operand(n - n / 2, Pattern::random, random);
      const Words want = expected_product(a, b);
      std::vector<double> first;
      for (const u64 threads : {1u, 2u, 3u, 5u}) {
        if (threads > 3 && n > 500000) continue;
        km_MULv3::Context context = engine.context;
        context.threads = threads;
        const Plan plan = km_FFTv2::make_plan(64 * n, threads);
        const btp_t record(plan, context);
        const Areas at(record);
        record.forward(at.TA.data(), a.data(), a.size(), at.scratch.data());
        const auto* const T = static_cast<const double*>(at.TA.data());
        if (first.empty()) first.assign(T, T + plan.N);
        ASSERT_TRUE(std::equal(first.begin(), first.end(), T)) << text(plan, isa) << ", threads " << threads;
        ASSERT_EQ(difference(product(record, at, a, b), want), "")
            << text(plan, isa) << ", threads " << threads;
      }
    }
  }
}

} // namespace
} // namespace kelvane::test
