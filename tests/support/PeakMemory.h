#pragma once

#include <sys/resource.h>

// The peak resident size of the tool runs a test started, for asserting memory budgets.
namespace frameloom::testing {

// The resident size says something about the tool's own budget only in a plain build: the
// sanitizers' shadow memory and quarantine add hundreds of megabytes of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool residentSizeIsMeaningful = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool residentSizeIsMeaningful = false;
#else
constexpr bool residentSizeIsMeaningful = true;
#endif
#else
constexpr bool residentSizeIsMeaningful = true;
#endif

// The largest resident size, in KiB, of any child process this process has waited for.
inline long childrensPeakKiB() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

} // namespace frameloom::testing
