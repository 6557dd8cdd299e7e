#include "kivcore/string/StringConversions.h"

#include <cstring>

namespace kivcore::string {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <class Out>
void AppendUtf8(Out& out, char32_t cp) {
  using C = typename Out::value_type;
  if (cp < 0x80) {
    out.push_back(static_cast<C>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<C>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<C>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<C>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<C>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<C>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<C>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<C>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<C>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<C>(0x80 | (cp & 0x3F)));
  }
}

void AppendWide(wstring& out, char32_t cp) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
      return;
    }
  }
  out.push_back(static_cast<wchar_t>(cp));
}

// Decodes the wide text (UTF-16 or UTF-32 by the width of wchar_t) into code points.
template <class Fn>
void ForEachWideCodePoint(const wchar_t* p, size_t n, Fn&& fn) {
  for (size_t i = 0; i < n; ++i) {
    char32_t c = static_cast<char32_t>(p[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      c &= 0xFFFF;
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n) {
        const char32_t low = static_cast<char32_t>(p[i + 1]) & 0xFFFF;
        if (low >= 0xDC00 && low <= 0xDFFF) {
          fn(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00));
          ++i;
          continue;
        }
      }
      fn(c >= 0xD800 && c <= 0xDFFF ? kReplacement : c);
    } else {
      fn(c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) ? kReplacement : c);
    }
  }
}

}  // namespace

wstring WcharToUTF16(const wchar_t* text) {
  return text == nullptr ? wstring() : wstring(text);
}

wstring AsciiToUTF16(const char* text, size_t length) {
  wstring out;
  out.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    out.push_back(c < 0x80 ? static_cast<wchar_t>(c) : static_cast<wchar_t>(kReplacement));
  }
  return out;
}

std::wstring UTF16ToWstring(const wstring& text) {
  return std::wstring(text.begin(), text.end());
}

u8string UTF16to8(const wstring& text) {
  u8string out;
  out.reserve(text.size());
  ForEachWideCodePoint(text.data(), text.size(), [&](char32_t cp) { AppendUtf8(out, cp); });
  return out;
}

wstring UTF8to16(std::string_view utf8) {
  wstring out;
  out.reserve(utf8.size());
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const size_t n = utf8.size();
  size_t i = 0;
  while (i < n) {
    const unsigned char lead = p[i];
    size_t extra = 0;
    char32_t cp = 0;
    if (lead < 0x80) {
      cp = lead;
    } else if ((lead & 0xE0) == 0xC0) {
      extra = 1;
      cp = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2;
      cp = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3;
      cp = lead & 0x07;
    } else {
      AppendWide(out, kReplacement);
      ++i;
      continue;
    }
    bool valid = i + extra < n;
    for (size_t k = 1; valid && k <= extra; ++k) {
      valid = (p[i + k] & 0xC0) == 0x80;
      cp = (cp << 6) | (p[i + k] & 0x3F);
    }
    constexpr char32_t kMinForLength[] = {0, 0x80, 0x800, 0x10000};
    if (!valid || cp < kMinForLength[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      AppendWide(out, kReplacement);
      ++i;
      continue;
    }
    AppendWide(out, cp);
    i += extra + 1;
  }
  return out;
}

u8string ToU8(std::string_view text) {
  if (text.empty()) {
    return {};  // an empty view may carry a null pointer, which the copy below must not see
  }
  return u8string(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

std::string_view TrimBlanks(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n\f\v";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return text.substr(0, 0);  // keeps a non-null data pointer for copies that reject null
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string ToStdString(const u8string& text) {
  return std::string(reinterpret_cast<const char*>(text.data()), text.size());
}

std::string ToStdString(const wstring& text) {
  return ToStdString(UTF16to8(text));
}

std::string ReplaceInString(const std::string& text, const std::string& from1, const std::string& to1,
                            const std::string& from2, const std::string& to2, const std::string& from3,
                            const std::string& to3, const std::string& from4, const std::string& to4,
                            const std::string& from5, const std::string& to5) {
  std::string result = text;
  const std::pair<const std::string&, const std::string&> pairs[] = {
      {from1, to1}, {from2, to2}, {from3, to3}, {from4, to4}, {from5, to5}};
  for (const auto& [from, to] : pairs) {
    if (from.empty()) {
      continue;
    }
    for (size_t pos = result.find(from); pos != std::string::npos; pos = result.find(from, pos + to.size())) {
      result.replace(pos, from.size(), to);
    }
  }
  return result;
}

}  // namespace kivcore::string
