#ifndef QOV_TOOLS_QOVCTL_MESSAGE_H
#define QOV_TOOLS_QOVCTL_MESSAGE_H

#include <json/value.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_om_message_package.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace qov::ctl {

/// What bytes are read as.
enum class Kind { kV3, kInternal, kOm };

/// "v3", "internal" or "om".
const char* nameOf(Kind kind);
/// The kind of that name; nothing for another one.
std::optional<Kind> kindOf(std::string_view name);
/// The kind that the magic number and the flags at the start of `bytes` tell; nothing when they
/// tell none.
std::optional<Kind> kindOfBytes(std::string_view bytes);

/// The text form of a V3 message, as in the logs.
std::string dumpOf(const CT7QPackageV3& message);

/// One message of any kind.
///
/// Thread: a value for one thread.
/// Owns:   the package.
/// Errors: std::bad_alloc.
class Message {
 public:
  explicit Message(Kind kind);

  /// Lets the library decode the message at the start of `bytes`. Returns how many it takes, or
  /// nothing when the library refuses it; once only.
  std::optional<std::size_t> decode(std::string_view bytes);

  /// Why decode() gave nothing.
  const DecodeFault& fault() const;

  /// The text form, as in the logs.
  std::string dump() const;
  Json::Value json() const;

 private:
  std::variant<std::unique_ptr<CT7QPackageV3>, std::unique_ptr<CQOV_MsgPackage>,
               std::unique_ptr<CQOV_OM_MsgPackage>>
      package_;
};

}  // namespace qov::ctl

#endif
