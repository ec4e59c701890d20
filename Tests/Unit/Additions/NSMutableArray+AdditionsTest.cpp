// Non-owning arrays and filtering in place.
#include "Additions/NSMutableArray+Additions.h"

#include "Foundation/Values/Number.h"
#include "Support/AssertionRecorder.h"

#include <gtest/gtest.h>

namespace {

using NS::Number;

class FilterInObjects : public ::testing::Test {
protected:
  FilterInObjects() {
    for (std::int64_t value : {10, 11, 12, 13})
      array->addObject(Number::numberWithLongLong(value));
  }
  std::vector<std::string> left() const {
    std::vector<std::string> texts;
    for (std::size_t index = 0; index < array->count(); ++index)
      texts.push_back(array->objectAtIndex(index)->description());
    return texts;
  }

  std::shared_ptr<NS::MutableArray> array = NS::MutableArray::array();
};
using Texts = std::vector<std::string>;

TEST_F(FilterInObjects, keepsTheElementsThatTheBlockAcceptsInOrder) {
  std::vector<std::size_t> indexes;
  kw::filterInObjectsWithBlock(
      *array, [&](const std::shared_ptr<NS::Object> &object, std::size_t index, bool &) {
        indexes.push_back(index);
        return object->description() != "11";
      });
  EXPECT_EQ(left(), (Texts{"10", "12", "13"}));
  EXPECT_EQ(indexes, (std::vector<std::size_t>{0, 1, 2, 3}));
}

TEST_F(FilterInObjects, stoppedAtIndexOneRemovesUpToThereAndKeepsTheRest) {
  kw::filterInObjectsWithBlock(
      *array, [](const std::shared_ptr<NS::Object> &, std::size_t index, bool &stop) {
        stop = index == 1;
        return false;
      });
  EXPECT_EQ(left(), (Texts{"12", "13"}));
}

TEST_F(FilterInObjects, stoppedAtIndexOneKeepsTheAcceptedElements) {
  kw::filterInObjectsWithBlock(
      *array, [](const std::shared_ptr<NS::Object> &, std::size_t index, bool &stop) {
        stop = index == 1;
        return index == 0;
      });
  EXPECT_EQ(left(), (Texts{"10", "12", "13"}));
}

TEST_F(FilterInObjects, removesNothingBeforeTheScanIsOver) {
  kw::filterInObjectsWithBlock(*array,
                               [&](const std::shared_ptr<NS::Object> &, std::size_t, bool &) {
                                 EXPECT_EQ(array->count(), 4U);
                                 return false;
                               });
  EXPECT_TRUE(left().empty());
}

TEST_F(FilterInObjects, withoutABlockFailsItsAssertion) {
  kwtest::AssertionRecorder recorder;
  kw::filterInObjectsWithBlock(*array, nullptr);
  EXPECT_EQ(recorder.failures, (std::vector<kwtest::AssertionFailure>{
                                   {"Sources/Additions/NSMutableArray+Additions",
                                    "Invalid parameter not satisfying: filteringBlock"}}));
  EXPECT_EQ(array->count(), 4U);
}

TEST(MutableArrayUsingWeakReferences, leavesTheCountOfItsElementsAlone) {
  auto object = std::make_shared<NS::Object>();
  auto array = kw::mutableArrayUsingWeakReferences();
  auto other = kw::mutableArrayUsingWeakReferencesWithCapacity(8);
  array->addObject(object);
  other->addObject(object);
  EXPECT_EQ(object.use_count(), 1);
  EXPECT_EQ(array->objectAtIndex(0), object);
  EXPECT_EQ(object.use_count(), 1);
}

TEST(MutableArrayUsingWeakReferences, findsItsElementsByEquality) {
  auto one = Number::numberWithLongLong(1);
  auto array = kw::mutableArrayUsingWeakReferences();
  array->addObject(one);
  EXPECT_EQ(array->indexOfObject(*Number::numberWithDouble(1)), 0U);
  EXPECT_EQ(array->description(), "(\n    1\n)");
}

TEST(MutableArrayUsingWeakReferences, isFilteredBeforeItsElementsGo) {
  auto stays = Number::numberWithLongLong(1), goes = Number::numberWithLongLong(2);
  auto array = kw::mutableArrayUsingWeakReferences();
  array->addObject(goes);
  array->addObject(stays);
  kw::filterInObjectsWithBlock(*array, [&](const std::shared_ptr<NS::Object> &object, std::size_t,
                                           bool &) { return object != goes; });
  goes.reset();
  EXPECT_EQ(array->count(), 1U);
  EXPECT_EQ(array->objectAtIndex(0), stays);
  EXPECT_EQ(stays.use_count(), 1);
}

} // namespace
