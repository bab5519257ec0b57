#include "host/leaks/leaks_command.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "host/common/json_line.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/common/time_words.h"
#include "host/common/until_signal.h"
#include "host/feed/feed_client.h"
#include "host/feed/feed_place.h"
#include "host/leaks/leak_table.h"
#include "host/verdict/verdict_object.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

using std::chrono::system_clock;

constexpr char kFooter[] =
    R"(Asks the running watch. The most urgent leak comes first:
  STATE                   confirmed, or urgent: at its rate a limit is reached within the hour
  FROM -> NOW, RATE       the level when the growth began and now, and the growth
  SINCE                   when the growth began
  LIMIT                   the nearest limit, and when it is reached at this rate

With --json one object has "watch" (its pid), "since", "processes", "pass_ms" and the array
"verdicts", with the fields of the verdicts of "watch --log-format json". With --live it is one such
object a line whenever something changes, and at least once a minute.

Exit status: 0 on success, also when nothing leaks; 1 when no watch is running, it ends, this user may
not ask it, or standard output fails; 2 on wrong usage.

Example: taskwarden leaks --json | jq -r '.verdicts[] | select(.state == "urgent").pid')";

// How long the watch may take to answer.
constexpr int kPatienceMs = 10000;
constexpr int kRedrawMs = 2000;

struct Options {
  bool all = false;
  bool json = false;
  bool live = false;
  std::string feed{};
};

std::string object_line(const FeedView& view, bool all) {
  const FeedFigures& figures = view.figures();
  Json verdicts = Json::array();
  for (const ToldVerdict& verdict : by_urgency(view.standing(), all)) {
    verdicts.push_back(verdict_object(verdict));
  }
  return json_line({{"time", iso_time(system_clock::now())},
                    {"watch", figures.watch},
                    {"since", iso_time(figures.since)},
                    {"processes", figures.processes},
                    {"pass_ms", figures.pass_ms},
                    {"verdicts", verdicts}}) +
         "\n";
}

std::string shown(const FeedView& view, const Options& options) {
  return options.json ? object_line(view, options.all)
                      : leak_table(view, options.all, system_clock::now());
}

// The terminal while something is redrawn on it: its other screen, without a cursor.
class Screen {
 public:
  explicit Screen(bool wanted) : used_(wanted && ::isatty(STDOUT_FILENO) == 1) {
    put("\033[?1049h\033[?25l");
  }
  ~Screen() { put("\033[?25h\033[?1049l"); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Shows as much of `text` as there is room for; elsewhere all of it. False if that fails.
  bool show(const std::string& text) {
    if (!used_) {
      return write_text(Stream::kOut, text);
    }
    winsize size = {};
    const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1;
    std::string fitting = "\033[H";
    size_t begin = 0;
    for (int line = 1; begin < text.size() && (!known || line < size.ws_row); ++line) {
      const size_t end = text.find('\n', begin);
      const size_t width = known ? size.ws_col : std::string::npos;
      fitting += text.substr(begin, std::min(end - begin, width)) + "\033[K\r\n";
      begin = end + 1;
    }
    return put(fitting + "\033[J");
  }
  bool used() const { return used_; }

 private:
  bool put(const std::string& text) const { return !used_ || write_text(Stream::kOut, text); }

  const bool used_;
};

int show_once(FeedClient& client, const Options& options) {
  FeedView::News news = FeedView::News::kNothing;
  while (news != FeedView::News::kCopy) {
    const FeedClient::Got got = client.next(kPatienceMs, &news);
    if (got != FeedClient::Got::kNews) {
      say(got == FeedClient::Got::kEnd ? client.why() : "the watch does not answer");
      return 1;
    }
  }
  return write_text(Stream::kOut, shown(client.view(), options)) ? 0 : 1;
}

// Until a signal, which restores the terminal, or the end of the watch.
int show_live(FeedClient& client, const Options& options) {
  block_signals({SIGHUP, SIGQUIT, SIGWINCH});
  const sigset_t set = signal_set({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH});
  const unique_fd signals(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  bool ended = false;
  bool written = true;
  {
    Screen screen(!options.json);
    bool any = false;
    while (written) {
      pollfd awaited[] = {{client.fd(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
      ::poll(awaited, 2, screen.used() ? kRedrawMs : -1);
      signalfd_siginfo signal = {};
      if (::read(signals.get(), &signal, sizeof(signal)) > 0 && signal.ssi_signo != SIGWINCH) {
        break;
      }
      bool changed = screen.used();
      FeedView::News news = FeedView::News::kNothing;
      FeedClient::Got got = FeedClient::Got::kNews;
      while ((got = client.next(0, &news)) == FeedClient::Got::kNews) {
        changed = changed || news == FeedView::News::kCopy || news == FeedView::News::kVerdict;
        any = any || news == FeedView::News::kCopy;
      }
      if (got == FeedClient::Got::kEnd) {
        ended = true;
        break;
      }
      if (any && changed) {
        written = screen.show(shown(client.view(), options));
      }
    }
  }
  if (ended) {
    say(client.why());
  }
  return ended || !written ? 1 : 0;
}

int run(const Options& options) {
  FeedClient client;
  if (!client.connect(options.feed)) {
    say(client.why());
    return 1;
  }
  return options.live ? show_live(client, options) : show_once(client, options);
}

}  // namespace

void add_leaks_command(CLI::App& app, std::function<int()>* chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("leaks", "Show who leaks, as the running watch knows");
  command.footer(kFooter);
  command.callback([=] { *chosen = [options] { return run(*options); }; });
  command.add_flag("--all", options->all, "Also show what is only suspected");
  command.add_flag("--json", options->json, "Print an object instead of a table");
  command.add_flag("--live", options->live, "Show changes as they come, until stopped");
  command
      .add_option("--feed", options->feed, "Ask the watch whose feed is at the local socket PATH")
      ->option_text("PATH")
      ->check(must_fit(kPathMax));
}

}  // namespace host
