#ifndef QOV_TESTS_LAYERS_COMPONENTS_H
#define QOV_TESTS_LAYERS_COMPONENTS_H

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qov::layers {

/// One component as its CMakeLists.txt declares it.
struct Component {
  std::string name;
  std::filesystem::path folder;
  std::set<std::string> uses;
};

/// Which component each file belongs to. Reading throws std::runtime_error on a malformed line.
class Components {
 public:
  /// Reads lines of name, folder and uses, separated by tabs.
  static Components read(const std::filesystem::path& declarations,
                         const std::filesystem::path& headerOwners);

  const std::vector<Component>& all() const { return components_; }
  const std::map<std::string, std::string>& headerOwners() const { return headerOwners_; }

  /// The owner of a public header ("qov_msg.h", "detail/cell_block.h"); empty when nobody owns it.
  std::string ownerOfPublicHeader(const std::string& name) const;

  /// The owner of a source or private header.
  std::string ownerOfPrivateFile(const std::filesystem::path& file) const;

  /// Sources and private headers of `component`, its public headers included.
  std::vector<std::filesystem::path> filesOf(const Component& component,
                                             const std::filesystem::path& publicHeaders) const;

 private:
  std::vector<Component> components_;
  std::map<std::string, std::string> headerOwners_;
};

}  // namespace qov::layers

#endif
