// Where the library's two outputs end: the host's sink (taskwarden_set_output), or standard output
// and standard error. Each call delivers its text whole, also when two threads write at once. A
// closed pipe or a full file loses the text and raises no signal in the host.
#ifndef PLATFORM_OUTPUT_H_
#define PLATFORM_OUTPUT_H_

#include <string_view>

// Both take a text that is NUL-terminated just past its end.
void tw_output_report(std::string_view text);
void tw_output_log(const char* tag, std::string_view text);

#endif  // PLATFORM_OUTPUT_H_
