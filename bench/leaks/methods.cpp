#include "leaks/methods.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include "judge/judge.h"

namespace leaks {
namespace {

using judge::Resource;
using judge::State;

class Ours : public Method {
 public:
  void take(const judge::Sample& sample, std::vector<Alarm>* alarms) override {
    alarms_ = alarms;
    judge_.take(sample);
  }

 private:
  std::vector<Alarm>* alarms_ = nullptr;
  judge::Judge judge_{[this](const judge::Verdict& verdict) {
    alarms_->push_back({verdict.time, verdict.resource, verdict.state, verdict.evidence});
  }};
};

// A rule over the samples of one resource, asked until it says yes.
class Rule {
 public:
  virtual ~Rule() = default;
  virtual bool take(double time, double level, double least) = 0;
};

template <typename R>
class ByResource : public Method {
 public:
  void take(const judge::Sample& s, std::vector<Alarm>* alarms) override {
    const int64_t levels[] = {s.resident_kb + std::max<int64_t>(0, s.swap_kb), s.threads,
                              s.open_files};
    for (size_t i = 0; i < judge::kResources; ++i) {
      const double least = i == 0 ? 1024 : 8;
      if (!told_[i] && rules_[i].take(s.time, static_cast<double>(levels[i]), least)) {
        told_[i] = true;
        alarms->push_back({s.time, static_cast<Resource>(i), State::kConfirmed, {}});
      }
    }
  }

 private:
  R rules_[judge::kResources];
  bool told_[judge::kResources] = {};
};

// Minima of windows of a fixed width.
struct Minima {
  double width;
  std::vector<std::pair<double, double>> closed{};  // time, level
  double low = HUGE_VAL;
  double window = -1;
  bool take(double time, double level) {
    const double now = std::floor(time / width);
    const bool over = now != window && low != HUGE_VAL;
    if (over) {
      closed.emplace_back(window * width, low);
      low = HUGE_VAL;
    }
    window = now;
    low = std::min(low, level);
    return over;
  }
};

double kendall(const std::vector<std::pair<double, double>>& points, size_t from) {
  double sum = 0;
  for (size_t i = from; i < points.size(); ++i) {
    for (size_t j = from; j < i; ++j) {
      sum += (points[i].second > points[j].second) - (points[i].second < points[j].second);
    }
  }
  const double n = static_cast<double>(points.size() - from);
  return n > 1 ? sum / (n * (n - 1) / 2) : 0;
}

// A line through the last hour rises by 5 % with a correlation of 0.9.
class Regression : public Rule {
 public:
  bool take(double time, double level, double least) override {
    if (!minima_.take(time, level)) return false;
    auto& p = minima_.closed;
    while (p.back().first - p.front().first > 3600) p.erase(p.begin());
    const double n = static_cast<double>(p.size());
    if (n < 6 || p.back().first - p.front().first < 3000) return false;
    double t = 0, x = 0, tt = 0, xx = 0, tx = 0;
    for (const auto& [at, value] : p) {
      const double u = at - p.front().first;
      t += u, x += value, tt += u * u, xx += value * value, tx += u * value;
    }
    const double vt = tt - t * t / n, vx = xx - x * x / n, c = tx - t * x / n;
    const double gain = c / vt * 3600;
    return vx > 0 && c / std::sqrt(vt * vx) > 0.9 && gain > 0.05 * x / n && gain > least;
  }

 private:
  Minima minima_{60};
};

// Mann and Kendall's test over the hourly minima of the last day, at least 12 of them.
class MannKendall : public Rule {
 public:
  bool take(double time, double level, double least) override {
    if (!minima_.take(time, level)) return false;
    auto& p = minima_.closed;
    if (p.size() > 24) p.erase(p.begin());
    const double n = static_cast<double>(p.size());
    const double gain = p.back().second - p.front().second;
    if (n < 12 || gain < 0.05 * p.front().second || gain < least) return false;
    const double s = kendall(p, 0) * n * (n - 1) / 2;
    return (s - 1) / std::sqrt(n * (n - 1) * (2 * n + 5) / 18) > 3;
  }

 private:
  Minima minima_{3600};
};

// Twice the level that it had after 10 minutes, for an hour.
class Factor : public Rule {
 public:
  bool take(double time, double level, double least) override {
    if (first_ < 0) first_ = time;
    if (time - first_ < 600) {
      base_ = std::max(base_, level);
      return false;
    }
    if (level < 2 * base_ || level < base_ + least)
      since_ = -1;
    else if (since_ < 0)
      since_ = time;
    return since_ >= 0 && time - since_ >= 3600;
  }

 private:
  double first_ = -1, base_ = 0, since_ = -1;
};

// Twelve minima over the whole age, merged by pairs as the process grows older; told when what was
// suspected still holds at twice the age, and after a hold of so many hours.
template <int kHold>
class Merged : public Rule {
 public:
  bool take(double time, double level, double least) override {
    if (first_ < 0) first_ = time;
    if (!minima_.take(time, level)) return false;
    auto& p = minima_.closed;
    if (p.size() >= 24) {
      for (size_t i = 0; i < 12; ++i) {
        p[i] = {p[2 * i].first, std::min(p[2 * i].second, p[2 * i + 1].second)};
      }
      p.resize(12);
      minima_.width *= 2;
      minima_.window = std::floor(time / minima_.width);
    }
    const size_t from = p.size() / 4;
    const size_t n = p.size() - from;
    bool holds = p.size() >= 12;
    if (holds) {
      const double start = p[from].second, middle = p[from + n / 2].second, end = p.back().second;
      holds = kendall(p, from) >= 0.7 && end - start >= std::max(0.05 * start, least) &&
              end - middle >= 0.5 * (middle - start);
    }
    if (!holds) {
      suspected_ = -1;
      return false;
    }
    if (suspected_ < 0) suspected_ = time;
    return time - first_ >= 2 * (suspected_ - first_) && time - suspected_ >= kHold * 3600.0;
  }

 private:
  Minima minima_{30};
  double first_ = -1, suspected_ = -1;
};

template <typename M>
std::unique_ptr<Method> make() {
  return std::make_unique<M>();
}

}  // namespace

const std::vector<MethodKind> kMethods = {
    {"judge", make<Ours>},
    {"merged minima, hold 12 h", make<ByResource<Merged<12>>>},
    {"merged minima, hold 4 h", make<ByResource<Merged<4>>>},
    {"Mann-Kendall, a day", make<ByResource<MannKendall>>},
    {"regression, an hour", make<ByResource<Regression>>},
    {"twice the first level", make<ByResource<Factor>>},
};

}  // namespace leaks
