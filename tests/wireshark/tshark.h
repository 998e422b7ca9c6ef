#ifndef QOV_TESTS_WIRESHARK_TSHARK_H
#define QOV_TESTS_WIRESHARK_TSHARK_H

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qov::test {

/// What a program left behind.
struct Finished {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs `arguments`, the first of which is looked for in the search path, and waits for its end. It
/// gets an environment of its own: nothing of this home and of what is loaded into this process.
Finished run(const std::vector<std::string>& arguments);

/// One message, or one stretch of bytes that are none, as the dissector shows it.
struct Shown {
  unsigned int frame = 0;
  std::uint16_t clientPort = 0;  ///< the port that is not the endpoint's
  bool fromClient = false;
  Json::Value tree;

  /// The names of the expert items in it, without what they all begin with, in their order.
  std::vector<std::string> experts() const;
  /// The text of the first expert item of that name, empty if there is none.
  std::string expertText(const std::string& name) const;
};

/// Runs tshark with the dissector.
class Tshark {
 public:
  /// With other options, as of the command line.
  explicit Tshark(std::vector<std::string> options = {}) : options_(std::move(options)) {}
  /// With another script than the one of the tree.
  Tshark& useScript(const std::string& script) {
    script_ = script;
    return *this;
  }

  /// All messages of the capture in the order of its frames; a test failure, if tshark cannot be
  /// run or complains or the script has an error.
  std::vector<Shown> messages(const std::string& capture) const;
  /// The lines of `-T fields -e <field> ...` of the frames that `filter` lets pass.
  std::vector<std::string> fields(const std::string& capture, const std::string& filter,
                                  const std::vector<std::string>& names) const;
  /// The run itself, with whatever it ends with.
  Finished start(const std::string& capture, const std::vector<std::string>& arguments) const;

 private:
  Finished checked(const std::string& capture, const std::vector<std::string>& arguments) const;

  std::vector<std::string> options_;
  std::string script_ = QOV_DISSECTOR;
};

/// True if something in there tells of an error in the script.
bool tellsOfScriptError(const Finished& finished);

/// The member as a list: it stands alone if there is one of the name, and not at all if none.
std::vector<Json::Value> all(const Json::Value& tree, const std::string& name);

/// The message's meaning, in the form in which the vectors tell it.
Json::Value meaningOf(const Json::Value& tree);

}  // namespace qov::test

#endif
