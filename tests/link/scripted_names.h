#ifndef QOV_TESTS_LINK_SCRIPTED_NAMES_H
#define QOV_TESTS_LINK_SCRIPTED_NAMES_H

#include <string>
#include <vector>

namespace qov::test {

/// What the system knows of names, in a program with scripted_names.cpp. Addresses in numbers, and
/// this machine without a name, are looked up as always.
///
/// Thread: the test's.
class ScriptedNames {
 public:
  /// Knows no name, nor has anybody asked for one.
  static void forget();
  /// `addresses` are in numbers, in the order in which they are given.
  static void know(const std::string& name, std::vector<std::string> addresses);
  /// What getaddrinfo() gives for every name that is not known; EAI_NONAME at first.
  static void failWith(int error);
  /// How often a name was looked up.
  static int lookUps();
};

}  // namespace qov::test

#endif
