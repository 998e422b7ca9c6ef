#ifndef QOV_TESTKIT_TEST_LOG_H
#define QOV_TESTKIT_TEST_LOG_H

#include <ace/Log_Msg.h>

#include <sstream>
#include <string>

namespace qov {

/// Keeps what the calling thread logs at INFO and above, and gives ACE logging back as it was.
class TestLog {
 public:
  TestLog();
  ~TestLog();

  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  std::string text() const { return out_.str(); }

 private:
  static void useFlags(u_long flags);

  const u_long flags_;
  std::ostream* const stream_;
  const u_long mask_;
  std::ostringstream out_;
};

}  // namespace qov

#endif
