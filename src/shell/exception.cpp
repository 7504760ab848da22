// Printing of exceptions and the routines that end the process. See exception.h.

#include "shell/exception.h"

#include <cerrno>
#include <cstdlib>

#include "shell/console.h"

namespace kelvane {

namespace {

// Texts that more than one routine prints.
constexpr const wchar_t* HARDWARE_ERROR = L"HARDWARE ERROR DETECTED:\nAn error has been detected.\nNo "
                                          L"attempt will made to correct it because ECC is "
                                          L"disabled.\n\nPlease check your hardware. :)";
constexpr const wchar_t* ASSERTION_FAILURE = L"FATAL ERROR: Assertion Failure";
constexpr const wchar_t* LIMIT_EXCEEDED = L"FATAL ERROR: Limit Exceeded";
constexpr const wchar_t* CLOSING_ADVICE =
    L"If this error shows up consistantly with the current options,\nplease report it as a bug.\n\n"
    L"If this error comes and goes with the current options,\n"
    L"please check your hardware for reliability issues.\nAre you overclocking?\n\nTerminating Program...\n";

// Reads through a null pointer, so that a debugger or a core dump catches the state. Both the pointer and the
// read are volatile: the compiler can neither know the address nor drop the read.
[[noreturn]] __attribute__((no_sanitize("undefined"))) void crash() {
  volatile int* volatile nowhere = nullptr;
  [[maybe_unused]] const int value = *nowhere;
  std::abort(); // where address 0 can be read after all
}

void print_failure(const wchar_t* title, const wchar_t* kind, const wchar_t* where, const wchar_t* detail) {
  Console::print(L"\n\n");
  Console::print(title);
  Console::print(L"\n\n");
  Console::print(kind);
  Console::print(where);
  Console::print(L"\n\n");
  Console::print(detail);
}

} // namespace

const char* km_exception::what() const noexcept {
  if (!text.empty()) return text.c_str();
  return message != nullptr ? message : type_name;
}

const char* errno_message(int err) {
  switch (err) {
  case ENOENT:
    return "File Does Not Exist";
  case EIO:
    return "Hardware Error";
  case ENOMEM:
    return "Not Enough Memory";
  case EACCES:
    return "Access Denied";
  case ENOSPC:
    return "Disk is Full";
  default:
    return "Unknown C/C++ Error";
  }
}

void throw_errno(int err, std::wstring detail) {
  throw_errno(err, std::string(), std::move(detail));
}

void throw_errno(int err, std::string text, std::wstring detail) {
  throw km_exception(err, errno_message(err), std::move(text), std::move(detail));
}

void print_exception(const km_exception& e) {
  Console::set_color_red(true);
  Console::print("\n\nException Encountered: ");
  Console::print(e.type_name);
  Console::print("\nError Code: ");
  Console::print_s64(e.code);
  Console::print("\n");
  if (e.message != nullptr) Console::print(e.message);
  if (!e.text.empty()) Console::print("\n" + e.text);
  if (!e.wtext.empty()) Console::print(L"\n" + e.wtext);
  Console::print("\n\n");
  Console::set_color_white();
}

void print_std_error(const char* what) {
  Console::print("\n");
  Console::print_colored(what, 'R');
}

void pause_and_exit(int status) {
  Console::wait_for_enter();
  Console::set_color_default();
  // Other threads may still be computing: no static object may be destroyed under them.
  std::_Exit(status);
}

void fatal(const char* message) {
  Console::print("\n\n");
  Console::print_colored(message, 'R');
  Console::print("\n\n");
  pause_and_exit(1);
}

void fatal_wide(const wchar_t* message) {
  Console::print(L"\n\n");
  Console::set_color_red(true);
  Console::print(message);
  Console::set_color_white();
  Console::print(L"\n\n");
  pause_and_exit(1);
}

void fatal_hardware() {
  Console::print(L"\n\n\n\n");
  Console::set_color_red(true);
  Console::print(HARDWARE_ERROR);
  Console::set_color_white();
  Console::print(L"\n\n");
  pause_and_exit(1);
}

void fatal_alloc() {
  fatal("Memory Allocation Failure.");
}

void assert_fail(const wchar_t* kind, const wchar_t* where, const wchar_t* detail) {
  Console::set_color_red(true);
  print_failure(ASSERTION_FAILURE, kind, where, detail);
  Console::print(L"\n\n\n");
  Console::print(CLOSING_ADVICE);
  Console::set_color_white();
  Console::wait_for_enter();
  crash();
}

void limit_fail(const wchar_t* kind, const wchar_t* where, const wchar_t* detail) {
  print_failure(LIMIT_EXCEEDED, kind, where, detail);
  Console::print(L"\n");
  Console::wait_for_enter();
  crash();
}

void limit_fail_values(s64 value, s64 limit, const wchar_t* message) {
  Console::set_color_red(true);
  Console::print(L"\n\n");
  Console::print(message);
  Console::print(L"\n\nValue = ");
  Console::print_s64(value);
  Console::print(L"\nLimit = ");
  Console::print_s64(limit);
  Console::print(L"\n");
  Console::set_color_white();
  Console::wait_for_enter();
  crash();
}

const wchar_t* skip_field(const wchar_t* p) {
  for (; *p != L'\t'; p++) {
    if (*p == 0) fatal("Unexpected end of string.");
    if (*p == L'\n') fatal("Unexpected end of line.");
  }
  return p + 1;
}

} // namespace kelvane
