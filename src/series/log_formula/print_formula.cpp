// A formula as text. See log_formula.h and log_form.h.

#include <string>

#include "series/log_formula/log_form.h"
#include "shell/console.h"

namespace kelvane {

namespace {

// A sum, term by term; a negative term is joined by "- " and shown by its absolute value.
class Sum {
public:
  void add(s64 c, const char* name, u64 argument) {
    if (!text_.empty()) text_ += c < 0 ? " " : " + ";
    if (c < 0) text_ += "- ";
    text_ += std::to_string(c < 0 ? u64{0} - static_cast<u64>(c) : static_cast<u64>(c));
    text_ += name;
    text_ += std::to_string(argument) + "]";
  }
  void print() const {
    Console::print(text_);
    Console::print("\n");
  }

private:
  std::string text_;
};

} // namespace

void print_formula(const LogFormula& formula) {
  Sum sum;
  for (u64 i = 0; i < formula.count; i++) {
    if (formula.terms[i].c != 0) sum.add(formula.terms[i].c, "*ArcCoth[", formula.terms[i].x);
  }
  sum.print();
}

void print_log_form(const log_search::PrimeVector& form) {
  Sum sum;
  for (const auto& entry : form) sum.add(entry.exponent, "/2*Log[", entry.prime);
  sum.print();
}

} // namespace kelvane
