#ifndef QOVPUB_QOV_MODULE_H
#define QOVPUB_QOV_MODULE_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_task_mgr.h>

/// Gives a module library its entry function: QOV_CreateModule() returns a new `Type`.
///
///     class Hello : public CQOV_TaskMgr { ... };
///     QOV_MODULE(Hello)
///
/// Stands once in a module, outside of all namespaces. `Type` is derived from CQOV_TaskMgr and has
/// a constructor without arguments. The function is called by CQOV_Module_Loader::load() on its
/// thread; what the constructor throws counts as a failure of the module.
///
/// The function is visible where all else is hidden, as it should be: modules are opened with
/// global symbols, so of two classes with one name that two modules show, both run the one that was
/// opened first. CMake's qov_add_module() hides them; other builds give -fvisibility=hidden,
/// -fvisibility-inlines-hidden and, for static libraries, -Wl,--exclude-libs,ALL.
/// The loader warns of a class that comes from another module.
#define QOV_MODULE(Type)                                      \
  extern "C" QOV_EXPORT CQOV_TaskMgr* QOV_CreateModule();     \
  extern "C" QOV_EXPORT CQOV_TaskMgr* QOV_CreateModule() {    \
    return new Type; /* NOLINT(bugprone-macro-parentheses) */ \
  }

#endif
