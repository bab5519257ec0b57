// The texts that the log has of an event, made from its data alone.
#ifndef TESTS_SUPPORT_TELLING_H_
#define TESTS_SUPPORT_TELLING_H_

#include <string>

#include "taskwarden/observers.h"

std::string text_of(const taskwarden_bytes& bytes);

// What the log says of one event. All events of a poll are raised before the first is explained.
struct EventTexts {
  std::string raised;
  std::string explained;
};

// Where the data contradict themselves, a text says so that no log has.
EventTexts texts_of(const taskwarden_event& event);

#endif  // TESTS_SUPPORT_TELLING_H_
