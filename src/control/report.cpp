#include "control/report.h"

#include <cstdio>

#include "control/constant.h"
#include "multiply/simd/isa.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/file.h"
#include "shell/settings.h"
#include "shell/system_info.h"
#include "shell/thread.h"
#include "shell/version.h"

namespace kelvane {

namespace {

std::string fixed3(double x) {
  char text[64];
  std::snprintf(text, sizeof text, "%0.3f", x);
  return text;
}

// Texts that the screen and the report file share.
std::string mode_text(const ComputeSettings& settings) {
  return settings.mode == ComputeSettings::SWAP_MODE ? "Swap Mode" : "Ram Only";
}

std::string hexadecimal_text(const ComputeSettings& settings) {
  return settings.hexadecimal_digits == 0 ? "Disabled" : Console::format_commas(settings.hexadecimal_digits);
}

std::string total_time_text(const RunRecord& record) {
  return record.result.digits_written ? Console::format_seconds(record.times.total) : "N/A";
}

// Processor time against wall time; "Not Available" when no processor time was measured.
std::string utilization_text(const RunTimes& times, double processors) {
  if (times.cpu == 0 || times.total == 0) return "Not Available";
  return fixed3(times.cpu * 100 / times.total / processors) + " %";
}

void line(const char* label, const std::string& value, char color) {
  Console::println_labeled(label, value.c_str(), color);
}

} // namespace

void print_header(const ComputeSettings& settings) {
  const kcr_Constant& constant = *settings.constant;
  line("Constant :  ", constant.get_full_name(), 'G');
  line("Algorithm:  ", constant.get_algorithm_name(settings.algorithm), 'G');
  Console::print("\n");
  line("Decimal Digits    :   ", Console::format_commas(settings.decimal_digits), 'G');
  line("Hexadecimal Digits:   ", hexadecimal_text(settings), 'G');
  Console::print("\n");
  line("Threads:    ", Console::format_commas(settings.threads), 'T');
  line("Mode   :    ", mode_text(settings), 'T');
  Console::print("\n");
  print_system_info();
  Console::print("\n");
}

void print_timings(const RunRecord& record) {
  const RunTimes& times = record.times;
  line("Start Time: ", local_time_text(times.start), 'Y');
  line("End Time:   ", local_time_text(times.end), 'Y');
  Console::print("\n");
  line("Total Computation Time:             ", Console::format_seconds(times.computation), 'G');
  line("Total Time (with output + verify):  ", total_time_text(record), 'G');
  Console::print("\n");
  line("CPU Utilization:        ", utilization_text(times, 1), 'G');
  line("Multi-core Efficiency:  ", utilization_text(times, static_cast<double>(logical_processors())), 'G');
  Console::print("\n");
}

std::string last_digit_lines(const std::string& tail, u64 start) {
  std::string text;
  for (size_t i = 0; i < tail.size(); i++) {
    text += tail[i];
    const bool last = i + 1 == tail.size();
    if ((i + 1) % 50 == 0 || last)
      text += " :  " + Console::format_commas(start + i + 1) + "\n";
    else if ((i + 1) % 10 == 0)
      text += ' ';
  }
  return text;
}

void print_last_digits(const ComputeSettings& settings, const FinishResult& result) {
  Console::print("Last Digits:  ");
  Console::print_colored(settings.constant->get_name() + "\n", 'G');
  Console::print(last_digit_lines(result.tail_digits, result.tail_start) + "\n");
}

namespace {

std::string entry(const char* label, const std::string& value) {
  return label + value + "\n";
}

std::string compression_text(u64 digits_per_file) {
  if (digits_per_file == 0) return "text file";
  if (digits_per_file == ComputeSettings::ONE_FILE) return "one compressed file";
  return "compressed files of " + Console::format_commas(digits_per_file) + " digits";
}

// Every phase with its duration: a phase ends where the next one begins.
std::string phase_lines(const EventLog& log) {
  std::string text = "Phases:            at    seconds\n";
  const std::vector<Event>& events = log.events();
  for (size_t i = 0; i < events.size(); i++) {
    const bool last = i + 1 == events.size();
    char line[48];
    std::snprintf(line, sizeof line, last ? "%21.3f          -  " : "%21.3f %10.3f  ", events[i].seconds,
                  last ? 0 : events[i + 1].seconds - events[i].seconds);
    text += line + events[i].name + "\n";
  }
  return text;
}

} // namespace

std::string system_lines(const std::vector<SystemFact>& facts) {
  std::string text;
  for (const SystemFact& fact : facts) text += fact.text() + "\n";
  return text + entry("Instruction Set:  ", simd::name(simd::active_isa()));
}

std::string settings_lines(const ComputeSettings& settings, const RunRecord& record) {
  const kcr_Constant& constant = *settings.constant;
  std::string text = entry("Constant:            ", constant.get_full_name());
  text += entry("Algorithm:           ", constant.get_algorithm_name(settings.algorithm));
  text += entry("Decimal Digits:      ", Console::format_commas(settings.decimal_digits));
  text += entry("Hexadecimal Digits:  ", hexadecimal_text(settings));
  text += entry("Precision:           ", Console::format_commas(settings.precision_words) + " words");
  text += entry("Threads:             ", std::to_string(settings.threads));
  text += entry("Mode:                ", mode_text(settings));
  text += entry("Output:              ",
                settings.write_digits ? compression_text(settings.digits_per_file) : "none");
  text += entry("Working Memory:      ", Console::format_bytes(record.working_bytes));
  text += entry("Twiddle Tables:      ", Console::format_bytes(record.table_bytes));
  return text;
}

std::string time_lines(const RunRecord& record) {
  std::string text = entry("Start Time:  ", local_time_text(record.times.start));
  text += entry("End Time:    ", local_time_text(record.times.end));
  text += entry("Total Computation Time:             ", Console::format_seconds(record.times.computation));
  text += entry("Total Time (with output + verify):  ", total_time_text(record));
  text += entry("CPU Utilization:        ", utilization_text(record.times, 1));
  text += entry("Multi-core Efficiency:  ",
                utilization_text(record.times, static_cast<double>(logical_processors())));
  return text + "\n" + phase_lines(record.events);
}

std::string digit_lines(const FinishResult& result) {
  std::string text = entry(RESIDUE_LABEL, std::to_string(result.decimal_hash));
  text += "\nCounts of the digits after the point:\n";
  for (u64 digit = 0; digit < 10; digit++)
    text += "  " + std::to_string(digit) + Console::format_commas(result.digit_counts[digit], 20) + "\n";
  return text + "\nLast Digits:\n" + last_digit_lines(result.tail_digits, result.tail_start);
}

namespace {

std::string report_text(const ComputeSettings& settings, const RunRecord& record) {
  std::string text = std::string("Kelvane v") + VERSION + "\n\n";
  text += system_lines(system_facts()) + "\n" + settings_lines(settings, record) + "\n";
  text += time_lines(record) + "\n" + digit_lines(record.result);
  text += "\nFiles:\n";
  for (const std::wstring& path : record.result.files) text += "  " + path_to_narrow(path) + "\n";
  return text;
}

std::wstring report_path(const ComputeSettings& settings, std::time_t start) {
  std::tm tm{};
  localtime_r(&start, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, " - %Y%m%d-%H%M%S.txt", &tm);
  return folder_prefix(settings.output_path) + path_to_wide(settings.constant->get_name() + stamp);
}

} // namespace

void write_report(const ComputeSettings& settings, const RunRecord& record) {
  const std::wstring path = report_path(settings, record.times.start);
  try {
    replace_whole_file(path, report_text(settings, record));
    Console::print("Report:  ");
    Console::set_color_green(true);
    Console::print(full_path(path) + L"\n");
    Console::set_color_white();
  } catch (const km_exception& e) {
    print_exception(e);
  }
}

} // namespace kelvane
