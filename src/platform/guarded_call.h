// Calls of a host's function that must not bring the cycle down by an exception.
#ifndef PLATFORM_GUARDED_CALL_H_
#define PLATFORM_GUARDED_CALL_H_

#include <cstddef>  // tells the standard library
#if defined(__cpp_exceptions) && defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

// Calls `call`. False when it threw. The end of the thread from within (pthread_exit(3), which an
// interpreter may call) goes on; it comes as a reference to nothing, which the sanitizer is told to
// let pass. Code that is built without exceptions cannot tell.
template <typename Call>
__attribute__((no_sanitize("null"))) bool tw_guarded_call(Call call) {
#if defined(__cpp_exceptions)
  try {
    call();
#if defined(__GLIBCXX__)
  } catch (abi::__forced_unwind&) {
    throw;
#endif
  } catch (...) {
    return false;
  }
#else
  call();
#endif
  return true;
}

#endif  // PLATFORM_GUARDED_CALL_H_
