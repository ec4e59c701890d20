// The version number by which code tells the operating system's releases apart.
#pragma once

namespace NS {

class AppKitVersion {
public:
  virtual ~AppKitVersion() = default;
  // A current system's number unless a test replaced it.
  virtual double number() const = 0;

  static AppKitVersion &shared();
  static AppKitVersion *exchangeShared(AppKitVersion *replacement);
};

} // namespace NS
