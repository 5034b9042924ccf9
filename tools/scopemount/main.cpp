// scopemount: the command-line face of the library. It uses nothing but the
// public C header, like any application would.
#include "commands.h"

int main(int argc, char** argv) { return scopemount::cli::RunProgram(argc, argv); }
