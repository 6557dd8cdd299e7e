#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "ToolError.h"

extern char** environ;

namespace kivml::cli {

namespace {

std::string SystemMessage(int error) {
  return std::generic_category().message(error);
}

// A program that ends without reading all its input makes the rest fail with EPIPE: that program's exit
// status tells what went wrong, so the SIGPIPE that would end this process is held back and discarded.
void WriteAll(int descriptor, std::string_view text) {
  sigset_t pipeSignal;
  sigset_t previous;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
  bool broken = false;
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      broken = errno == EPIPE;
      break;
    }
    text.remove_prefix(static_cast<size_t>(written));
  }
  if (broken && sigismember(&previous, SIGPIPE) == 0) {
    const timespec now{};
    sigtimedwait(&pipeSignal, nullptr, &now);
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

}  // namespace

int ChildProcess::Run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::optional<std::string>& input) {
  std::vector<std::string> strings{program.string()};
  strings.insert(strings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& text : strings) {
    argv.push_back(text.data());
  }
  argv.push_back(nullptr);

  int pipeEnds[2] = {-1, -1};
  if (input && pipe2(pipeEnds, O_CLOEXEC) != 0) {
    throw ToolError("cannot start '" + program.string() + "': " + SystemMessage(errno));
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input) {
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[0], STDIN_FILENO);
  }
  pid_t child = -1;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (input) {
    close(pipeEnds[0]);
    if (error == 0) {
      WriteAll(pipeEnds[1], *input);
    }
    close(pipeEnds[1]);
  }
  if (error != 0) {
    throw ToolError("cannot start '" + program.string() + "': " + SystemMessage(error));
  }

  int status = 0;
  while (waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) {
      throw ToolError("lost track of '" + program.string() + "': " + SystemMessage(errno));
    }
  }
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  throw ToolError("'" + program.string() + "' was ended by signal " +
                  std::to_string(WIFSIGNALED(status) ? WTERMSIG(status) : 0));
}

char ChildProcess::PathListSeparator() noexcept {
  return ':';
}

std::string ChildProcess::ExecutableFileName(const std::string& program) {
  return program;
}

}  // namespace kivml::cli
