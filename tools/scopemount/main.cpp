#include <CLI/CLI.hpp>

#include "scopemount.h"

int main(int argc, char** argv) {
  CLI::App app{"scopemount: drive a motorised telescope mount"};
  CLI11_PARSE(app, argc, argv);
  return 0;
}
