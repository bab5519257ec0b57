// Stands in for the fuzzer where there is none: runs a target on the inputs in the folder argv[1],
// each as it is, cut off at any length, and argv[2] times with some bytes changed at random.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "target.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  require(!std::filesystem::is_empty(argv[1]));
  for (const auto& input : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(input.path(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    fuzz(text);
    for (size_t n = 0; n < std::min<size_t>(text.size(), 500); ++n) fuzz(text.substr(0, n));
    std::mt19937 random{20250711};
    for (int rounds = text.empty() ? 0 : atoi(argv[2]); rounds > 0; --rounds) {
      std::string changed = text;
      for (size_t n = random() % 4 + 1; n > 0; --n) {
        changed[random() % changed.size()] = " \n-:0xgF\t\x80\v"[random() % 11];
      }
      fuzz(changed);
    }
  }
}
