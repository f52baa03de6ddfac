// qarn-sim: the program on the simulated server that the environment describes.
#include <unistd.h>

#include <cstdio>

#include "sim/machine.h"

int qarn_main(int argc, char** argv);

int main(int argc, char** argv) {
  sim::machine();  // a wrong setting ends the run before it says anything
  if (isatty(STDERR_FILENO) != 0)
    std::fputs("qarn-sim: a simulated server, not this machine\n", stderr);
  return qarn_main(argc, argv);
}
