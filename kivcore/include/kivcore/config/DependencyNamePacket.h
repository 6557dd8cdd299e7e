#pragma once
// One dependency of an initializer: the name of another initializer, or, when it ends in '*', a pattern
// matching every initializer whose name starts with the text before the '*' ("kivml::customoperatordefs::*").
// A null name marks an unused slot. Converts from a string literal so that lists read {"a", "b*"}.

namespace kivcore::config {

struct DependencyNamePacket {
  constexpr DependencyNamePacket(const char* dependencyName = nullptr) noexcept  // NOLINT: literal lists
      : name(dependencyName) {}

  const char* name;  // not owned: a literal, or text that outlives the registrar
};

}  // namespace kivcore::config
