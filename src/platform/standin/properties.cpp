#include <cutils/properties.h>

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <string>

int property_get(const char* key, char* value, const char* default_value) {
  std::string variable(key);
  for (char& c : variable) {
    c = c == '.' ? '_' : static_cast<char>(toupper(static_cast<unsigned char>(c)));
  }
  const char* found = ::getenv(variable.c_str());
  if (found == nullptr || found[0] == '\0') {
    found = default_value != nullptr ? default_value : "";
  }
  const size_t length = strnlen(found, PROPERTY_VALUE_MAX - 1);
  memcpy(value, found, length);
  value[length] = '\0';
  return static_cast<int>(length);
}
