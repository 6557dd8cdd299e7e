#pragma once
// The element types the debug NumPy images name, with their values fixed: images and callers store them.

namespace kivml::debug {

enum NumpyDataType : int {
  kBool = 0,     // "<?1"
  kInt8 = 1,     // "<b1"
  kUInt8 = 2,    // "<B1"
  kInt32 = 3,    // "<i4"
  kUInt32 = 4,   // "<u4"
  kFloat32 = 5,  // "<f4"
  kFloat64 = 6,  // "<f8"
};

}  // namespace kivml::debug
