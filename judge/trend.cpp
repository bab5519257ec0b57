#include "judge/trend.h"

#include <algorithm>
#include <cmath>

namespace judge {
namespace {

double middle_of(double* values, size_t count, double part) {
  double* const place = values + static_cast<size_t>(part * static_cast<double>(count - 1));
  std::nth_element(values, place, values + count);
  return *place;
}

// The middle one of the known levels of `width` windows from `first` on; where none is known, of
// some more on either side. Below 0 if those are not known either.
double middle(const Run& run, uint32_t first, uint32_t width) {
  double known[kWindows[kHours]];
  for (const uint32_t more : {0U, 1U + width / 2}) {
    size_t count = 0;
    const uint32_t end = std::min(run.count, first + width + more);
    for (uint32_t i = first - std::min(first, more); i < end; ++i) {
      known[count] = run.level[i];
      count += run.level[i] >= 0;
    }
    if (count > 0) {
      return middle_of(known, count, 0.5);
    }
  }
  return -1;
}

// Fits a parabola by least squares, in u from -1 at the beginning to 1 at the end.
void fit_bend(const Run& run, uint32_t count, Trend* trend) {
  const uint32_t begin = run.count - count;
  double s[5] = {};
  double r[3] = {};
  for (uint32_t i = begin; i < run.count; ++i) {
    const double y = run.level[i];
    if (y < 0) {
      continue;
    }
    const double u = 2.0 * (i - begin) / (count - 1) - 1;
    const double powers[] = {1, u, u * u, u * u * u, u * u * u * u};
    for (int k = 0; k < 5; ++k) {
      s[k] += powers[k];
    }
    for (int k = 0; k < 3; ++k) {
      r[k] += powers[k] * y;
    }
  }
  const double c00 = s[2] * s[4] - s[3] * s[3];
  const double c01 = s[2] * s[3] - s[1] * s[4];
  const double c02 = s[1] * s[3] - s[2] * s[2];
  const double determinant = s[0] * c00 + s[1] * c01 + s[2] * c02;
  if (s[0] < 5 || std::fabs(determinant) < 1e-9) {
    trend->scatter = trend->bend_error = HUGE_VAL;
    return;
  }
  const double c11 = s[0] * s[4] - s[2] * s[2];
  const double c12 = s[1] * s[2] - s[0] * s[3];
  const double c22 = s[0] * s[2] - s[1] * s[1];
  const double a = (c00 * r[0] + c01 * r[1] + c02 * r[2]) / determinant;
  const double b = (c01 * r[0] + c11 * r[1] + c12 * r[2]) / determinant;
  const double c = (c02 * r[0] + c12 * r[1] + c22 * r[2]) / determinant;
  double squares = 0;
  for (uint32_t i = begin; i < run.count; ++i) {
    if (run.level[i] >= 0) {
      const double u = 2.0 * (i - begin) / (count - 1) - 1;
      const double off = run.level[i] - (a + b * u + c * u * u);
      squares += off * off;
    }
  }
  trend->bend = c / trend->gain;
  trend->scatter = std::sqrt(squares / (s[0] - 3)) / trend->gain;
  // Floors an hour apart are not independent: the error is larger than the formula's.
  trend->bend_error = 1.5 * trend->scatter * std::sqrt(c22 / determinant);
}

}  // namespace

Run unroll(const Floors& floors, Scale scale, uint32_t end, uint32_t count) {
  Run run;
  run.count = std::min({end, count, kWindows[scale]});
  run.minutes = kMinutesPerWindow[scale];
  run.age = end;
  for (uint32_t i = 0; i < run.count; ++i) {
    const Code code = floors.at(scale, end - run.count + i);
    run.level[i] = code != 0 ? decode(code) : -1;
  }
  return run;
}

Run merge(const Run& run, uint32_t width) {
  Run merged;
  merged.count = run.count / width;
  merged.minutes = run.minutes * width;
  merged.age = run.age / width;
  const double* from = run.level + run.count % width;
  for (uint32_t i = 0; i < merged.count; ++i, from += width) {
    double low = HUGE_VAL;
    for (uint32_t j = 0; j < width; ++j) {
      low = from[j] >= 0 ? std::min(low, from[j]) : low;
    }
    merged.level[i] = low == HUGE_VAL ? -1 : low;
  }
  return merged;
}

bool measure_gains(const Run& run, uint32_t count, Trend* trend) {
  if (run.count < count) {
    return false;
  }
  const uint32_t begin = run.count - count;
  // Four equal spaces between the five groups of windows.
  uint32_t width = std::max(1U, count / 5);
  while ((count - width) % 4 != 0) {
    --width;
  }
  double level[5];
  for (uint32_t i = 0; i < 5; ++i) {
    level[i] = middle(run, begin + i * (count - width) / 4, width);
    if (level[i] < 0) {
      return false;
    }
  }
  trend->from = level[0];
  trend->gain = level[4] - level[0];
  for (int i = 0; i < 4; ++i) {
    trend->quarter[i] = level[i + 1] - level[i];
  }
  trend->span = count - width;
  const uint32_t reach = std::min(begin, count);
  const uint32_t few = std::min(reach, width);
  const double earlier = reach > 0 ? middle(run, begin - reach, few) : -1;
  trend->before_span = earlier < 0 ? 0 : reach + (width - few) / 2.0;
  trend->before = earlier < 0 ? 0 : level[0] - earlier;
  trend->highest_before = 0;
  for (uint32_t i = 0; i < begin; ++i) {
    trend->highest_before = std::max(trend->highest_before, run.level[i]);
  }
  return true;
}

bool measure_shape(const Run& run, uint32_t count, Trend* trend) {
  double known[kWindows[kHours]];
  int size = 0;
  for (uint32_t i = run.count - count; i < run.count; ++i) {
    known[size] = run.level[i];
    size += run.level[i] >= 0;
  }
  int up = 0;
  int down = 0;
  double sum = 0;
  double squares = 0;
  for (int i = 1; i < size; ++i) {
    for (int j = 0; j < i; ++j) {
      up += known[i] > known[j];
      down += known[i] < known[j];
    }
    const double rise = std::max(0.0, known[i] - known[i - 1]);
    sum += rise;
    squares += rise * rise;
  }
  if (up + down == 0) {
    return false;
  }
  trend->order = static_cast<double>(up - down) / (up + down);
  trend->decided = 2.0 * (up + down) / (size * (size - 1));
  trend->rises = squares > 0 ? sum * sum / squares : 0;
  fit_bend(run, count, trend);
  return true;
}

bool compare_days(const Run& hours, Days* days) {
  constexpr uint32_t kDay = 24;
  const auto level = [&](uint32_t hours_ago) {
    return hours_ago > hours.count ? -1 : hours.level[hours.count - hours_ago];
  };
  double gains[kPairs];
  double older[kPairs];
  size_t count = 0;
  size_t older_count = 0;
  double halves[2] = {};
  size_t in_half[2] = {};
  *days = Days{};
  double gain_before = -1;
  for (uint32_t ago = kPairs; ago >= 1; --ago) {
    const double today = level(ago);
    const double yesterday = level(ago + kDay);
    const double eve = level(ago + 2 * kDay);
    if (yesterday >= 0 && eve >= 0) {
      older[older_count++] = yesterday - eve;
    }
    if (today < 0 || yesterday < 0) {
      continue;
    }
    const double gain = today - yesterday;
    days->jump = count > 0 ? std::max(days->jump, std::fabs(gain - gain_before)) : 0;
    gain_before = gain;
    gains[count++] = gain;
    const int half = ago <= kPairs / 2;
    halves[half] += gain;
    ++in_half[half];
  }
  double lowest[2] = {HUGE_VAL, HUGE_VAL};
  double highest[2] = {};
  double last = -1;
  for (uint32_t ago = kPairs + kDay; ago >= 1; --ago) {
    const double now = level(ago);
    if (now < 0) {
      continue;
    }
    days->falls += last >= 0 ? std::max(0.0, last - now) : 0;
    last = now;
    const int day = ago <= kDay;
    lowest[day] = std::min(lowest[day], now);
    highest[day] = std::max(highest[day], now);
  }
  days->from = lowest[0];
  days->low = lowest[1] - lowest[0];
  days->high = highest[1] - highest[0];
  days->pairs = static_cast<uint32_t>(count);
  if (in_half[0] < 6 || in_half[1] < 6) {
    return false;
  }
  days->first = halves[0] / static_cast<double>(in_half[0]);
  days->second = halves[1] / static_cast<double>(in_half[1]);
  days->typical = middle_of(gains, count, 0.5);
  days->least = middle_of(gains, count, 0.1);
  days->before = older_count >= kDay / 2 ? middle_of(older, older_count, 0.5) : 0;
  return true;
}

}  // namespace judge
