// The finishing sequence: files, statistics, messages, retries, and disks that fail.

#include "digits/finish.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "arithmetic/words/residue.h"
#include "digits/kcd_testing.h"
#include "digits/radix_testing.h"
#include "shell/memory_files.h"

namespace kelvane {
namespace {

using CBRv2::Faults;
using test::Integer;
using test::MemoryFiles;
using test::Words;

// One run of the sequence over a random fraction, its surroundings and what came out.
struct Sequence {
  u64 D, H;
  Words fraction;
  MemoryFiles files;
  FinishInput input;
  FinishResult result;
  FinishHooks hooks;
  std::vector<std::string> events;
  std::string screen;

  Sequence(u64 digits, u64 hexadecimal, u64 seed)
      : D(digits), H(hexadecimal), fraction(test::random_fraction(test::words_for(digits), seed)) {
    input.integer = 31;
    input.fraction = fraction.data();
    input.fraction_words = fraction.size();
    input.decimal_digits = D;
    input.hexadecimal_digits = H;
    input.output = {L"/out", "Log(2)", "Machin 1", 0};
    hooks.record = [this](const char* event) { events.push_back(event); };
    hooks.files = &files;
    hooks.retry = [](const km_exception&, DigitViewer::OutputSettings&) { return false; };
  }

  // Runs in a heap that holds exactly the block of the query, without room to spare.
  void go(u64 threads = 1) {
    const u64 bytes = finish_memory_bytes(D, H, fraction.size(), threads);
    std::vector<u64> memory(Heap::aligned_footprint(bytes) / 8);
    Heap heap;
    heap.init(memory.data(), memory.size() * 8);
    testing::internal::CaptureStdout();
    try {
      finish_and_output({test::root_tables(), threads, nullptr}, heap, input, result, hooks);
    } catch (...) {
      screen = testing::internal::GetCapturedStdout();
      EXPECT_EQ(heap.active(), 0u);
      throw;
    }
    screen = testing::internal::GetCapturedStdout();
    EXPECT_EQ(heap.active(), 0u);
    EXPECT_LE(heap.peak_bytes(), Heap::aligned_footprint(bytes));
  }

