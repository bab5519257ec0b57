// Live processes to be looked at, and their end. Each sleeps, but to be woken, until it is killed,
// which happens in the destructor, or by the kernel when the thread that made them ends.
#ifndef BENCH_POPULATION_H_
#define BENCH_POPULATION_H_

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <vector>

// What one child is made of. The rest of it is a copy of the process that makes it.
struct ChildShape {
  int descriptors = 14;  // exactly; at least 3
  int areas = 0;         // memory areas that do not merge, every other one of a file, all touched
  int threads = 1;       // named as on Android: pools, numbered and single ones
  bool is_busy = false;  // runs for a moment twice a second
};

std::vector<ChildShape> plain_shapes(size_t count);
// 1000 children, of which `large` have 1000 descriptors and 2 have 10000.
std::vector<ChildShape> mixed_shapes(size_t large);

// `count` plain children, of which 2 % are busy.
std::vector<ChildShape> busy_shapes(size_t count);

class Population {
 public:
  // Makes the children and returns when each has its shape; throws std::runtime_error otherwise.
  // The calling process must have one thread, and little memory: every child copies its page
  // tables.
  explicit Population(std::span<const ChildShape> shapes);
  ~Population();
  Population& operator=(Population&&) = delete;  // nor any copy

  // Has `count` of them run for a moment, from the one with the number `first` on and around;
  // returns when they sleep again.
  void wake(size_t first, size_t count) const;

  // In the order of the shapes.
  const std::vector<pid_t>& pids() const { return pids_; }

 private:
  Population() = default;

  std::vector<pid_t> pids_;
};

#endif  // BENCH_POPULATION_H_
