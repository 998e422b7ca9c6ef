// The first three lines of the input are a section, a key and a value to be set; the rest is the
// content of an INI file.
#include <qovpub/qov_ini_operator.h>

#include <list>
#include <utility>

#include "frame/env/env_ini_import.h"
#include "tests/support/files.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

using Items = std::list<std::pair<std::string, std::string>>;

/// In an order of their own: that of a file changes when it is read.
Items itemsOf(CQOV_Ini_Operator& ini, const std::string& section) {
  Items items;
  ini.enumerateSections(section.c_str(), items);
  items.sort();
  return items;
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
  test::writeFile(file, text);
  CQOV_Ini_Operator ini;
  const bool isIni = ini.open(file.c_str()) == 0;
  require(whyNoIniFile(file).cause.empty() == isIni, "a reason is there if a file is refused");
  if (!isIni || ini.setConfigItem(section.c_str(), key.c_str(), value) != 0) {
    require(test::readFile(file) == text, "a change that is refused leaves the file alone");
    return 0;
  }
  CQOV_Ini_Operator fresh;
  std::string read;
  require(fresh.open(file.c_str()) == 0, "what is saved can be read");
  require(fresh.getConfigItem(section.c_str(), key.c_str(), read) == 0 && read == value,
          "the value that was set is read back");
  require(itemsOf(fresh, section) == itemsOf(ini, section), "the other values are as they were");
  return 0;
}
