// What a watch knows of leaks, as a table for people. Any thread.
#ifndef HOST_LEAKS_LEAK_TABLE_H_
#define HOST_LEAKS_LEAK_TABLE_H_

#include <chrono>
#include <string>
#include <vector>

#include "host/feed/feed_format.h"
#include "host/verdict/told_verdict.h"

namespace host {

// The worst first: by state, then by the time that is left until the limit, then by rate. Without
// `all`, those that are only suspected are left out.
std::vector<ToldVerdict> by_urgency(std::vector<ToldVerdict> verdicts, bool all);

// The table, or one line where nothing leaks, that says how many processes were watched for how
// long. Names are escaped and cut. Lines end with a line feed.
std::string leak_table(const FeedView& view, bool all, std::chrono::system_clock::time_point now);

}  // namespace host

#endif  // HOST_LEAKS_LEAK_TABLE_H_
