#ifndef QOV_MODULES_MQTT_OPERATION_LIST_H
#define QOV_MODULES_MQTT_OPERATION_LIST_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace qov::mqtt {

/// Operations of modules, as the configuration lists them: "10:0x1001,4098 30:*" are two of module
/// 10 and all of module 30.
class OperationList {
 public:
  /// Of nothing.
  OperationList() = default;
  /// Throws std::invalid_argument with the part that is none and why.
  explicit OperationList(const std::string& text);

  /// Whether any operation of the module is listed.
  bool hasModule(std::uint8_t module) const { return modules_.count(module) != 0; }
  bool has(std::uint8_t module, std::uint64_t opc) const;

  /// Calls `use(module, code)` for each operation, without a code for all of a module's.
  template <class Use>
  void each(Use use) const {
    for (const auto& [module, operations] : modules_) {
      if (operations.all) {
        use(module, std::optional<std::uint64_t>());
        continue;
      }
      for (const std::uint64_t code : operations.codes) {
        use(module, std::optional(code));
      }
    }
  }

 private:
  struct Operations {
    bool all = false;
    std::set<std::uint64_t> codes;
  };

  void add(const std::string& entry);

  std::map<std::uint8_t, Operations> modules_;
};

}  // namespace qov::mqtt

#endif
