#include "tests/layers/components.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qov::layers {
namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) {
    parts.push_back(part);
  }
  return parts;
}

std::ifstream openOrThrow(const fs::path& file) {
  std::ifstream in(file);
  if (!in) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return in;
}

Component parseComponent(const std::string& line) {
  // The last field may be empty.
  std::vector<std::string> fields = split(line + '\t', '\t');
  if (fields.size() != 3) {
    throw std::runtime_error("not a component's line: " + line);
  }
  std::vector<std::string> uses = split(fields[2], ',');
  return {fields[0], fields[1], {uses.begin(), uses.end()}};
}

}  // namespace

Components Components::read(const fs::path& declarations, const fs::path& headerOwners) {
  Components result;
  std::ifstream lines = openOrThrow(declarations);
  for (std::string line; std::getline(lines, line);) {
    result.components_.push_back(parseComponent(line));
  }
  std::ifstream owners = openOrThrow(headerOwners);
  for (std::string line; std::getline(owners, line);) {
    std::istringstream in(line);
    std::string header;
    std::string owner;
    if (line.empty() || line.front() == '#') {
      continue;
    }
    if (!(in >> header >> owner)) {
      throw std::runtime_error("not a header's line: " + line);
    }
    result.headerOwners_[header] = owner;
  }
  return result;
}

std::string Components::ownerOfPublicHeader(const std::string& name) const {
  auto found = headerOwners_.find(name);
  return found == headerOwners_.end() ? std::string() : found->second;
}

std::string Components::ownerOfPrivateFile(const fs::path& file) const {
  const auto owner = std::find_if(
      components_.begin(), components_.end(),
      [&](const Component& component) { return component.folder == file.parent_path(); });
  return owner == components_.end() ? std::string() : owner->name;
}

std::vector<fs::path> Components::filesOf(const Component& component,
                                          const fs::path& publicHeaders) const {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(component.folder)) {
    const fs::path extension = entry.path().extension();
    if (extension == ".h" || extension == ".cpp") {
      files.push_back(entry.path());
    }
  }
  for (const auto& [header, owner] : headerOwners_) {
    if (owner == component.name && fs::exists(publicHeaders / header)) {
      files.push_back(publicHeaders / header);
    }
  }
  return files;
}

}  // namespace qov::layers
