// Reads a system property into a buffer of PROPERTY_VALUE_MAX bytes.
#ifndef ANDROID_CUTILS_PROPERTIES_H_
#define ANDROID_CUTILS_PROPERTIES_H_

#define PROPERTY_VALUE_MAX 92

extern "C" int property_get(const char* key, char* value, const char* default_value);

#endif  // ANDROID_CUTILS_PROPERTIES_H_
