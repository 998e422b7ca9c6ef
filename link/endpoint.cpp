#include "link/endpoint.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <utility>

#include "diag/log_ids.h"
#include "link/deadline.h"
#include "link/interruption.h"
#include "link/socket_io.h"

namespace qov {
namespace {

constexpr const char* kSection = "MMT";
constexpr const char* kKey = "MMT_ADDR";

Failure failureToConnect(const std::string& to) {
  return {"connect to the management endpoint " + to, "", 0, "", ""};
}

/// Empty without a root directory.
std::string configurationFile() {
  try {
    return QOV_Utility::getProcessCfgFileName();
  } catch (const CQOV_Exception&) {
    return {};
  }
}

}  // namespace

Endpoint::Endpoint(const std::string& text, Failure where)
    : hostPort_(hostPortOf(text)), failure_(std::move(where)), record_(text) {}

Endpoint::Endpoint(const std::string& text) : Endpoint(text, failureToConnect(text)) {}

Endpoint::Endpoint(const ACE_INET_Addr& address)
    : addresses_{address},
      failure_(failureToConnect(wholeTextOf(address))),
      record_(wholeTextOf(address)) {}

ACE_HANDLE Endpoint::connect(const ACE_Time_Value& timeout, Interruption& interruption,
                             ACE_INET_Addr& tried) {
  const ACE_HANDLE socket = tryAddresses(timeout, interruption, tried);
  if (socket != ACE_INVALID_HANDLE) {
    record_.connected();
  } else {
    record_.failed(failure_.cause);
  }
  return socket;
}

ACE_HANDLE Endpoint::tryAddresses(const ACE_Time_Value& timeout, Interruption& interruption,
                                  ACE_INET_Addr& tried) {
  failure_.cause.clear();
  if (interruption.isSet()) {
    failure_.cause = errnoText(ECANCELED);
    return ACE_INVALID_HANDLE;
  }
  lookUp();
  const Deadline deadline(&timeout);
  std::size_t left = addresses_.size();
  for (const ACE_INET_Addr& address : addresses_) {
    tried = address;
    const ACE_HANDLE socket = connectTo(address, deadline.share(left--), interruption);
    if (socket != ACE_INVALID_HANDLE) {
      failure_.cause.clear();
      return socket;
    }
    const int error = errno;
    noteFailureOf(address, error);
    if (error == ECANCELED) {
      break;
    }
  }
  return ACE_INVALID_HANDLE;
}

void Endpoint::lookUp() {
  if (!isMeant()) {
    failure_.cause = "this is not host:port";
  } else if (addresses_.empty()) {
    addresses_ = addressesOf(*hostPort_, failure_.cause);
  }
}

void Endpoint::noteFailureOf(const ACE_INET_Addr& address, int error) {
  const std::string cause = errnoText(error);
  if (addresses_.size() == 1) {
    failure_.cause = cause;
    return;
  }
  failure_.cause += (failure_.cause.empty() ? "" : "; ") + wholeTextOf(address) + ": " + cause;
}

std::unique_ptr<Endpoint> configuredEndpoint(CQOVDebugKitGuard& guard) {
  std::string text = "127.0.0.1:19001";
  CQOV_Ini_Operator ini;
  const bool named = ini.open(nullptr) == 0 && ini.getConfigItem(kSection, kKey, text) == 0;
  Failure where = failureToConnect(named ? text : text + " (the default)");
  where.file = configurationFile();
  where.key = std::string(kSection) + "/" + kKey;
  auto endpoint = std::make_unique<Endpoint>(text, where);
  if (!endpoint->isMeant()) {
    where.tried = "read the management endpoint";
    where.cause = whyNoHostPort(text);
    guard.warn(log_id::kLinkOddEndpoint, __FUNCTION__, __LINE__, "%s", qov::textOf(where).c_str());
  }
  return endpoint;
}

}  // namespace qov
