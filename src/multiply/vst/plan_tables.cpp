// The two tables of plans.
//
// Rows come in octaves of capacity: in octave e they are 24 v 2^e bits with v in [48, 96), and v = r (w - 1)
// 2^d gives the plan (w, r, e + d). Two ways to choose among plans of equal capacity:
//
// First table, 121 rows: few points. Every v that r = 1 or, with wide points (w >= 7), r = 3 or 5 can give;
// equal ones by the smallest r, then the largest w. r = 5 begins at s = 13. The octaves 8 to 23, up to (7, 3,
// 25), follow three narrow plans of 2^11. Largest steps: 4/3 and 5/4 and 6/5 at the three, 7/6 from there on.
//
// Second table, 306 rows: narrow points. Every v there is, r = 7 included; equal ones by the smallest r, then
// the smallest w. The octaves 7 to 37; then (4, 1, 42) and five plans of w <= 6. Largest steps: 4/3 at the
// beginning, 6/5 in octave 7, 32/25 in the last octave, 7/6 otherwise.
//
// A plan has s >= 10, with r = 1 s >= 11.
#include <algorithm>
#include <array>

#include "multiply/vst/km_VSTv2.h"
#include "shell/exception.h"

namespace kelvane::km_VSTv2 {

namespace {

struct Pattern {
  u8 w, r, d;
};
constexpr Pattern FEW_POINTS[] = {{7, 1, 3}, {8, 1, 3}, {7, 5, 1}, {9, 1, 3},
                                  {8, 5, 1}, {7, 3, 2}, {6, 1, 4}, {8, 3, 2}};
constexpr Pattern NARROW_POINTS[] = {{4, 1, 4}, {8, 7, 0}, {6, 5, 1}, {8, 1, 3}, {6, 3, 2},
                                     {5, 1, 4}, {8, 5, 1}, {4, 3, 3}, {6, 1, 4}, {8, 3, 2}};

// Appends rows to a table; more than it holds would not compile.
template <u64 COUNT> struct Builder {
  std::array<Plan, COUNT> rows{};
  u64 count = 0;

  constexpr void add(Plan plan) { rows[count++] = plan; }
  template <u64 N>
  constexpr void octaves(const Pattern (&patterns)[N], u32 first, Plan last, u32 shortest_five) {
    for (u32 e = first;; e++) {
      for (const Pattern& p : patterns) {
        const Plan plan{p.w, p.r, static_cast<u8>(e + p.d)};
        const u32 shortest = p.r == 1 ? 11 : p.r == 5 ? shortest_five : 10;
        if (plan.s >= shortest) add(plan);
        if (plan == last) return;
      }
    }
  }
};

constexpr auto make_first() {
  Builder<121> table;
  for (const u8 w : {u8{4}, u8{5}, u8{6}}) table.add({w, 1, 11});
  table.octaves(FEW_POINTS, 8, {7, 3, 25}, 13);
  return table;
}

constexpr auto make_second() {
  Builder<306> table;
  table.octaves(NARROW_POINTS, 7, {4, 1, 42}, 10);
  constexpr Plan LAST[] = {{6, 5, 39}, {5, 1, 42}, {4, 3, 41}, {6, 1, 42}, {4, 1, 43}};
  for (const Plan& plan : LAST) table.add(plan);
  return table;
}

template <u64 COUNT> constexpr bool full_and_ascending(const Builder<COUNT>& table) {
  for (u64 i = 1; i < COUNT; i++) {
    if (table.rows[i - 1].capacity_bits() >= table.rows[i].capacity_bits()) return false;
  }
  return table.count == COUNT;
}

constexpr auto FIRST = make_first();
constexpr auto SECOND = make_second();
static_assert(full_and_ascending(FIRST) && full_and_ascending(SECOND));
static_assert(SECOND.rows.back().capacity_bits() == MAX_BITS);

} // namespace

PlanTable plan_table(u32 which) {
  return which == 0 ? PlanTable{FIRST.rows.data(), FIRST.count} : PlanTable{SECOND.rows.data(), SECOND.count};
}

const Plan& make_plan(u64 bits) {
  for (u32 which = 0; which < 2; which++) {
    const PlanTable table = plan_table(which);
    const Plan* const end = table.rows + table.count;
    const Plan* const row =
        std::lower_bound(table.rows, end, bits, [](const Plan& p, u64 x) { return p.capacity_bits() < x; });
    if (row != end) return *row;
  }
  throw km_exception(ERROR_BEYOND_TABLE, "");
}

} // namespace kelvane::km_VSTv2
