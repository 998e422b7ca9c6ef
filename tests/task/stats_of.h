#ifndef QOV_TESTS_TASK_STATS_OF_H
#define QOV_TESTS_TASK_STATS_OF_H

#include <gtest/gtest.h>
#include <qovpub/qov_stats.h>

/// The figures of a module that runs.
inline QOVModuleStats statsOf(unsigned int module) {
  for (const QOVModuleStats& stats : getModuleStats()) {
    if (stats.moduleId_ == module) {
      return stats;
    }
  }
  ADD_FAILURE() << "no figures of module " << module;
  return {};
}

#endif
