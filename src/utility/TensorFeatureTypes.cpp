#include "kivml/TensorFeatureTypes.h"

namespace kivml::features {

// constinit: built at compile time from their text, so no static-initialisation order can see them unset.
constinit const kivcore::utility::Guid kInt32TensorFeatureType{"FC94C7DA-0529-4C90-AD1D-3DEBA929FC70", 36};
constinit const kivcore::utility::Guid kInt64TensorFeatureType{"9026BCD7-E1C7-480B-A923-B0E982688A43", 36};
constinit const kivcore::utility::Guid kFloat32TensorFeatureType{"67C63E28-A8D5-45FD-A7BA-21284F0283E1", 36};
constinit const kivcore::utility::Guid kDoubleTensorFeatureType{"C9DA68CE-F067-42A0-972C-FF9B61A1A5F7", 36};
constinit const kivcore::utility::Guid kBoolTensorFeatureType{"4FC8DBEF-931C-4A65-84BC-4413CD069896", 36};

}  // namespace kivml::features
