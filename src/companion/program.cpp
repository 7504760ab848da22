// From the command line to the exit status. See commands.h.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include "companion/commands.h"
#include "shell/exception.h"
#include "shell/version.h"

namespace kelvane::companion {

namespace {

struct Entry {
  const char* name;
  Status (*run)(const Arguments&);
};

constexpr Entry ENTRIES[] = {{"info", info},       {"print", print}, {"find", find},  {"compare", compare},
                             {"convert", convert}, {"hash", hash},   {"stats", stats}};

// "kelvane-digits: pi.kcd: Unable to open file. (File Does Not Exist)"
void report(const km_exception& e) {
  std::string text = "kelvane-digits: ";
  if (!e.wtext.empty()) text += path_to_narrow(e.wtext) + ": ";
  std::string what = e.what();
  while (!what.empty() && what.back() == '\n') what.pop_back();
  text += what;
  // The system's own words say more than the few messages of the program.
  if (e.code > 0) text += std::string(" (") + std::strerror(e.code) + ")";
  std::fprintf(stderr, "%s\n", text.c_str());
}

Status run_command(const Arguments& arguments) {
  if (arguments.help) {
    put(help_text(arguments.command));
    return SUCCESS;
  }
  if (arguments.version) {
    put(std::string("kelvane-digits ") + VERSION + "\n");
    return SUCCESS;
  }
  for (const Entry& entry : ENTRIES)
    if (arguments.command == entry.name) return entry.run(arguments);
  return TROUBLE;
}

} // namespace

void put(const char* text, u64 count) {
  if (std::fwrite(text, 1, count, stdout) != count)
    throw_errno(errno, "Error writing to file.", L"standard output");
}

void put(const std::string& text) {
  put(text.data(), text.size());
}

void flush_output() {
  if (std::fflush(stdout) != 0) throw_errno(errno, "Error writing to file.", L"standard output");
}

int run(const std::vector<std::string>& args) {
  try {
    const Status status = run_command(parse_arguments(args));
    flush_output();
    return status;
  } catch (const UsageError& e) {
    std::fprintf(stderr, "kelvane-digits: %s\nTry kelvane-digits --help.\n", e.what());
  } catch (const km_exception& e) {
    std::fflush(stdout); // what was found before stands
    report(e);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "kelvane-digits: %s\n", e.what());
  }
  return TROUBLE;
}

} // namespace kelvane::companion
