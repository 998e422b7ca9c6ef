#ifndef QOV_TESTS_SUPPORT_SPAWN_H
#define QOV_TESTS_SUPPORT_SPAWN_H

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace qov::test {

/// What a child does before its program begins.
class BeforeProgram {
 public:
  BeforeProgram() { ::posix_spawn_file_actions_init(&actions_); }
  ~BeforeProgram() { ::posix_spawn_file_actions_destroy(&actions_); }
  BeforeProgram(const BeforeProgram&) = delete;
  BeforeProgram& operator=(const BeforeProgram&) = delete;

  void readFrom(int descriptor, const std::string& file) { open(descriptor, file, O_RDONLY); }
  /// An older file of that name is emptied.
  void writeTo(int descriptor, const std::string& file) {
    open(descriptor, file, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
  }
  void close(int descriptor) { ::posix_spawn_file_actions_addclose(&actions_, descriptor); }
  void changeDirectory(const std::string& to) {
    ::posix_spawn_file_actions_addchdir_np(&actions_, to.c_str());
  }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  void open(int descriptor, const std::string& file, int flags) {
    ::posix_spawn_file_actions_addopen(&actions_, descriptor, file.c_str(), flags, 0600);
  }

  posix_spawn_file_actions_t actions_;
};

/// Starts `program`; throws std::runtime_error when that fails. Fit for a process with threads.
inline pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
                   const BeforeProgram& before, char* const* environment = environ) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  pid_t pid = -1;
  if (::posix_spawn(&pid, program.c_str(), before.get(), nullptr, pointers.data(), environment) !=
      0) {
    throw std::runtime_error("cannot start " + program);
  }
  return pid;
}

}  // namespace qov::test

#endif
