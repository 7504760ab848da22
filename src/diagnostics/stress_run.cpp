// See stress_run.h.

#include "diagnostics/stress_run.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/processors.h"
#include "diagnostics/stress_signals.h"
#include "multiply/table/parallel.h"
#include "shell/console.h"
#include "shell/reservation.h"
#include "shell/status_line.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

constexpr u64 MIB = u64{1} << 20;

void print_label(const char* description) {
  Console::set_color_white();
  Console::print(description);
  Console::print(" Test: ");
}

// The work memory: one reservation with an equal share for each thread, and the root tables. Limits that
// hardly hold the tables are left to the tests that need none.
class StressMemory {
public:
  explicit StressMemory(const StressSettings& settings) {
    // The program itself, its threads' stacks, the tables.
    const u64 overhead = 4 * MIB + settings.threads * MIB / 8 + stress_table_bytes();
    const bool with_tables = settings.memory >= 2 * overhead;
    share_ = (settings.memory - (with_tables ? overhead : 0)) / settings.threads;
    share_ &= share_ >= 4 * MIB ? ~(2 * MIB - 1) : ~(Layout::ALIGNMENT - 1);
    size_ = share_ * settings.threads;
    work_ = reserve_memory(size_, settings.threads);
    if (with_tables) tables_.emplace(settings.threads);
  }
  ~StressMemory() { release_memory(work_, size_); }
  StressMemory(const StressMemory&) = delete;
  StressMemory& operator=(const StressMemory&) = delete;

  u8* share(u64 task) const { return work_ + task * share_; }
  u64 share_bytes() const { return share_; }
  const km_MULv3::TableSet* tables() const { return tables_ ? &tables_->set() : nullptr; }

private:
  u64 share_;
  u64 size_;
  u8* work_;
  std::optional<StressTables> tables_;
};

class StressRun {
public:
  StressRun(const StressSettings& settings, const StressHooks& hooks, StressCounters& counters)
      : settings_(settings), hooks_(hooks), counters_(counters), memory_(settings),
        processors_(allowed_processors()) {
    const KeepAffinity keep;
    for (u64 i = 0; bind_ && i < processors_.size() && i < settings.threads; i++)
      bind_ = set_affinity(processors_[i]);
    for (u64 i = 0; i < settings.threads; i++) tasks_.push_back(task_of(i));
  }

  // Whether any test of the last iteration could run, and whether all of them passed.
  bool ran_any() const { return ran_any_; }
  bool iteration() {
    ran_any_ = false;
    const u64 number = counters_.iterations.fetch_add(1) + 1;
    Console::print("Iteration: ");
    Console::print_colored(Console::format_commas(number), 'G');
    Console::print("  Total Elapsed Time: ");
    Console::print_colored(Console::format_seconds(Console::wall_seconds() - start_), 'G');
    Console::print("\n");
    bool passed = true;
    for (u64 i = 0; i < STRESS_TESTS; i++) {
      if (settings_.enabled[i]) passed = run_test(i) && passed;
    }
    Console::print("\n");
    return passed;
  }

private:
  StressTask task_of(u64 index) const {
    StressTask task{};
    task.tables = memory_.tables();
    task.share = memory_.share(index);
    task.share_bytes = memory_.share_bytes();
    task.task = index;
    task.processor = bind_ ? static_cast<s64>(processors_[index % processors_.size()]) : -1;
    task.hook = &hooks_.on_product;
    task.counters = &counters_;
    return task;
  }

  // f(task) on a thread for each task.
  template <class F> void on_all(const F& f) {
    const KeepAffinity keep; // the last task runs on this thread
    km_MULv3::on_threads({0, settings_.threads}, [&](u64 i) { f(tasks_[i]); });
  }

  bool run_test(u64 index) {
    const char* const description = stress_test(index).algorithm->description();
    const StressPlan plan = plan_stress(stress_test(index), memory_.share_bytes());
    if (plan.words == 0 || (plan.test->needs_tables && memory_.tables() == nullptr)) {
      Console::print_colored("Insufficient memory to run this test.\n", 'Y');
      return true;
    }
    ran_any_ = true;
    Console::print("Preparing ");
    Console::print(description);
    Console::print(" Test...");
    on_all([](const StressTask& task) {
      if (task.processor >= 0) bind_to_processor(static_cast<u64>(task.processor));
      std::memset(task.share, 0, task.share_bytes);
    });

    const double start = Console::wall_seconds();
    bool passed = true;
    u64 pass = 0;
    double elapsed = 0;
    do {
      passed = run_pass(index, plan, pass++) && passed;
      elapsed = Console::wall_seconds() - start;
      Console::status_line().clear();
      print_label(description);
      Console::print_colored(Console::format_commas(pass), 'G');
      Console::print("  Elapsed Time: ");
      Console::print_colored(Console::format_seconds(elapsed), 'G');
    } while (elapsed < static_cast<double>(settings_.seconds));

    Console::status_line().clear();
    print_label(description);
    Console::print_colored(passed ? "Passed" : "Failed", passed ? 'G' : 'R');
    Console::print("  Test Time: ");
    Console::print_colored(Console::format_seconds(elapsed), 'G');
    Console::print("\n");
    return passed;
  }

  bool run_pass(u64 test, const StressPlan& plan, u64 pass) {
    for (StressTask& task : tasks_) {
      task.plan = &plan;
      task.test = test;
      task.pass = pass;
      task.products = std::max(u64{1}, plan.products / hooks_.product_divisor);
    }
    on_all(run_stress_task);
    bool passed = true;
    for (const StressTask& task : tasks_) {
      if (task.failures == 0) continue;
      passed = false;
      print_failure(plan, task, pass + 1);
    }
    return passed;
  }

  void print_failure(const StressPlan& plan, const StressTask& task, u64 pass) const {
    Console::status_line().clear();
    Console::set_color_red(true);
    Console::print("Processor " + std::to_string(task.ran_on) +
                   (task.processor >= 0 ? "" : " (thread not bound)") + ", pass " +
                   Console::format_commas(pass) + ": " + describe(task.first) + " (" +
                   Console::format_commas(task.failures) + " of " + Console::format_commas(task.products) +
                   " products of " + Console::format_commas(plan.words) + " words).\n");
    Console::set_color_white();
  }

  double start_ = Console::wall_seconds(); // before the memory is reserved
  const StressSettings& settings_;
  const StressHooks& hooks_;
  StressCounters& counters_;
  StressMemory memory_;
  std::vector<u64> processors_;
  bool bind_ = true;
  bool ran_any_ = false;
  std::vector<StressTask> tasks_;
};

} // namespace

bool run_stress_test(const StressSettings& settings, const StressHooks& hooks, StressCounters& counters) {
  Console::print("Starting Continuous Stress-Test...\n\n");
  const StressSignals signals(counters);
  StressRun run(settings, hooks, counters);
  bool passed = true;
  for (u64 i = 0; hooks.iterations == 0 || i < hooks.iterations; i++) {
    passed = run.iteration() && passed;
    if (run.ran_any()) continue;
    Console::print_colored("None of the selected tests fits the memory limit.\n", 'R');
    break;
  }
  return passed;
}

} // namespace kelvane
