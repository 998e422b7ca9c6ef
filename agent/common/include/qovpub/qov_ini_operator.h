#ifndef QOVPUB_QOV_INI_OPERATOR_H
#define QOVPUB_QOV_INI_OPERATOR_H

#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>
#include <qovpub/qov_export.h>

#include <list>
#include <memory>
#include <string>
#include <utility>

/// Reads and writes one INI file, by default the configuration file of this process.
///
/// open() loads the file as a whole; every change is written back as a whole, which drops comments
/// and the former layout. How the file is read and written is ACE's way (docs/configuration.md):
/// keys ignore case, section names must be written as they are in the file.
///
/// Thread: not locked; each user keeps an operator of its own.
/// Owns:   its copy of the file's content; no descriptor stays open. A child that another thread
///         starts during open() may inherit one: ACE opens files without O_CLOEXEC.
/// Errors: every operation returns 0, or -1 on failure. Nothing is logged, nothing but
///         std::bad_alloc thrown. A missing value is a failure, never an empty text.
class QOV_EXPORT CQOV_Ini_Operator {
 public:
  CQOV_Ini_Operator();
  ~CQOV_Ini_Operator();

  CQOV_Ini_Operator(const CQOV_Ini_Operator&) = delete;
  CQOV_Ini_Operator& operator=(const CQOV_Ini_Operator&) = delete;

  /// Loads `fileName`; null stands for QOV_Utility::getProcessCfgFileName().
  ///
  /// -1 when the file cannot be read or is no INI file. The operator then holds the part before the
  /// first bad line. It holds nothing if there is no file, or if a line begins with "=" or with a
  /// zero byte. Do not save then: the rest of the file would be lost, and a missing file would be
  /// made. An operator opens once: a further open() returns -1 and leaves the first file in use.
  int open(const char* fileName);

  /// Puts the text of `key` in `section` into `value`. On failure `value` is unchanged.
  int getConfigItem(const char* section, const char* key, std::string& value);

  /// Appends the (key, text) pairs of one section to `items`, in ACE's order. In spite of its name,
  /// which is kept, it lists the values of a section and not the sections.
  int enumerateSections(const char* section, std::list<std::pair<std::string, std::string>>& items);

  /// Changes one value and saves. The section must exist; the key is made if it does not.
  ///
  /// What the file could not give back is refused with -1: a value with a line break or a zero
  /// byte; an empty key, one with a line break, "=", "[", "]" or "\", one that begins with ";" or
  /// "#" or has white space around it; a key of more than 255 bytes; key and value of more than
  /// 4,094 bytes together.
  ///
  /// Saving replaces the file: whoever reads it, also after a crash, finds the old or the new one
  /// whole. Owner, group and permissions stay; a symbolic link is followed. -1 and the old file
  /// when the file is not writable, or the disk has no room. When saving fails the change stays in
  /// memory and goes out with the next save that succeeds.
  ///
  /// Where no file can be put in its place, it is written over: in a directory that is not
  /// writable, where its owner could not be kept, where the file is a mount point, and where its
  /// name has more than 248 bytes. Saving waits for whoever has it locked (flock), at most 5
  /// seconds, and then fails with EWOULDBLOCK. Room is reserved first where the file system can do
  /// that. When writing fails all the same, the former content is put back as far as the disk takes
  /// it. But a reader may find a part of each: while it is written, and after the process or the
  /// machine has died in the middle.
  ///
  /// What is saved is what this operator has read and set: a change that another one has saved
  /// since open() is undone. To change one value of a file that others change, too, open a new
  /// operator for it and exclude the others meanwhile. A file that has gone is made anew, with 0644
  /// less the file mode mask.
  int setConfigItem(const char* section, const char* key, const std::string& value);

  /// Changes several values of one section in list order and saves once. Stops at the first that
  /// fails, without saving; those before it stay changed in memory. An empty list saves, too.
  int setConfigItem(const char* section,
                    const std::list<std::pair<std::string, std::string>>& items);

  /// Changes one value in memory only, under the rules of setConfigItem().
  int setConfigItem_i(const char* section, const char* key, const std::string& value);

 private:
  bool openSection(const char* section, ACE_Configuration_Section_Key& key);
  int save();

  ACE_Configuration_Heap heap_;
  std::unique_ptr<ACE_Ini_ImpExp> importer_;  // there as soon as the operator is opened
  std::string fileName_;
};

#endif
