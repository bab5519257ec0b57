// What is kept of a process's descriptor directory from one visit to the next, so that it need not
// be listed at each.
#ifndef INSPECT_FD_LISTING_H_
#define INSPECT_FD_LISTING_H_

#include <cstdint>

// Zeros: nothing is known, the next visit lists.
struct tw_fd_listing {
  uint32_t size;    // the directory's st_size at the last listing
  uint32_t visits;  // since then
};

#endif  // INSPECT_FD_LISTING_H_
