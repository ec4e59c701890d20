// Mapping, filtering and searching sets, and adding to them with care.
#include "Additions/NSSetAdditions.h"

#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Support/AssertionRecorder.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using NS::Number;
using NS::String;
using Numbers = NS::Set<Number>;
using NumberPtr = std::shared_ptr<Number>;

NumberPtr number(std::int64_t value) {
  return Number::numberWithLongLong(value);
}

Numbers numbers(std::initializer_list<std::int64_t> values) {
  Numbers set;
  for (std::int64_t value : values)
    set.insert(number(value));
  return set;
}

std::set<std::int64_t> values(const Numbers &set) {
  std::set<std::int64_t> plain;
  for (const NumberPtr &member : set)
    plain.insert(member->longLongValue());
  return plain;
}

std::vector<NumberPtr> enumerated(const Numbers &set) {
  return {set.begin(), set.end()};
}

TEST(Map, leavesOutMembersThatMapToNil) {
  Numbers mapped = kw::map(numbers({1, 2, 3}), [](const NumberPtr &object, bool &) {
    return object->longLongValue() == 2 ? nullptr : object;
  });
  EXPECT_EQ(values(mapped), (std::set<std::int64_t>{1, 3}));
}

TEST(Map, collapsesEqualResults) {
  NS::Set<String> mapped = kw::map(numbers({1, 2, 3}), [](const NumberPtr &, bool &) {
    return String::stringWithString("same");
  });
  ASSERT_EQ(mapped.size(), 1U);
  EXPECT_EQ((*mapped.begin())->string(), "same");
}

TEST(Map, endsEarlyThroughTheStopFlagAndKeepsTheLastResult) {
  Numbers set = numbers({1, 2, 3, 4, 5});
  std::vector<NumberPtr> seen;
  Numbers mapped = kw::map(set, [&](const NumberPtr &object, bool &stop) {
    seen.push_back(object);
    stop = seen.size() == 2;
    return object;
  });
  std::vector<NumberPtr> order = enumerated(set);
  EXPECT_EQ(seen, (std::vector<NumberPtr>{order[0], order[1]}));
  EXPECT_EQ(mapped.size(), 2U);
}

TEST(Map, ofAnEmptySetCallsNothing) {
  Numbers mapped = kw::map(Numbers(), [](const NumberPtr &object, bool &) {
    ADD_FAILURE();
    return object;
  });
  EXPECT_TRUE(mapped.empty());
}

TEST(FlatMap, ofEmptySetsIsAnEmptySet) {
  Numbers flat = kw::flatMap(numbers({1, 2}), [](const NumberPtr &, bool &) { return Numbers(); });
  EXPECT_TRUE(flat.empty());
}

TEST(FlatMap, isTheUnionOfTheSetsOfTheBlock) {
  Numbers flat = kw::flatMap(numbers({1, 2, 3}), [](const NumberPtr &object, bool &) {
    std::int64_t value = object->longLongValue();
    return value == 2 ? Numbers() : numbers({value, value + 1, 100});
  });
  EXPECT_EQ(values(flat), (std::set<std::int64_t>{1, 2, 3, 4, 100}));
}

TEST(FlatMap, endsEarlyThroughTheStopFlag) {
  int calls = 0;
  Numbers flat = kw::flatMap(numbers({1, 2, 3}), [&](const NumberPtr &, bool &stop) {
    ++calls;
    stop = true;
    return numbers({7});
  });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(values(flat), (std::set<std::int64_t>{7}));
}

TEST(Filter, keepsTheMembersOfWhichTheBlockSaysYes) {
  Numbers set = numbers({1, 2, 3, 4});
  Numbers even = kw::filter(
      set, [](const NumberPtr &object, bool &) { return object->longLongValue() % 2 == 0; });
  EXPECT_EQ(values(even), (std::set<std::int64_t>{2, 4}));
  for (const NumberPtr &member : even)
    EXPECT_EQ(*set.find(member), member);
}

TEST(Filter, endsEarlyThroughTheStopFlag) {
  int calls = 0;
  Numbers kept = kw::filter(numbers({1, 2, 3}), [&](const NumberPtr &, bool &stop) {
    stop = ++calls == 2;
    return true;
  });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(kept.size(), 2U);
}

