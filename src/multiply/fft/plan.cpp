#include <array>
#include <bit>

#include "multiply/fft/km_FFTv2.h"
#include "shell/exception.h"

namespace kelvane::km_FFTv2 {

namespace {

struct Row {
  u8 k, b;
  constexpr u64 capacity() const { return points(k) * b; }
};

// Bits per point fall as the length grows, since a point of the product needs 2 b + log2 N bits. Rows 57 and
// 65 have one bit fewer than the longer rows that follow them.
constexpr std::array<Row, PLANS> ROWS{{
    {24, 21},  {28, 21},  {30, 20},  {32, 20},  {33, 20},  {34, 20},  {36, 19},  {37, 19},  {38, 19},
    {40, 19},  {41, 19},  {42, 19},  {44, 18},  {45, 18},  {46, 18},  {48, 18},  {49, 17},  {50, 17},
    {52, 17},  {53, 17},  {54, 17},  {56, 17},  {57, 16},  {58, 17},  {60, 16},  {61, 16},  {62, 16},
    {64, 16},  {65, 15},  {66, 16},  {68, 15},  {69, 15},  {70, 15},  {72, 15},  {73, 14},  {74, 14},
    {76, 14},  {77, 14},  {78, 14},  {80, 14},  {81, 13},  {82, 13},  {84, 13},  {85, 13},  {86, 13},
    {88, 13},  {89, 12},  {90, 12},  {92, 12},  {93, 12},  {94, 12},  {96, 12},  {97, 11},  {98, 11},
    {100, 11}, {101, 11}, {102, 11}, {104, 11}, {105, 10}, {106, 10}, {108, 10}, {109, 10}, {110, 10},
    {112, 9},  {113, 9},  {114, 9},  {116, 9},  {117, 9},  {118, 9},  {120, 8},  {121, 8},  {122, 8},
    {124, 8},
}};

constexpr bool ascending() {
  for (u64 i = 1; i < PLANS; i++) {
    if (ROWS[i - 1].capacity() >= ROWS[i].capacity()) return false;
  }
  return true;
}
static_assert(ascending() && ROWS[PLANS - 1].capacity() == MAX_BITS);

// The first row of at least 2^i bits: a plan is chosen for every product, and at most a few rows above it.
constexpr auto FIRST_ROWS = [] {
  std::array<u8, 35> first{};
  for (u64 i = 0; i < first.size(); i++) {
    while (ROWS[first[i]].capacity() < u64{1} << i) first[i]++;
  }
  return first;
}();
static_assert(MAX_BITS == u64{1} << (FIRST_ROWS.size() - 1));

u64 row_of(u64 bits) {
  if (bits > MAX_BITS) throw km_exception(ERROR_BEYOND_TABLE, "");
  u64 row = FIRST_ROWS[static_cast<u64>(std::bit_width(bits | 1)) - 1];
  while (ROWS[row].capacity() < bits) row++;
  return row;
}

} // namespace

Plan plan_of_row(u64 row, u64 bits, u64 threads) {
  constexpr std::array<u32, 4> FACTOR{1, 5, 3, 7};
  Plan plan;
  plan.threads = threads;
  plan.requested_bits = bits;
  plan.k = ROWS[row].k;
  plan.b = ROWS[row].b;
  plan.r = FACTOR[plan.k % 4];
  plan.N = points(plan.k);
  plan.p = static_cast<u32>(__builtin_ctzll(plan.N));
  plan.N4 = 4 * plan.N;
  plan.N8 = 8 * plan.N;
  plan.capacity_bits = ROWS[row].capacity();
  return plan;
}

Plan make_plan(u64 bits, u64 threads) {
  return plan_of_row(row_of(bits), bits, threads);
}

u64 plan_points(u64 bits) {
  return points(ROWS[row_of(bits)].k);
}

} // namespace kelvane::km_FFTv2
