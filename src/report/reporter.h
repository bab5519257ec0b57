// The one reporter, which gets all that is no failure: progress, dumps, event explanations.
#ifndef REPORT_REPORTER_H_
#define REPORT_REPORTER_H_

#include <chronicler/chronicler.h>

// Reports one text at level 1, its format and arguments as for printf, unless the calling thread
// mutes its reports. Any thread.
#define TW_REPORT(...)                      \
  do {                                      \
    if (!ReportVolume::is_muted()) {        \
      tw_reporter().report(1, __VA_ARGS__); \
    }                                       \
  } while (false)

// The reporter, created where there is none, also when it was taken away again; never freed. Two
// threads that come at once get the same one. Any thread.
Chronicler& tw_reporter();

// Whether the reports of the calling thread are muted, while one of its kinds lives.
class ReportVolume {
 public:
  ReportVolume(const ReportVolume&) = delete;
  ReportVolume& operator=(const ReportVolume&) = delete;

  static bool is_muted() { return muted_; }

 protected:
  explicit ReportVolume(bool muted) : before_(muted_) { muted_ = muted; }
  ~ReportVolume() { muted_ = before_; }

 private:
  static thread_local bool muted_;
  const bool before_;
};

// Muted if `muted`, else as before.
class MutedReports : public ReportVolume {
 public:
  explicit MutedReports(bool muted) : ReportVolume(muted || is_muted()) {}
};

// Not muted, within a muted part.
class AudibleReports : public ReportVolume {
 public:
  AudibleReports() : ReportVolume(false) {}
};

#endif  // REPORT_REPORTER_H_
