// Facts about the machine on Linux. See system_info.h.

#include "shell/system_info.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/sysinfo.h>
#include <thread>
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

namespace {

struct Instant {
  u64 ticks = __rdtsc();
  std::chrono::steady_clock::time_point time = std::chrono::steady_clock::now();
};
const Instant PROGRAM_START;

} // namespace

u64 measure_cpu_frequency() {
  constexpr auto LEAST = std::chrono::milliseconds(50);
  const auto since_start = std::chrono::steady_clock::now() - PROGRAM_START.time;
  if (since_start < LEAST) std::this_thread::sleep_for(LEAST - since_start);
  const Instant now;
  const double seconds = std::chrono::duration<double>(now.time - PROGRAM_START.time).count();
  if (now.ticks <= PROGRAM_START.ticks || seconds <= 0) return 0;
  return static_cast<u64>(static_cast<double>(now.ticks - PROGRAM_START.ticks) / seconds);
}

namespace {
u64 online_processors() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online < 1 ? 0 : static_cast<u64>(online);
}
} // namespace

const SystemSource THIS_SYSTEM = {processor_brand, online_processors, physical_memory, measure_cpu_frequency};

std::vector<SystemFact> system_facts(const SystemSource& source) {
  std::vector<SystemFact> facts;
  const auto add = [&facts](const char* label, bool known, const std::string& value, const char* note = "") {
    facts.push_back({label, known ? value : "Unable to Detect", known, known ? note : ""});
  };
  const std::string processor = source.processor();
  const u64 cores = source.cores(), memory = source.memory(), frequency = source.frequency();
  add("Version:          ", true, std::string(VERSION) + " (" + BUILD_TAG + ")");
  add("Processor(s):     ", !processor.empty(), processor);
  add("Logical Cores:    ", cores != 0, std::to_string(cores));
  add("Physical Memory:  ", memory != 0, Console::format_bytes(memory));
  add("CPU Frequency:    ", frequency != 0, Console::format_commas(frequency),
      " Hz  (frequency may be inaccurate)");
  return facts;
}

void print_facts(const std::vector<SystemFact>& facts) {
  for (const SystemFact& fact : facts) {
    Console::set_color_white();
    Console::print(fact.label);
    Console::print_colored(fact.value, fact.known ? 'G' : 'R');
    Console::print(fact.note);
    Console::print("\n");
  }
}

void print_system_info(const SystemSource& source) {
  print_facts(system_facts(source));
}

} // namespace kelvane
