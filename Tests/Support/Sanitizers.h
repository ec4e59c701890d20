// Tells whether the test was built with a sanitizer, which rules out some
// tests.
#pragma once

namespace kwtest {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool hasAddressSanitizer = true;
#else
constexpr bool hasAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr bool hasThreadSanitizer = true;
#else
constexpr bool hasThreadSanitizer = false;
#endif
// Much of the process's memory is then the sanitizer's own, so that no bound on
// the program's can be tested.
constexpr bool addsMemory = hasAddressSanitizer || hasThreadSanitizer;

} // namespace kwtest

// The check of objects' types opens a pipe before it looks at one, and takes
// any for none when it cannot.
#define KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS()                                                     \
  if (kwtest::hasAddressSanitizer)                                                                 \
  GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own"

// For a function that writes into memory of a watched call. The sanitizer does not
// see that the system lets the call go on only after that.
#define KW_WRITES_FOR_A_CALL __attribute__((no_sanitize("thread")))
