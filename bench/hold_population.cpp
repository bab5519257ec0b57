// Keeps a population alive for others to look at: hold_population NUMBER|mixedNUMBER|busyNUMBER
// prints its pids on one line when all are there, and ends with standard input.
#include <unistd.h>

#include <iostream>

#include "subject.h"

int main(int argc, char** argv) {
  try {
    const Population population(shapes_of(argc > 1 ? argv[1] : "300"));
    for (const pid_t pid : population.pids()) {
      std::cout << pid << ' ';
    }
    std::cout << std::endl;
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
