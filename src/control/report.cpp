#include "control/report.h"

#include <cstdio>

#include "control/constant.h"
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

std::string report_text(const ComputeSettings& settings, const RunRecord& record) {
  const kcr_Constant& constant = *settings.constant;
  const auto entry = [](const std::string& label, const std::string& value) { return label + value + "\n"; };
  std::string text = std::string("Kelvane v") + VERSION + "\n" + entry("Version:  ", BUILD_TAG) + "\n";
  text += entry("Processor(s):        ", processor_brand());
  text += entry("Logical Cores:       ", std::to_string(logical_processors()));
  text += entry("Physical Memory:     ", Console::format_bytes(physical_memory()));
  text += "\n";
  text += entry("Constant:            ", constant.get_full_name());
  text += entry("Algorithm:           ", constant.get_algorithm_name(settings.algorithm));
  text += entry("Decimal Digits:      ", Console::format_commas(settings.decimal_digits));
  text += entry("Hexadecimal Digits:  ", hexadecimal_text(settings));
  text += entry("Threads:             ", std::to_string(settings.threads));
  text += entry("Mode:                ", mode_text(settings));
  text += entry("Working Memory:      ", Console::format_bytes(record.working_bytes));
  text += entry("Twiddle Tables:      ", Console::format_bytes(record.table_bytes));
  text += "\n";
  text += entry("Start Time:          ", local_time_text(record.times.start));
  text += entry("End Time:            ", local_time_text(record.times.end));
  text += entry("Total Computation Time:             ", Console::format_seconds(record.times.computation));
  text += entry("Total Time (with output + verify):  ", total_time_text(record));
  text += entry("CPU Utilization:        ", utilization_text(record.times, 1));
  text += entry("Multi-core Efficiency:  ",
                utilization_text(record.times, static_cast<double>(logical_processors())));
  text += "\nEvents (seconds since the start):\n";
  for (const Event& event : record.events.events())
    text += "  " + fixed3(event.seconds) + "  " + event.name + "\n";
  text += "\nDigits after the point, each of 0 to 9:\n";
  for (const u64 count : record.result.digit_counts) text += "  " + Console::format_commas(count) + "\n";
  text +=
      entry("\nDecimal digits as an integer, modulo 2^61 - 1:  ", std::to_string(record.result.decimal_hash));
  text += "\nLast Digits:\n" + last_digit_lines(record.result.tail_digits, record.result.tail_start);
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
    write_whole_file(path, report_text(settings, record));
    Console::print("Report:  ");
    Console::set_color_green(true);
    Console::print(full_path(path) + L"\n");
    Console::set_color_white();
  } catch (const km_exception& e) {
    print_exception(e);
  }
}

} // namespace kelvane
