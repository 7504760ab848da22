// Products of the vector transform against GMP: one transform and blocks, and its checks.
#include "multiply/hnt_fixture.h"
#include "multiply/vst/km_VSTv2.h"
#include "shell/exception.h"
#include "support/capture.h"

namespace kelvane::test {
namespace {

using km_MULv3::Term;
using km_VSTv2::Plan;

// A record with its scratch. `limit` words bound the transforms' length; longer products go in blocks.
class VstRecord : public RecordOf<km_VSTv2::mtp_t> {
public:
  explicit VstRecord(u64 n, u64 threads = 1, u64 limit = 0, bool reduced = false)
      : RecordOf([&](km_MULv3::btp_storage* storage) {
          const km_MULv3::Context context = record_context(threads, reduced);
          const ntt::Backend backend = ntt::backend_of(simd::active_isa());
          return limit == 0 ? km_VSTv2::make_parameters(n, context, storage)
                            : km_VSTv2::make_parameters(n, context, storage,
                                                        *ntt::choose_shape(backend, 64 * limit));
        }) {}
};

// Products as long as plans with r = 1, 3, 5, 7, all ones too: the redundancy bound must hold for the largest
// coefficients that can be. (At these lengths the plans with r = 7 give way to those of the first table.)
TEST(VstProducts, FullPlans) {
  std::mt19937_64 random(1);
  std::vector<Plan> plans = {{4, 1, 11}, {7, 3, 10}, {8, 3, 10}, {7, 5, 13}};
  if (!short_run()) plans.insert(plans.end(), {{9, 1, 13}, {8, 5, 13}, {8, 7, 12}, {6, 5, 14}, {7, 3, 14}});
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const Plan& plan : plans) {
      const u64 n = plan.capacity_bits() / 64;
      for (const Pattern pattern : {Pattern::ones, Pattern::random}) {
        for (const u64 threads : {1, 2, 3}) {
          const VstRecord record(n, threads, 0, threads == 2);
          ASSERT_GE(record->plan().capacity_bits(), plan.capacity_bits());
          const u64 nb = pattern == Pattern::ones || threads == 1 ? n / 2 : n / 7;
          const Words a = operand(n - nb, pattern, random), b = operand(nb, pattern, random);
          ASSERT_EQ(difference(record.product(a, b), expected_product(a, b)), "")
              << n - nb << " x " << nb << " threads " << threads << ' ' << name(isa);
          const Words c = operand(n / 2, pattern, random);
          ASSERT_EQ(difference(record.square(c), expected_product(c, c)), "")
              << n / 2 << " threads " << threads << ' ' << name(isa);
        }
      }
    }
  }
}

// The same beyond the transforms' reach.
TEST(VstProducts, Blocks) {
  std::mt19937_64 random(2);
  const u64 limit = 700;
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (int round = 0; round < scale(20); round++) {
      const u64 n = 3000 + random() % 7000, nb = 1 + random() % (n / 2);
      const VstRecord record(n, 1 + random() % 3, limit, round % 2 == 0);
      ASSERT_GT(record->blocks(), 1u);
      const Pattern pattern = static_cast<Pattern>(round % 3);
      const Words a = operand(n - nb, pattern, random), b = operand(nb, pattern, random);
      ASSERT_EQ(difference(record.product(a, b), expected_product(a, b)), "")
          << n - nb << " x " << nb << " pattern " << round % 3 << ' ' << name(isa);
      const Words c = operand(n / 2, pattern, random);
      ASSERT_EQ(difference(record.square(c), expected_product(c, c)), "") << n / 2 << ' ' << name(isa);
      // Kept transforms serve again.
      const auto TA = record.transform(a), TB = record.transform(b), TC = record.transform(c);
      Words got(n);
      record->inverse_fmul(got.data(), c.size() + nb, TC->data(), TB->data(), record.scratch());
      got.resize(c.size() + nb);
      ASSERT_EQ(difference(got, expected_product(c, b)), "") << name(isa);
      got.resize(n);
      record->inverse_fmul(got.data(), n, TA->data(), TB->data(), record.scratch());
      ASSERT_EQ(difference(got, expected_product(a, b)), "") << name(isa);
    }
  }
}

// A residue's sum and its words, by GMP.
struct Sum {
  mpz_t z;
  Sum() { mpz_init(z); }
  ~Sum() { mpz_clear(z); }
  Sum(const Sum&) = delete;
  Sum& operator=(const Sum&) = delete;
  void set(const Words& a) { mpz_import(z, a.size(), -1, 8, 0, 0, a.data()); }
  void add(const Words& a, const Words& b, bool subtract) {
    Sum x;
    x.set(expected_product(a, b));
    subtract ? mpz_sub(z, z, x.z) : mpz_add(z, z, x.z);
  }
};

