#pragma once
// Tensor descriptions for tests.

#include <initializer_list>
#include <utility>

#include "kivml/IMLModel.h"
#include "kivml/ITensorFeatureDescription.h"
#include "utility/TensorDescription.h"

namespace kivml::testing {

inline kivcore::classref::InterfaceRef<ITensorFeatureDescription> MakeDescription(
    const char* name, kivcore::utility::Guid dataType, std::initializer_list<int64_t> shape) {
  return kivcore::classref::MakeInterfaceRef<ITensorFeatureDescription>(
      kivcore::classref::CreateObject<utility::TensorDescription>(
          kivcore::utility::ImmutableString::Create(name), dataType, DescriptionShapeType(shape)));
}

}  // namespace kivml::testing
