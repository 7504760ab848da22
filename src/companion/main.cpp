#include <string>
#include <vector>

#include "companion/commands.h"

int main(int argc, char** argv) {
  return kelvane::companion::run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
