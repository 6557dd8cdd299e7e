#include "Formatting.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/utility/TensorLayout.h"

namespace kivml::cli {

namespace {

struct ElementType {
  const kivcore::utility::Guid* guid;
  const char* name;
};

// Pointers, not copies: a copy made while this file initialises could read a library constant before
// the library has set it (the addresses, unlike the values, are fixed by then).
const std::array<ElementType, 5> kElementTypes{{
    {&features::kFloat32TensorFeatureType, "float32"},
    {&features::kDoubleTensorFeatureType, "float64"},
    {&features::kInt32TensorFeatureType, "int32"},
    {&features::kInt64TensorFeatureType, "int64"},
    {&features::kBoolTensorFeatureType, "bool"},
}};

const ElementType* FindElementType(const kivcore::utility::Guid& guid) {
  const auto found = std::find_if(kElementTypes.begin(), kElementTypes.end(),
                                  [&](const ElementType& type) { return *type.guid == guid; });
  return found == kElementTypes.end() ? nullptr : &*found;
}

}  // namespace

std::string ElementTypeName(const kivcore::utility::Guid& elementType) {
  const ElementType* type = FindElementType(elementType);
  return type != nullptr ? type->name : "";
}

size_t ElementSize(const kivcore::utility::Guid& elementType) {
  return static_cast<size_t>(utility::GetTensorDataTypeSize(elementType));
}

std::string SupportedElementTypeNames() {
  std::string names;
  for (const ElementType& type : kElementTypes) {
    names += names.empty() ? "" : ", ";
    names += type.name;
  }
  return names;
}

std::string FormatResultCode(int result) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(result));
  return text.data();
}

std::string DescribeFailure(const std::exception_ptr& failure) {
  std::string message;
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& exception) {
    message = kivcore::config::DescribeWithCauses(exception);  // a batched failure carries ONNX Runtime's
  } catch (...) {
    message = "unknown exception";
  }
  const std::string code = FormatResultCode(kivcore::config::ExtractResultFromException(failure));
  return message.empty() ? code : code + ": " + message;
}

std::string FormatFixed(double value, int decimals) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(decimals) << value;
  return text.str();
}

std::string EscapeControlCharacters(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U;
    std::array<char, 8> code{};
    if (byte < 0x20 || byte == 0x7F) {
      std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
    } else if (byte == 0xC2 && next >= 0x80 && next <= 0x9F) {
      std::snprintf(code.data(), code.size(), "\\u00%02x", static_cast<unsigned>(next));
      ++i;
    } else {
      escaped += text[i];
      continue;
    }
    escaped += code.data();
  }
  return escaped;
}

void PrintColumns(std::ostream& out, const std::vector<std::vector<std::string>>& rawRows,
                  std::string_view indent, std::string_view align) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& row : rawRows) {
    auto& cells = rows.emplace_back();
    for (const std::string& cell : row) {
      cells.push_back(EscapeControlCharacters(cell));
    }
  }
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], row[column].size());
    }
  }
  for (const auto& row : rows) {
    std::string line(indent);
    for (size_t column = 0; column < row.size(); ++column) {
      const std::string& cell = row[column];
      const std::string padding(widths[column] - cell.size(), ' ');
      const bool right = column < align.size() && align[column] == 'r';
      line += (column == 0 ? "" : "  ") + (right ? padding + cell : cell + padding);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

}  // namespace kivml::cli
