// The one reporter, at whose level 1 everything is told that is no failure: progress, dumps, event
// explanations. tw_reporter().report(1, format, ...).
#ifndef REPORT_REPORTER_H_
#define REPORT_REPORTER_H_

#include <chronicler/chronicler.h>

// Created by whoever asks first, once, also when two threads ask at the same moment; never freed.
Chronicler& tw_reporter();

#endif  // REPORT_REPORTER_H_
