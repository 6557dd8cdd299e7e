#include "kivml/debug/StandardNumpy.h"

#include <array>
#include <bit>
#include <limits>
#include <optional>
#include <vector>

#include "debug/NpyImage.h"
#include "debug/ShapeArithmetic.h"
#include "debug/StandardNumpyHeader.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ResultCodes.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/utility/TensorFactories.h"
#include "kivml/utility/TensorLayout.h"

namespace kivml::debug {

using kivcore::allocator::RecycledMemory;
using kivcore::classref::InterfaceRef;
using kivcore::utility::Guid;

// Elements are copied in and out verbatim under little-endian descriptors.
static_assert(std::endian::native == std::endian::little, "standard .npy images assume a little-endian host");

namespace {

struct StandardType {
  const Guid* mElementType;
  std::string_view mDescriptor;  // as numpy.save writes it
  std::string_view mTypeCode;    // the descriptor without its byte-order mark
  uint64_t mSize;
};

constexpr std::array<StandardType, 5> kStandardTypes{{
    {&features::kInt32TensorFeatureType, "<i4", "i4", 4},
    {&features::kInt64TensorFeatureType, "<i8", "i8", 8},
    {&features::kFloat32TensorFeatureType, "<f4", "f4", 4},
    {&features::kDoubleTensorFeatureType, "<f8", "f8", 8},
    {&features::kBoolTensorFeatureType, "|b1", "b1", 1},
}};

[[noreturn]] void Fail(const std::string& message) {
  throw kivcore::kiv_exception(message.c_str(), eBadFeature);
}

const StandardType* FindStandardType(const Guid& elementType) {
  for (const StandardType& type : kStandardTypes) {
    if (*type.mElementType == elementType) {
      return &type;
    }
  }
  return nullptr;
}

// What numpy.load reads as one of the five types: an optional byte-order mark, then the type code. On this
// little-endian host '<', '=' and '|' (and no mark) all mean the bytes as they lie; byte order means
// nothing to the one-byte bool, which numpy also names "?".
const StandardType& ResolveDescriptor(std::string_view descriptor) {
  std::string_view code = descriptor;
  char order = '=';
  if (!code.empty() && std::string_view("<>=|").find(code.front()) != std::string_view::npos) {
    order = code.front();
    code.remove_prefix(1);
  }
  if (code == "?") {
    code = "b1";
  }
  for (const StandardType& type : kStandardTypes) {
    if (type.mTypeCode != code) {
      continue;
    }
    if (order == '>' && type.mSize > 1) {
      Fail("unsupported dtype '" + std::string(descriptor) + "': big-endian data is not supported");
    }
    return type;
  }
  Fail("unsupported dtype '" + std::string(descriptor) +
       "': only int32, int64, float32, float64 and bool are");
}

struct Preamble {
  size_t mHeaderOffset;
  uint64_t mHeaderLength;
};

Preamble ReadPreamble(const char* bytes, size_t size) {
  if (!npy::HasMagic(bytes, size) || size < npy::kLengthOffset) {
    Fail("not a .npy image");
  }
  const auto major = static_cast<unsigned char>(bytes[6]);
  const auto minor = static_cast<unsigned char>(bytes[7]);
  if ((major != 1 && major != 2 && major != 3) || minor != 0) {
    Fail("unsupported .npy version " + std::to_string(major) + "." + std::to_string(minor));
  }
  // Version 1.0 has a 16-bit header length, 2.0 and 3.0 (UTF-8 header) a 32-bit one.
  const size_t preamble = major == 1 ? npy::kVersion1Preamble : npy::kVersion2Preamble;
  if (size < preamble) {
    Fail("truncated .npy image: " + std::to_string(size) + " bytes");
  }
  return {preamble, npy::ReadLittleEndian(bytes + npy::kLengthOffset, preamble - npy::kLengthOffset)};
}

}  // namespace

std::string StandardNumpyDescriptor(const Guid& elementType) {
  const StandardType* type = FindStandardType(elementType);
  return type ? std::string(type->mDescriptor) : std::string();
}

std::shared_ptr<RecycledMemory> DumpTensorToStandardNumpy(const InterfaceRef<IMLFeature>& feature,
                                                          const Guid& elementType) {
  const auto tensor = feature.Query<ITensorMLFeatureAccessor>();
  if (!tensor) {
    Fail("cannot write a .npy image: the feature is not a tensor");
  }
  const StandardType* type = FindStandardType(elementType);
  if (type == nullptr) {
    Fail("cannot write a .npy image: element type " + elementType.ToString() + " has no NumPy descriptor");
  }
  if (tensor->GetDataTypeSize() != type->mSize) {
    Fail("cannot write a .npy image: the tensor's elements are " + std::to_string(tensor->GetDataTypeSize()) +
         " bytes, " + std::string(utility::GetTensorDataTypeName(elementType)) + " needs " +
         std::to_string(type->mSize));
  }
  // numpy.load insists that the data fill the shape exactly, so the image must not say otherwise.
  const ShapeType tensorShape = tensor->GetShape();
  const std::vector<uint64_t> shape(tensorShape.begin(), tensorShape.end());
  const std::optional<uint64_t> count = CheckedElementCount(shape);
  if (!count || *count != tensor->GetCount()) {
    Fail("cannot write a .npy image: the tensor holds " + std::to_string(tensor->GetCount()) +
         " elements, shape " + FormatShapeTuple(shape) + " needs " +
         (count ? std::to_string(*count) : "more"));
  }
  return npy::ComposeImage(FormatStandardNumpyDictionary(type->mDescriptor, shape), tensor->GetData(),
                           *count * type->mSize);
}

StandardNumpyTensor CreateTensorFromStandardNumpy(const std::shared_ptr<const RecycledMemory>& image) {
  if (!image || image->Buffer() == nullptr) {
    Fail("not a .npy image: no bytes");
  }
  const char* bytes = image->Buffer();
  const size_t size = image->Size();
  const Preamble preamble = ReadPreamble(bytes, size);
  if (preamble.mHeaderLength > size - preamble.mHeaderOffset) {
    Fail("truncated .npy image: the header needs " + std::to_string(preamble.mHeaderLength) + " bytes, " +
         std::to_string(size - preamble.mHeaderOffset) + " follow");
  }
  const size_t dataOffset = preamble.mHeaderOffset + static_cast<size_t>(preamble.mHeaderLength);

  const StandardNumpyHeader header = ParseStandardNumpyHeader(
      std::string_view(bytes + preamble.mHeaderOffset, static_cast<size_t>(preamble.mHeaderLength)));
  if (header.mFortranOrder) {
    Fail("Fortran order is not supported");
  }
  const StandardType& type = ResolveDescriptor(header.mDescriptor);
  const std::optional<uint64_t> needed = CheckedByteCount(header.mShape, type.mSize);
  if (!needed) {
    Fail("shape " + FormatShapeTuple(header.mShape) + " of '" + header.mDescriptor +
         "' does not fit 64 bits");
  }
  if (*needed != size - dataOffset) {
    Fail("data is " + std::to_string(size - dataOffset) + " bytes, shape " + FormatShapeTuple(header.mShape) +
         " of '" + header.mDescriptor + "' needs " + std::to_string(*needed));
  }

  return {utility::CreatePackedTensor(npy::ShareImageData(image, dataOffset), type.mSize,
                                      ShapeType(header.mShape.begin(), header.mShape.end())),
          *type.mElementType};
}

}  // namespace kivml::debug
