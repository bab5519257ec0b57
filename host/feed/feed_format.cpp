#include "host/feed/feed_format.h"

#include <algorithm>
#include <utility>

#include "host/common/time_words.h"
#include "host/verdict/verdict_object.h"

namespace host {
namespace {

// Leaves room for the number.
constexpr size_t kStandingMax = kFeedMessageMax / 2;

FeedText text(std::string content) {
  return std::make_shared<const std::string>(std::move(content));
}

// The members of `object` after those of the message's beginning.
FeedText typed(const std::string& type, const Json& object = Json::object()) {
  const std::string rest = json_line(object).substr(1);
  return text("\"type\":\"" + type + "\"" + (rest == "}" ? "" : ",") + rest);
}

bool is_same(const ToldVerdict& a, const ToldVerdict& b) {
  return a.pid == b.pid && a.start == b.start && a.resource == b.resource;
}

}  // namespace

FeedText begin_text(const FeedFigures& figures) {
  return typed("begin", {{"feed", kFeedVersion},
                         {"watch", figures.watch},
                         {"since", iso_time(figures.since)},
                         {"processes", figures.processes},
                         {"pass_ms", figures.pass_ms}});
}

std::vector<FeedText> standing_texts(const std::vector<std::string>& verdicts) {
  std::vector<FeedText> texts;
  std::string list;
  const auto end = [&] {
    if (!list.empty()) {
      texts.push_back(text("\"type\":\"standing\",\"verdicts\":[" + list + "]}"));
      list.clear();
    }
  };
  for (const std::string& verdict : verdicts) {
    if (list.size() + verdict.size() > kStandingMax) {
      end();
    }
    list += (list.empty() ? "" : ",") + verdict;
  }
  end();
  return texts;
}

FeedText complete_text() {
  return typed("complete");
}

FeedText verdict_text(const std::string& verdict) {
  return text("\"type\":\"verdict\",\"verdict\":" + verdict + "}");
}

FeedText missed_text(uint64_t messages) {
  return typed("missed", {{"messages", messages}});
}

FeedText refused_text(const std::string& why) {
  return typed("refused", {{"why", why}});
}

FeedView::News FeedView::take(std::string_view message) {
  const Json object = Json::parse(message, nullptr, false);
  try {
    return object.is_object() ? apply(object) : News::kBadFormat;
  } catch (const Json::exception&) {
    return News::kBadFormat;
  }
}

FeedView::News FeedView::apply(const Json& message) {
  const std::string type = message.at("type");
  if (type == "begin") {
    const auto since = parse_iso_time(message.at("since"));
    if (message.at("feed") != kFeedVersion || !since) {
      return News::kBadFormat;
    }
    figures_ = {message.at("watch"), *since, message.at("processes"), message.at("pass_ms")};
    copy_.clear();
  } else if (type == "standing") {
    for (const Json& object : message.at("verdicts")) {
      std::optional<ToldVerdict> verdict = verdict_of(object);
      if (!verdict) {
        return News::kBadFormat;
      }
      copy_.push_back(std::move(*verdict));
    }
  } else if (type == "complete") {
    standing_ = std::exchange(copy_, {});
    return News::kCopy;
  } else if (type == "verdict") {
    std::optional<ToldVerdict> verdict = verdict_of(message.at("verdict"));
    if (!verdict) {
      return News::kBadFormat;
    }
    change_ = std::move(*verdict);
    std::erase_if(standing_, [this](const ToldVerdict& one) { return is_same(one, change_); });
    if (change_.state != judge::State::kEnded) {
      standing_.push_back(change_);
    }
    return News::kVerdict;
  } else if (type == "missed") {
    missed_ += message.at("messages").get<uint64_t>();
  } else if (type == "refused") {
    why_ = message.at("why");
    return News::kRefused;
  }
  return News::kNothing;
}

}  // namespace host
