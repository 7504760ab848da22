// The two tables of plans.
//
// First table, 255 rows: six given rows, 245 rows whose capacities grow in equal ratios from the sixth row to
// the first of the last four (5.4 % a step), four given rows. Row i of the 245 has s = 3 + floor(11 i / 246),
// and the smallest m with L a multiple of 512 whose capacity reaches the wanted one.
//
// Second table, 206 rows: every (s, m) with s >= 8, m <= 15, L a multiple of 512, and a capacity of at most
// that of (23, 1).
#include "multiply/hnt/km_HNT.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "shell/exception.h"

namespace kelvane::km_HNT {

namespace {

constexpr u64 FIRST = 255, SECOND = 206;

std::array<Plan, FIRST> make_first() {
  constexpr Plan head[] = {plan_of(4, 128),  plan_of(4, 160),  plan_of(4, 192),
                           plan_of(3, 1024), plan_of(3, 1280), plan_of(3, 1344)};
  constexpr Plan tail[] = {plan_of(16, 9), plan_of(15, 36), plan_of(14, 144), plan_of(14, 150)};
  constexpr u64 MIDDLE = FIRST - std::size(head) - std::size(tail);
  std::array<Plan, FIRST> rows{};
  auto out = std::copy(std::begin(head), std::end(head), rows.begin());
  const double low = static_cast<double>(head[5].capacity_bits),
               high = static_cast<double>(tail[0].capacity_bits);
  for (u64 i = 1; i <= MIDDLE; i++) {
    const double wanted = low * std::exp2(std::log2(high / low) * static_cast<double>(i) / (MIDDLE + 1));
    const u32 s = 3 + static_cast<u32>(11 * i / (MIDDLE + 1));
    const u32 unit = s < 9 ? u32{1} << (9 - s) : 1;
    u32 m = unit;
    while (static_cast<double>(plan_of(s, m).capacity_bits) < wanted) m += unit;
    *out++ = plan_of(s, m);
  }
  std::copy(std::begin(tail), std::end(tail), out);
  return rows;
}

std::array<Plan, SECOND> make_second() {
  std::array<Plan, SECOND> rows{};
  auto out = rows.begin();
  for (u32 s = 8; s <= 23; s++) {
    for (u32 m = 1; m <= 15; m++) {
      if ((u64{m} << s) % 512 == 0 && plan_of(s, m).capacity_bits <= MAX_BITS) *out++ = plan_of(s, m);
    }
  }
  // (8, 2) has L = 512 like (9, 1): the capacities of different s are never equal, since L/256 - 1 is odd.
  std::sort(rows.begin(), rows.end(),
            [](const Plan& a, const Plan& b) { return a.capacity_bits < b.capacity_bits; });
  return rows;
}

} // namespace

PlanTable plan_table(u32 which) {
  static const std::array<Plan, FIRST> first = make_first();
  static const std::array<Plan, SECOND> second = make_second();
  return which == 0 ? PlanTable{first.data(), FIRST} : PlanTable{second.data(), SECOND};
}

const Plan& make_plan(u64 bits) {
  for (u32 which = 0; which < 2; which++) {
    const PlanTable table = plan_table(which);
    const Plan* const end = table.rows + table.count;
    const Plan* const row =
        std::lower_bound(table.rows, end, bits, [](const Plan& p, u64 x) { return p.capacity_bits < x; });
    if (row != end) return *row;
  }
  throw km_exception(ERROR_BEYOND_TABLE, "");
}

} // namespace kelvane::km_HNT
