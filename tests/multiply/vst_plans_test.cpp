// The vector transform's plans, costs, and its row of the tables.
#include "multiply/hnt_fixture.h"
#include "multiply/vst/km_VSTv2.h"
#include "shell/exception.h"

namespace kelvane::test {
namespace {

using km_VSTv2::Plan;

template <class F> s32 code_of(const F& f) {
  try {
    f();
  } catch (const km_exception& e) {
    return e.code;
  }
  return 0;
}

std::string text(const Plan& p) {
  return "(" + std::to_string(p.w) + "," + std::to_string(p.r) + "," + std::to_string(p.s) + ")";
}
std::string rows(u32 which, u64 first, u64 count) {
  std::string all;
  for (u64 i = first; i < first + count; i++) all += text(km_VSTv2::plan_table(which).rows[i]);
  return all;
}

TEST(VstPlans, Tables) {
  ASSERT_EQ(km_VSTv2::plan_table(0).count, 121u);
  ASSERT_EQ(km_VSTv2::plan_table(1).count, 306u);
  EXPECT_EQ(rows(0, 0, 8), "(4,1,11)(5,1,11)(6,1,11)(7,1,11)(8,1,11)(9,1,11)(7,3,10)(6,1,12)");
  EXPECT_EQ(rows(0, 116, 5), "(8,1,26)(7,5,24)(9,1,26)(8,5,24)(7,3,25)");
  EXPECT_EQ(rows(1, 0, 4), "(4,1,11)(5,1,11)(4,3,10)(6,1,11)");
  EXPECT_EQ(rows(1, 301, 5), "(6,5,39)(5,1,42)(4,3,41)(6,1,42)(4,1,43)");
  EXPECT_EQ((Plan{7, 3, 10}.capacity_bits()), 442368u);
  for (u32 which = 0; which < 2; which++) {
    const km_VSTv2::PlanTable table = km_VSTv2::plan_table(which);
    for (u64 i = 0; i < table.count; i++) {
      const Plan& p = table.rows[i];
      EXPECT_TRUE(p.w >= 4 && p.w <= 9 && p.r % 2 == 1 && p.r <= 7) << text(p);
      if (i == 0) continue;
      const u64 before = table.rows[i - 1].capacity_bits(), step = p.capacity_bits() - before;
      EXPECT_LT(before, p.capacity_bits()) << text(p);
      // The steps that the tables' rule states.
      const bool dense = which == 0 ? i >= 4 : i >= 8 && i < 301;
      EXPECT_LE(step * (dense ? 6 : 3), before) << which << ' ' << text(p);
    }
  }
}

TEST(VstPlans, Selection) {
  for (u32 which = 0; which < 2; which++) {
    const km_VSTv2::PlanTable table = km_VSTv2::plan_table(which);
    const u64 first_end = km_VSTv2::plan_table(0).rows[120].capacity_bits();
    for (u64 i = 0; i < table.count; i++) {
      const u64 bits = table.rows[i].capacity_bits();
      if (which == 1 && bits <= first_end) continue; // the first table is asked first
      EXPECT_EQ(text(km_VSTv2::make_plan(bits)), text(table.rows[i]));
      if (i + 1 < table.count) {
        EXPECT_EQ(text(km_VSTv2::make_plan(bits + 1)), text(table.rows[i + 1]));
      }
    }
  }
  EXPECT_EQ(text(km_VSTv2::make_plan(633318697598976)), "(4,1,43)");
  EXPECT_EQ(code_of([] { km_VSTv2::make_plan(633318697598977); }), -4);
  EXPECT_GE(km_VSTv2::make_plan(64 * ((u64{1} << 32) + 1)).capacity_bits(), 64 * ((u64{1} << 32) + 1));
  EXPECT_EQ(km_VSTv2::make_parameters(20000, {}, nullptr), nullptr);
}

// Every length has a cost, which never falls and is what its record asks for.
TEST(VstPlans, Costs) {
  constexpr u64 LAST = 9895604649984, HNT_LAST = u64{1} << 32;
  for (const simd::Isa isa : every_isa()) {
    const Forced forced(isa);
    for (const u64 threads : {1, 4, 256}) {
      const u64 hnt = km_MULv3::memory_cost(HNT_LAST, threads);
      u64 before = 0;
      for (u64 n = HNT_LAST + 1; n <= LAST; n += n == LAST ? 1 : std::min(n / 3, LAST - n)) {
        const u64 cost = km_MULv3::memory_cost(n, threads);
        ASSERT_GE(cost, std::max(hnt, before)) << n << ' ' << name(isa);
        before = cost;
        for (const bool reduced : {false, true}) {
          km_MULv3::Context context;
          context.threads = threads;
          context.reduced_memory = reduced;
          km_MULv3::btp_storage storage;
          const auto* const record = km_MULv3::select(n, context, &storage)->ntp();
          const u64 product = km_MULv3::product_cost(n, threads, reduced);
          ASSERT_EQ(product, record->transform_bytes() + record->second_bytes() + record->scratch_bytes())
              << n << ' ' << name(isa);
          ASSERT_LE(product, km_MULv3::memory_cost(n, threads, reduced)) << n << ' ' << name(isa);
          ASSERT_GE(record->capacity_bits(), 64 * n);
        }
      }
    }
    const u64 half = km_VSTv2::algorithm<u32>().memory_cost(2 * HNT_LAST + 2, 4);
    EXPECT_EQ(half, km_VSTv2::algorithm<u64>().memory_cost(HNT_LAST + 1, 4));
    EXPECT_EQ(code_of([] { km_VSTv2::algorithm<u64>().memory_cost(LAST + 1, 1); }), -4);
    EXPECT_EQ(code_of([] { km_MULv3::memory_cost(LAST + 1, 1, true); }), -4);
  }
}

// The tables with a lowered limit send short products through the row.
class LoweredLimit {
public:
  explicit LoweredLimit(u64 words) { km_MULv3::rebuild_tables(64 * words); }
  ~LoweredLimit() { km_MULv3::rebuild_tables(km_MULv3::HNT_LIMIT_BITS); }
};

TEST(VstTable, ProductsThroughTheRow) {
  constexpr u64 LIMIT = 18000;
  std::mt19937_64 random(1);
  {
    const LoweredLimit lowered(LIMIT);
    EXPECT_STREQ(km_MULv3::select(LIMIT).short_name(), "HNT");
    EXPECT_STREQ(km_MULv3::select(LIMIT + 1).short_name(), "VST");
    u64 count;
    EXPECT_EQ(km_MULv3::table32(&count)[2].max_length, 2 * LIMIT);
    for (const simd::Isa isa : every_isa()) {
      Engine engine(km_MULv3::LONGEST_FFT, isa, 2);
      for (const bool reduced : {false, true}) {
        engine.context.reduced_memory = reduced;
        for (const u64 n : {LIMIT, LIMIT + 1, u64{25001}, u64{60000}}) {
          for (const u64 nb : {n / 2, n / 3, n / 50}) {
            const Words a = operand(n - nb, Pattern::sparse, random),
                        b = operand(nb, Pattern::random, random);
            const Buffer work(km_MULv3::product_cost(n, 2, reduced));
            Words got(n);
            km_MULv3::multiply(engine.context, got.data(), a.data(), n - nb, b.data(), nb, work.data());
            ASSERT_EQ(difference(got, expected_product(a, b)), "")
                << n - nb << " x " << nb << ' ' << reduced << ' ' << name(isa);
          }
          const Words a = operand((n + 1) / 2, Pattern::ones, random);
          const Buffer work(km_MULv3::product_cost(2 * a.size(), 2, reduced));
          Words got(2 * a.size());
          km_MULv3::square(engine.context, got.data(), a.data(), a.size(), work.data());
          ASSERT_EQ(difference(got, expected_product(a, a)), "") << a.size() << ' ' << name(isa);
        }
      }
      km_MULv3::btp_storage storage;
      const km_MULv3::abstract_ntp* const wrapped =
          km_MULv3::select_wrapped(LIMIT + 5, engine.context, &storage);
      EXPECT_NE(dynamic_cast<const km_VSTv2::mtp_t*>(wrapped), nullptr);
      EXPECT_GE(wrapped->wrap_words(), LIMIT + 5);
    }
  }
  EXPECT_STREQ(km_MULv3::select(LIMIT + 1).short_name(), "HNT");
}

} // namespace
} // namespace kelvane::test
