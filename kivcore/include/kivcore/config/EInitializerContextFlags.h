#pragma once
// Options of an initializer, combinable as bits.

namespace kivcore::config {

enum EInitializerContextFlags : unsigned {
  kInitializerDefault = 0,
  // Its failure does not make RunInitializers fail, and initializers depending on it still run (as they
  // would for a dependency that is not registered).
  kInitializerOptional = 1u << 0,
};

}  // namespace kivcore::config
