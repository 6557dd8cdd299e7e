#include "kivml/debug/NumpyDebugIO.h"

#include <array>
#include <map>
#include <string>
#include <string_view>

#include "debug/NpyImage.h"
#include "debug/NumpyDebugHeader.h"
#include "debug/ShapeArithmetic.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/utility/TensorFactories.h"

namespace kivml::debug {

using kivcore::allocator::RecycledMemory;
using kivcore::classref::InterfaceRef;

namespace {

// The element size every debug image is read with, whatever its descriptor says: the writer names the
// float32 descriptor for any tensor, so the descriptor cannot be trusted to size the elements.
constexpr uint64_t kReadElementSize = 4;

struct NumpyTypeCode {
  char mKind;
  char mSizeDigit;
};

// Indexed by NumpyDataType. This one table drives both the descriptors written and those accepted.
constexpr std::array<NumpyTypeCode, 7> kTypeCodes{{
    {'?', '1'},  // kBool
    {'b', '1'},  // kInt8
    {'B', '1'},  // kUInt8
    {'i', '4'},  // kInt32
    {'u', '4'},  // kUInt32
    {'f', '4'},  // kFloat32
    {'f', '8'},  // kFloat64
}};

std::string Descriptor(NumpyDataType type) {
  const NumpyTypeCode& code = kTypeCodes.at(static_cast<size_t>(type));
  return {'<', code.mKind, code.mSizeDigit};
}

// Heterogeneous (string_view lookups) and local to this file, which keeps the map's code out of the
// library's exported symbols.
struct DescriptorLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept { return a < b; }
};

// Descriptor text to type, built once on first use.
const std::map<std::string, NumpyDataType, DescriptorLess>& DescriptorTable() {
  static const auto table = [] {
    std::map<std::string, NumpyDataType, DescriptorLess> descriptors;
    for (size_t value = 0; value < kTypeCodes.size(); ++value) {
      const auto type = static_cast<NumpyDataType>(value);
      descriptors.emplace(Descriptor(type), type);
    }
    return descriptors;
  }();
  return table;
}

}  // namespace

std::shared_ptr<RecycledMemory> DumpDataToNumpy(const void* data, uint64_t byteCount,
                                                std::vector<uint64_t> shape, NumpyDataType type) {
  return npy::ComposeImage(ComposeNumpyDebugDictionary(Descriptor(type), shape), data, byteCount);
}

std::shared_ptr<RecycledMemory> DumpTensorToNumpy(const InterfaceRef<IMLFeature>& feature) {
  const auto tensor = feature.Query<ITensorMLFeatureAccessor>();
  if (!tensor) {
    return nullptr;
  }
  const ShapeType shape = tensor->GetShape();
  return DumpDataToNumpy(tensor->GetData(), tensor->GetCount() * tensor->GetDataTypeSize(),
                         std::vector<uint64_t>(shape.begin(), shape.end()), kFloat32);
}

InterfaceRef<IMLFeature> CreateTensorFromNumpy(const std::shared_ptr<const RecycledMemory>& image) {
  if (!image || image->Buffer() == nullptr || image->Size() <= npy::kVersion1Preamble) {
    return nullptr;
  }
  const char* bytes = image->Buffer();
  const size_t size = image->Size();
  if (!npy::HasMagic(bytes, size) || bytes[6] != 1 || bytes[7] != 0) {
    return nullptr;
  }
  // The length is read as a signed 16-bit value, as these images always have been; every negative one
  // (stored 32768 to 65535) is refused.
  const auto headerLength = static_cast<int16_t>(npy::ReadLittleEndian(bytes + npy::kLengthOffset, 2));
  if (headerLength < 0 || size < npy::kVersion1Preamble + static_cast<size_t>(headerLength)) {
    return nullptr;
  }
  const size_t dataOffset = npy::kVersion1Preamble + static_cast<size_t>(headerLength);

  const std::optional<NumpyDebugHeader> header = MatchNumpyDebugHeader(
      std::string_view(bytes + npy::kVersion1Preamble, static_cast<size_t>(headerLength)));
  if (!header) {
    return nullptr;
  }
  // fortran_order is not consulted: the data are taken in the order in which they lie.
  const std::optional<std::vector<uint64_t>> dimensions = ParseNumpyDebugDimensions(header->mShape);
  if (!dimensions || DescriptorTable().find(header->mDescriptor) == DescriptorTable().end()) {
    return nullptr;
  }
  // A shape that claims more elements than the image holds is refused: a debug reader must never hand
  // out a tensor whose readers, trusting its shape, would read past the end of the image.
  const std::optional<uint64_t> count = CheckedElementCount(*dimensions);
  if (!count || *count > (size - dataOffset) / kReadElementSize) {
    return nullptr;
  }

  StrideType strides = ComputeDebugStrides(*dimensions);
  return utility::CreateTensor(npy::ShareImageData(image, dataOffset), kReadElementSize,
                               ShapeType(dimensions->begin(), dimensions->end()), std::move(strides));
}

}  // namespace kivml::debug
