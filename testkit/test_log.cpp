#include "testkit/test_log.h"

namespace qov {

namespace {

constexpr u_long kInfoAndAbove =
    LM_INFO | LM_NOTICE | LM_WARNING | LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY;

ACE_Log_Msg& aceLog() {
  return *ACE_Log_Msg::instance();
}

}  // namespace

TestLog::TestLog()
    : flags_(aceLog().flags()),
      stream_(aceLog().msg_ostream()),
      mask_(aceLog().priority_mask(ACE_Log_Msg::PROCESS)) {
  aceLog().priority_mask(kInfoAndAbove, ACE_Log_Msg::PROCESS);
  useFlags(ACE_Log_Msg::OSTREAM);
  aceLog().msg_ostream(&out_, false);
}

TestLog::~TestLog() {
  aceLog().msg_ostream(stream_, false);
  useFlags(flags_);
  aceLog().priority_mask(mask_, ACE_Log_Msg::PROCESS);
}

void TestLog::useFlags(u_long flags) {
  aceLog().clr_flags(~0UL);
  aceLog().set_flags(flags);
}

}  // namespace qov
