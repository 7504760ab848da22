#include "shell/console.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <csignal>
#include <limits>

#include "support/capture.h"

namespace kelvane {
namespace {

using namespace Console;

constexpr u64 MAX = std::numeric_limits<u64>::max();
constexpr u64 KIB = 1024, MIB = KIB << 10, GIB = MIB << 10, TIB = GIB << 10;

TEST(ConsoleFormat, BytesTruncated) {
  const std::pair<u64, const char*> cases[] = {
      {0, "0 bytes"},
      {999, "999 bytes"},
      {1000, "0.97 KiB"},
      {1023, "0.99 KiB"},
      {1024, "1.00 KiB"},
      {1536, "1.50 KiB"},
      {10239, "9.99 KiB"},
      {10240, "10.0 KiB"},
      {102399, "99.9 KiB"},
      {102400, " 100 KiB"},
      {512 * GIB, " 512 GiB"},
      {1000 * KIB - 1, " 999 KiB"},
      {1000 * KIB, "0.97 MiB"},
      {MIB + MIB / 2, "1.50 MiB"},
      {15 * GIB + GIB / 4, "15.2 GiB"},
      {18446744073709551u, "16.3 PiB"}, // on either side of the place where the value is halved first
      {18446744073709552u, "16.3 PiB"},
      {MAX, "15.9 EiB"},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(format_bytes(bytes), text) << bytes;
}

TEST(ConsoleFormat, BytesRoundedUp) {
  EXPECT_EQ(format_bytes(999, 1), "999 bytes");
  EXPECT_EQ(format_bytes(1000, 1), "0.98 KiB");
  EXPECT_EQ(format_bytes(1023, 1), "1.00 KiB");
  EXPECT_EQ(format_bytes(1025, 1), "1.01 KiB");
  EXPECT_EQ(format_bytes(1023 * KIB, 1), "1.00 MiB");
  EXPECT_EQ(format_bytes(1000 * GIB - 1, 1), "0.98 TiB");
  EXPECT_EQ(format_bytes(MAX, 1), "16.0 EiB");
  // Rounding up never shows less than there is, rounding down never more.
  for (u64 v = 1; v < MAX / 7; v = v * 7 + 3) {
    for (const int mode : {0, 1}) {
      const std::string text = format_bytes(v, mode);
      const std::string units = " bytes KiB MiB GiB TiB PiB EiB";
      const double number = std::stod(text);
      const size_t unit = units.find(text.substr(text.rfind(' ')));
      const double scale = unit == 0 ? 1 : std::pow(1024.0, static_cast<double>((unit - 6) / 4 + 1));
      const double shown = number * scale;
      if (mode == 0) {
        EXPECT_LE(shown, static_cast<double>(v) * 1.0001) << v << ' ' << text;
      } else {
        EXPECT_GE(shown * 1.0001, static_cast<double>(v)) << v << ' ' << text;
      }
      EXPECT_NEAR(shown / static_cast<double>(v), 1, 0.025) << v << ' ' << text;
    }
  }
}

TEST(ConsoleFormat, BytesSnapped) {
  EXPECT_EQ(format_bytes((u64{1} << 31) - 1), "1.99 GiB");
  EXPECT_EQ(format_bytes((u64{1} << 31) - 1, -1), "2.00 GiB");
  EXPECT_EQ(format_bytes(127 * MIB - 1, -1), " 127 MiB");
  EXPECT_EQ(format_bytes(MAX, -1), "16.0 EiB");
  EXPECT_EQ(format_bytes(31 * MIB, -1), "31.0 MiB") << "a run of five one-bits is not enough";
}

TEST(ConsoleFormat, Integers) {
  EXPECT_EQ(format_commas(0, 3), "  0");
  EXPECT_EQ(format_commas(1234567), "1,234,567");
  EXPECT_EQ(format_commas(999), "999");
  EXPECT_EQ(format_commas(MAX), "18,446,744,073,709,551,615");
  const Captured c = capture([] {
    u64 counts[6];
    counts[0] = print_commas(1234567, 60);
    print("|");
    counts[1] = print_s64(std::numeric_limits<s64>::min());
    print("|");
    counts[2] = print_u64(0);
    print("|");
    counts[3] = print_aligned(s64{-42}, 6);
    print("|");
    counts[4] = print_aligned(u64{1000}, 2);
    print("|");
    counts[5] = print_commas(5, 120);
    for (const u64 n : counts) {
      print(" ");
      print_u64(n);
    }
  });
  EXPECT_EQ(c.output, std::string(51, ' ') + "1,234,567|-9223372036854775808|0|   -42|1000|" +
                          std::string(119, ' ') + "5 60 20 1 6 4 120");
}

TEST(ConsoleFormat, TimesAndNumbers) {
  EXPECT_EQ(format_seconds(12.345), "12.345 seconds  ( 0.003 hours )");
  const Captured c = capture([] {
    print_fixed3(2.0 / 3);
    print(" ");
    print_fixed10(1);
    print(" ");
    print_general(1e300);
    print(" ");
    u8 bytes[32] = {0x12, 0xAB};
    print_hex_bytes(bytes);
  });
  EXPECT_EQ(c.output, "0.667 1.0000000000 1e+300 21ba" + std::string(60, '0'));
}

TEST(ConsoleOutput, ColorsOnBothOrientations) {
  for (const Orientation orientation : {Orientation::wide, Orientation::narrow}) {
    const Captured c = capture(
        [] {
          for (const char* code = "BbGgPpRrTtYy?"; *code != 0; code++) {
            set_color(*code);
            print("x");
          }
          set_color_default();
          println_labeled("Name:  ", "value", 'Y');
          println_labeled("Size", u64{8}, "7", 'g');
          println_labeled("Cost ", 2.5, "words", 'G');
          print_yes_no(true);
          print_pass_fail(false);
        },
        {}, orientation, true);
    EXPECT_EQ(c.output, "\033[01;34mx\033[22;34mx\033[01;32mx\033[22;32mx\033[01;35mx\033[22;35mx"
                        "\033[01;31mx\033[22;31mx\033[01;36mx\033[22;36mx\033[01;33mx\033[22;33mx"
                        "\033[01;37mx\033[39;49m"
                        "\033[01;37mName:  \033[01;33mvalue\033[01;37m\n"
                        "\033[01;37mSize    \033[22;32m7\033[01;37m\n"
                        "\033[01;37mCost \033[01;32m2.5 words\033[01;37m\n"
                        "\033[01;32mYes\033[01;37m\n"
                        "\033[01;31mFail\n\033[01;37m");
  }
}

TEST(ConsoleOutput, CharactersOutsideAscii) {
  const auto body = [] { print(L"\u00e4\u20ac|"); };
  const auto in_utf8 = [&] {
    set_locale();
    body();
    print(L"\xDC80|\xD800|"); // no characters: shown as question marks, and the stream stays usable
    print("end");
  };
  // The stream takes over the encoding when it becomes wide, so the locale is set while it is still neither.
  unsetenv("LC_ALL");
  unsetenv("LC_CTYPE");
  unsetenv("LANG");
  set_locale();
  EXPECT_EQ(capture(in_utf8).output, "\xC3\xA4\xE2\x82\xAC|?|?|end");
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(capture(body).output, "??|");
}

// What a reader makes of an input: the printed numbers, and the status when the input runs out.
std::string answers(const std::string& input, int count, u64 low, u64 high) {
  return capture(
             [=] {
               std::string text;
               for (int i = 0; i < count; i++) text += std::to_string(scan_u64_range(L"?", low, high)) + " ";
               print(text);
             },
             input)
      .output;
}

TEST(ConsoleInput, IntegerInRange) {
  EXPECT_EQ(answers("5\n", 1, 0, 7), "?5 ");
  EXPECT_EQ(answers("9\n7\n", 1, 0, 7), "??7 ");
  EXPECT_EQ(answers("\n", 1, 0, 7), "?0 ");
  EXPECT_EQ(answers("\n\n4\n", 1, 1, 7), "???4 ");
  EXPECT_EQ(answers("6", 1, 0, 7), "?6 ") << "the end of the input ends the number";
  // Only the first character that is no digit is consumed.
  EXPECT_EQ(answers("3x\n4\n", 3, 0, 7), "???3 0 4 ");
  EXPECT_EQ(answers("ab2\n", 1, 1, 7), "???2 ");
  EXPECT_EQ(answers("18446744073709551617\n", 1, 0, 7), "?1 ") << "no overflow check";
}

TEST(ConsoleInput, EndOfInput) {
  const std::string message = "\nStandard input has ended and an answer is needed.\n";
  Captured c = capture([] { scan_u64_range(L"option: ", 0, 7); }, "", Orientation::wide, true);
  EXPECT_EQ(c.status, 1);
  EXPECT_EQ(c.output,
            "option: \033[01;36m\033[01;37m\n\033[01;31m" + message.substr(1) + "\033[01;37m\033[39;49m");
  c = capture([] { scan_u64_range(L"?", 1, 7); }, "9\n8");
  EXPECT_EQ(c.status, 1);
  EXPECT_EQ(c.output, "???" + message);
  EXPECT_EQ(capture([] { scan_u64(L""); }, "").status, 1);
  EXPECT_EQ(capture([] { scan_bytes(); }, "\n\n").status, 1);

  c = capture([] {
    wait_for_enter();
    print("on");
  });
  EXPECT_EQ(c.status, 0);
  EXPECT_EQ(c.output, "Press ENTER to continue . . .on");
}

std::wstring line_of(const std::string& input, size_t capacity, int skip = 0) {
  // The characters come back as numbers: the child's memory is its own.
  const Captured c = capture(
      [=] {
        wchar_t buffer[300];
        for (int i = 0; i <= skip; i++) read_line(buffer, capacity);
        std::string codes;
        for (const wchar_t* p = buffer; *p != 0; p++) codes += std::to_string(static_cast<u32>(*p)) + " ";
        print(codes);
      },
      input);
  std::wstring line;
  for (size_t i = 0; i < c.output.size(); i = c.output.find(' ', i) + 1) {
    line.push_back(static_cast<wchar_t>(std::stoul(c.output.substr(i))));
  }
  return line;
}

TEST(ConsoleInput, Lines) {
  EXPECT_EQ(line_of("\n\n\t\nfirst line\nsecond\n", 256), L"first line");
  EXPECT_EQ(line_of("first\n\nsecond", 256, 1), L"second");
  EXPECT_EQ(line_of("abc\n", 1), L"");
  EXPECT_EQ(line_of("abcdef\nnext\n", 4), L"abc");
  EXPECT_EQ(line_of("abcdef\nnext\n", 4, 1), L"nex")
      << "what does not fit is dropped, not left for the next prompt";
  EXPECT_EQ(line_of("/t\xC3\xA4st/\xE2\x82\xAC\n", 256), L"/t\u00e4st/\u20ac");
  EXPECT_EQ(line_of("\xE4x\n", 256), L"\xDCE4x") << "a byte that is no UTF-8 survives";
  EXPECT_EQ(line_of("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\n", 4), L"\u20ac\u20ac\u20ac");
}

TEST(ConsoleInput, ByteSizes) {
  const std::pair<const wchar_t*, u64> cases[] = {
      {L"768MB", 805306368},
      {L"2.5GB", 2684354560},
      {L"2.5gb", 2684354560},
      {L"1.1K", 1127},
      {L"512", 512},
      {L"1.5", 1},
      {L"abc", 0},
      {L"", 0},
      {L"3   t", 3 * TIB},
      {L"1.", 1},
      {L"7.M", 7},
      {L".5k", 512},
      {L"1.0001K", 1025},
      {L"2p", 2048 * TIB},
      {L"1E", u64{1} << 60},
      {L" 5", 0},
      {L"0.0000001 K", 1},
  };
  for (const auto& [text, bytes] : cases) EXPECT_EQ(parse_bytes(text), bytes) << text;
  EXPECT_EQ(capture([] { print_u64(scan_bytes()); }, "\n1.5 KiB\n").output, "1536");
}

TEST(ConsoleSignals, RestoreTheColors) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Captured c = capture(
        [=] {
          install_signal_handlers();
          set_color_red(true);
          print("x");
          raise(signal);
        },
        {}, Orientation::wide, true);
    EXPECT_EQ(c.status, 128 + signal);
    EXPECT_EQ(c.output, "\033[01;31mx\n\033[39;49m");
  }
  const Captured ignored = capture([] {
    std::signal(SIGHUP, SIG_IGN);
    install_signal_handlers();
    raise(SIGHUP);
    print("on");
  });
  EXPECT_EQ(ignored.output, "on") << "nohup";
}

} // namespace
} // namespace kelvane
