#include "host/listen/verdict_source.h"

#include <chrono>
#include <cstdint>
#include <thread>

#include "host/common/output.h"
#include "host/feed/feed_client.h"

namespace host {
namespace {

constexpr std::chrono::seconds kBetweenTries{2};

// Until the feed ends, with why_() of it, or `sink` has had enough, which is false.
bool read_to_end(FeedClient& client, const VerdictSink& sink) {
  uint64_t missed = 0;
  for (;;) {
    FeedView::News news = FeedView::News::kNothing;
    const FeedClient::Got got = client.next(-1, &news);
    if (got == FeedClient::Got::kEnd) {
      return true;
    }
    if (client.view().missed() != missed) {
      missed = client.view().missed();
      say("verdicts may have been missed; the watch has left out " + std::to_string(missed) +
          " messages so far, since they were not read in time");
    }
    if (got == FeedClient::Got::kNews && news == FeedView::News::kCopy) {
      sink.standing(client.view().standing());
    } else if (got == FeedClient::Got::kNews && news == FeedView::News::kVerdict &&
               !sink.change(client.view().change())) {
      return false;
    }
  }
}

}  // namespace

void read_verdicts(const std::string& path, const VerdictSink& sink) {
  std::string said;
  for (FeedClient client;; std::this_thread::sleep_for(kBetweenTries)) {
    if (client.connect(path)) {
      if (!read_to_end(client, sink)) {
        return;
      }
      said.clear();
    }
    if (client.why() != said) {
      said = client.why();
      say("no verdicts for now: " + said);
    }
  }
}

}  // namespace host
