// Selection, plans and costs.
#include "multiply/fft/km_FFTv2.h"
#include "multiply/product_fixture.h"
#include "shell/exception.h"

namespace kelvane::test {
namespace {

using km_MULv3::product_cost;

std::string selected(u64 n) {
  return km_MULv3::select(n).short_name();
}

template <class F> s32 code_thrown(const F& f) {
  try {
    f();
  } catch (const km_exception& e) {
    EXPECT_STREQ(e.type_name, "Generic Exception");
    return e.code;
  }
  return 0;
}

TEST(Table, Rows) {
  EXPECT_EQ(selected(2), "BKT");
  EXPECT_EQ(selected(54), "BKT");
  EXPECT_EQ(selected(55), "FFT");
  EXPECT_EQ(selected(17409), "FFT");
  EXPECT_EQ(selected(17410), "HNT");
  EXPECT_EQ(selected(u64{1} << 32), "HNT");
  EXPECT_EQ(selected((u64{1} << 32) + 1), "VST");
  EXPECT_EQ(selected(9895604649984), "VST");
  EXPECT_EQ(code_thrown([] { selected(9895604649985); }), -4);
  EXPECT_EQ(code_thrown([] { km_MULv3::memory_cost(9895604649985, 1); }), -4);

  u64 rows64, rows32;
  const km_MULv3::Row64* const table64 = km_MULv3::table64(&rows64);
  const km_MULv3::Row32* const table32 = km_MULv3::table32(&rows32);
  ASSERT_EQ(rows64, rows32);
  for (u64 i = 0; i < rows64; i++) {
    EXPECT_EQ(table32[i].max_length, 2 * table64[i].max_length);
    EXPECT_STREQ(table32[i].algorithm->short_name(), table64[i].algorithm->short_name());
    if (i == 0) continue; // the basecase has no limit but time
    EXPECT_LE(64 * table64[i].max_length, table64[i].algorithm->capacity_bits());
  }
}

TEST(Table, Listing) {
  const std::string text = km_MULv3::tables_text();
  EXPECT_EQ(text.substr(0, text.find("\n\n", text.find("Algorithm\n")) + 2),
            "Convolution Algorithm Table (32-bit Word)\n\n"
            "Decimal Digits/word: 9.632959861247398\n\n"
            "   Maximum Convolution Length  (words/digits)  -  Algorithm\n"
            "                 108  -                  1040  -  BKT    (Basecase/Karatsuba)\n"
            "               34818  -                335400  -  FFT    (Floating-Point FFT)\n"
            "          8589934592  -           82746495135  -  HNT    (Hybrid NTT)\n"
            "      18685845533793  -       180000000000496  -  VST    (VST Algorithm)\n\n");
  EXPECT_NE(
      text.find("Convolution Algorithm Table (64-bit Word)\n\nDecimal Digits/word: 19.265919722494797\n\n"),
      std::string::npos);
  EXPECT_NE(text.find("                  54  -                  1040  -  BKT    (Basecase/Karatsuba)\n"),
            std::string::npos);
  EXPECT_NE(text.find("       9895604649984  -       190647924792137  -  VST    (VST Algorithm)\n"),
            std::string::npos);
}

// What a product is charged is what its record asks for, and the overall cost covers every shorter product.
TEST(Table, Costs) {
  u64 largest = 0;
  km_MULv3::Context three;
  three.threads = 3;
  for (u64 n = 2; n < 40000; n = n < 700 ? n + 1 : n + n / 19) {
    km_MULv3::btp_storage storage;
    const km_MULv3::abstract_btp& record = *km_MULv3::select(n, three, &storage);
    ASSERT_EQ(product_cost(n, 3), 2 * record.transform_bytes() + record.scratch_bytes()) << n;
    ASSERT_EQ(product_cost(n, 3) % 64, 0u) << n;
    largest = std::max(largest, product_cost(n, 3));
    ASSERT_GE(km_MULv3::memory_cost(n, 3), largest) << n;
    if (n >= 55 && n <= 17409) {
      const km_FFTv2::Plan plan = km_FFTv2::make_plan(64 * n, 1);
      ASSERT_EQ(product_cost(n, 3), 4 * plan.N + 2 * 8 * plan.N) << n;
    }
  }
}

TEST(FftPlan, Sizes) {
  using km_FFTv2::make_plan;
  EXPECT_EQ(make_plan(1, 1).k, 24u);
  EXPECT_EQ(make_plan(1344, 1).k, 24u);
  EXPECT_EQ(make_plan(1344, 1).b, 21u);
  EXPECT_EQ(make_plan(1345, 1).k, 28u);
  EXPECT_EQ(make_plan(1345, 1).N, 128u);
  EXPECT_EQ(km_FFTv2::points(33), 320u);
  EXPECT_EQ(km_FFTv2::points(30), 192u);
  EXPECT_EQ(km_FFTv2::points(124), u64{1} << 31);
  EXPECT_EQ(make_plan(u64{1} << 34, 1).k, 124u);
  EXPECT_EQ(code_thrown([] { make_plan((u64{1} << 34) + 1, 1); }), -4);
  // The two places where a longer row has more bits per point.
  EXPECT_EQ(km_FFTv2::plan_of_row(22, 0, 1).b, 16u);
  EXPECT_EQ(km_FFTv2::plan_of_row(23, 0, 1).b, 17u);
  EXPECT_EQ(km_FFTv2::plan_of_row(28, 0, 1).b, 15u);
  EXPECT_EQ(km_FFTv2::plan_of_row(29, 0, 1).b, 16u);

  for (u64 row = 0; row < km_FFTv2::PLANS; row++) {
    const km_FFTv2::Plan plan = km_FFTv2::plan_of_row(row, 0, 7);
    ASSERT_EQ(plan.N, plan.r * (u64{1} << plan.p)) << row;
    ASSERT_TRUE(plan.r == 1 || plan.r == 3 || plan.r == 5) << row;
    ASSERT_EQ(plan.capacity_bits, plan.N * plan.b) << row;
    // A request of exactly the capacity takes the row, one bit more the next.
    ASSERT_EQ(make_plan(plan.capacity_bits, 1).k, plan.k) << row;
    if (row + 1 < km_FFTv2::PLANS) {
      ASSERT_EQ(make_plan(plan.capacity_bits + 1, 1).k, km_FFTv2::plan_of_row(row + 1, 0, 1).k) << row;
    }
    ASSERT_EQ(km_FFTv2::memory_cost(plan.capacity_bits / 64, 1), 20 * plan.N) << row;
  }
}

} // namespace
} // namespace kelvane::test
