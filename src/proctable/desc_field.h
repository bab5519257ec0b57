// One number of a process: which it is, whatever its width.
#ifndef PROCTABLE_DESC_FIELD_H_
#define PROCTABLE_DESC_FIELD_H_

#include <cstdint>

#include "proctable/process_records.h"

class DescField {
 public:
  constexpr DescField() = default;  // none
  // Implicit, so that a table of numbers names the members alone.
  constexpr DescField(int32_t tw_process_desc::*count) : count_(count) {}
  constexpr DescField(uint64_t tw_process_desc::*size_kb) : size_kb_(size_kb) {}

  constexpr explicit operator bool() const { return count_ != nullptr || size_kb_ != nullptr; }

  // Counts are widened with their sign, and cut to 32 bits again.
  uint64_t get(const tw_process_desc& desc) const {
    return count_ != nullptr ? static_cast<uint64_t>(int64_t{desc.*count_}) : desc.*size_kb_;
  }
  void set(tw_process_desc* desc, uint64_t value) const {
    if (count_ != nullptr) {
      desc->*count_ = static_cast<int32_t>(value);
    } else {
      desc->*size_kb_ = value;
    }
  }

 private:
  int32_t tw_process_desc::*count_ = nullptr;
  uint64_t tw_process_desc::*size_kb_ = nullptr;
};

#endif  // PROCTABLE_DESC_FIELD_H_
