// The names that threads are counted under.
#ifndef INSPECT_THREAD_FAMILY_H_
#define INSPECT_THREAD_FAMILY_H_

#include <cstdint>
#include <string_view>

// The family of a thread's name, or the name itself.
std::string_view tw_thread_family(std::string_view name);

// Names that occur more often than this are reported.
inline constexpr int32_t TW_THREADS_LISTED_ABOVE = 1;

#endif  // INSPECT_THREAD_FAMILY_H_
