// A population and the library's table of it, made when first asked for, and one at a time: asking
// for another ends the last one.
#ifndef BENCH_SUBJECT_H_
#define BENCH_SUBJECT_H_

#include <string>
#include <vector>

#include "child_table.h"
#include "population.h"

struct Subject {
  explicit Subject(const std::vector<ChildShape>& shapes);

  // One pass of the library over all; whether it found what there is.
  bool visit() { return table.visit_all() && table.totals() == totals && logged_failures() == 0; }

  const TableTotals totals;  // what the population was made with
  const Population population;
  ChildTable table;
};

// "300", or any other number of plain children, or "mixed50": 1000 of which 50 have 1000
// descriptors, or "busy300": 2 % of which are busy.
std::vector<ChildShape> shapes_of(const std::string& population);
Subject& subject(const std::string& population);

#endif  // BENCH_SUBJECT_H_
