#ifndef QOVPUB_QOV_CHECK_H
#define QOVPUB_QOV_CHECK_H

#include <qovpub/qov_export.h>

#include <chrono>
#include <string>
#include <vector>

/// Something that a process's files say and cannot mean, or that is missing.
struct QOV_EXPORT QOVFinding {
  /// A problem: the process does not start, or does not do what its files ask for. A warning: what
  /// stands there is ignored, and all else is done.
  bool isWarning = false;
  std::string file;   ///< the path; a module's marker for its library
  unsigned line = 0;  ///< from 1; 0 for none
  std::string what;   ///< the key, if one is concerned, and the cause, as a start tells them

  /// "FILE:LINE: what", with "warning: " before the last if it is one. No line, no ":LINE".
  std::string text() const;
};

/// A section of the configuration file that one module reads.
struct QOV_EXPORT QOVModuleSection {
  std::string module;             ///< as its marker's name has it
  std::string name;               ///< of the section
  std::vector<std::string> keys;  ///< all that the module reads
};

/// How QOV_Check() goes about it.
struct QOV_EXPORT QOVCheckOptions {
  /// What a library may take.
  std::chrono::milliseconds perLibrary{10000};
  /// Also has each module's object made, as a start does, for its faults and its gid.
  bool creates = false;
  /// Modules' sections of which all keys are known: others there are told, as in the library's.
  std::vector<QOVModuleSection> sections;
};

/// Looks for what a start of the process named `process` would complain of, under
/// QOV_Utility::getQOVRootEnv() and with the library's own code: the configuration file, the log
/// file's place, the device configuration if there is one, the markers, and the libraries of the
/// modules. A module's init() is never called, and its entry function only where `how` says so.
///
/// Starts nothing and opens no file for writing. What the modules' own code does is another matter:
/// without `creates` that is no more than the static constructors of a library.
///
/// Libraries are opened in a child process, in the order in which a start opens them, on the search
/// path and with the rights of this process. One that ends the child, or takes too long, is a
/// problem; the others are opened in a child without it. What they write to standard output or
/// error is lost.
///
/// Thread: one, in a process without others: it forks. Waits for its children.
/// Errors: throws std::bad_alloc, and std::system_error when there can be no child.
QOV_EXPORT std::vector<QOVFinding> QOV_Check(const std::string& process,
                                             const QOVCheckOptions& how = {});

#endif
