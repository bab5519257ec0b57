// An iterator over tasks inside the kernel: of each process its parent, threads, descriptors and
// resident size, as one row of numbers. Compiled for the kernel's machine (clang -target bpf);
// fields are found by the types of the running kernel.
#include <linux/bpf.h>
// needs the types of that
#include <bpf/bpf_helpers.h>

#include "tasks_row.h"

#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)
struct seq_file;
struct bpf_iter_meta {
  struct seq_file* seq;
};
struct fdtable {
  unsigned max_fds;
  unsigned long* open_fds;
};
struct files_struct {
  struct fdtable* fdt;
};
struct percpu_counter {
  long long count;
};
struct mm_struct {
  struct percpu_counter rss_stat[4];
};
struct signal_struct {
  int nr_threads;
};
struct task_struct {
  int pid, tgid;
  struct task_struct* real_parent;
  struct signal_struct* signal;
  struct files_struct* files;
  struct mm_struct* mm;
};
struct bpf_iter__task {
  struct bpf_iter_meta* meta;
  struct task_struct* task;
};
#pragma clang attribute pop

// Without a loop, which the verifier would follow through every word there can be.
static unsigned bits_in(unsigned long long word) {
  word -= word >> 1 & 0x5555555555555555;
  word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
  return (word + (word >> 4) & 0x0f0f0f0f0f0f0f0f) * 0x0101010101010101 >> 56;
}

// Of the first 1024.
static int descriptors_of(struct fdtable* table) {
  const unsigned words = table->max_fds / 64;
  unsigned long* const open = table->open_fds;
  int count = 0;
  for (unsigned i = 0; i < 16 && i < words; ++i) {
    unsigned long word = 0;
    bpf_probe_read_kernel(&word, sizeof(word), open + i);
    count += bits_in(word);
  }
  return count;
}

SEC("iter/task") int visit(struct bpf_iter__task* context) {
  struct task_struct* const task = context->task;
  if (task == 0 || task->pid != task->tgid) {
    return 0;
  }
  struct tasks_row row = {task->tgid, task->real_parent->tgid, task->signal->nr_threads, 0, 0};
  if (task->files != 0) {
    row.descriptors = descriptors_of(task->files->fdt);
  }
  if (task->mm != 0) {
    // File, anonymous and shared pages; the third counts what is swapped out.
    const struct percpu_counter* const pages = task->mm->rss_stat;
    row.resident_pages = pages[0].count + pages[1].count + pages[3].count;
  }
  bpf_seq_write(context->meta->seq, &row, sizeof(row));
  return 0;
}

char LICENSE[] SEC("license") = "GPL";
