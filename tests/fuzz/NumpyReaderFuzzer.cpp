// libFuzzer entry point for the .npy readers: any bytes at all are an image to both of them.
//   CreateTensorFromNumpy returns an empty reference or a tensor whose data lie inside the image and
//   cover its shape; CreateTensorFromStandardNumpy returns a tensor that matches its shape exactly or
//   throws kiv_exception. Anything else aborts, which libFuzzer reports as a crash. Short debug headers
//   are also checked against the regular expression that defines them.

// GCC 12 with -fsanitize=address warns falsely that std::regex's compiler uses a std::function
// uninitialised (-Wmaybe-uninitialized, inside <bits/std_function.h>); it must be off before any header.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

#include "debug/NumpyDebugHeader.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/debug/NumpyDebugIO.h"
#include "kivml/debug/StandardNumpy.h"
#include "kivml/utility/TensorLayout.h"

namespace {

using kivcore::allocator::RecycledMemory;
using kivml::ITensorMLFeatureAccessor;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "NumpyReaderFuzzer: %s\n", what);
  std::abort();
}

// The image in a heap block of exactly its size, so that AddressSanitizer sees any read past its end
// (the core runtime's recycler would round the block up and hide it).
std::shared_ptr<const RecycledMemory> ExactImage(const uint8_t* data, size_t size) {
  std::shared_ptr<char[]> bytes(new char[size]);
  if (size > 0) {
    std::memcpy(bytes.get(), data, size);
  }
  auto image = RecycledMemory::Create(0);
  char* begin = bytes.get();
  image->AttachToExternalBuffer(std::move(bytes), begin, size);
  return image;
}

// Reads every byte of the tensor's data and checks that they lie inside the image.
void TouchData(const ITensorMLFeatureAccessor& tensor, const RecycledMemory& image) {
  const uint64_t bytes = tensor.GetCount() * tensor.GetDataTypeSize();
  const auto* begin = static_cast<const char*>(tensor.GetData());
  if (bytes == 0) {
    return;
  }
  if (begin < image.Buffer() || bytes > static_cast<uint64_t>(image.Buffer() + image.Size() - begin)) {
    Fail("tensor data outside the image");
  }
  volatile unsigned char sink = 0;
  for (uint64_t i = 0; i < bytes; ++i) {
    sink = sink ^ static_cast<unsigned char>(begin[i]);
  }
}

// The shape's element count: 0 when any dimension is 0, however large the others; `overflow` otherwise
// tells whether the product exceeds 64 bits (the readers must have refused such shapes).
uint64_t ShapeCount(const kivml::ShapeType& shape, bool& overflow) {
  overflow = false;
  if (std::find(shape.begin(), shape.end(), uint64_t{0}) != shape.end()) {
    return 0;
  }
  uint64_t count = 1;
  for (const uint64_t dimension : shape) {
    overflow = overflow || count > UINT64_MAX / dimension;
    count *= dimension;
  }
  return count;
}

void CheckDebugReader(const std::shared_ptr<const RecycledMemory>& image) {
  const auto feature = kivml::debug::CreateTensorFromNumpy(image);
  if (!feature) {
    return;
  }
  const auto tensor = feature.Query<ITensorMLFeatureAccessor>();
  if (!tensor) {
    Fail("debug reader returned a feature that is not a tensor");
  }
  bool overflow = false;
  const uint64_t count = ShapeCount(tensor->GetShape(), overflow);
  if (tensor->GetDataTypeSize() != 4 || overflow || count > tensor->GetCount()) {
    Fail("debug reader returned a shape that the data do not cover");
  }
  if (tensor->GetStrides().size() != tensor->GetShape().size() + 1) {
    Fail("debug reader returned strides of the wrong length");
  }
  TouchData(*tensor, *image);
}

void CheckStandardReader(const std::shared_ptr<const RecycledMemory>& image) {
  try {
    const kivml::debug::StandardNumpyTensor read = kivml::debug::CreateTensorFromStandardNumpy(image);
    const auto tensor = read.mFeature.Query<ITensorMLFeatureAccessor>();
    if (!tensor) {
      Fail("standard reader returned a feature that is not a tensor");
    }
    bool overflow = false;
    const uint64_t count = ShapeCount(tensor->GetShape(), overflow);
    if (overflow || count != tensor->GetCount() ||
        tensor->GetDataTypeSize() != kivml::utility::GetTensorDataTypeSize(read.mElementType)) {
      Fail("standard reader returned a tensor that does not match its shape and type");
    }
    TouchData(*tensor, *image);
  } catch (const kivcore::kiv_exception&) {
    // a refused image
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "NumpyReaderFuzzer: %s\n", exception.what());
    Fail("standard reader threw something other than kiv_exception");
  }
}

// The matcher must agree with the expression; only short texts, since std::regex backtracks without bound.
void CheckHeaderMatcher(const uint8_t* data, size_t size) {
  static const std::regex definition(
      R"(\{.*descr.*:.*'(.*).*'.*,.*fortran_order.*:(.*),.*shape.*:.*\((.*)\).*\}.*)"
      "\n?");
  constexpr size_t kLongest = 64;
  if (size < 10) {
    return;
  }
  // The header as the debug reader takes it, cut short where the image ends.
  const size_t length =
      std::min<size_t>(static_cast<size_t>(data[8]) | (static_cast<size_t>(data[9]) << 8), size - 10);
  if (length > kLongest) {
    return;
  }
  const std::string text(reinterpret_cast<const char*>(data) + 10, length);
  std::smatch match;
  const bool matched = std::regex_match(text, match, definition);
  const auto header = kivml::debug::MatchNumpyDebugHeader(text);
  if (header.has_value() != matched ||
      (matched && (header->mDescriptor != match.str(1) || header->mFortranOrder != match.str(2) ||
                   header->mShape != match.str(3)))) {
    Fail("header matcher disagrees with the regular expression");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto image = ExactImage(data, size);
  CheckDebugReader(image);
  CheckStandardReader(image);
  CheckHeaderMatcher(data, size);
  return 0;
}
