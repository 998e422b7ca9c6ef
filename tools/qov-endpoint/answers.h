#ifndef QOV_TOOLS_QOV_ENDPOINT_ANSWERS_H
#define QOV_TOOLS_QOV_ENDPOINT_ANSWERS_H

#include <qovpub/qov_message_package.h>

#include "tools/qov-endpoint/counts.h"
#include "tools/qov-endpoint/tables.h"
#include "tools/qov-endpoint/walks.h"

namespace qov::endpoint {

/// Answers requests as tools/common/endpoint_protocol.h has it.
///
/// Owns: nothing; tables and counts stay the caller's.
class Answers {
 public:
  Answers(Tables& tables, CountsFile& counts) : tables_(tables), counts_(counts) {}

  /// Puts into `answer`, which has the head to answer with and no records, the answer to a request.
  /// `decoded` is false for one that is no message. With `endless` a walk starts over at its end.
  void answer(const CT7QPackageV3& request, bool decoded, bool endless, Walks& walks,
              CT7QPackageV3& answer);

 private:
  Result handle(const CT7QPackageV3& request, bool endless, Walks& walks, CT7QPackageV3& answer);
  Result getNext(const CTLVRecordV3& request, bool endless, Walks& walks, CT7QPackageV3& answer);
  Result get(const CTLVRecordV3& request, const Walks& walks, CT7QPackageV3& answer) const;
  Result store(const CT7QPackageV3& request, CT7QPackageV3& answer);
  Result readCounts(std::uint64_t cmd, CT7QPackageV3& answer) const;

  Tables& tables_;
  CountsFile& counts_;
};

}  // namespace qov::endpoint

#endif
