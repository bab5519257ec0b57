// Stand-in for the system properties, in the environment: the property "tw.stats.interest" is the
// variable TW_STATS_INTEREST (upper case, points as underscores).
#ifndef PLATFORM_STANDIN_CUTILS_PROPERTIES_H_
#define PLATFORM_STANDIN_CUTILS_PROPERTIES_H_

enum { PROPERTY_VALUE_MAX = 92 };

// Copies the value of `key` into `value`, a buffer of PROPERTY_VALUE_MAX bytes, NUL-terminated and
// cut at 91 bytes; where it is unset or empty, `default_value` (if not null) likewise. Returns the
// length copied.
int property_get(const char* key, char* value, const char* default_value);

#endif  // PLATFORM_STANDIN_CUTILS_PROPERTIES_H_
