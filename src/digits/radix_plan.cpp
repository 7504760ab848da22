// The conversion's plan and placement. See radix_plan.h.

#include "digits/radix_plan.h"

#include <algorithm>
#include <cmath>

#include "shell/exception.h"

namespace kelvane::CBRv2 {

namespace {

constexpr u64 WORDS_PER_THREAD = 4096; // less work does not repay a thread's start
constexpr u64 TASKS_PER_THREAD = 4;    // so that threads which do not divide the tree evenly finish together

// The largest needs of a set of products that use the same buffers one after another.
struct Needs {
  u64 work = 0, product = 0;
  void include(u64 words, const km_MULv3::Context& context) {
    work = std::max(work, km_MULv3::memory_cost(words, context.threads, context.reduced_memory));
    product = std::max(product, words);
  }
  ProductBuffers place(Layout& layout) const { return {layout.take_bytes(work), layout.take<u64>(product)}; }
};

} // namespace

double transform_cost(u64 n) {
  const double words = static_cast<double>(n);
  return 0.4 * words * std::log2(words + 2);
}

double leaf_cost(u64 n) {
  return 0.25 * static_cast<double>(n) * static_cast<double>(n);
}

Plan kmp_CBRv2_ci_btrf_ap_make(u64 W, const km_MULv3::Context& context) {
  // All leaves alike, ceil(W / 2^levels) words: the nodes of a level then share one record.
  Plan plan;
  plan.W = W;
  while (((W - 1) >> plan.levels) + 1 > LONGEST_LEAF) ++plan.levels;
  plan.base = ((W - 1) >> plan.levels) + 1;

  // The cut above which all threads share each product is as high as keeping every worker busy allows:
  // products on one thread run without synchronisation, and in the thread's own cache.
  plan.threads = std::min(context.threads, std::max<u64>(W / WORDS_PER_THREAD, 1));
  while (plan.fork < plan.levels && u64{1} << plan.fork < TASKS_PER_THREAD * plan.threads) ++plan.fork;
  plan.workers = std::min(plan.threads, u64{1} << plan.fork);
  if (context.threads < 1 || context.threads > 256 || plan.workers != plan.threads ||
      plan.levels >= Plan::MOST_LEVELS)
    throw km_exception(ERROR_INVALID_PARAMETERS, "kmp_CBRv2_ci_btrf_ap_make(): Thread Inconsistancy");
  plan.wide = plan.narrow = context;
  plan.wide.threads = plan.threads;
  plan.narrow.threads = 1;
  plan.narrow.reduced_memory = false;
  return plan;
}

WorkAreas::WorkAreas(const km_MULv3::abstract_btp& record, u64 words, u64 threads) {
  Layout layout;
  layout.take_bytes(record.transform_bytes());
  second_transform = layout.used();
  layout.take_bytes(record.transform_bytes());
  scratch = layout.used();
  layout.take_bytes(record.scratch_bytes());
  if (layout.used() > km_MULv3::product_cost(words, threads)) fatal("Insufficient Allocated Space");
}

Workspace::Workspace(Layout& layout, const Plan& plan) {
  slots = layout.take<u64>(plan.slots() * plan.slot_words());
  overlaps = layout.take<u64>(u64{1} << plan.fork);
  workers = layout.take<ProductBuffers>(plan.workers);
  for (u64 level = 0; level < plan.levels; ++level)
    powers[level] = layout.take<u64>(power_words(plan.span(level + 1)));

  // Three phases follow each other in the same memory: the power table's squarings, the wide
  // levels (one at a time), and the subtrees with the transforms of all their powers.
  u64 end = layout.used();
  const auto phase = [&](const auto& place) {
    Layout branch = layout;
    place(branch);
    end = std::max(end, branch.used());
  };
  phase([&](Layout& branch) {
    Needs needs;
    for (u64 level = 1; level < plan.levels; ++level)
      needs.include(Plan::square_words(plan.span(level + 1)), plan.wide);
    squaring = needs.place(branch);
  });
  phase([&](Layout& branch) {
    Needs needs;
    for (u64 level = 0; level < plan.fork; ++level) needs.include(plan.product_words(level), plan.wide);
    std::fill(power_transforms, power_transforms + plan.fork, nullptr);
    wide = needs.place(branch);
  });
  phase([&](Layout& branch) {
    Needs needs;
    for (u64 level = plan.fork; level < plan.levels; ++level) {
      needs.include(plan.product_words(level), plan.narrow);
      // One of the two transforms in a product's cost, and half of its scratch with it.
      power_transforms[level] = branch.take_bytes(km_MULv3::product_cost(plan.product_words(level), 1) / 2);
    }
    for (u64 i = 0; i < plan.workers; ++i) {
      const ProductBuffers buffers = needs.place(branch);
      if (!branch.measuring()) workers[i] = buffers;
    }
  });
  layout.take_bytes(end - layout.used());
}

} // namespace kelvane::CBRv2
