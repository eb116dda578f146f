#include <iostream>

#include "app/CommandLine.h"

int main(int argc, char** argv) { return vosklin::CommandLine(std::cout, std::cerr).run(argc, argv); }
