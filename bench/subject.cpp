#include "subject.h"

#include <memory>

namespace {

TableTotals totals_of(const std::vector<ChildShape>& shapes) {
  TableTotals totals;
  for (const ChildShape& shape : shapes) {
    totals.threads += shape.threads;
    totals.open_files += shape.descriptors;
  }
  return totals;
}

}  // namespace

Subject::Subject(const std::vector<ChildShape>& shapes)
    : totals(totals_of(shapes)), population(shapes), table(population.pids()) {}

std::vector<ChildShape> shapes_of(const std::string& population) {
  constexpr std::string_view kMixed = "mixed", kBusy = "busy";
  if (population.starts_with(kMixed)) {
    return mixed_shapes(std::stoul(population.substr(kMixed.size())));
  }
  return population.starts_with(kBusy) ? busy_shapes(std::stoul(population.substr(kBusy.size())))
                                       : plain_shapes(std::stoul(population));
}

Subject& subject(const std::string& population) {
  static std::string current;
  static std::unique_ptr<Subject> made;
  if (current != population) {
    made.reset();
    made = std::make_unique<Subject>(shapes_of(population));
    current = population;
  }
  return *made;
}
