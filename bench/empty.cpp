// A program that does nothing, whose resident size is what any C++ program has at the least.
#include <unistd.h>

int main() {
  pause();
}
