// Lists that hold their elements and lists that do not.
#include "Foundation/Values/MutableArray.h"

#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"

#include <gtest/gtest.h>

namespace {

using NS::MutableArray;
using NS::String;

std::shared_ptr<MutableArray> letters(std::initializer_list<const char *> texts) {
  auto array = MutableArray::array();
  for (const char *text : texts)
    array->addObject(String::stringWithString(text));
  return array;
}

TEST(MutableArray, holdsItsElementsInOrder) {
  auto array = letters({"a", "b"});
  EXPECT_EQ(array->count(), 2U);
  EXPECT_EQ(array->objectAtIndex(0)->description(), "a");
  EXPECT_EQ(array->objectAtIndex(1)->description(), "b");
  EXPECT_EQ(array->description(), "(\n    a,\n    b\n)");
}

TEST(MutableArray, holdsNothingWhenMadeSo) {
  auto object = std::make_shared<NS::Object>();
  auto array = MutableArray::arrayWithoutRetaining(10);
  array->addObject(object);
  EXPECT_EQ(object.use_count(), 1);
  EXPECT_EQ(array->objectAtIndex(0), object);
  auto holding = MutableArray::array();
  holding->addObject(object);
  EXPECT_EQ(object.use_count(), 2);
}

TEST(MutableArray, takesAnyCapacityForAHint) {
  auto array = MutableArray::arrayWithoutRetaining(static_cast<std::size_t>(-1));
  EXPECT_EQ(array->count(), 0U);
}

TEST(MutableArray, findsByEquality) {
  auto array = letters({"a", "b", "b"});
  EXPECT_EQ(array->indexOfObject(*String::stringWithString("b")), 1U);
  EXPECT_FALSE(array->indexOfObject(*String::stringWithString("c")));
}

TEST(MutableArray, isEqualByItsElements) {
  EXPECT_TRUE(letters({"a", "b"})->isEqual(*letters({"a", "b"})));
  EXPECT_FALSE(letters({"a", "b"})->isEqual(*letters({"b", "a"})));
  EXPECT_FALSE(letters({"a"})->isEqual(*letters({"a", "b"})));
  EXPECT_FALSE(letters({"a"})->isEqual(*String::stringWithString("a")));
  EXPECT_EQ(letters({"a", "b"})->hash(), letters({"a", "b"})->hash());
}

TEST(MutableArray, removesAllIndexesAtOnce) {
  auto array = letters({"a", "b", "c", "d"});
  array->removeObjectsAtIndexes({0, 2});
  EXPECT_TRUE(array->isEqual(*letters({"b", "d"})));
  array->removeObjectsAtIndexes({});
  EXPECT_EQ(array->count(), 2U);
}

TEST(MutableArray, raisesPastItsEndAndForNil) {
  auto array = letters({"a"});
  EXPECT_THROW(array->objectAtIndex(1), NS::Exception);
  EXPECT_THROW(array->removeObjectsAtIndexes({0, 1}), NS::Exception);
  EXPECT_THROW(array->addObject(nullptr), NS::Exception);
  EXPECT_EQ(array->count(), 1U);
}

} // namespace
