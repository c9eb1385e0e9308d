#pragma once

#include <frameloom/platform/Export.h>

namespace frameloom::platform {

// The interface environment that colours resolve against. Each thread has its own current
// collection, unspecified until the host sets one; `current()` and `setCurrent()` touch only the
// calling thread's.
struct FRAMELOOM_EXPORT TraitCollection {
  enum class UserInterfaceStyle { unspecified, light, dark };

  UserInterfaceStyle userInterfaceStyle = UserInterfaceStyle::unspecified;

  static TraitCollection current();
  static void setCurrent(const TraitCollection& traits);

  friend bool operator==(const TraitCollection&, const TraitCollection&) = default;
};

// Makes `traits` the calling thread's current collection for the life of this object, then puts
// the previous one back.
class FRAMELOOM_EXPORT ScopedTraitCollection {
public:
  explicit ScopedTraitCollection(const TraitCollection& traits);
  ~ScopedTraitCollection();
  ScopedTraitCollection(const ScopedTraitCollection&) = delete;
  ScopedTraitCollection& operator=(const ScopedTraitCollection&) = delete;

private:
  TraitCollection previous_;
};

} // namespace frameloom::platform