// a b - c d (+ a d + c b), each of one transform and in blocks; plain sums must not be negative, wrapped ones
// may.
TEST(VstProducts, SumsAndWrapped) {
  std::mt19937_64 random(3);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 limit : {u64{0}, u64{700}}) {
      for (int round = 0; round < scale(12); round++) {
        const bool wrapped = round % 2 == 1, subtract = round % 4 >= 2;
        u64 n = 3000 + random() % 3000;
        if (wrapped) n = VstRecord(n, 1, limit)->wrap_words();
        const VstRecord record(n, 2, limit);
        ASSERT_EQ(record->wrap_words() == n, wrapped);
        const u64 length = wrapped ? n : n / 2 - 1;
        const Pattern pattern = round % 3 == 0 ? Pattern::ones : Pattern::random;
        Words a = operand(length, pattern, random), b = operand(length, pattern, random);
        Words c = operand(length, pattern, random), d = operand(length, pattern, random);
        if (subtract && !wrapped) c.back() = d.back() = 0;
        a.back() >>= wrapped ? 8 : 2;
        b.back() |= u64{1} << 63;
        const auto TA = record.transform(a), TB = record.transform(b);
        const auto TC = record.transform(c), TD = record.transform(d);
        const std::vector<Term> terms = {{TA->data(), TB->data(), false}, {TC->data(), TD->data(), subtract}};
        Sum sum, got;
        sum.add(a, b, false);
        sum.add(c, d, subtract);
        if (subtract && !wrapped && mpz_sgn(sum.z) < 0) continue;
        Words out(n);
        if (wrapped)
          record->inverse_wrapped(out.data(), terms.data(), terms.size(), record.scratch());
        else
          record->inverse_sum(out.data(), n, terms.data(), terms.size(), record.scratch());
        got.set(out);
        mpz_sub(sum.z, sum.z, got.z);
        if (wrapped) {
          Sum modulus;
          mpz_setbit(modulus.z, 64 * n);
          mpz_sub_ui(modulus.z, modulus.z, 1);
          ASSERT_NE(mpz_divisible_p(sum.z, modulus.z), 0)
              << n << " limit " << limit << ' ' << round << name(isa);
        } else {
          ASSERT_EQ(mpz_sgn(sum.z), 0) << n << " limit " << limit << ' ' << round << ' ' << name(isa);
        }
      }
    }
  }
}

TEST(VstChecks, Range) {
  const VstRecord record(8000), in_blocks(8000, 1, 700);
  const u64 most = std::min(record->plan().capacity_bits(), record->capacity_bits()) / 64;
  std::mt19937_64 random(4);
  const Words a = operand(most + 1, Pattern::random, random);
  for (const VstRecord* r : {&record, &in_blocks}) {
    const u64 limit = std::min((*r)->plan().capacity_bits(), (*r)->capacity_bits()) / 64;
    const Buffer T((*r)->transform_bytes());
    (*r)->forward(T.data(), a.data(), std::min(limit, most), r->scratch());
    try {
      (*r)->forward(T.data(), a.data(), limit + 1, r->scratch());
      ADD_FAILURE() << "no exception for " << limit + 1 << " words";
    } catch (const km_exception& e) {
      EXPECT_EQ(e.text, "VST: Out of Range");
    }
  }
}

// One residue of a transform is replaced by its neighbour's: every coefficient changes.
TEST(VstChecks, CorruptedTransform) {
  std::mt19937_64 random(5);
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 limit : {u64{0}, u64{2000}}) {
      for (const u64 n :
           {u64{8000}, u64{30000}, u64{600000}}) { // the last in packed points, where there are any
        if (n == 600000 && limit != 0) continue;
        const VstRecord record(n, 2, limit);
        const Words a = operand(n / 2, Pattern::random, random), b = operand(n / 2, Pattern::random, random);
        const auto TA = record.transform(a), TB = record.transform(b);
        u64* const first = TB->words() + (limit == 0 ? 8 : 16); // behind the headers
        const ntt::Shape& s = record->shape();
        const u64 prime = random() % s.w, row = random() % s.rows(),
                  point = random() % (s.words_of(s.columns()) - 1);
        u64* const at = first + prime * s.prime_stride() + row * s.row_stride() + point;
        *at = at[1];
        const Captured run = capture([&] {
          Words out(n);
          try {
            record->inverse_fmul(out.data(), n, TA->data(), TB->data(), record.scratch());
          } catch (const km_exception& e) {
            _exit(e.code == 1 ? 42 : 43);
          }
        });
        ASSERT_EQ(run.status, 42) << n << " limit " << limit << " prime " << prime << " row " << row
                                  << " point " << point << ' ' << name(isa);
        ASSERT_EQ(run.output.find("VST Redundancy Check Failed:  "), 0u) << run.output;
        const u64 slash = run.output.find(" / ");
        ASSERT_NE(slash, std::string::npos) << run.output;
        EXPECT_EQ(run.output.substr(run.output.size() - 2), "\n\n");
        EXPECT_GE(std::stod(run.output.substr(30, slash - 30)), std::stod(run.output.substr(slash + 3)));
      }
    }
  }
}

} // namespace
} // namespace kelvane::test
