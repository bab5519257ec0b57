#include "target.h"

#include <cstdint>

#include "taskwarden/taskwarden.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  taskwarden_set_output([](void*, int, const char*, const char* text,
                           size_t length) { require(text[length] == '\0'); },
                        nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz({reinterpret_cast<const char*>(data), size});
  return 0;
}
