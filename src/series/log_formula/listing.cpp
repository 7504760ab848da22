// See listing.h.

#include "series/log_formula/listing.h"

#include <cstdio>

#include "series/log_formula/generator.h"
#include "series/log_formula/log_form.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

constexpr u64 LARGEST_N = 2147483647;

void print_line(u64 n, double cost, const LogFormula& formula) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7f", cost);
  Console::print(text);
  Console::print("\tLog[");
  Console::print_u64(n);
  Console::print("] = ");
  print_formula(formula);
}

// What a wrong formula amounts to, for the report of the fault.
void print_amount(const LogFormula& formula) {
  log_search::PrimeVector form;
  if (log_form(formula, form)) print_log_form(form);
}

} // namespace

void log_formula_screen() {
  Console::set_color_yellow(true);
  Console::print("Log(n) Formula Generator\n\n");
  Console::set_color_white();
  Console::print("Lists two formulas for each n from 2 up to a limit, with their costs.\n\n");
  const u64 limit = Console::scan_u64_range(L"Limit: ", 2, LARGEST_N);
  Console::print("\n");
  list_log_formulas(limit);
}

void list_log_formulas(u64 limit) {
  LogFormulaGenerator generator;
  for (u64 n = 2; n <= limit; n++) {
    LogFormula formulas[2];
    for (int i = 0; i < 2; i++) {
      const double cost = generator.generate(formulas[i], n, i == 0 ? nullptr : &formulas[0]);
      print_line(n, cost, formulas[i]);
      if (verify_formula(formulas[i], n) == 0) continue;
      print_amount(formulas[i]);
      fatal(i == 0 ? "Formula 0 failed to pass verification." : "Formula 1 failed to pass verification.");
    }
  }
}

} // namespace kelvane
