#ifndef QOV_TOOLS_QOV_ENDPOINT_COUNTS_H
#define QOV_TOOLS_QOV_ENDPOINT_COUNTS_H

#include <cstdint>
#include <string>

namespace qov::endpoint {

/// What has happened, as CountTag has it.
struct Counts {
  std::uint64_t connections = 0;
  std::uint64_t requests = 0;
  std::uint64_t replies = 0;
  std::uint64_t rows = 0;
  std::uint64_t ends = 0;
  std::uint64_t stored = 0;
  std::uint64_t refusals = 0;

  Counts& operator+=(const Counts& more);
};

/// The counts of this process and, if there is a file, of those that wrote to it before.
///
/// The file is brought up to date before an answer is sent. A process that is killed leaves a file
/// that holds all that any client has seen, and at most one answer more for each client that waits
/// for its answers.
///
/// Owns:   the file's descriptor.
/// Errors: std::runtime_error when the file cannot be opened, read or written, or holds something
///         else.
class CountsFile {
 public:
  /// Without a file.
  CountsFile() = default;
  /// Goes on from what the file says; makes it if there is none.
  explicit CountsFile(const std::string& path);
  ~CountsFile();
  CountsFile(const CountsFile&) = delete;
  CountsFile& operator=(const CountsFile&) = delete;

  const Counts& counts() const { return counts_; }
  /// For changes, which save() writes.
  Counts& change() {
    changed_ = true;
    return counts_;
  }
  void save();

 private:
  void read();

  std::string path_;
  int descriptor_ = -1;
  bool changed_ = true;
  Counts counts_;
};

}  // namespace qov::endpoint

#endif
