// See stress_task.h.

#include "diagnostics/stress_task.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "arithmetic/words/residue.h"
#include "diagnostics/operand_generator.h"
#include "diagnostics/processors.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

using km_MULv3::abstract_btp;

class Worker {
public:
  explicit Worker(StressTask& task) : t_(task), plan_(*task.plan) {
    km_MULv3::Context context;
    context.tables = task.tables;
    record_ = plan_.test->algorithm->make_parameters(plan_.words, context, &storage_);
    sample_ = plan_.test->second(2 * plan_.sample_words(), context, &sample_storage_);
  }

  void run() {
    // Tests in the cache stay in one window for a pass, the others go on with each product.
    const u64 per_window = plan_.test->in_cache ? t_.products : 1;
    for (u64 done = 0; done < t_.products; done += per_window) {
      const u64 step = plan_.test->in_cache ? t_.pass : t_.pass * t_.products + done;
      run_window(step, done, std::min(per_window, t_.products - done));
    }
  }

private:
  void run_window(u64 step, u64 first, u64 count) {
    StressWindow w = window_of_step(step);
    // Another sequence for every window and task.
    const u64 offset = (step * 0x10001 + t_.task) * 0x9E3779B1;
    generate_words(w.pool, w.pool_words, offset);
    for (u64 i = 0; i < count; i++) make_product(w, first + i);
    if (!words_are_generated(w.pool, w.pool_words, offset)) fail(StressFault::operands);
  }

  // The windows lie at the share's start in even rounds and at its end in odd ones, so that what does not
  // hold a window of its own is used too.
  StressWindow window_of_step(u64 step) const {
    const u64 left = (t_.share_bytes - plan_.windows * plan_.window) & ~(Layout::ALIGNMENT - 1);
    const u64 round = step / plan_.windows;
    u8* const start =
        static_cast<u8*>(t_.share) + (round % 2 == 0 ? 0 : left) + step % plan_.windows * plan_.window;
    Layout layout(start, plan_.window);
    return {layout, plan_, *record_, *sample_};
  }

  void make_product(const StressWindow& w, u64 index) {
    const u64 L = plan_.operand_words();
    const u64* const A = w.pool + index % POOL_SHIFTS;
    const u64* const B = w.pool + L + 7 * index % POOL_SHIFTS;
    const u64 expected = residue::mul(residue::hash_words(A, L), residue::hash_words(B, L));
    try {
      record_->product(w.product, A, L, B, L, w.TA, w.TB, w.scratch);
      if (t_.hook != nullptr && *t_.hook) {
        (*t_.hook)({t_.test, t_.pass, t_.task, index, w.pool, w.product, plan_.words});
      }
      if (residue::hash_words(w.product, plan_.words) != expected) {
        fail(StressFault::residue);
      } else if (index == 0 && !sample_agrees(w, A, B)) {
        fail(StressFault::sample);
      }
    } catch (const km_exception&) { // an algorithm's own check
      fail(StressFault::exception);
    }
    t_.counters->products.fetch_add(1, std::memory_order_relaxed);
  }

  // The lowest m words of a product depend on the lowest m words of the operands only; for short operands the
  // whole product is compared.
  bool sample_agrees(const StressWindow& w, const u64* A, const u64* B) const {
    const u64 m = plan_.sample_words();
    sample_->product(w.sample_product, A, m, B, m, w.sample_TA, w.sample_TB, w.sample_scratch);
    const u64 compared = m == plan_.operand_words() ? 2 * m : m;
    return std::memcmp(w.sample_product, w.product, 8 * compared) == 0;
  }

  void fail(StressFault fault) {
    if (t_.failures++ == 0) t_.first = fault;
    t_.counters->failures.fetch_add(1, std::memory_order_relaxed);
    if (t_.ran_on < StressCounters::PROCESSORS) {
      t_.counters->processor_failures[t_.ran_on].fetch_add(1, std::memory_order_relaxed);
    }
  }

  StressTask& t_;
  const StressPlan& plan_;
  km_MULv3::btp_storage storage_, sample_storage_;
  const abstract_btp* record_;
  const abstract_btp* sample_;
};

} // namespace

const char* describe(StressFault fault) {
  switch (fault) {
  case StressFault::residue:
    return "a product has the wrong residue";
  case StressFault::sample:
    return "a product differs from a second algorithm's";
  case StressFault::operands:
    return "operands changed in memory";
  case StressFault::exception:
    return "the algorithm's own check failed";
  case StressFault::none:
    break;
  }
  return "no failure";
}

void run_stress_task(StressTask& task) {
  task.failures = 0;
  task.first = StressFault::none;
  if (task.processor >= 0) bind_to_processor(static_cast<u64>(task.processor));
  task.ran_on = task.processor >= 0 ? static_cast<u64>(task.processor) : current_processor();
  Worker(task).run();
}

} // namespace kelvane
