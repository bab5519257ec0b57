// The judge and simpler methods behind one face: each watches one process.
#ifndef BENCH_LEAKS_METHODS_H_
#define BENCH_LEAKS_METHODS_H_

#include <memory>
#include <string>
#include <vector>

#include "judge/sample.h"

namespace leaks {

struct Alarm {
  double time;
  judge::Resource resource;
  judge::State state;
  judge::Evidence evidence{};
};

class Method {
 public:
  virtual ~Method() = default;
  // Takes a sample of the one process and adds the alarms that it leads to.
  virtual void take(const judge::Sample& sample, std::vector<Alarm>* alarms) = 0;
};

struct MethodKind {
  const char* name;
  std::unique_ptr<Method> (*make)();
};

// The judge comes first.
extern const std::vector<MethodKind> kMethods;

}  // namespace leaks

#endif  // BENCH_LEAKS_METHODS_H_
