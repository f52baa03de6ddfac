// qarn-sim: the program on the simulated server that the environment describes.
#include "sim/machine.h"

int qarn_main(int argc, char** argv);

int main(int argc, char** argv) {
  sim::machine();  // a wrong setting ends the run before it says anything
  return qarn_main(argc, argv);
}
