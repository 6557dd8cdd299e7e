#include "kivcore/logging/Logging.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <typeinfo>
#include <utility>

#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"
#include "kivcore/debug/TypeName.h"
#include "kivcore/string/StringConversions.h"
#include "utility/CallbackSlot.h"

namespace kivcore::logging {
namespace {

struct SinkState {
  utility::CallbackSlot<LogSink> sink;  // empty means standard error
  std::mutex stderrMutex;               // keeps default-sink lines whole
};

SinkState& GetSinkState() {
  static SinkState* state = new SinkState();  // static destructors may still log
  return *state;
}

void WriteToStandardError(const std::string& line) {
  SinkState& state = GetSinkState();
  std::lock_guard lock(state.stderrMutex);
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

std::string HexCode(unsigned code) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", code);
  return text;
}

void Publish(const std::string& text, u8string* messageOut) {
  if (messageOut != nullptr) {
    *messageOut = string::ToU8(text);
  }
  LogMessage(text);
}

}  // namespace

LogSink SetLogSink(LogSink sink) {
  return GetSinkState().sink.Exchange(std::move(sink));
}

void LogMessage(const std::string& line) {
  const std::shared_ptr<const LogSink> sink = GetSinkState().sink.Get();
  // Called outside the lock so that a sink may itself log or replace the sink.
  if (sink) {
    (*sink)(line);
  } else {
    WriteToStandardError(line);
  }
}

void LogException(const std::exception_ptr& exception, utility::StringValue context, u8string* messageOut) {
  std::string text = context.Text().empty() ? "Exception: " : "Exception in " + context.Text() + ": ";
  if (!exception) {
    Publish(text + "no exception", messageOut);
    return;
  }
  const std::string code = HexCode(static_cast<unsigned>(config::ExtractResultFromException(exception)));
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception& e) {
    text +=
        string::ToStdString(debug::GetTypeName(typeid(e))) + " " + code + " " + config::DescribeWithCauses(e);
  } catch (...) {
    text += "unknown exception " + code;
  }
  Publish(text, messageOut);
}

void LogMachineException(unsigned code, const char* context, u8string* messageOut) {
  std::string text = "Machine exception " + HexCode(code);
  if (context != nullptr && *context != '\0') {
    text += " in ";
    text += context;
  }
  Publish(text, messageOut);
}

}  // namespace kivcore::logging
