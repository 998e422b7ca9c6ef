#include "frame/env/env_ini_lines.h"

#include <ace/Configuration.h>

#include <fstream>

#include "frame/env/env_ini_import.h"

namespace qov {
namespace {

/// The section and the key, if there are any, of a text with one of each at most.
IniLine readLine(const std::string& text) {
  IniLine line{};
  ACE_Configuration_Heap heap;
  static_cast<void>(importIniText(heap, text));
  ACE_Configuration_Section_Key place = heap.root_section();
  ACE_TString name;
  while (heap.enumerate_sections(place, 0, name) == 0) {
    line.section += (line.section.empty() ? "" : "\\") + std::string(name.c_str());
    ACE_Configuration_Section_Key inner;
    if (heap.open_section(place, name.c_str(), 0, inner) != 0) {
      break;
    }
    place = inner;
  }
  ACE_Configuration::VALUETYPE type;
  if (!line.section.empty() && heap.enumerate_values(place, 0, name, type) == 0) {
    line.key = name.c_str();
  }
  return line;
}

}  // namespace

std::vector<IniLine> linesOfIniFile(const std::string& fileName) {
  std::vector<IniLine> lines;
  std::ifstream file(fileName);
  std::string header;
  unsigned number = 0;
  for (std::string text; std::getline(file, text);) {
    ++number;
    IniLine line = readLine(text);
    const bool isHeader = !line.section.empty();
    if (isHeader) {
      header = text + '\n';
    } else {
      line = readLine(header + text);
    }
    if (isHeader || !line.key.empty()) {
      line.number = number;
      lines.push_back(line);
    }
  }
  return lines;
}

}  // namespace qov
