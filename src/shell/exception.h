// Errors: the recoverable exception and the routines that end the process.
//
// Two ways, by rule. Failures caused by input or by files are thrown as a
// km_exception. Internal failures and exhausted resources are not thrown: a
// fatal routine prints a red message, waits for ENTER and ends the process
// (exit status 1; the assertion family ends by a deliberate crash).
#pragma once

#include <exception>
#include <string>

#include "shell/types.h"

namespace kelvane {

// The program's own error codes. Failures of the operating system keep errno.
enum : s32 {
  ERROR_BEYOND_TABLE = -4, // product longer than the last row of a table
  ERROR_REDUNDANCY = 2,    // a modular redundancy check failed
  ERROR_INVALID_PARAMETERS = static_cast<s32>(0x80000001u),
  ERROR_READING_FILE = static_cast<s32>(0x80001000u),
  ERROR_INVALID_EXTENSION = static_cast<s32>(0x80001002u),
  ERROR_UNSUPPORTED_RADIX = static_cast<s32>(0x80001003u),
  ERROR_NO_DECIMAL_PLACE = static_cast<s32>(0x80001005u),
  ERROR_INVALID_DIGIT = static_cast<s32>(0x80001006u),
  ERROR_FILES_DISAGREE = static_cast<s32>(0x80002000u),
  ERROR_OBJECT_STATE = static_cast<s32>(0x80004000u),
  ERROR_OUT_OF_RANGE = static_cast<s32>(0x80004008u),
};

class km_exception : public std::exception {
public:
  s32 code = 0;
  const char* message = nullptr; // static text, may be null
  std::string text;              // further detail, may be empty
  std::wstring wtext;            // further detail, usually a path, may be empty
  const char* type_name = "Generic Exception";

  km_exception(s32 code_, std::string text_) : code(code_), text(std::move(text_)) {}
  km_exception(s32 code_, const char* message_, std::string text_, std::wstring wtext_)
      : code(code_), message(message_), text(std::move(text_)), wtext(std::move(wtext_)) {}
  const char* what() const noexcept override;
};

// An unrecoverable failure: data were left in a state that cannot be repaired.
class km_error : public std::exception {
public:
  km_exception cause;
  const char* reason; // static text
  km_error(km_exception&& cause_, const char* reason_) : cause(std::move(cause_)), reason(reason_) {}
  const char* what() const noexcept override { return reason; }
};

// A product whose residue modulo 2^61 - 1 disagrees with that of its operands.
class kc_BSRModularCheckFailed : public km_exception {
public:
  explicit kc_BSRModularCheckFailed(std::string text_) : km_exception(ERROR_REDUNDANCY, std::move(text_)) {}
};

// The fixed message of an errno value ("Disk is Full", ...).
const char* errno_message(int err);
// Throws a km_exception with code err and errno's fixed message; detail (a path) becomes wtext.
[[noreturn]] void throw_errno(int err, std::wstring detail);
// The same with a line of context ("Error writing to file.") as text.
[[noreturn]] void throw_errno(int err, std::string text, std::wstring detail);

void print_exception(const km_exception& e);
void print_std_error(const char* what);

[[noreturn]] void pause_and_exit(int status);
[[noreturn]] void fatal(const char* message);
[[noreturn]] void fatal_wide(const wchar_t* message);
[[noreturn]] void fatal_hardware();
[[noreturn]] void fatal_alloc();

// Assertion failures: print, wait for ENTER, crash on purpose (a core dump keeps the state).
[[noreturn]] void assert_fail(const wchar_t* kind, const wchar_t* where, const wchar_t* detail);
[[noreturn]] void limit_fail(const wchar_t* kind, const wchar_t* where, const wchar_t* detail);
[[noreturn]] void limit_fail_values(s64 value, s64 limit, const wchar_t* message);

// The kinds of assertion failure.
inline constexpr const wchar_t* INVALID_FUNCTION_PARAMETERS = L"Invalid Function Parameters:   ";
inline constexpr const wchar_t* IMPOSSIBLE_FUNCTIONAL_RESULT = L"Impossible Functional Result:   ";
inline constexpr const wchar_t* CRITICAL_ALGORITHMIC_FAILURE = L"Critical Algorithmic Failure:   ";
inline constexpr const wchar_t* GLOBAL_REDUNDANCY_CHECK_FAILED = L"Global Redundancy Check Failed:   ";

// Advances past the next tab of a tab-separated record; a record that ends early is fatal.
const wchar_t* skip_field(const wchar_t* p);

// Direct conversions for 7-bit text; other characters are fatal.
std::wstring widen(const std::string& s);
std::string narrow(const std::wstring& s);
// Paths: UTF-8 on disk, wide inside the program; never fails (bytes that are no UTF-8 map one to one and
// back).
std::wstring path_to_wide(const std::string& s);
std::string path_to_narrow(const std::wstring& s);

} // namespace kelvane
