// Lines of the form "Key:   value unit", as several process files have them.
#ifndef INSPECT_PARSE_PAIR_H_
#define INSPECT_PARSE_PAIR_H_

// Finds the value: the text behind the first colon and the spaces and tabs that follow it. Returns
// its position in `line`. From there on every space, tab, carriage return and line feed becomes a
// NUL, so that the value ends at its first blank. A line feed counts as a value's first byte, so
// "Key:\n" has an empty one. Returns -1, the line unchanged and logged, when there is no colon or
// nothing at all after it.
int parse_pair(char* line);

#endif  // INSPECT_PARSE_PAIR_H_
