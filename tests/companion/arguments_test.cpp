// The command line.

#include "companion/arguments.h"

#include <gtest/gtest.h>

namespace kelvane::companion {
namespace {

TEST(Arguments, OptionsInAnyOrderAndForm) {
  const Arguments a = parse_arguments({"find", "-n", "3", "file", "--start=1,000", "14159", "-q"});
  EXPECT_EQ(a.command, "find");
  EXPECT_EQ(a.operands, (std::vector<std::string>{"file", "14159"}));
  EXPECT_EQ(a.count, 3u);
  EXPECT_EQ(a.from, 1000u);
  EXPECT_TRUE(a.quiet);
  EXPECT_EQ(parse_arguments({"hash", "--", "-q"}).operands, std::vector<std::string>{"-q"});
  EXPECT_EQ(parse_arguments({"hash", "-"}).operands, std::vector<std::string>{"-"});
  EXPECT_TRUE(parse_arguments({"--help"}).help);
  EXPECT_TRUE(parse_arguments({"find", "-h"}).help);
}

TEST(Arguments, Refusals) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"nothing"},
      {"hash"},
      {"hash", "a", "b"},
      {"hash", "-x", "a"},
      {"hash", "-f", "a"},
      {"find", "-n"},
      {"find", "-n", "0", "a", "1"},
      {"find", "-n", "x", "a", "1"},
      {"find", "-n", "18446744073709551616", "a", "1"},
      {"find", "-n", ",1", "a", "1"},
      {"print", "--grouped=1", "a", "1", "2"},
      {"convert", "-d", "", "a", "b"},
  };
  for (const auto& args : cases) EXPECT_THROW(parse_arguments(args), UsageError) << args.size();
  EXPECT_EQ(parse_count("18446744073709551615", ""), ~u64{0});
}

TEST(Arguments, EveryCommandHasItsHelp) {
  const std::string all = help_text("");
  for (const char* name : {"info", "print", "find", "compare", "convert", "hash", "stats"}) {
    EXPECT_NE(all.find(std::string("\n  ") + name + " "), std::string::npos) << name;
    EXPECT_EQ(help_text(name).find(std::string("kelvane-digits ") + name + " "), 0u) << name;
  }
}

} // namespace
} // namespace kelvane::companion
