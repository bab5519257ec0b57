#include "inspect/vma_division.h"

const char* vma_division_typename(VMA_DIVISION_TYPE type) {
  static constexpr const char* kNames[VMA_DIVISION_COUNT] = {
      "DALVIK", "SCUDO PRI", "SCUDO SEC",     "JEMALLOC", "BIONIC ALLOC", "STACK",
      "OAT",    "APK",       "SHARED OBJECT", "FONT",     "RESOURCE",     "ASHMEM",
      "KGSL",   "DMABUF",    "DEVNODE",       "ANON",     "NAMED",        "UNNAMED",
  };
  const auto index = static_cast<unsigned>(type);
  return index < VMA_DIVISION_COUNT ? kNames[index] : "<invalid vma division>";
}
