#include "control/driver.h"

#include "control/constant.h"
#include "control/phases.h"
#include "control/report.h"
#include "multiply/table/tables.h"
#include "shell/console.h"
#include "shell/reservation.h"
#include "shell/settings.h"
#include "shell/status_line.h"
#include "shell/system_info.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

constexpr u64 RESERVATION_SLACK = 1048592;

void warn_of_little_memory(u64 needed) {
  const u64 available = available_memory();
  if (available == 0 || available >= needed) return;
  Console::set_color('Y');
  Console::print("Warning:\n");
  Console::print("There is insufficient available physical memory to perform this computation.\n\n");
  Console::print("Insufficient memory may lead to virtual memory thrashing which can cause severe\n");
  Console::print("performance degradation and/or system unresponsiveness.\n");
  Console::set_color_white();
  Console::wait_for_enter();
  Console::print("\n");
}

// The working memory and the root tables of a run, given back on every way out.
class WorkingMemory {
public:
  WorkingMemory(u64 bytes, u64 threads) { heap.create_root(bytes, threads); }
  ~WorkingMemory() { heap.destroy(); }
  WorkingMemory(const WorkingMemory&) = delete;
  WorkingMemory& operator=(const WorkingMemory&) = delete;
  Heap heap;
};

class RootTables {
public:
  RootTables(u64 product_words, u64 threads)
      : bytes_(km_MULv3::Tables::bytes(product_words)), memory_(reserve_memory(bytes_, threads)) {
    tables_.build(memory_, product_words, threads);
  }
  ~RootTables() { release_memory(memory_, bytes_); }
  RootTables(const RootTables&) = delete;
  RootTables& operator=(const RootTables&) = delete;
  const km_MULv3::TableSet& set() const { return tables_.set(); }

private:
  u64 bytes_;
  u8* memory_;
  km_MULv3::Tables tables_;
};

void print_phase(EventLog& events, const char* event, const char* label) {
  events.record(event);
  Console::print(label);
}

void print_size(u64 bytes) {
  Console::set_color('G');
  Console::print_bytes(bytes);
  Console::set_color_white();
  Console::print("\n");
}

} // namespace

void run_computation(ComputeSettings& settings) {
  RunRecord record;
  run_computation(settings, {}, record);
}

void run_computation(ComputeSettings& settings, const RunFaults& faults, RunRecord& record) {
  kcr_Constant& constant = *settings.constant;
  const MemoryQuery query = MemoryQuery{settings.precision_words, settings.decimal_digits,
                                        settings.hexadecimal_digits, settings.threads};
  Console::print("\n");
  constant.prepare(settings.precision_words);
  MemoryFigure figure;
  constant.get_memory_B(settings.algorithm, query, &figure);
  warn_of_little_memory(figure.total());

  print_header(settings);
  record.times.start = std::time(nullptr);
  Console::println_labeled("Start Time: ", local_time_text(record.times.start).c_str(), 'Y');
  Console::print("\n");

  print_phase(record.events, "Reserving Working Memory", "Reserving Working Memory...         ");
  WorkingMemory working(figure.working + RESERVATION_SLACK, settings.threads);
  record.planned_bytes = figure.working;
  record.working_bytes = figure.working + RESERVATION_SLACK;
  print_size(record.working_bytes);

  print_phase(record.events, "Constructing Twiddle Tables", "Constructing Twiddle Tables...      ");
  const RootTables tables(largest_product(query), settings.threads);
  record.table_bytes = figure.tables;
  print_size(record.table_bytes);

  print_phase(record.events, "Allocating I/O Buffers", "Allocating I/O Buffers...           ");
  print_size(0);
  Console::print("\n");

  print_phase(record.events, "Begin Computation", "Begin Computation:\n\n");
  const double wall = Console::wall_seconds(), cpu = Console::cpu_seconds();
  ComputeContext context{settings,      working.heap,  {&tables.set(), settings.threads, nullptr},
                         record.events, record.result, faults};
  constant.run_B(settings.algorithm, context);
  record.events.record("End Computation");
  record.times.end = std::time(nullptr);
  record.times.total = Console::wall_seconds() - wall;
  record.times.computation = context.compute_end - wall + record.result.convert_seconds;
  record.times.cpu = Console::cpu_seconds() - cpu;
  record.peak_bytes = working.heap.peak_bytes();

  print_timings(record);
  print_last_digits(settings, record.result);
  // A run without digit files is a benchmark, which writes a validation file instead.
  if (settings.write_digits) write_report(settings, record);
}

} // namespace kelvane
