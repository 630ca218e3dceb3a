// sorvctl: the command-line client of the name server.
#include "sorvctl/CommandLine.h"

int main(int count, char** arguments) { return sorvctl::runCommandLine(count, arguments); }
