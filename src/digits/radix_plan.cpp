// The conversion's plan and placement. See radix_plan.h.

#include "digits/radix_plan.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/words/residue.h"
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
  void include(const Plan& plan, u64 level, const NodeProduct& node) {
    const u64 words = plan.product_words(level);
    work = std::max(work, WorkAreas(*node.record, level < plan.fork).bytes);
    if (node.wrapped != nullptr)
      work = std::max(work, km_MULv3::memory_cost(words, plan.context(level).threads, true));
    product = std::max({product, words, node.words});
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

NodeProduct::NodeProduct(const Plan& plan, u64 level) : wrapped(nullptr), words(plan.product_words(level)) {
  const u64 S = plan.span(level + 1);
  const km_MULv3::Context& context = plan.context(level);
  if (words > km_MULv3::LONGEST_FFT) {
    const u64 least = power_words(S) + power_zero_words(S) + fraction_words(S + OVERLAP) + 1;
    wrapped = km_MULv3::select_wrapped(
        std::max({least, plan.longest_fraction(level), km_MULv3::LONGEST_FFT + 1}), context, &storage);
    if (wrapped->wrap_words() % residue::WRAPPED_PERIOD != 0) wrapped = nullptr; // no check is known
  }
  if (wrapped != nullptr) {
    record = wrapped;
    words = wrapped->wrap_words();
  } else {
    record = km_MULv3::select(words, context, &storage);
  }
}

WorkAreas::WorkAreas(const km_MULv3::abstract_btp& record, bool wide) {
  Layout layout;
  layout.take_bytes(record.transform_bytes());
  power = layout.used();
  if (wide) layout.take_bytes(record.transform_bytes());
  scratch = layout.used();
  layout.take_bytes(record.scratch_bytes());
  bytes = layout.used();
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
    for (u64 level = 0; level < plan.fork; ++level) needs.include(plan, level, NodeProduct(plan, level));
    std::fill(power_transforms, power_transforms + plan.fork, nullptr);
    wide = needs.place(branch);
  });
  phase([&](Layout& branch) {
    Needs needs;
    for (u64 level = plan.fork; level < plan.levels; ++level) {
      const NodeProduct node(plan, level);
      needs.include(plan, level, node);
      power_transforms[level] = branch.take_bytes(node.record->transform_bytes());
    }
    for (u64 i = 0; i < plan.workers; ++i) {
      const ProductBuffers buffers = needs.place(branch);
      if (!branch.measuring()) workers[i] = buffers;
    }
  });
  layout.take_bytes(end - layout.used());
}

} // namespace kelvane::CBRv2
