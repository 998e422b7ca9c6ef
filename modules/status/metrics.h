#ifndef QOV_MODULES_STATUS_METRICS_H
#define QOV_MODULES_STATUS_METRICS_H

#include <json/value.h>
#include <qovpub/qov_link_stats.h>
#include <qovpub/qov_stats.h>

#include <string>
#include <vector>

#include "modules/status/metrics_writer.h"
#include "modules/status/status_document.h"

namespace qov::status {

/// All that is counted in the process, and what its modules and links do now. docs/operating.md
/// explains the metrics.
///
/// Who collects metrics remembers their names, labels and helps: node_exporter refuses the files of
/// two agents whose helps of one name differ. None changes before the library's major version does.
std::string metricsText(MetricsForm form, const Start& start, const ClientCounts& clients,
                        const std::vector<QOVModuleStats>& modules = getModuleStats(),
                        const std::vector<QOVLinkStats>& links = getLinkStats());

/// The same of now, in the form of OpenMetrics, as an answer.
Json::Value metricsDocument(const Start& start, const ClientCounts& clients);

}  // namespace qov::status

#endif
