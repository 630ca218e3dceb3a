// sorvctl: the client command of the name server.
#include "sorvctl/CommandLine.h"

int main(int count, char** words) { return sorvctl::runCommandLine(count, words); }
