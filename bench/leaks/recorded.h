// Recorded lives of real servers, see record.py.
#ifndef BENCH_LEAKS_RECORDED_H_
#define BENCH_LEAKS_RECORDED_H_

#include <string>
#include <vector>

#include "leaks/life.h"

namespace leaks {

// The processes in the file at `path`, with all times and intervals `stretch` times as long. Those
// whose name ends in "-leaking" leak something, from their beginning on. Ends the program if the
// file cannot be read.
std::vector<Trace> read_recorded(const std::string& path, double stretch);

}  // namespace leaks

#endif  // BENCH_LEAKS_RECORDED_H_
