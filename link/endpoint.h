#ifndef QOV_LINK_ENDPOINT_H
#define QOV_LINK_ENDPOINT_H

#include <ace/INET_Addr.h>
#include <ace/Time_Value.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/env/failure.h"
#include "link/endpoint_address.h"
#include "link/link_record.h"

class CQOVDebugKitGuard;

namespace qov {

class Interruption;

/// The endpoint of a link: how it is called, its addresses, and why it cannot be reached.
///
/// Thread: one at a time.
/// Owns:   nothing of the system.
/// Errors: by failure(). Throws std::bad_alloc only.
class Endpoint {
 public:
  /// `text` is as hostPortOf() takes it. `where` says of failure() what it can but the cause.
  Endpoint(const std::string& text, Failure where);
  explicit Endpoint(const std::string& text);
  explicit Endpoint(const ACE_INET_Addr& address);

  /// Whether it is meant as an endpoint at all. If not, connect() always fails.
  bool isMeant() const { return !addresses_.empty() || hostPort_.has_value(); }

  /// A connected socket, or ACE_INVALID_HANDLE. Tries one address after the other until `timeout`
  /// is over, each for an equal part of what is left, and sets `tried` to each. Looks the addresses
  /// up if that has not succeeded so far, which `timeout` does not bound and nothing interrupts. An
  /// address that has used up its part is not tried again when others leave time over.
  ACE_HANDLE connect(const ACE_Time_Value& timeout, Interruption& interruption,
                     ACE_INET_Addr& tried);

  /// Of the last connect(); its cause is empty when that has succeeded.
  const Failure& failure() const { return failure_; }

  /// What getLinkStats() has of the link. connect() keeps it; who closes the connection tells it.
  LinkRecord& record() { return record_; }

 private:
  ACE_HANDLE tryAddresses(const ACE_Time_Value& timeout, Interruption& interruption,
                          ACE_INET_Addr& tried);
  void lookUp();
  void noteFailureOf(const ACE_INET_Addr& address, int error);

  std::optional<HostPort> hostPort_;
  std::vector<ACE_INET_Addr> addresses_;
  Failure failure_;
  LinkRecord record_;
};

/// The endpoint that the process's configuration file names, or the default one. A value that
/// cannot be meant is logged and stays: the link shall not work with another endpoint than the one
/// that was meant.
std::unique_ptr<Endpoint> configuredEndpoint(CQOVDebugKitGuard& guard);

}  // namespace qov

#endif
