// Values written back through bindings, and unbinding.
#include "Additions/NSObjectAdditions.h"

#include "Foundation/Values/KeyValueBinding.h"
#include "Foundation/Values/KeyValueCoding.h"
#include "Foundation/Values/Null.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Foundation/Values/ValueTransformer.h"
#include "Support/AssertionRecorder.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

namespace {

using NS::Null;
using NS::Number;
using NS::String;
using ObjectPtr = std::shared_ptr<NS::Object>;
using Lines = std::vector<std::string>;

class Model : public NS::Object, public NS::KeyValueCoding {
public:
  void setValueForKeyPath(const ObjectPtr &value, const std::string &keyPath) override {
    set.push_back(keyPath + " = " + NS::describe(value));
  }
  std::vector<std::string> set;
};

class View : public NS::Object, public NS::KeyValueBinding {
public:
  std::optional<NS::BindingInfo> infoForBinding(const std::string &binding) override {
    return binding == "value" ? info : std::nullopt;
  }
  void unbind(const std::string &binding) override { unbound.push_back(binding); }

  std::optional<NS::BindingInfo> info;
  std::vector<std::string> unbound;
};

// "reversed x" for "x".
class Reversing : public NS::ValueTransformer {
public:
  explicit Reversing(bool allowed) : allowed_(allowed) {}
  bool allowsReverseTransformation() const override { return allowed_; }
  ObjectPtr transformedValue(const ObjectPtr &value) override { return value; }
  ObjectPtr reverseTransformedValue(const ObjectPtr &value) override {
    return String::stringWithString("reversed " + NS::describe(value));
  }

private:
  const bool allowed_;
};

class PropagateValue : public ::testing::Test {
protected:
  PropagateValue() {
    view->info = NS::BindingInfo{model, String::stringWithString("cache.limit"), std::nullopt};
    NS::ValueTransformer::setValueTransformer(std::make_shared<Reversing>(true), "Reversing");
  }
  ~PropagateValue() override { NS::ValueTransformer::setValueTransformer(nullptr, "Reversing"); }

  void setOptions(NS::BindingOptions options) { view->info->options = std::move(options); }
  void propagate(const std::optional<std::string> &binding = "value") {
    kw::propagateValue(view, Number::numberWithLongLong(7), binding);
  }

  const char *transformerKey = NS::ValueTransformerBindingOption;
  const char *nameKey = NS::ValueTransformerNameBindingOption;
  ObjectPtr reversing = std::make_shared<Reversing>(true);
  ObjectPtr oneWay = std::make_shared<Reversing>(false);
  std::shared_ptr<View> view = std::make_shared<View>();
  std::shared_ptr<Model> model = std::make_shared<Model>();
  kwtest::LogRecorder log;
};

TEST_F(PropagateValue, writesToTheKeyPathOfTheObservedObject) {
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = 7"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PropagateValue, writesNilToo) {
  kw::propagateValue(view, nullptr, "value");
  EXPECT_EQ(model->set, (Lines{"cache.limit = (null)"}));
}

TEST_F(PropagateValue, forAnUnboundNameDoesNothingAndLogsNothing) {
  propagate("title");
  kw::propagateValue(std::make_shared<NS::Object>(), nullptr, "value");
  kw::propagateValue(nullptr, nullptr, "value");
  EXPECT_TRUE(model->set.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PropagateValue, withoutABindingFailsItsAssertion) {
  kwtest::AssertionRecorder recorder;
  propagate(std::nullopt);
  EXPECT_EQ(recorder.failures, (std::vector<kwtest::AssertionFailure>{
                                   {"Sources/Additions/NSObjectAdditions",
                                    "Invalid parameter not satisfying: binding != nil"}}));
  EXPECT_TRUE(model->set.empty());
}

TEST_F(PropagateValue, goesThroughTheTransformerOfTheOptions) {
  setOptions({{transformerKey, reversing}});
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = reversed 7"}));
}

TEST_F(PropagateValue, goesThroughTheNamedTransformerWhenThereIsNoOther) {
  setOptions({{nameKey, String::stringWithString("Reversing")}});
  propagate();
  setOptions({{transformerKey, Null::null()}, {nameKey, String::stringWithString("Reversing")}});
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = reversed 7", "cache.limit = reversed 7"}));
}

TEST_F(PropagateValue, prefersTheTransformerToTheName) {
  setOptions({{transformerKey, oneWay}, {nameKey, String::stringWithString("Reversing")}});
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = 7"}));
}

TEST_F(PropagateValue, writesTheValueAsItIsWithoutAUsableTransformer) {
  setOptions({});
  propagate();
  setOptions({{transformerKey, Null::null()}, {nameKey, Null::null()}});
  propagate();
  setOptions({{nameKey, String::stringWithString("NobodyHasThisName")}});
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = 7", "cache.limit = 7", "cache.limit = 7"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PropagateValue, warnsOfATransformerThatWorksOneWayAndGoesOn) {
  setOptions({{transformerKey, oneWay}});
  propagate();
  EXPECT_EQ(model->set, (Lines{"cache.limit = 7"}));
  EXPECT_EQ(log.lines(),
            (Lines{"WARNING: binding \"value\" has value transformer, but it doesn't allow reverse "
                   "transformations in -[NSObject(KWBindings) propagateValue:forBinding:]"}));
}

TEST_F(PropagateValue, logsAnObservedObjectThatIsNotThere) {
  for (const ObjectPtr &nobody : {ObjectPtr(), ObjectPtr(Null::null())}) {
    view->info->observedObject = nobody;
    propagate();
  }
  std::string line = "ERROR: NSObservedObjectKey was nil for binding \"value\" in "
                     "-[NSObject(KWBindings) propagateValue:forBinding:]";
  EXPECT_EQ(log.lines(), (Lines{line, line}));
}

TEST_F(PropagateValue, logsAKeyPathThatIsNotThere) {
  for (const ObjectPtr &nothing : {ObjectPtr(), ObjectPtr(Null::null())}) {
    view->info->observedKeyPath = nothing;
    propagate();
  }
  std::string line = "ERROR: NSObservedKeyPathKey was nil for binding \"value\" in "
                     "-[NSObject(KWBindings) propagateValue:forBinding:]";
  EXPECT_EQ(log.lines(), (Lines{line, line}));
  EXPECT_TRUE(model->set.empty());
}

TEST_F(PropagateValue, raisesWhenTheObservedObjectHasNoValues) {
  view->info->observedObject = String::stringWithString("text");
  try {
    propagate();
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::UndefinedKeyException);
  }
}

TEST_F(PropagateValue, isUndoneBySafeUnbindOnlyWhereBound) {
  kw::safeUnbind(view, "value");
  kw::safeUnbind(view, "title");
  kw::safeUnbind(std::make_shared<NS::Object>(), "value");
  kw::safeUnbind(nullptr, "value");
  EXPECT_EQ(view->unbound, (Lines{"value"}));
}

} // namespace
