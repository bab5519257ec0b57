// Verdicts in words, for people. The same wherever they are shown. Any thread.
#ifndef HOST_VERDICT_SENTENCE_H_
#define HOST_VERDICT_SENTENCE_H_

#include <chrono>
#include <string>

#include "host/verdict/told_verdict.h"

namespace host {

// One line, without a line feed:
//   "mailer" (pid 812, mail.service) leaks open files: 20 -> 500 since 09:14 (16 h ago), 30 an
//   hour, limit 1024 in 17 h; its floor rose all through 15 hours
// Names are escaped, also their quotes, so that none can pass for a part of the sentence.
std::string verdict_sentence(const ToldVerdict& verdict);

// "memory", "threads", "open files".
std::string resource_words(judge::Resource resource);
// A level of the resource: "812 kB", "1.3 MB", "45 MB", or a count.
std::string level_words(judge::Resource resource, double level);
// "60 MB an hour", "0.7 an hour".
std::string rate_words(judge::Resource resource, double rate_per_hour);

}  // namespace host

#endif  // HOST_VERDICT_SENTENCE_H_
