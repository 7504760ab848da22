// Facts about the machine on Linux. See system_info.h.

#include "shell/system_info.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/sysinfo.h>
#include <unistd.h>
#include <x86intrin.h>

#include "shell/console.h"
#include "shell/cpu_features.h"
#include "shell/status_line.h"
#include "shell/version.h"

namespace kelvane {

namespace {

// A line "name:  1234 kB" of /proc/meminfo in bytes, or 0.
u64 meminfo(const char* name) {
  std::FILE* file = std::fopen("/proc/meminfo", "r");
  if (file == nullptr) return 0;
  char line[256];
  u64 result = 0;
  while (result == 0 && std::fgets(line, sizeof line, file) != nullptr) {
    const size_t length = std::strlen(name);
    unsigned long kib = 0;
    if (std::strncmp(line, name, length) == 0 && line[length] == ':' &&
        std::sscanf(line + length + 1, "%lu", &kib) == 1) {
      result = u64{kib} * 1024;
    }
  }
  std::fclose(file);
  return result;
}

void print_fact(const char* label, const std::string& value) {
  Console::println_labeled(label, value.empty() ? "Unable to Detect" : value.c_str(),
                           value.empty() ? 'R' : 'G');
}

} // namespace

std::string processor_brand() {
  if (THIS_CPU.cpuid(0x80000000, 0).eax < 0x80000004) return {};
  char text[49] = {};
  for (u32 i = 0; i < 3; i++) {
    const CpuId::Registers r = THIS_CPU.cpuid(0x80000002 + i, 0);
    std::memcpy(text + 16 * i, &r, 16);
  }
  std::string brand = text;
  brand.erase(0, brand.find_first_not_of(' '));
  brand.erase(brand.find_last_not_of(' ') + 1);
  return brand;
}

u64 physical_memory() {
  struct sysinfo info {};
  if (sysinfo(&info) != 0) return meminfo("MemTotal");
  return u64{info.totalram} * info.mem_unit;
}

u64 available_memory() {
  const u64 available = meminfo("MemAvailable");
  if (available != 0) return available;
  struct sysinfo info {};
  return sysinfo(&info) != 0 ? 0 : (u64{info.freeram} + info.bufferram) * info.mem_unit;
}

u64 measure_cpu_frequency() {
  const double start = Console::wall_seconds();
  const u64 first = __rdtsc();
  const timespec pause{0, 50'000'000};
  nanosleep(&pause, nullptr);
  const double seconds = Console::wall_seconds() - start;
  const u64 last = __rdtsc();
  if (last <= first || seconds <= 0) return 0;
  return static_cast<u64>(static_cast<double>(last - first) / seconds);
}

namespace {
u64 online_processors() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online < 1 ? 0 : static_cast<u64>(online);
}
} // namespace

const SystemSource THIS_SYSTEM = {processor_brand, online_processors, physical_memory, measure_cpu_frequency};

void print_system_info(const SystemSource& source) {
  const auto text_or_nothing = [](u64 value, const std::string& text) {
    return value == 0 ? std::string() : text;
  };
  print_fact("Version:          ", std::string(VERSION) + " (" + BUILD_TAG + ")");
  print_fact("Processor(s):     ", source.processor());
  const u64 cores = source.cores(), memory = source.memory();
  print_fact("Logical Cores:    ", text_or_nothing(cores, std::to_string(cores)));
  print_fact("Physical Memory:  ", text_or_nothing(memory, Console::format_bytes(memory)));

  const char* const label = "CPU Frequency:    ";
  const u64 frequency = source.frequency();
  if (frequency == 0) return print_fact(label, {});
  Console::set_color_white();
  Console::print(label);
  Console::print_colored(Console::format_commas(frequency), 'G');
  Console::print(" Hz  (frequency may be inaccurate)\n");
}

} // namespace kelvane
