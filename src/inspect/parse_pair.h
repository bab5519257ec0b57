// Lines of the form "Key:   value unit", as several process files have them.
#ifndef INSPECT_PARSE_PAIR_H_
#define INSPECT_PARSE_PAIR_H_

// Finds the value: what follows the first colon and the spaces and tabs behind it. Returns its
// position in `line` and cuts it there, in place, at its first blank or line end. A line feed
// counts as a value's first byte, so "Key:\n" has an empty one. Returns -1, the line unchanged and
// logged, when there is no colon or nothing at all after it.
int parse_pair(char* line);

#endif  // INSPECT_PARSE_PAIR_H_
