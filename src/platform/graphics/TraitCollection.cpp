#include <frameloom/platform/graphics/TraitCollection.h>

namespace frameloom::platform {

namespace {

thread_local TraitCollection currentTraits;

} // namespace

TraitCollection TraitCollection::current() {
  return currentTraits;
}

void TraitCollection::setCurrent(const TraitCollection& traits) {
  currentTraits = traits;
}

ScopedTraitCollection::ScopedTraitCollection(const TraitCollection& traits)
    : previous_(TraitCollection::current()) {
  TraitCollection::setCurrent(traits);
}

ScopedTraitCollection::~ScopedTraitCollection() {
  TraitCollection::setCurrent(previous_);
}

} // namespace frameloom::platform