  std::string decimal() const { // the first D digits
    Integer x;
    test::scaled_floor(x, fraction, CBRv2::output_words(D));
    return test::padded(x, 19 * CBRv2::output_words(D)).substr(0, D);
  }
  std::string hexadecimal() const {
    std::string text;
    char word[17];
    for (u64 i = fraction.size(); i-- > 0; text += word)
      std::snprintf(word, sizeof word, "%016lx", fraction[i]);
    return text.substr(0, H);
  }
  static constexpr const wchar_t* DEC = L"/out/Log(2) - Dec - Machin 1.txt";
  static constexpr const wchar_t* HEX = L"/out/Log(2) - Hex - Machin 1.txt";
};

void expect_in_order(const std::string& screen, const std::vector<std::string>& texts) {
  size_t at = 0;
  for (const std::string& text : texts) {
    const size_t found = screen.find(text, at);
    ASSERT_NE(found, std::string::npos) << "missing, or out of order: " << text << "\nin\n" << screen;
    at = found + text.size();
  }
}

std::string without_colors(const std::string& screen) {
  std::string text;
  for (size_t i = 0; i < screen.size(); ++i) {
    if (screen[i] == '\x1b')
      i = screen.find('m', i);
    else
      text += screen[i];
  }
  return text;
}

TEST(Finish, WritesCountsAndHashesTheDigits) {
  struct {
    u64 D, H, threads, start;
  } const cases[] = {{100, 84, 1, 0},  {101, 0, 1, 50},          {150, 16, 1, 50},
                     {151, 5, 3, 100}, {12345, 10252, 2, 12250}, {700001, 700, 2, 699950}};
  for (const auto& c : cases) {
    SCOPED_TRACE("digits and seed " + std::to_string(c.D));
    Sequence run(c.D, c.H, c.D);
    run.go(c.threads);
    const std::string digits = run.decimal();
    EXPECT_EQ(run.files.text(Sequence::DEC), "31." + digits);
    EXPECT_EQ(run.files.exists(Sequence::HEX), c.H != 0);
    if (c.H != 0) {
      EXPECT_EQ(run.files.text(Sequence::HEX), "1f." + run.hexadecimal());
    }
    EXPECT_TRUE(run.result.digits_written);
    EXPECT_EQ(run.result.files.back(), Sequence::DEC);
    EXPECT_EQ(run.result.tail_start, c.start);
    EXPECT_EQ(run.result.tail_digits, digits.substr(c.start));
    u64 counts[10] = {};
    for (const char digit : digits) ++counts[digit - '0'];
    for (int i = 0; i < 10; ++i) EXPECT_EQ(run.result.digit_counts[i], counts[i]) << i;
    Integer all;
    mpz_set_str(all.z, ("31" + digits).c_str(), 10);
    EXPECT_EQ(run.result.decimal_hash, test::residue_of(all));
  }
}

TEST(Finish, SaysWhatItDoes) {
  Sequence run(2000, 1600, 1);
  run.go();
  EXPECT_EQ(run.events, (std::vector<std::string>{"Writing Hexadecimal Digits", "Base Converting",
                                                  "Writing Decimal Digits", "Verifying Base Conversion"}));
  expect_in_order(
      without_colors(run.screen),
      {"Output File:  /out/Log(2) - Hex - Machin 1.txt\nWriting Hexadecimal Digits:   1,600  digits "
       "written\n\n",
       "Base Converting:\n", "Squaring...    ", "Time:    ",
       "Output File:  /out/Log(2) - Dec - Machin 1.txt\nWriting Decimal Digits:   2,000  digits written\n\n",
       "Verifying Base Conversion...", "Powering...   ", "Time:    "});
}

TEST(Finish, WithoutFiles) {
  Sequence run(1000, 800, 2);
  run.input.write_digits = false;
  run.go();
  EXPECT_FALSE(run.result.digits_written);
  EXPECT_FALSE(run.files.exists(Sequence::DEC) || run.files.exists(Sequence::HEX));
  EXPECT_EQ(run.result.tail_digits, run.decimal().substr(run.result.tail_start));
  EXPECT_EQ(run.events.back(), "Verifying Base Conversion");
}

// Reports failure at a stage the given number of times, or damages the converted words once.
struct Trouble : Faults {
  Stage stage;
  int times;
  bool damage;
  Trouble(Stage stage_, int times_, bool damage_) : stage(stage_), times(times_), damage(damage_) {}
  bool visit(Stage s, u64* words, u64 n) override {
    if (s != stage || times == 0) return false;
    --times;
    if (damage) words[n / 2] ^= 1;
    return !damage;
  }
};

TEST(Finish, FailedPassesAreRepeated) {
  struct {
    Faults::Stage stage;
    const char* message;
  } const cases[] = {{Faults::OUTPUT, "Radix Conversion Failed - Reattempting...\n\n"},
                     {Faults::VERIFY_PRODUCT, "Verification Failed - Reattempting...\n\n"}};
  for (const auto& c : cases) {
    Sequence run(3000, 0, 3);
    Trouble trouble(c.stage, 2, false);
    run.hooks.faults = &trouble;
    run.go();
    const std::string screen = without_colors(run.screen);
    expect_in_order(screen, {c.message, c.message, "Time:    "});
    EXPECT_EQ(run.files.text(Sequence::DEC), "31." + run.decimal());
  }
}

TEST(Finish, WrongDigitsAreNotAccepted) {
  Sequence run(3000, 0, 4);
  Trouble trouble(Faults::OUTPUT, 1, true);
  run.hooks.faults = &trouble;
  try {
    run.go();
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.text, "Base Conversion Failed: Checksum Mismatch");
  }
  expect_in_order(run.screen, {"Verifying Base Conversion...",
                               "R = ", "\nB = ", "Do not use the decimal digits in /out/"});
}

TEST(Finish, RefusesNumbersThatAreTooLarge) {
  Sequence run(100, 84, 5);
  run.input.integer_words = 2;
  try {
    run.go();
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.text, "Number is out of range.");
  }
  EXPECT_TRUE(run.events.empty());
}

