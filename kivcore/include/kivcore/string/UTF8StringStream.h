#pragma once
// An output stream that writes into a kivcore::u8string. Formats like a default-constructed std::ostream
// (1.0f prints "1", bool prints 1 or 0, char types print as characters) and passes stream manipulators
// (std::endl, std::hex, std::setprecision, ...) through. Each operator<< returns the UTF8StringStream so
// that library strings can follow anything in a chain. Like any stream, one instance serves one thread at
// a time; separate instances are independent.

#include <ios>
#include <ostream>
#include <streambuf>
#include <string>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"
#include "kivcore/utility/ImmutableString.h"

namespace kivcore {

class KIVCORE_EXPORT UTF8StringStream : public std::ostream {
 public:
  UTF8StringStream();
  explicit UTF8StringStream(const u8string& initial);
  UTF8StringStream(const UTF8StringStream&) = delete;
  UTF8StringStream& operator=(const UTF8StringStream&) = delete;
  ~UTF8StringStream() override;

  u8string str() const { return mBuffer.Text(); }
  void str(const u8string& text) { mBuffer.Text() = text; }

  UTF8StringStream& operator<<(double value);
  UTF8StringStream& operator<<(float value);
  UTF8StringStream& operator<<(uint64_t value);
  UTF8StringStream& operator<<(int64_t value);
  UTF8StringStream& operator<<(int value);
  UTF8StringStream& operator<<(short value);
  UTF8StringStream& operator<<(unsigned value);
  UTF8StringStream& operator<<(bool value);
  UTF8StringStream& operator<<(char value);
  UTF8StringStream& operator<<(const char* value);
  UTF8StringStream& operator<<(const std::string& value);
  UTF8StringStream& operator<<(const u8string& value);
  UTF8StringStream& operator<<(const utility::ImmutableString& value);
  UTF8StringStream& operator<<(std::ostream& (*manipulator)(std::ostream&));
  UTF8StringStream& operator<<(std::ios& (*manipulator)(std::ios&));
  UTF8StringStream& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

  // Anything else a std::ostream can print (other integer widths, std::setw(...), user types).
  template <class T>
  requires requires(std::ostream& out, const T& value) { out << value; }
  UTF8StringStream& operator<<(const T& value) {
    static_cast<std::ostream&>(*this) << value;
    return *this;
  }

 private:
  // Appends to a u8string: characters are UTF-8 bytes already.
  class Buffer : public std::streambuf {
   public:
    u8string& Text() noexcept { return mText; }
    const u8string& Text() const noexcept { return mText; }

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char_type* data, std::streamsize count) override;

   private:
    u8string mText;
  };

  Buffer mBuffer;
};

}  // namespace kivcore
