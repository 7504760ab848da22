// The screen and the editors of the settings. See settings_menu.h.

#include "shell/settings_menu.h"

#include "control/constant.h"
#include "control/driver.h"
#include "control/registry.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/file.h"
#include "shell/settings.h"
#include "shell/system_info.h"

namespace kelvane {

namespace {

constexpr u64 LAST_OPTION = 8; // in RAM mode
constexpr int ROUND_UP = 1;    // memory figures are never shown smaller than they are

void print_error(const char* message) {
  Console::print("\n");
  Console::print_colored(std::string("Error: ") + message + "\n", 'Y');
}

// Asks until the setter accepts.
template <class Setter> void edit_number(const wchar_t* prompt, const Setter& set) {
  while (const char* error = set(Console::scan_u64(prompt))) print_error(error);
}

void print_compression(u64 digits_per_file) {
  if (digits_per_file == 0) {
    Console::print_colored("No - Write digits to a text file.", 'T');
  } else if (digits_per_file == ComputeSettings::ONE_FILE) {
    Console::print_colored("Yes - Compress digits into one .kcd file.", 'T');
  } else {
    Console::set_color_teal(true);
    Console::print("Yes - Compress digits and split them into multiple");
    Console::print("\n");
    Console::print("                           files with  ");
    Console::print_colored(Console::format_commas(digits_per_file), 'Y');
    Console::set_color_teal(true);
    Console::print("  digits per file.");
    Console::set_color_white();
  }
}

// Option 0, and what speaks against it. Returns whether it may be chosen.
bool print_start(const ComputeSettings& settings) {
  Console::print("  0     ");
  if (static_cast<s64>(settings.memory_needed) < 0) {
    Console::print_colored("Cannot Start: 64-bit is required to use more than 2GB of memory.\n\n", 'R');
    return false;
  }
  Console::print_colored("Start Computation!\n", 'G');
  const u64 total = physical_memory();
  const u64 available = available_memory();
  if (total != 0 && settings.memory_needed > total) {
    Console::print_colored("        Warning: There is insufficient physical memory.\n\n", 'R');
  } else if (available != 0 && settings.memory_needed > available) {
    Console::print_colored("        Warning: There is insufficient available physical memory.\n\n", 'R');
  } else {
    Console::print("\n");
  }
  const s64 free = posix_files().free_bytes(folder_of(folder_prefix(settings.output_path)));
  if (free >= 0 && static_cast<u64>(free) < settings.output_bytes())
    Console::print_colored("        Warning: There is insufficient disk space for the output.\n\n", 'R');
  return true;
}

void edit_algorithm(ComputeSettings& settings) {
  Console::print("\n\nSelect the algorithm:\n\n");
  const u32 count = settings.constant->algorithm_count;
  for (u32 i = 0; i < count; i++) {
    const std::string indent = "         ";
    std::string text = settings.constant->get_algorithm_description(static_cast<s32>(i));
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1)) {
      text.insert(end + 1, "   " + indent);
    }
    Console::set_color_teal(true);
    Console::print_commas(i, 3);
    Console::print(indent + text + "\n");
  }
  Console::set_color_white();
  Console::print("\n");
  if (const char* error = settings.set_algorithm(Console::scan_u64_range(L"option: ", 0, count - 1))) {
    print_error(error);
  }
}

void edit_path(ComputeSettings& settings) {
  wchar_t path[4096]; // PATH_MAX
  Console::print("Enter the path to write the digits to. (e.g. \"C:\" or \"C:/temp\" )\n\n");
  Console::print("Path: ");
  Console::read_line(path, std::size(path));
  if (const char* error = settings.set_output_path(path)) print_error(error);
}

void edit_output_format(ComputeSettings& settings) {
  if (!settings.compression_offered()) {
    settings.set_digits_per_file(0);
    Console::print("Computation is too small for compression.\n\n");
    Console::wait_for_enter();
    return;
  }
  Console::print("Select an Output Format:\n\n");
  Console::set_color_green(true);
  Console::print("  0     Write to a text file. Do not compress.\n");
  Console::print("  1     Compress digits into a single .kcd file.\n");
  Console::print("  2     Compress digits into multiple .kcd files with a user-specified\n");
  Console::print("        number of digits per file.\n\n");
  Console::set_color_white();
  const u64 choice = Console::scan_u64_range(L"option: ", 0, 2);
  u64 digits = choice == 0 ? 0 : ComputeSettings::ONE_FILE;
  if (choice == 2) {
    const u64 counted =
        settings.hexadecimal_digits != 0 ? settings.hexadecimal_digits : settings.decimal_digits;
    digits =
        Console::scan_u64_range(L"Digits per file: ", ComputeSettings::LEAST_DIGITS_PER_FILE, counted - 1);
  }
  if (const char* error = settings.set_digits_per_file(digits)) print_error(error);
}

