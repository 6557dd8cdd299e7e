#include "ChildProcess.h"

#include <windows.h>

#include <algorithm>
#include <string_view>
#include <system_error>

#include "ToolError.h"

namespace kivml::cli {

namespace {

std::string SystemMessage() {
  return std::system_category().message(static_cast<int>(GetLastError()));
}

// The tool's arguments arrive in the ANSI code page, so that is the one they go back out in.
std::wstring Widen(const std::string& text) {
  if (text.empty()) {
    return {};
  }
  const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), wide.data(), length);
  return wide;
}

// One argument as the C runtime's parser (CommandLineToArgvW) splits it back out: in quotes when it
// holds blanks or quotes, with backslashes doubled only where they precede a quote.
std::wstring Quote(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    return argument;
  }
  std::wstring quoted = L"\"";
  for (auto character = argument.begin();; ++character) {
    size_t backslashes = 0;
    while (character != argument.end() && *character == L'\\') {
      ++character;
      ++backslashes;
    }
    if (character == argument.end()) {
      quoted.append(backslashes * 2, L'\\');
      break;
    }
    if (*character == L'"') {
      quoted.append(backslashes * 2 + 1, L'\\');
    } else {
      quoted.append(backslashes, L'\\');
    }
    quoted.push_back(*character);
  }
  return quoted + L"\"";
}

// A copy of one of this process's standard handles that the child may inherit; null when there is none.
HANDLE InheritableCopy(DWORD which) {
  const HANDLE own = GetStdHandle(which);
  HANDLE copy = nullptr;
  if (own == nullptr || own == INVALID_HANDLE_VALUE ||
      !DuplicateHandle(GetCurrentProcess(), own, GetCurrentProcess(), &copy, 0, TRUE,
                       DUPLICATE_SAME_ACCESS)) {
    return nullptr;
  }
  return copy;
}

class Handles {
 public:
  ~Handles() {
    for (const HANDLE handle : mHandles) {
      if (handle != nullptr) {
        CloseHandle(handle);
      }
    }
  }
  HANDLE Keep(HANDLE handle) {
    mHandles.push_back(handle);
    return handle;
  }
  // Closes one before the others go.
  void Close(HANDLE handle) {
    const auto found = std::find(mHandles.begin(), mHandles.end(), handle);
    if (found != mHandles.end()) {
      CloseHandle(handle);
      mHandles.erase(found);
    }
  }

 private:
  std::vector<HANDLE> mHandles;
};

}  // namespace

int ChildProcess::Run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::optional<std::string>& input) {
  std::wstring commandLine = Quote(program.wstring());
  for (const std::string& argument : arguments) {
    commandLine += L" " + Quote(Widen(argument));
  }

  Handles handles;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  HANDLE writeEnd = nullptr;
  if (input) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE readEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inheritable, 0)) {
      throw ToolError("cannot start '" + program.string() + "': " + SystemMessage());
    }
    handles.Keep(writeEnd);
    SetHandleInformation(writeEnd, HANDLE_FLAG_INHERIT, 0);
    startup.hStdInput = handles.Keep(readEnd);
  } else {
    startup.hStdInput = handles.Keep(InheritableCopy(STD_INPUT_HANDLE));
  }
  startup.hStdOutput = handles.Keep(InheritableCopy(STD_OUTPUT_HANDLE));
  startup.hStdError = handles.Keep(InheritableCopy(STD_ERROR_HANDLE));

  PROCESS_INFORMATION process{};
  if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                      &startup, &process)) {
    throw ToolError("cannot start '" + program.string() + "': " + SystemMessage());
  }
  handles.Keep(process.hProcess);
  handles.Keep(process.hThread);
  if (input) {
    // Written until the program stops reading; its exit status tells why it stopped.
    std::string_view text = *input;
    DWORD written = 0;
    while (!text.empty() &&
           WriteFile(writeEnd, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) {
      text.remove_prefix(written);
    }
    handles.Close(writeEnd);  // the end of its input
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD status = 0;
  if (!GetExitCodeProcess(process.hProcess, &status)) {
    throw ToolError("lost track of '" + program.string() + "': " + SystemMessage());
  }
  return static_cast<int>(status);
}

char ChildProcess::PathListSeparator() noexcept {
  return ';';
}

std::string ChildProcess::ExecutableFileName(const std::string& program) {
  return program + ".exe";
}

}  // namespace kivml::cli
