// The instance of a seam, real and replaced.
#include "Foundation/Base/SharedInstance.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class Seam : public NS::SharedInstance<Seam> {
public:
  virtual ~Seam() = default;
  static Seam &real();
};

int made = 0;

class Real : public Seam {
public:
  Real() { ++made; }
  ~Real() override { ::_exit(1); }
};

Seam &Seam::real() {
  return NS::lastingInstance<Real>();
}

TEST(SharedInstance, isMadeOnceAndOnlyWhenItIsNeeded) {
  Seam replacement;
  int before = made;
  {
    NS::ScopedOverride<Seam> override(replacement);
    EXPECT_EQ(&Seam::shared(), &replacement);
    EXPECT_EQ(made, before);
  }
  EXPECT_EQ(&Seam::shared(), &Seam::shared());
  EXPECT_EQ(made, 1);
}

TEST(SharedInstance, isTheFormerOneAfterEachOverride) {
  Seam outer, inner;
  Seam *real = &Seam::shared();
  {
    NS::ScopedOverride<Seam> first(outer);
    {
      NS::ScopedOverride<Seam> second(inner);
      EXPECT_EQ(&Seam::shared(), &inner);
    }
    EXPECT_EQ(&Seam::shared(), &outer);
  }
  EXPECT_EQ(&Seam::shared(), real);
}

TEST(SharedInstance, isNotDestroyedWhenTheProcessEnds) {
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    static_cast<void>(Seam::shared());
    std::exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

} // namespace
