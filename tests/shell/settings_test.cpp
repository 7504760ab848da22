#include "shell/settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "control/constant.h"
#include "control/registry.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings_menu.h"
#include "shell/system_info.h"
#include "support/capture.h"

namespace kelvane {
namespace {

// A constant whose memory need can be told from outside, and which remembers what it was prepared for.
struct TestConstant : kcr_Constant {
  explicit TestConstant(u64 bytes = 1000) : memory(bytes) { algorithm_count = 2; }
  std::string get_name() const override { return "Test"; }
  std::string get_full_name() const override { return "Test Constant"; }
  std::string get_algorithm_short_name(s32 algorithm) const override { return algorithm == 0 ? "A" : "B"; }
  u64 get_max_digits() const override { return 100'000'000; }
  u64 get_memory_B(s32, const MemoryQuery& query, MemoryFigure* result) const override {
    if (result == nullptr) return 1;
    if (query.decimal_digits == 66'666'666) throw km_exception(ERROR_BEYOND_TABLE, "too long");
    *result = {memory, query.precision_words, query.threads};
    return result->total();
  }
  void prepare(u64 words) override { prepared = words; }
  u64 memory;
  u64 prepared = 0;
};

ComputeSettings with_constant(u64 memory = 1000) {
  ComputeSettings s;
  s.constant = std::make_unique<TestConstant>(memory);
  s.update();
  return s;
}

constexpr const char* OUT_OF_RANGE = "# of digits is out of range";

TEST(Settings, Defaults) {
  const ComputeSettings s;
  EXPECT_EQ(s.hexadecimal_digits, ComputeSettings::hexadecimal_worth(s.decimal_digits));
  EXPECT_EQ(s.precision_words, ComputeSettings::words_for(s.hexadecimal_digits));
  EXPECT_GE(s.threads, 1u);
  EXPECT_LE(s.threads, 256u);
}

TEST(Settings, DecimalDigits) {
  ComputeSettings s = with_constant();
  EXPECT_STREQ(s.set_decimal_digits(99), OUT_OF_RANGE);
  EXPECT_EQ(s.decimal_digits, 50'000'000u) << "a refused value changes nothing";
  EXPECT_EQ(s.set_decimal_digits(100), nullptr);
  EXPECT_EQ(s.hexadecimal_digits, 84u);
  EXPECT_EQ(s.precision_words, 7u);
  EXPECT_EQ(static_cast<TestConstant&>(*s.constant).prepared, 7u);
  EXPECT_EQ(s.memory_needed, 1000 + 7 + s.threads) << "the figures follow";
  EXPECT_EQ(s.set_decimal_digits(100'000'000), nullptr);
  EXPECT_STREQ(s.set_decimal_digits(100'000'001), OUT_OF_RANGE);
  EXPECT_STREQ(s.set_decimal_digits(~u64{0}), OUT_OF_RANGE);
}

TEST(Settings, HexadecimalDigits) {
  ComputeSettings s = with_constant();
  s.set_decimal_digits(1'000'000);
  const u64 words = s.precision_words;
  EXPECT_EQ(s.set_hexadecimal_digits(0), nullptr);
  EXPECT_EQ(s.precision_words, words) << "the decimal digits still need it";
  EXPECT_EQ(s.set_hexadecimal_digits(2'000'000), nullptr);
  EXPECT_EQ(s.precision_words, 125'002u) << "more than the decimal digits are worth";
  EXPECT_EQ(s.decimal_digits, 1'000'000u);
  EXPECT_STREQ(s.set_hexadecimal_digits(47), OUT_OF_RANGE);
  EXPECT_STREQ(s.set_hexadecimal_digits(90'000'000), OUT_OF_RANGE);
  s.set_decimal_digits(1'000'001);
  EXPECT_EQ(s.hexadecimal_digits, 830'483u) << "deliberately overwritten";
  EXPECT_EQ(s.output_bytes(), 1'830'484u);
}

TEST(Settings, AlgorithmThreadsAndMode) {
  ComputeSettings s = with_constant();
  EXPECT_EQ(s.set_algorithm(1), nullptr);
  EXPECT_STREQ(s.set_algorithm(2), "Invalid Algorithm");
  EXPECT_EQ(s.algorithm, 1);
  for (const u64 count : {u64{0}, u64{257}, ~u64{0}})
    EXPECT_STREQ(s.set_threads(count), "# of threads is out of range");
  for (const u64 count : {u64{1}, u64{256}}) EXPECT_EQ(s.set_threads(count), nullptr);

  EXPECT_STREQ(s.set_mode(2), "Invalid Mode");
  s.set_decimal_digits(999'999);
  EXPECT_STREQ(s.set_mode(1), "Too few digits for swap mode.");
  s.mode = ComputeSettings::SWAP_MODE;
  s.set_decimal_digits(10'000'000);
  EXPECT_EQ(s.mode, ComputeSettings::SWAP_MODE);
  s.set_decimal_digits(5'000'000);
  EXPECT_EQ(s.mode, ComputeSettings::RAM_ONLY);
  s.mode = ComputeSettings::SWAP_MODE;
  s.set_algorithm(0);
  EXPECT_EQ(s.mode, ComputeSettings::RAM_ONLY) << "the algorithm has no swap path";
}

TEST(Settings, Compression) {
  ComputeSettings s = with_constant();
  s.set_decimal_digits(1'000'000);
  EXPECT_STREQ(s.set_digits_per_file(ComputeSettings::ONE_FILE), "Too few digits to compress.");
  s.set_decimal_digits(1'048'576);
  EXPECT_STREQ(s.set_digits_per_file(ComputeSettings::ONE_FILE), "Too few digits to compress.")
      << "the hexadecimal digits are too few";
  s.set_hexadecimal_digits(0);
  EXPECT_STREQ(s.set_digits_per_file(999'999), "Too few digits per file.");
  EXPECT_TRUE(s.compression_offered());
  EXPECT_EQ(s.set_digits_per_file(0), nullptr);
  EXPECT_EQ(s.set_digits_per_file(ComputeSettings::ONE_FILE), nullptr);
  EXPECT_EQ(s.digits_per_file, ComputeSettings::ONE_FILE);
  EXPECT_EQ(s.set_digits_per_file(1'000'000), nullptr);
  EXPECT_EQ(s.output_bytes(), 441'504u); // 1,048,576 * 8 / 19 = 441,505.7
  s.set_hexadecimal_digits(1'000'000);
  EXPECT_EQ(s.digits_per_file, 0u) << "falls back to text";
}

TEST(Settings, OutputPath) {
  ComputeSettings s;
  EXPECT_STREQ(s.set_output_path(L"/no/such/folder"), "Unable to write to path.");
  EXPECT_EQ(s.output_path, L"");
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("kelvane path t\xC3\xA4st \xFF " + std::to_string(getpid()));
  std::filesystem::create_directory(folder);
  const std::wstring wide = path_to_wide(folder.string());
  EXPECT_EQ(s.set_output_path(wide), nullptr);
  EXPECT_EQ(s.output_path, wide);
  EXPECT_TRUE(std::filesystem::is_empty(folder)) << "the test file is gone";
  std::filesystem::remove(folder);
  EXPECT_EQ(s.set_output_path(L""), nullptr);
}

std::string screen(const ComputeSettings& s) {
  return capture([&] { print_settings(s); }).output;
}

TEST(SettingsMenu, Screen) {
  ComputeSettings s = with_constant(3 << 20);
  s.set_threads(1);
  s.precision_words = 0;
  s.update();
  EXPECT_EQ(screen(s), "Custom Compute a Constant\n\n"
                       "Current Settings: (select option # to change setting)\n\n"
                       "  1     Constant:    Test Constant\n"
                       "  2     Algorithm:   A\n\n"
                       "  3     Decimal Digits:        50,000,000\n"
                       "  4     Hexadecimal Digits:    41,524,102\n\n"
                       "  5     Multi-Threading:   1 thread\n"
                       "  6     Write Digits To:   Default Path\n"
                       "  7     Compress Output:   No - Write digits to a text file.\n\n"
                       "  8     Computation Mode:  Ram Only\n\n"
                       "        Memory Needed:     3.01 MiB\n"
                       "        Disk Needed:       0 bytes  +  87.3 MiB for output\n\n"
                       "  0     Start Computation!\n\n");
  s.digits_per_file = ComputeSettings::ONE_FILE;
  EXPECT_NE(screen(s).find("Yes - Compress digits into one .kcd file.\n"), std::string::npos);
  s.digits_per_file = 1'000'000;
  EXPECT_NE(screen(s).find("Yes - Compress digits and split them into multiple\n"
                           "                           files with  1,000,000  digits per file.\n\n"),
            std::string::npos);
  s.hexadecimal_digits = 0;
  EXPECT_NE(screen(s).find("Hexadecimal Digits:    Disabled\n"), std::string::npos);
}

TEST(SettingsMenu, WarningsAndRefusalToStart) {
  const u64 total = physical_memory();
  EXPECT_EQ(screen(with_constant(1 << 20)).find("Warning"), std::string::npos);
  EXPECT_NE(screen(with_constant(total + 1))
                .find("Start Computation!\n        Warning: There is insufficient "
                      "physical memory.\n\n"),
            std::string::npos);
  const ComputeSettings huge = with_constant(u64{1} << 63);
  EXPECT_NE(screen(huge).find("  0     Cannot Start: 64-bit is required to use more than 2GB of memory.\n\n"),
            std::string::npos);
  EXPECT_EQ(screen(huge).find("Start Computation"), std::string::npos);
  ComputeSettings beyond = with_constant();
  EXPECT_EQ(beyond.set_decimal_digits(66'666'666), nullptr);
  EXPECT_NE(screen(beyond).find("Cannot Start"), std::string::npos) << "the memory need cannot even be told";
  // Option 0 is not accepted then: the first answer prompts again.
  const Captured c = capture(
      [&] {
        ComputeSettings s = with_constant(u64{1} << 63);
        edit_settings(s, print_settings(s));
      },
      "0\n5\n3\n");
  EXPECT_NE(c.output.find("option: option: "), std::string::npos);
  EXPECT_EQ(c.status, 0);
}

// The settings after a session, as text.
std::string after(const std::string& input) {
  const Captured c = capture(
      [] {
        ComputeSettings s = with_constant();
        s.set_threads(2);
        while (edit_settings(s, true)) {
        }
        Console::print("\n#" + s.constant->get_name() + " " + std::to_string(s.algorithm) + " " +
                       std::to_string(s.decimal_digits) + " " + std::to_string(s.hexadecimal_digits) + " " +
                       std::to_string(s.threads) + " " + std::to_string(s.digits_per_file));
      },
      input);
  return c.output.substr(c.output.rfind('#') + 1);
}

TEST(SettingsMenu, Editors) {
  EXPECT_EQ(after("0\n"), "Test 0 50000000 41524102 2 0");
  EXPECT_EQ(after("2\n2\n1\n0\n"), "Test 1 50000000 41524102 2 0") << "algorithm 2 does not exist";
  EXPECT_EQ(after("3\n99\n100\n0\n"), "Test 0 100 84 2 0");
  EXPECT_EQ(after("4\n0\n5\n257\n0\n5\n0\n"), "Test 0 50000000 0 5 0");
  EXPECT_EQ(after("7\n1\n0\n"), "Test 0 50000000 41524102 2 18446744073709551615");
  EXPECT_EQ(after("7\n1\n7\n0\n8\n2\n8\n1\n0\n"), "Test 0 50000000 41524102 2 0");
  // As many digits per file as there are, in the shorter of the two expansions, make no set.
  EXPECT_EQ(after("7\n2\n999999\n41524102\n41524101\n0\n"), "Test 0 50000000 41524102 2 41524101");
  EXPECT_EQ(after("4\n0\n7\n2\n50000000\n49999999\n0\n"), "Test 0 50000000 0 2 49999999");
  EXPECT_EQ(after("7\n1\n3\n1048575\n0\n"), "Test 0 1048575 870823 2 0") << "falls back to text";
  EXPECT_EQ(after("3\n1000\n7\n\n0\n"), "Test 0 1000 831 2 0")
      << "too small for compression: waits for ENTER";
}

TEST(SettingsMenu, Constants) {
  EXPECT_EQ(after("1\n3\n0\n"), "Pi 0 50000000 41524102 2 0");
  EXPECT_EQ(after("1\n0\n4\n0\n2\n0\n"), "Sqrt(2) 0 50000000 41524102 2 0") << "perfect squares are refused";
  EXPECT_EQ(after("2\n1\n1\n2\n0\n"), "e 1 50000000 41524102 2 0") << "a second algorithm exists there too";
  EXPECT_EQ(after("2\n1\n1\n1\n0\n"), "Golden Ratio 0 50000000 41524102 2 0");
  const Captured square = capture(
      [] {
        ComputeSettings s = with_constant();
        constant_menu(s);
      },
      "0\n9\n");
  EXPECT_EQ(square.status, 1) << "the input has ended";
  EXPECT_NE(square.output.find("Square Root of n\n\nSelect a parameter: \nThis number is a perfect square.\n"
                               "Please choose something more interesting :)\n"),
            std::string::npos);
}

} // namespace
} // namespace kelvane