TEST(Finish, CompressedFilesHoldTheSameDigits) {
  for (const u64 per_file : {u64{100}, u64{1000}, u64{1900}, DigitViewer::ONE_FILE})
    for (const u64 D : {100u, 3000u, 20001u}) {
      SCOPED_TRACE("digits and seed " + std::to_string(D) + " per file " + std::to_string(per_file));
      Sequence run(D, 8 * D / 10, D);
      run.input.output = {L"/out", "Log(2)", "Machin 1 - ", per_file};
      run.go();
      test::MemoryFiles expected;
      test::put_set(expected, L"/out/Log(2) - Dec - Machin 1 - ", "31.", run.decimal(), 10, per_file);
      test::put_set(expected, L"/out/Log(2) - Hex - Machin 1 - ", "1f.", run.hexadecimal(), 16, per_file);
      EXPECT_EQ(run.files.contents(), expected.contents());
      const std::wstring last = D > per_file ? L" to " + std::to_wstring((D - 1) / per_file) + L".kcd" : L"";
      EXPECT_EQ(run.result.files.back(), L"/out/Log(2) - Dec - Machin 1 - 0.kcd" + last);
    }
}

TEST(Finish, AFullDiskInsideASetNamesTheFile) {
  Sequence run(5000, 0, 6);
  run.input.output = {L"/out", "Log(2)", "Machin 1 - ", 1000};
  run.files.capacity = 2500;
  try {
    run.go();
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, ENOSPC);
    EXPECT_EQ(e.text, "Error writing to file.");
    EXPECT_EQ(e.wtext, L"/out/Log(2) - Dec - Machin 1 - 4.kcd");
  }
  for (const auto& [name, text] : run.files.contents())
    EXPECT_NE(name.find(L".incomplete"), std::wstring::npos) << "a file that looks whole";
  EXPECT_FALSE(run.result.digits_written);
}

// The disk holds one of the two files: the other's failure is thrown after everything else is done.
TEST(Finish, FullDiskIsReportedAfterTheRest) {
  Sequence run(5000, 4000, 6);
  run.files.capacity = 4003 + 100;
  try {
    run.go();
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, ENOSPC);
    EXPECT_STREQ(e.message, "Disk is Full");
    EXPECT_EQ(e.text, "Error writing to file.");
    EXPECT_EQ(e.wtext, Sequence::DEC);
  }
  EXPECT_EQ(run.files.text(Sequence::HEX), "1f." + run.hexadecimal());
  EXPECT_FALSE(run.files.exists(Sequence::DEC));
  EXPECT_FALSE(run.result.digits_written);
  EXPECT_EQ(run.result.files, std::vector<std::wstring>{Sequence::HEX});
  EXPECT_EQ(run.events.back(), "Verifying Base Conversion");
  EXPECT_EQ(run.result.tail_digits, run.decimal().substr(run.result.tail_start));
}

TEST(Finish, AfterAFailureTheUserMayMakeRoomOrChooseAFolder) {
  Sequence run(5000, 0, 7);
  run.files.capacity = 100;
  int asked = 0;
  run.hooks.retry = [&](const km_exception& e, DigitViewer::OutputSettings& output) {
    EXPECT_EQ(e.code, ENOSPC);
    if (++asked == 2) {
      run.files.capacity = 100000;
      output.folder = L"/other";
    }
    return true;
  };
  run.go();
  EXPECT_EQ(asked, 2);
  const std::wstring path = L"/other/Log(2) - Dec - Machin 1.txt";
  EXPECT_EQ(run.files.text(path), "31." + run.decimal());
  EXPECT_EQ(run.result.files, std::vector<std::wstring>{path});
  EXPECT_TRUE(run.result.digits_written);
}

TEST(Finish, MoreHexadecimalDigitsThanThereAreDoNotCostTheDecimalOnes) {
  Sequence run(100, 0, 8);
  run.H = run.input.hexadecimal_digits = 16 * run.fraction.size() + 1;
  try {
    run.go();
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.text, "Out of range.");
  }
  EXPECT_FALSE(run.files.exists(Sequence::HEX));
  EXPECT_EQ(run.files.text(Sequence::DEC), "31." + run.decimal());
}

} // namespace
} // namespace kelvane
