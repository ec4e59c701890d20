// The version number by which code tells the operating system's releases apart.
#pragma once

#include "Foundation/Base/SharedInstance.h"

namespace NS {

class AppKitVersion : public SharedInstance<AppKitVersion> {
public:
  virtual ~AppKitVersion() = default;
  // A current system's number unless a test replaced it.
  virtual double number() const = 0;

  static AppKitVersion &real();
};

} // namespace NS
