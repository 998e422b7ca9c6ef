// The first three lines of the input are a section, a key and a value to be set; the rest is the
// content of an INI file.
#include <fcntl.h>
#include <qovpub/qov_ini_operator.h>

#include "frame/env/env_ini_import.h"
#include "tests/config/fuzz/ini_content.h"
#include "tests/support/files.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

/// As test::writeFile(), without a look at the folder.
void write(const std::string& file, const std::string& text) {
  const int handle = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  require(::write(handle, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          "the input is written");
  ::close(handle);
}

test::IniContent contentOf(const std::string& text) {
  ACE_Configuration_Heap heap;
  require(importIniText(heap, text) == 0, "what can be opened can be read");
  return test::contentOf(heap);
}

/// `section` names sections one in the other.
std::string pathOf(std::string section) {
  std::replace(section.begin(), section.end(), '\\', '\n');
  return "\n" + section;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  static const test::TemporaryDirectory folder;
  static const std::string file = folder.file("agent.cfg");
  std::string text = test::textOf(data, size);
  const std::string section = test::takeLine(text);
  const std::string key = test::takeLine(text);
  const std::string value = test::takeLine(text);
  write(file, text);
  CQOV_Ini_Operator ini;
  const bool isIni = ini.open(file.c_str()) == 0;
  // It reads every line of a good file, which takes long.
  if (!isIni || size % 8 == 0) {
    require(whyNoIniFile(file).cause.empty() == isIni, "a reason is there if a file is refused");
  }
  const bool isSet = isIni && ini.setConfigItem(section.c_str(), key.c_str(), value) == 0;
  const std::string after = test::readFile(file);
  if (!isSet) {
    require(after == text, "a change that is refused leaves the file alone");
    return 0;
  }
  test::IniContent expected = contentOf(text);
  expected[test::pathOfValue(pathOf(section.c_str()), key.c_str())] = value;
  require(haveSameValues(contentOf(after), expected),
          "the value that was set is read back, and all others");
  return 0;
}
