#include "proctable/zygote.h"

int32_t pid_of_zygote = 0;
int32_t pid_of_zygote64 = 0;

bool is_runtime_proc(int ppid) {
  return ppid != 0 && (ppid == pid_of_zygote || ppid == pid_of_zygote64);
}
