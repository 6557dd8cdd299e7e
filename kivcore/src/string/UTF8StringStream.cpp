#include "kivcore/string/UTF8StringStream.h"

namespace kivcore {

// The base is built before mBuffer exists, so it starts without a buffer and gets it here.
UTF8StringStream::UTF8StringStream() : std::ostream(nullptr) {
  rdbuf(&mBuffer);
}

UTF8StringStream::UTF8StringStream(const u8string& initial) : UTF8StringStream() {
  mBuffer.Text() = initial;
}

UTF8StringStream::~UTF8StringStream() = default;

UTF8StringStream& UTF8StringStream::operator<<(double value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(float value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(uint64_t value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(int64_t value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(int value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(short value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(unsigned value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(bool value) {
  std::ostream::operator<<(value);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(char value) {
  static_cast<std::ostream&>(*this) << value;
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(const char* value) {
  static_cast<std::ostream&>(*this) << (value != nullptr ? value : "");
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(const std::string& value) {
  static_cast<std::ostream&>(*this) << value;
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(const u8string& value) {
  static_cast<std::ostream&>(*this) << std::string_view(reinterpret_cast<const char*>(value.data()),
                                                        value.size());
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(const utility::ImmutableString& value) {
  static_cast<std::ostream&>(*this) << value.View();
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
  manipulator(*this);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(std::ios& (*manipulator)(std::ios&)) {
  manipulator(*this);
  return *this;
}

UTF8StringStream& UTF8StringStream::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
  manipulator(*this);
  return *this;
}

UTF8StringStream::Buffer::int_type UTF8StringStream::Buffer::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    mText.push_back(static_cast<unsigned char>(traits_type::to_char_type(c)));
  }
  return traits_type::not_eof(c);
}

std::streamsize UTF8StringStream::Buffer::xsputn(const char_type* data, std::streamsize count) {
  mText.append(reinterpret_cast<const unsigned char*>(data), static_cast<size_t>(count));
  return count;
}

}  // namespace kivcore
