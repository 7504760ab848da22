// Facts about the machine. A function returns zero or an empty text when the fact cannot be obtained.
#pragma once

#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane {

std::string processor_brand();
u64 physical_memory();  // bytes
u64 available_memory(); // bytes that can be claimed without swapping
// Hz of the time-stamp counter, which on today's processors is the nominal clock, over the time since the
// program's start, which it waits to be at least 50 ms.
u64 measure_cpu_frequency();

// Where the facts come from, replaceable so that tests can let each of them fail.
struct SystemSource {
  std::string (*processor)();
  u64 (*cores)(); // 0 when unknown
  u64 (*memory)();
  u64 (*frequency)();
};
extern const SystemSource THIS_SYSTEM;

// One line about the system: label, value ("Unable to Detect" for what is not known) and what follows it.
struct SystemFact {
  const char* label;
  std::string value;
  bool known;
  const char* note;
  std::string text() const { return label + value + note; }
};
// Version, processor, logical cores, memory and frequency, which takes measure_cpu_frequency's time.
std::vector<SystemFact> system_facts(const SystemSource& source = THIS_SYSTEM);

void print_facts(const std::vector<SystemFact>& facts); // a line each
// Both in one.
void print_system_info(const SystemSource& source = THIS_SYSTEM);

} // namespace kelvane
