#include "shell/exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "shell/console.h"
#include "support/capture.h"

namespace kelvane {
namespace {

const std::string WAIT = "Press ENTER to continue . . .";

// A deliberate crash; the sanitizers catch the signal and end with a status of their own.
bool crashed(int status) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return status != 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return status != 0;
#else
  return status == 128 + SIGSEGV;
#endif
#else
  return status == 128 + SIGSEGV;
#endif
}

std::string printed(const km_exception& e) {
  return capture([&] { print_exception(e); }).output;
}

TEST(Exception, Printed) {
  try {
    throw_errno(ENOENT, L"/no/such/file");
  } catch (const km_exception& e) {
    EXPECT_EQ(printed(e), "\n\nException Encountered: Generic Exception\nError Code: 2\n"
                          "File Does Not Exist\n/no/such/file\n\n");
    EXPECT_STREQ(e.what(), "File Does Not Exist");
  }
  EXPECT_EQ(printed(km_exception(ERROR_UNSUPPORTED_RADIX, "Unsupported Radix")),
            "\n\nException Encountered: Generic Exception\nError Code: -2147479549\n\nUnsupported Radix\n\n");
  EXPECT_EQ(printed(km_exception(EIO, errno_message(EIO), "", L"")),
            "\n\nException Encountered: Generic Exception\nError Code: 5\nHardware Error\n\n");
  EXPECT_STREQ(errno_message(ENOSPC), "Disk is Full");
  EXPECT_STREQ(errno_message(EBADF), "Unknown C/C++ Error");
}

TEST(Fatal, PrintsWaitsAndEnds) {
  for (const char* input : {"\n", ""}) {
    const Captured c = capture([] { fatal("Message."); }, input, Orientation::wide, true);
    EXPECT_EQ(c.status, 1);
    EXPECT_EQ(c.output,
              "\n\n\033[01;31mMessage.\033[01;37m\n\n" + WAIT + "\033[01;36m\033[01;37m\033[39;49m");
  }
  EXPECT_EQ(capture([] { fatal_alloc(); }).output, "\n\nMemory Allocation Failure.\n\n" + WAIT);
  EXPECT_EQ(capture([] { fatal_wide(L"Wide."); }).output, "\n\nWide.\n\n" + WAIT);
  const Captured hardware = capture([] { fatal_hardware(); });
  EXPECT_EQ(hardware.status, 1);
  EXPECT_EQ(hardware.output.substr(0, 28), "\n\n\n\nHARDWARE ERROR DETECTED:");
}

TEST(Fatal, AssertionsCrash) {
  Captured c = capture([] { assert_fail(IMPOSSIBLE_FUNCTIONAL_RESULT, L"where()", L"detail"); }, "\n");
  EXPECT_TRUE(crashed(c.status)) << c.status;
  EXPECT_EQ(
      c.output.find("\n\nFATAL ERROR: Assertion Failure\n\nImpossible Functional Result:   where()\n\ndetail"
                    "\n\n\nIf this error shows up consistantly with the current options,\n"),
      0u)
      << c.output;
  const std::string end = "\nTerminating Program...\n" + WAIT;
  EXPECT_EQ(c.output.substr(c.output.size() - end.size()), end);

  c = capture([] { limit_fail(L"Architectural Limit Exceeded: ", L"where()", L"detail"); });
  EXPECT_TRUE(crashed(c.status)) << c.status;
  EXPECT_EQ(c.output,
            "\n\nFATAL ERROR: Limit Exceeded\n\nArchitectural Limit Exceeded: where()\n\ndetail\n" + WAIT);

  c = capture([] { limit_fail_values(-5, 4, L"message"); });
  EXPECT_TRUE(crashed(c.status)) << c.status;
  EXPECT_EQ(c.output, "\n\nmessage\n\nValue = -5\nLimit = 4\n" + WAIT);
}

TEST(Strings, TabSeparatedFields) {
  const wchar_t* record = L"one\ttwo\nthree";
  EXPECT_STREQ(skip_field(record), L"two\nthree");
  EXPECT_EQ(capture([=] { skip_field(skip_field(record)); }).output,
            "\n\nUnexpected end of line.\n\n" + WAIT);
  EXPECT_EQ(capture([] { skip_field(L"three"); }).output, "\n\nUnexpected end of string.\n\n" + WAIT);
}

TEST(Strings, DirectConversions) {
  EXPECT_EQ(widen("plain"), L"plain");
  EXPECT_EQ(narrow(L"plain\x7f"), "plain\x7f");
  EXPECT_EQ(capture([] { widen("\x80"); }).output,
            "\n\nkmb_STR_a_to_w_direct(): Direct Conversion of > 127 char to wchar_t.\n\n" + WAIT);
  EXPECT_EQ(capture([] { narrow(L"\x80"); }).output,
            "\n\nkmb_STR_w_to_a_direct(): Direct Conversion of > 127 wchar_t to char.\n\n" + WAIT);
}

TEST(Strings, PathsSurviveTheRoundTrip) {
  EXPECT_EQ(path_to_wide("\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E"), L"\u00e4\u20ac\U0001D11E");
  const std::string paths[] = {"/plain/path",
                               "\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E",
                               "latin1-\xE4\xF6\xFC",
                               "cut \xE2\x82",
                               "overlong \xC0\xAF \xE0\x80\xAF",
                               "surrogate \xED\xB2\x80",
                               "beyond \xF4\x90\x80\x80",
                               "\xFF\xFE\x80",
                               "\xF0\x9D\x84"};
  for (const std::string& path : paths) EXPECT_EQ(path_to_narrow(path_to_wide(path)), path);
  for (int first = 1; first < 256; first++) { // any two bytes
    for (int second = 1; second < 256; second++) {
      const std::string path = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(path_to_narrow(path_to_wide(path)), path) << first << ' ' << second;
    }
  }
}

} // namespace
} // namespace kelvane