TEST(First, isTheFirstMatchInTheSetsOrderAndAsksNoFurther) {
  Numbers set = numbers({1, 2, 3, 4, 5});
  std::vector<NumberPtr> order = enumerated(set);
  std::vector<NumberPtr> seen;
  NumberPtr found = kw::first(set, [&](const NumberPtr &object, bool &) {
    seen.push_back(object);
    return object == order[2] || object == order[3];
  });
  EXPECT_EQ(found, order[2]);
  EXPECT_EQ(seen, (std::vector<NumberPtr>{order[0], order[1], order[2]}));
}

TEST(First, isNilWithoutAMatchOrWhenTheBlockStopsBefore) {
  EXPECT_EQ(kw::first(numbers({1, 2}), [](const NumberPtr &, bool &) { return false; }), nullptr);
  int calls = 0;
  EXPECT_EQ(kw::first(numbers({1, 2}),
                      [&](const NumberPtr &, bool &stop) {
                        stop = true;
                        return ++calls > 1;
                      }),
            nullptr);
  EXPECT_EQ(calls, 1);
}

TEST(SingleObject, isNilOfAnEmptySetWithoutAnAssertion) {
  kwtest::AssertionRecorder recorder;
  EXPECT_EQ(kw::singleObject(Numbers()), nullptr);
  EXPECT_TRUE(recorder.failures.empty());
}

TEST(SingleObject, isTheOnlyMember) {
  NumberPtr only = number(1);
  EXPECT_EQ(kw::singleObject(Numbers{only}), only);
}

TEST(SingleObject, ofTwoFailsItsAssertion) {
  kwtest::LogRecorder log;
  try {
    kw::singleObject(numbers({1, 2}));
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InternalInconsistencyException);
    EXPECT_EQ(exception.reason(),
              "This method may not be applied for containers with multiple items");
  }
}

TEST(SingleObject, ofTwoIsAnyOfThemShouldTheHandlerReturn) {
  kwtest::AssertionRecorder recorder;
  Numbers set = numbers({1, 2});
  NumberPtr any = kw::singleObject(set);
  ASSERT_NE(any, nullptr);
  EXPECT_TRUE(set.contains(any));
  EXPECT_EQ(recorder.failures,
            (std::vector<kwtest::AssertionFailure>{
                {"Sources/Additions/NSSetAdditions",
                 "This method may not be applied for containers with multiple items"}}));
}

TEST(SafeAddObject, ofNilChangesNothing) {
  Numbers set = numbers({1});
  EXPECT_FALSE(kw::safeAddObject(set, nullptr));
  EXPECT_EQ(set.size(), 1U);
}

TEST(SafeAddObject, keepsTheEqualMemberThatIsThere) {
  NumberPtr there = number(1);
  Numbers set{there};
  EXPECT_FALSE(kw::safeAddObject(set, Number::numberWithDouble(1.0)));
  EXPECT_FALSE(kw::safeAddObject(set, there));
  EXPECT_EQ(*set.begin(), there);
}

TEST(SafeAddObject, tellsThatTheSetGrew) {
  Numbers set;
  EXPECT_TRUE(kw::safeAddObject(set, number(1)));
  EXPECT_TRUE(kw::safeAddObject(set, number(2)));
  EXPECT_EQ(set.size(), 2U);
}

TEST(AddOrReplaceObject, putsTheNewInstanceInPlaceOfItsEqual) {
  NumberPtr former = number(1), latter = number(1);
  Numbers set{former, number(2)};
  kw::addOrReplaceObject(set, latter);
  EXPECT_EQ(set.size(), 2U);
  EXPECT_EQ(*set.find(number(1)), latter);
  EXPECT_EQ(former.use_count(), 1);
}

TEST(AddOrReplaceObject, addsAnObjectWithoutAnEqual) {
  Numbers set;
  kw::addOrReplaceObject(set, number(1));
  EXPECT_EQ(values(set), (std::set<std::int64_t>{1}));
}

TEST(AddOrReplaceObject, mayBeGivenTheMemberItself) {
  Numbers set = numbers({1});
  kw::addOrReplaceObject(set, *set.begin());
  EXPECT_EQ(values(set), (std::set<std::int64_t>{1}));
}

TEST(AddOrReplaceObject, raisesForNil) {
  Numbers set = numbers({1});
  EXPECT_THROW(kw::addOrReplaceObject(set, nullptr), NS::Exception);
  EXPECT_EQ(set.size(), 1U);
}

} // namespace
