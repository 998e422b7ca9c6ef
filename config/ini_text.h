#ifndef QOV_CONFIG_INI_TEXT_H
#define QOV_CONFIG_INI_TEXT_H

#include <ace/Configuration.h>

#include <string>
#include <vector>

namespace qov {

/// True if a line with `key` and `value` reads back as these two. `key` is one that ACE accepts.
bool fitsIniLine(const std::string& key, const std::string& value);

/// `value` as it must stand in the file: ACE's reader strips white space around a value and one
/// pair of quotes, its writer puts neither back.
std::string toIniText(const std::string& value);

/// Turns every value of a heap into the text that the file must hold, for the time of an export.
class ValuesAsIniText {
 public:
  explicit ValuesAsIniText(ACE_Configuration_Heap& heap);
  ~ValuesAsIniText();

  ValuesAsIniText(const ValuesAsIniText&) = delete;
  ValuesAsIniText& operator=(const ValuesAsIniText&) = delete;

 private:
  struct Value {
    ACE_Configuration_Section_Key section;
    std::string name;
    std::string text;
  };

  void collect(const ACE_Configuration_Section_Key& section);
  void collectValues(const ACE_Configuration_Section_Key& section);

  ACE_Configuration_Heap& heap_;
  std::vector<Value> changed_;  // with their own texts
};

}  // namespace qov

#endif
