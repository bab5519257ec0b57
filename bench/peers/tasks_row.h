/* What the iterator over tasks says of a process, in the kernel's pids. */
#ifndef BENCH_PEERS_TASKS_ROW_H_
#define BENCH_PEERS_TASKS_ROW_H_

struct tasks_row {
  int pid, parent;
  int threads, descriptors;
  unsigned long long resident_pages;
};

#endif /* BENCH_PEERS_TASKS_ROW_H_ */
