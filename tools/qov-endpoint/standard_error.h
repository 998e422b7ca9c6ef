#ifndef QOV_TOOLS_QOV_ENDPOINT_STANDARD_ERROR_H
#define QOV_TOOLS_QOV_ENDPOINT_STANDARD_ERROR_H

#include <ace/Log_Msg_Callback.h>

#include <string>

namespace qov::endpoint {

/// Writes a line to standard error, or drops it when that does not take it at once: a pipe or a
/// terminal that nobody reads must not stop the program, which has one thread.
void tell(const std::string& line);

/// The program's name and why it ends, as one line. The text may have control characters from
/// outside.
void complain(const std::string& why);

/// While it lives, what this thread logs through ACE is told, or nothing of it.
class AceLog : private ACE_Log_Msg_Callback {
 public:
  explicit AceLog(bool tells);
  ~AceLog() override;
  AceLog(const AceLog&) = delete;
  AceLog& operator=(const AceLog&) = delete;

 private:
  void log(ACE_Log_Record& record) override;
};

}  // namespace qov::endpoint

#endif
