// vstat: the command-line front end of the statistics service.
#include <iostream>

#include "commands.h"

int main(int argc, char** argv) { return vorlane::cli::runVstat(argc, argv, std::cout, std::cerr); }
