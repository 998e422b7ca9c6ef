#ifndef QOV_TOOLS_QOV_ENDPOINT_STOP_SIGNALS_H
#define QOV_TOOLS_QOV_ENDPOINT_STOP_SIGNALS_H

#include <ace/Event_Handler.h>

namespace qov::endpoint {

/// SIGTERM and SIGINT as events of the loop, from its construction on.
///
/// Owns:   the descriptor that they are read from.
/// Errors: std::runtime_error from the constructor.
class StopSignals : public ACE_Event_Handler {
 public:
  explicit StopSignals(ACE_Reactor& reactor);
  ~StopSignals() override;

  /// How often one has come.
  int count() const { return count_; }

  ACE_HANDLE get_handle() const override { return descriptor_; }
  int handle_input(ACE_HANDLE) override;

 private:
  int descriptor_ = -1;
  int count_ = 0;
};

}  // namespace qov::endpoint

#endif
