#ifndef QOVPUB_DETAIL_GUARD_STATE_H
#define QOVPUB_DETAIL_GUARD_STATE_H

#include <string>
#include <type_traits>

class CQOVDebugKit;

namespace qov {

/// Whether `Text` is a pointer to characters or an array of characters that can be written to: a
/// text that may change or go.
template <class Text>
inline constexpr bool isPassing = std::is_convertible_v<Text, char*> ||
                                  (std::is_convertible_v<Text, const char*> &&
                                   !std::is_array_v<std::remove_reference_t<Text>>);
template <class Text>
using IfPassing = std::enable_if_t<isPassing<Text>>;

/// A copy of such a text; null is empty.
inline std::string copyOf(const char* text) {
  return text != nullptr ? std::string(text) : std::string();
}

/// A text that outlives the guard.
struct Borrowed {
  const char* text;
};

/// What a guard keeps: its kit, and the name of the function.
class GuardState {
 public:
  GuardState(int kitId, const std::string& name);
  GuardState(int kitId, Borrowed name);
  GuardState(const GuardState&) = delete;
  GuardState& operator=(const GuardState&) = delete;

  /// Null when there is none to be had.
  const CQOVDebugKit* kit();
  void noteFailure() { ok_ = false; }

  void enter();
  void leave();

 private:
  void trace(const char* before, const char* after);

  const unsigned int kitId_;
  /// How many kits had been deleted when kit_ was found: kit_ is good while that number stands.
  unsigned int deletedKits_;
  const CQOVDebugKit* kit_;
  const std::string owned_;  ///< the name, when it was no literal
  const char* const name_;
  bool ok_ = true;
};

}  // namespace qov

#endif
