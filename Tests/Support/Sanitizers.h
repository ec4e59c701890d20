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

#if defined(__SANITIZE_THREAD__)
extern "C" {
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
}

// While one exists, the thread sanitizer leaves this thread's use of memory out: it
// does not see that the system holds up the other thread meanwhile.
class WhileTheOtherThreadIsHeld {
public:
  WhileTheOtherThreadIsHeld() {
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
  }
  ~WhileTheOtherThreadIsHeld() {
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
  }
  WhileTheOtherThreadIsHeld(const WhileTheOtherThreadIsHeld &) = delete;
  WhileTheOtherThreadIsHeld &operator=(const WhileTheOtherThreadIsHeld &) = delete;
};
#else
struct WhileTheOtherThreadIsHeld {
  WhileTheOtherThreadIsHeld() {}
};
#endif

} // namespace kwtest

// The check of objects' types opens a pipe before it looks at one, and takes
// any for none when it cannot.
#define KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS()                                                     \
  if (kwtest::hasAddressSanitizer)                                                                 \
  GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own"
