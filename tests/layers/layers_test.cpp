// A component includes only what it declares under USES or BESIDE, and declares nothing that it
// does not include. That USES runs one way, bottom up, is checked when the build is configured.
#include <gtest/gtest.h>

#include <fstream>
#include <string_view>

#include "tests/layers/components.h"
#include "tests/layers/includes.h"

namespace fs = std::filesystem;

namespace qov::layers {
namespace {

const fs::path kTreeRoot = QOV_TREE_ROOT;
const fs::path kPublicHeaders = QOV_PUBLIC_HEADERS_DIR;

Components readTree() {
  return Components::read(QOV_COMPONENTS_FILE, QOV_HEADER_OWNERS_FILE);
}

/// The component that `include` belongs to; empty for files of other projects.
std::string ownerOfInclude(const Components& tree, const std::string& include) {
  constexpr std::string_view kPublic = "qovpub/";
  if (include.compare(0, kPublic.size(), kPublic) == 0) {
    return tree.ownerOfPublicHeader(include.substr(kPublic.size()));
  }
  const fs::path inTree = kTreeRoot / include;
  return fs::exists(inTree) ? tree.ownerOfPrivateFile(inTree) : std::string();
}

/// Component by component it includes, one file that does.
std::map<std::string, std::string> includedComponents(const Components& tree,
                                                      const Component& component) {
  std::map<std::string, std::string> included;
  for (const fs::path& file : tree.filesOf(component, kPublicHeaders)) {
    for (const std::string& include : includesOf(file)) {
      const std::string owner = ownerOfInclude(tree, include);
      if (!owner.empty() && owner != component.name) {
        included[owner] = fs::relative(file, kTreeRoot).string() + " includes " + include;
      }
    }
  }
  return included;
}

TEST(Layers, AComponentIncludesOnlyWhatItUses) {
  const Components tree = readTree();
  ASSERT_FALSE(tree.all().empty());
  for (const Component& component : tree.all()) {
    for (const auto& [owner, evidence] : includedComponents(tree, component)) {
      EXPECT_EQ(component.uses.count(owner), 1u)
          << evidence << ", but component " << component.name << " does not list " << owner
          << " under USES or BESIDE in " << component.folder / "CMakeLists.txt";
    }
  }
}

TEST(Layers, AComponentListsNothingThatItDoesNotInclude) {
  const Components tree = readTree();
  for (const Component& component : tree.all()) {
    const std::map<std::string, std::string> included = includedComponents(tree, component);
    for (const std::string& used : component.uses) {
      EXPECT_EQ(included.count(used), 1u)
          << "component " << component.name << " lists " << used << " and includes nothing of it";
    }
  }
}

TEST(Layers, EveryPublicHeaderHasAnOwner) {
  const Components tree = readTree();
  std::set<std::string> names;
  for (const Component& component : tree.all()) {
    names.insert(component.name);
  }
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kPublicHeaders)) {
    const std::string header = fs::relative(entry.path(), kPublicHeaders);
    if (entry.is_directory()) {
      continue;
    }
    EXPECT_EQ(names.count(tree.ownerOfPublicHeader(header)), 1u)
        << header << " has no component in " << QOV_HEADER_OWNERS_FILE;
  }
}

TEST(Layers, EveryOwnedHeaderExists) {
  const Components tree = readTree();
  for (const auto& [header, owner] : tree.headerOwners()) {
    EXPECT_TRUE(fs::exists(kPublicHeaders / header))
        << QOV_HEADER_OWNERS_FILE << " names " << header << ", which is gone";
  }
}

/// What is built on the library.
class LayersAbove : public ::testing::TestWithParam<const char*> {};

TEST_P(LayersAbove, IncludesOfTheLibraryItsPublicHeadersOnly) {
  const Components tree = readTree();
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kTreeRoot / GetParam())) {
    const fs::path& file = entry.path();
    if (file.extension() != ".h" && file.extension() != ".cpp") {
      continue;
    }
    ++files;
    for (const std::string& include : includesOf(file)) {
      const bool isPublic =
          include.rfind("qovpub/", 0) == 0 && include.rfind("qovpub/detail/", 0) != 0;
      EXPECT_TRUE(isPublic || ownerOfInclude(tree, include).empty())
          << file << " includes " << include;
    }
  }
  EXPECT_GT(files, 0);
}

INSTANTIATE_TEST_SUITE_P(Folders, LayersAbove, ::testing::Values("tools", "modules"));

TEST(LayersReader, FindsIncludesOfBothFormsAndSkipsCommentedOnes) {
  const fs::path file = fs::path(testing::TempDir()) / "layers_reader_sample.h";
  std::ofstream(file) << "#include <qovpub/qov_msg.h>\n"
                         "  #  include \"diag/rotation.h\"  // why\n"
                         "// #include \"task/worker.h\"\n";
  EXPECT_EQ(includesOf(file), (std::vector<std::string>{"qovpub/qov_msg.h", "diag/rotation.h"}));
  fs::remove(file);
}

}  // namespace
}  // namespace qov::layers
