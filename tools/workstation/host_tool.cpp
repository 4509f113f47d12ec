#include "workstation/host_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "win32/emulated/storage/file_descriptor.h"
#include "workstation/command.h"

namespace workstation {

namespace {

struct Pipe {
  emulated::FileDescriptor read, write;
};

Pipe MakePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw Failure(std::string("no pipe: ") + strerror(errno));
  return {emulated::FileDescriptor(ends[0]), emulated::FileDescriptor(ends[1])};
}

// Both to their ends, whichever comes first: a full pipe would stop the program.
void ReadAll(const Pipe& out, const Pipe& err, std::string& output, std::string& errors) {
  std::array<pollfd, 2> waits{{{out.read.get(), POLLIN, 0}, {err.read.get(), POLLIN, 0}}};
  std::array<std::string*, 2> texts{&output, &errors};
  while (waits[0].fd >= 0 || waits[1].fd >= 0) {
    if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return;
    for (std::size_t i = 0; i < waits.size(); ++i) {
      if (waits[i].fd < 0 || waits[i].revents == 0) continue;
      std::array<char, 4096> buffer{};
      const ssize_t done = read(waits[i].fd, buffer.data(), buffer.size());
      if (done > 0) {
        texts[i]->append(buffer.data(), static_cast<std::size_t>(done));
      } else {
        waits[i].fd = -1;
      }
    }
  }
}

}  // namespace

std::string RunHostTool(std::vector<std::string> words, const std::string& package, int inherited) {
  constexpr int kInherited = 9;  // of kInheritedFile
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  Pipe out = MakePipe(), err = MakePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.write.get(), STDERR_FILENO);
  if (inherited >= 0) posix_spawn_file_actions_adddup2(&actions, inherited, kInherited);
  pid_t child = 0;
  const int failure = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure == ENOENT) throw Failure(words[0] + " is missing: it is in the package " + package);
  if (failure != 0) throw Failure(words[0] + ": " + strerror(failure));
  out.write = {};
  err.write = {};
  std::string output, errors;
  ReadAll(out, err, output, errors);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (status == 0) return output;
  errors.erase(errors.find_last_not_of('\n') + 1);
  throw Failure(errors.empty() ? words[0] + " failed" : errors.substr(errors.rfind('\n') + 1));
}

}  // namespace workstation
