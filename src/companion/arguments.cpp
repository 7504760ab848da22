// See arguments.h.

#include "companion/arguments.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace kelvane::companion {

namespace {

struct Command {
  const char* name;
  size_t least, most; // operands
  const char* options;
  const char* usage;
  const char* what;
  const char* details;
};

constexpr size_t ANY = std::numeric_limits<size_t>::max();

const Command COMMANDS[] = {
    {"info", 1, ANY, "q", "info FILE...", "what a digit file is, and which files of a set are missing",
     "Prints format, radix, number of digits and the first digits. Of a set of compressed files, any one\n"
     "file names the set; every file of it is opened and checked. Status 1 when files are missing or\n"
     "damaged.\n"},
    {"print", 3, 3, "qg", "print [-g] FILE FROM TO", "digits FROM to TO",
     "Prints the digits number FROM to TO after the point, both included, as one line.\n"
     "  -g, --grouped       groups of ten, fifty to a line, each line with the number of its last digit\n"},
    {"find", 2, 2, "qns", "find [-n COUNT] [-s FROM] FILE PATTERN", "where a string of digits occurs",
     "Prints the number of the first digit of each occurrence after the point; occurrences may overlap.\n"
     "Status 1 when there is none.\n"
     "  -n, --count COUNT   stop after COUNT occurrences (10)\n"
     "  -s, --start FROM    begin at digit number FROM (1)\n"},
    {"compare", 2, 2, "q", "compare A B", "the first difference of two files",
     "Compares the digits of two files of any formats, also the part before the point. Status 0 when they\n"
     "are the same, 1 when they differ or one has more digits.\n"},
    {"convert", 2, 2, "qdf", "convert [-d DIGITS] [-f] A B", "to text (B ends in .txt) or compressed (.kcd)",
     "  -d, --digits-per-file DIGITS   compressed files of so many digits each, at least 100; for B =\n"
     "                      \"pi.kcd\" they are named \"pi - 0.kcd\", \"pi - 1.kcd\" and so on\n"
     "  -f, --force         replace existing files\n"},
    {"hash", 1, 1, "q", "hash FILE", "the residue that a computation reports, and SHA-1",
     "Prints all digits, with those before the point, read as one integer modulo 2^61 - 1, and the SHA-1\n"
     "sum of the text form of the file, whatever its format.\n"},
    {"stats", 1, 1, "qo", "stats [-o PICTURE] FILE", "how often each digit occurs",
     "Prints the counts of the digits after the point and a chi-square test of equal frequencies.\n"
     "  -o, --svg PICTURE   write a picture of the counts (SVG)\n"},
};

struct Option {
  char letter;
  const char* name;
  bool has_value;
};

constexpr Option OPTIONS[] = {{'q', "quiet", false}, {'g', "grouped", false},        {'f', "force", false},
                              {'n', "count", true},  {'s', "start", true},           {'o', "svg", true},
                              {'h', "help", false},  {'d', "digits-per-file", true}, {'V', "version", false}};

const Command* find_command(const std::string& name) {
  for (const Command& command : COMMANDS)
    if (name == command.name) return &command;
  return nullptr;
}

const Option& find_option(const std::string& text) {
  for (const Option& option : OPTIONS)
    if (text == std::string("--") + option.name || text == std::string("-") + option.letter) return option;
  throw UsageError("unknown option " + text);
}

void apply(Arguments& arguments, const Option& option, const std::string& value) {
  switch (option.letter) {
  case 'q':
    arguments.quiet = true;
    break;
  case 'g':
    arguments.grouped = true;
    break;
  case 'f':
    arguments.force = true;
    break;
  case 'n':
    arguments.count = parse_count(value, "COUNT");
    break;
  case 's':
    arguments.from = parse_count(value, "FROM");
    break;
  case 'd':
    arguments.split = parse_count(value, "DIGITS");
    break;
  case 'o':
    arguments.svg = value;
    break;
  case 'h':
    arguments.help = true;
    break;
  case 'V':
    arguments.version = true;
    break;
  }
}

} // namespace

u64 parse_count(const std::string& text, const char* what) {
  u128 value = 0;
  bool digits = false;
  for (const char c : text) {
    if (c == ',' && digits) continue;
    if (c < '0' || c > '9') {
      digits = false;
      break;
    }
    digits = true;
    value = std::min<u128>(value * 10 + static_cast<u128>(c - '0'), u128{1} << 64);
  }
  if (!digits || value == 0 || value > std::numeric_limits<u64>::max())
    throw UsageError(std::string(what) + " must be a whole number from 1 on: " + text);
  return static_cast<u64>(value);
}

Arguments parse_arguments(const std::vector<std::string>& args) {
  Arguments arguments;
  std::string used; // letters of the options given
  bool options_end = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& text = args[i];
    if (options_end || text.size() < 2 || text[0] != '-') {
      if (arguments.command.empty())
        arguments.command = text;
      else
        arguments.operands.push_back(text);
      continue;
    }
    if (text == "--") {
      options_end = true;
      continue;
    }
    const size_t equals = text.compare(0, 2, "--") == 0 ? text.find('=') : std::string::npos;
    const Option& option = find_option(text.substr(0, equals));
    std::string value;
    if (equals != std::string::npos) {
      if (!option.has_value) throw UsageError(std::string("--") + option.name + " takes no value");
      value = text.substr(equals + 1);
    } else if (option.has_value) {
      if (++i == args.size()) throw UsageError("a value is missing after " + text);
      value = args[i];
    }
    apply(arguments, option, value);
    if (option.letter != 'h' && option.letter != 'V') used += option.letter;
  }
  const Command* const command = find_command(arguments.command);
  if (command == nullptr && !arguments.command.empty())
    throw UsageError("unknown command " + arguments.command);
  if (arguments.help || arguments.version) return arguments;
  if (command == nullptr) throw UsageError("a command is missing");
  for (const char letter : used)
    if (std::string(command->options).find(letter) == std::string::npos)
      throw UsageError(std::string("the option -") + letter + " is not for " + command->name);
  const size_t given = arguments.operands.size();
  if (given < command->least || given > command->most)
    throw UsageError(std::string("usage: kelvane-digits ") + command->usage);
  return arguments;
}

std::string help_text(const std::string& name) {
  if (const Command* const command = find_command(name))
    return std::string("kelvane-digits ") + command->usage + "\n\n" + command->details;
  std::string text = "kelvane-digits COMMAND ...      looks at, checks and converts digit files\n\n";
  for (const Command& command : COMMANDS) {
    std::string usage = command.usage;
    usage.resize(std::max<size_t>(usage.size() + 2, 42), ' ');
    text += "  " + usage + command.what + "\n";
  }
  return text +
         "\n"
         "Digits are numbered from 1, the first one after the point. Numbers may be written with commas.\n"
         "Files: text (\"3.1415...\") or compressed (.kcd), decimal or hexadecimal; of a set of compressed\n"
         "files any one stands for the set.\n\n"
         "  -q, --quiet         no progress (shown on a terminal only, for work of more than a second)\n"
         "  -h, --help          this text, or with a command that command's\n"
         "  -V, --version       the version\n\n"
         "Status: 0 success; 1 the answer is no: not found, different, files missing; 2 trouble.\n";
}

} // namespace kelvane::companion