void edit_mode(ComputeSettings& settings) {
  Console::print("Select a Mode:\n\n");
  Console::print("Option      Mode            Memory    Disk Memory\n\n");
  Console::set_color_green(true);
  Console::print(" 1      Ram Only            ");
  Console::print_bytes(settings.memory_needed, ROUND_UP);
  Console::print("\n");
  Console::print(" 2      Disk Swapping      >(not built yet)\n\n");
  Console::set_color_white();
  const u64 choice = Console::scan_u64_range(L"option: ", 1, 2);
  if (const char* error = settings.set_mode(choice - 1)) print_error(error);
}

} // namespace

bool print_settings(const ComputeSettings& settings) {
  const auto line = [](const char* label, const std::string& value, char color, const char* end) {
    Console::set_color_white();
    Console::print(label);
    Console::print_colored(value, color);
    Console::print(end);
  };
  Console::print_colored("Custom Compute a Constant\n\n", 'P');
  Console::print("Current Settings: (select option # to change setting)\n\n");

  line("  1     Constant:    ", settings.constant->get_full_name(), 'G', "\n");
  line("  2     Algorithm:   ", settings.constant->get_algorithm_name(settings.algorithm), 'G', "\n\n");

  const u64 hexadecimal = settings.hexadecimal_digits;
  line("  3     Decimal Digits:        ", Console::format_commas(settings.decimal_digits), 'G', "\n");
  line("  4     Hexadecimal Digits:    ", hexadecimal == 0 ? "Disabled" : Console::format_commas(hexadecimal),
       'G', "\n\n");

  line("  5     Multi-Threading:   ",
       std::to_string(settings.threads) + (settings.threads > 1 ? " threads" : " thread"), 'T', "\n");
  Console::print("  6     Write Digits To:   ");
  Console::set_color_teal(true);
  Console::print(settings.output_path.empty() ? L"Default Path" : settings.output_path);
  Console::set_color_white();
  Console::print("\n");
  Console::print("  7     Compress Output:   ");
  print_compression(settings.digits_per_file);
  Console::print("\n\n");
  line("  8     Computation Mode:  ", settings.mode == ComputeSettings::RAM_ONLY ? "Ram Only" : "Swap Mode",
       'T', "\n\n");

  line("        Memory Needed:     ", Console::format_bytes(settings.memory_needed, ROUND_UP), 'Y', "\n");
  line("        Disk Needed:       ", Console::format_bytes(settings.disk_needed, ROUND_UP), 'y', "  +  ");
  line("", Console::format_bytes(settings.output_bytes(), ROUND_UP), 'P', " for output\n\n");
  return print_start(settings);
}

void constant_menu(ComputeSettings& settings) {
  print_constant_list();
  for (;;) {
    const auto number = static_cast<u32>(Console::scan_u64_range(L"option: ", 0, CONSTANT_EULER_GAMMA));
    const char* const title = number == CONSTANT_SQRT      ? "\n\nSquare Root of n\n\n"
                              : number == CONSTANT_ARCCOTH ? "\n\nArcCoth(n)\n\n"
                              : number == CONSTANT_LOG     ? "\n\nLog(n)\n\n"
                                                           : nullptr;
    if (title == nullptr) {
      const char* error = validate_and_select(settings, number, 0);
      if (error == nullptr) return;
      print_error(error);
      continue;
    }
    Console::print(title);
    for (;;) {
      const char* error = validate_and_select(settings, number, Console::scan_u64(L"Select a parameter: "));
      if (error == nullptr) return;
      if (number == CONSTANT_SQRT) {
        Console::print("\nThis number is a perfect square.\nPlease choose something more interesting :)\n\n");
      } else {
        print_error(error);
      }
    }
  }
}

bool edit_settings(ComputeSettings& settings, bool may_start) {
  const u64 option = Console::scan_u64_range(L"option: ", may_start ? 0 : 1, LAST_OPTION);
  Console::print("\n\n");
  switch (option) {
  case 0:
    return false;
  case 1:
    constant_menu(settings);
    break;
  case 2:
    edit_algorithm(settings);
    break;
  case 3:
    Console::print("Select the # of decimal digits to compute:\n");
    edit_number(L"Digits: ", [&](u64 digits) { return settings.set_decimal_digits(digits); });
    break;
  case 4:
    Console::print("Select the # of hexadecimal digits to compute: (0 to disable)\n");
    edit_number(L"Digits: ", [&](u64 digits) { return settings.set_hexadecimal_digits(digits); });
    break;
  case 5:
    Console::print("Select the # of threads to use:\n");
    edit_number(L"Threads: ", [&](u64 count) { return settings.set_threads(count); });
    break;
  case 6:
    edit_path(settings);
    break;
  case 7:
    edit_output_format(settings);
    break;
  case 8:
    edit_mode(settings);
    break;
  }
  Console::print("\n\n");
  return true;
}

void custom_compute_menu() {
  ComputeSettings settings;
  select_constant(settings, CONSTANT_PI, 0);
  settings.update();
  for (;;) {
    while (edit_settings(settings, print_settings(settings))) {
    }
    // Found out now and not after hours of work.
    const char* const error = settings.check_output_path();
    if (error == nullptr) break;
    print_error(error);
  }
  run_computation(settings);
}

} // namespace kelvane
