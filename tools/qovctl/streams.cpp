#include "tools/qovctl/streams.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "tools/common/input.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

[[noreturn]] void failToWrite() {
  throw Failure(kFailed, "cannot write: " + std::generic_category().message(errno));
}

}  // namespace

std::string readInput(const std::string& file) {
  const bool standard = file == "-";
  try {
    return standard ? tools::readAll(stdin) : tools::readFile(file);
  } catch (const std::runtime_error& wrong) {
    throw Failure(kFailed, (standard ? "standard input" : file) + ": " + wrong.what());
  }
}

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    failToWrite();
  }
}

void finishOutput() {
  if (std::fflush(stdout) != 0) {
    failToWrite();
  }
}

}  // namespace qov::ctl
