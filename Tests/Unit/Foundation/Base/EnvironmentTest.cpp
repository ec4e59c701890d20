// The variables of this process's environment.
#include "Foundation/Base/Environment.h"

#include "Foundation/Base/Exception.h"
#include "Support/ScopedVariable.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

constexpr const char *name = "KEEPWELL_TEST";

// Empty for a variable that is not set.
std::string valueOf(const char *variable) {
  const char *value = std::getenv(variable);
  return value ? value : "";
}

TEST(Environment, hasTheValueThatWasSetLast) {
  kwtest::ScopedVariable restored(name, "first");
  NS::setEnvironmentVariable(name, "second");
  EXPECT_EQ(valueOf(name), "second");
}

TEST(Environment, refusesNamesAndValuesThatCannotBe) {
  kwtest::ScopedVariable restored(name, "former");
  struct Row {
    std::string name;
    std::string value;
  };
  for (const auto &[refused, value] :
       {Row{"", "x"}, Row{"A=B", "x"}, Row{name + std::string("\0B", 2), "x"},
        Row{name, std::string("x\0", 2)}})
    EXPECT_THROW(NS::setEnvironmentVariable(refused, value), NS::Exception) << refused;
  EXPECT_EQ(valueOf(name), "former");
}

} // namespace
