#ifndef QOV_TOOLS_QOV_ENDPOINT_EXCHANGES_H
#define QOV_TOOLS_QOV_ENDPOINT_EXCHANGES_H

#include <string>

#include "tools/qov-endpoint/answers.h"
#include "tools/qov-endpoint/delivery.h"
#include "tools/qov-endpoint/log.h"
#include "tools/qov-endpoint/scenario.h"

namespace qov::endpoint {

/// Where a request comes from, both counted from 1.
struct Origin {
  std::uint64_t connection;
  std::uint64_t request;
};

/// Makes of a request's bytes what is sent back: the answer, spoilt if the scenario says so.
class Exchanges {
 public:
  Exchanges(Tables& tables, Scenario& scenario, CountsFile& counts, const Log& log)
      : answers_(tables, counts), scenario_(scenario), counts_(counts), log_(log) {}

  /// What a connection meets that has just been accepted.
  Delivery accept(std::uint64_t connection);
  /// `message` is one whole message with a good head.
  Delivery exchange(const Origin& origin, std::string& message, Walks& walks);

 private:
  Delivery deliver(const CT7QPackageV3& request, const Fault* fault, CT7QPackageV3& answer) const;
  void tell(const Origin& origin, const CT7QPackageV3& request, std::size_t bytes,
            const CT7QPackageV3& answer, const Fault* fault) const;

  Answers answers_;
  Scenario& scenario_;
  CountsFile& counts_;
  const Log& log_;
};

}  // namespace qov::endpoint

#endif
